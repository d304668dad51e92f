#include "dialogs/dialog_environment.h"

#include <QApplication>
#include <cstdlib>

namespace {

bool IsSet(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && value[0] != '\0';
}

}  // namespace

bool DialogsAvailable() {
  if (QCoreApplication::instance() != nullptr) return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
  return IsSet("QT_QPA_PLATFORM") || IsSet("DISPLAY") || IsSet("WAYLAND_DISPLAY");
}

bool EnsureDialogApplication() {
  if (QCoreApplication::instance() != nullptr) return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
  if (!DialogsAvailable()) return false;
  // The application keeps references to both for its whole life.
  static int argc = 1;
  static char name[] = "MLCrashReporter";
  static char* argv[] = {name, nullptr};
  // Never deleted: widgets of static objects may still go at exit, and the
  // application must outlast them.
  new QApplication(argc, argv);
  // The last dialog closing must not end anything; the tool decides that.
  QApplication::setQuitOnLastWindowClosed(false);
  return true;
}
