// The modes of the tool that show a dialog. Each registers the dialogs'
// templates, asks whether this process can show a window at all, and only
// then opens its dialog. Without a display they say so on standard error,
// answer 0 and leave the reports and the settings as they are.
#pragma once

#include "shell/wide_string.h"

// "-report": the information dialog about the pending reports; nothing at
// all when there are none. Answers 0.
int RunReportMode();
// No option, or an unknown one: the settings dialog. Answers 0.
int RunSettingsMode();
// The error dialog of "-send" for the products that get one; the settings
// are the dialog's own business. The dialog's result is not looked at.
// Answers 0.
int RunSendDialog(const WideString& reportName, const WideString& productName);
