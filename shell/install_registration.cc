// ml-install-registration: the machine-wide steps of installing the tool,
// run by `cmake --install` once the files are in place.
//
//   ml-install-registration <full path of MLCrashReporter>
//
// Under $MARLOWEN_ROOT (the install script points it below DESTDIR) it writes
// the tool's App Paths entry into the registry file, which is how a crashing
// program finds the tool and the dump library, and creates the report
// folder's parents writable by every user with the sticky bit, since any
// user's crashing program writes its report there.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "platform/machine_paths.h"
#include "capture/tool_registry_entry.h"
#include "shell/registry.h"
#include "shell/wide_string.h"

namespace {

constexpr mode_t kSharedStickyFolder = 01777;

bool MakeSharedFolder(const std::string& path) {
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    std::fprintf(stderr, "ml-install-registration: cannot create %s: %s\n", path.c_str(),
                 strerror(errno));
    return false;
  }
  // chmod, not the mode of mkdir: the umask would take the bits for others.
  if (chmod(path.c_str(), kSharedStickyFolder) != 0) {
    std::fprintf(stderr, "ml-install-registration: cannot set the mode of %s: %s\n", path.c_str(),
                 strerror(errno));
    return false;
  }
  return true;
}

bool MakeFolderTree(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string parent = path.substr(0, slash);
    if (mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) {
      std::fprintf(stderr, "ml-install-registration: cannot create %s: %s\n", parent.c_str(),
                   strerror(errno));
      return false;
    }
  }
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    std::fprintf(stderr, "ml-install-registration: cannot create %s: %s\n", path.c_str(),
                 strerror(errno));
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || argv[1][0] != '/') {
    std::fprintf(stderr, "usage: ml-install-registration <full path of MLCrashReporter>\n");
    return 2;
  }
  const std::string toolPath = argv[1];
  const std::string toolFolder = toolPath.substr(0, toolPath.rfind('/'));
  if (toolPath.find(' ') != std::string::npos) {
    // The crashing program starts the tool by an unquoted command line, and
    // the tool then reads the rest of the path as its command text.
    std::fprintf(stderr,
                 "ml-install-registration: warning: %s holds a blank; crash reports will stay "
                 "pending instead of being sent\n",
                 toolPath.c_str());
  }

  if (!WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolPathValueName,
                           Utf8ToWide(toolPath)) ||
      !WriteRegistryString(Marlowen::kToolRegistryPath, Marlowen::kToolFolderValueName,
                           Utf8ToWide(toolFolder))) {
    std::fprintf(stderr, "ml-install-registration: cannot write %s\n",
                 platform::RegistryFilePath().c_str());
    return 1;
  }

  const std::string dataFolder = platform::CommonAppDataFolder();
  const std::string vendorFolder = dataFolder + "/Marlowen";
  if (!MakeFolderTree(dataFolder) || !MakeSharedFolder(vendorFolder) ||
      !MakeSharedFolder(vendorFolder + "/Crash Reports")) {
    return 1;
  }
  std::printf("-- Registered %s in %s\n", toolPath.c_str(), platform::RegistryFilePath().c_str());
  return 0;
}
