// The dialog templates and icons of the crash reporter's three dialogs, and
// the ids by which the handlers address their controls.
#pragma once

#include <cstdint>
#include <vector>

#include "dialogs/dialog_template.h"

// Template ids.
inline constexpr int kSettingsDialogTemplate = 106;
inline constexpr int kInfoDialogTemplate = 108;
inline constexpr int kErrorDialogTemplate = 109;

// Icon resources: the information dialog shows the first, the error dialog
// the second.
inline constexpr int kInformationIcon = 106;
inline constexpr int kErrorIcon = 107;

// Control ids. Some ids serve different controls in different templates
// (1011 is "do not send" everywhere; 1025 is a status line in all three).
enum CrashReportControlId : int {
  kIdViewFiles = 1001,
  kIdSendAll = 1002,
  kIdDeleteReports = 1003,
  kIdSmaNumber = 1004,
  kIdDeleteChoice = 1009,
  kIdDoNotSend = 1011,
  kIdInfoHeading = 1013,
  kIdErrorIcon = 1014,
  kIdInfoIcon = 1017,
  kIdErrorHeading = 1018,
  kIdSend = 1019,
  kIdAskFirst = 1020,
  kIdPleaseHelp = 1021,
  kIdDisabledNote = 1022,
  kIdProgress = 1024,
  kIdStatus = 1025,
  kIdReportCount = 1026,
  kIdLinkPlaceholder = 1029,
  kIdKbLinkPlaceholder = 1030,
};

const DialogTemplate& SettingsDialogTemplate();
const DialogTemplate& InfoDialogTemplate();
const DialogTemplate& ErrorDialogTemplate();

// Registers the three templates and the two icons with the dialog layer, so
// that DialogBoxParamW finds them by id. Cheap after the first call. The
// icons are drawn here, so a caller that may run without a display asks
// DialogsAvailable first; without one, the templates are registered and the
// icons stay empty.
void RegisterCrashReportResources();

// The icons as PNG bytes, 32 by 32 pixels, drawn by code.
std::vector<std::uint8_t> DrawInformationIconPng();
std::vector<std::uint8_t> DrawErrorIconPng();
