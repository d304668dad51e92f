#include "dialogs/dialog_environment.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QLibraryInfo>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char* Value(const char* name) {
  const char* value = std::getenv(name);
  return (value != nullptr && value[0] != '\0') ? value : nullptr;
}

bool CanConnect(const std::string& path, bool abstract) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::size_t offset = abstract ? 1 : 0;
  if (path.size() + offset >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path + offset, path.data(), path.size());
  socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + offset + path.size() + (abstract ? 0 : 1));
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  bool connected = connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0;
  close(fd);
  return connected;
}

// A local X display (":0", "unix:0.0") is checked by connecting to its
// socket, because the toolkit ends the process when it can't; a display on
// another host is taken on trust.
bool XDisplayReachable(const char* display) {
  std::string text(display);
  std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  std::string host = text.substr(0, colon);
  if (!host.empty() && host != "unix") return true;
  std::string number = text.substr(colon + 1);
  number = number.substr(0, number.find('.'));
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return false;
  std::string path = "/tmp/.X11-unix/X" + number;
  return CanConnect(path, true) || CanConnect(path, false);
}

bool WaylandPluginInstalled() {
  QDir platforms(QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms"));
  return !platforms.entryList({QStringLiteral("libqwayland*.so")}, QDir::Files).isEmpty();
}

}  // namespace

bool DialogsAvailable() {
  if (QCoreApplication::instance() != nullptr) {
    return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
  }
  if (Value("QT_QPA_PLATFORM") != nullptr) return true;
  if (Value("WAYLAND_DISPLAY") != nullptr && WaylandPluginInstalled()) return true;
  const char* display = Value("DISPLAY");
  return display != nullptr && XDisplayReachable(display);
}

bool EnsureDialogApplication() {
  if (QCoreApplication::instance() != nullptr) {
    return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
  }
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
