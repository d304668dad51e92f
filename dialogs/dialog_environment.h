// Whether this process can show dialogs, and the one application object that
// the widgets need.
#pragma once

// True when dialogs can be shown: an application object that shows widgets
// already runs, or the environment names a window-system plugin
// (QT_QPA_PLATFORM, such as "offscreen"), a Wayland display with the
// toolkit's Wayland plugin installed, or an X display that answers (a local
// one is tried; one on another host is trusted). Otherwise showing a dialog
// would end the process, so the tool asks here first and prints a message
// instead. Never aborts and creates nothing.
bool DialogsAvailable();

// Creates the process-wide application object on first use; it lives until
// the process ends. Answers false, creating nothing, when DialogsAvailable
// says no or when the running application object can't show widgets. Called
// by every operation that makes a window; the tool need not call it.
bool EnsureDialogApplication();
