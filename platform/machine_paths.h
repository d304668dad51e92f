// Machine-wide locations of the system on Linux.
//
// One environment variable, MARLOWEN_ROOT, moves all of them at once (empty or
// unset means "/"), so that tests and staging give every case its own root.
// Results are UTF-8 paths without a trailing slash.
#pragma once

#include <string>

namespace platform {

// $MARLOWEN_ROOT without trailing slashes; "" stands for "/".
std::string MachineRoot();

// The all-users application data folder (folder number 35 on the other
// platform): <root>/var/lib. It is not created here.
std::string CommonAppDataFolder();

// The registry stand-in: <root>/etc/marlowen/registry.reg.
std::string RegistryFilePath();

// The folder of the log endpoint, and the endpoint "MLLog.1" itself:
// <root>/run/marlowen/MLLog.1.
std::string LogEndpointFolder();
std::string LogEndpointPath(const std::string& name);

// $TMPDIR, else /tmp; no trailing slash.
std::string TemporaryFolder();

}  // namespace platform
