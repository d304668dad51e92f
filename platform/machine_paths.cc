#include "platform/machine_paths.h"

#include <cstdlib>

namespace platform {
namespace {

std::string StripTrailingSlashes(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::string MachineRoot() {
  const char* root = std::getenv("MARLOWEN_ROOT");
  return StripTrailingSlashes(root ? root : "");
}

std::string CommonAppDataFolder() { return MachineRoot() + "/var/lib"; }

std::string RegistryFilePath() { return MachineRoot() + "/etc/marlowen/registry.reg"; }

std::string LogEndpointFolder() { return MachineRoot() + "/run/marlowen"; }

std::string LogEndpointPath(const std::string& name) { return LogEndpointFolder() + "/" + name; }

std::string TemporaryFolder() {
  const char* tmp = std::getenv("TMPDIR");
  std::string folder = StripTrailingSlashes(tmp ? tmp : "");
  return folder.empty() ? std::string("/tmp") : folder;
}

}  // namespace platform
