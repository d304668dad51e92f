// The modes of the tool that show a dialog. This build has no dialogs yet:
// each of these tells the user so on standard error and answers 0, the value
// that the dialog ways give.
#pragma once

#include "shell/wide_string.h"

// "-report": tells of the pending reports.
int RunReportMode();
// No option, or an unknown one: the reporting settings.
int RunSettingsMode();
// The error dialog of "-send" for the products that get one; the settings
// are the dialog's own business. The dialog's result is not looked at.
int RunSendDialog(const WideString& reportName, const WideString& productName);
