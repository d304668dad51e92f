// Readers and writers of the machine-wide server configuration, Server.xml,
// a settings store.
//
// Where no path is given (null or empty), the file is
// <application data>/Marlowen/Server Settings/Server.xml. The four simple
// readers keep what they read in a process-wide cache: with a null path and
// a filled cache they answer from the cache, with a path they read the file
// and refill it. All of them but SetAccount run under one process-wide lock.
// Nothing is logged; absent values give their defaults.
#pragma once

#include <cstddef>
#include <ctime>
#include <vector>

#include "shell/wide_string.h"

namespace Marlowen {

inline constexpr int kDefaultServerPort = 7000;
inline constexpr int kDefaultServerPortSsl = 7001;
inline constexpr std::size_t kMaxSmaNumber = 255;
// SetAccount keeps at most this many bytes of the password.
inline constexpr std::size_t kMaxStoredPassword = 128;
// The account readers decipher at most this many bytes, so a password of
// more than 64 bytes comes back cut.
inline constexpr std::size_t kMaxDecipheredPassword = 64;

// `path` if it is given and not empty, else the default path.
WideString ServerSettingsPath(const char16_t* path);

// Group "Base", Int "EnableDebugLogging"; default 0.
int GetEnableDebugLogging(const char16_t* path);
// Group "Base", Int "ServerPort" (default 7000) or, with `ssl`,
// "ServerPortSSL" (default 7001).
int GetServerPort(const char16_t* path, bool ssl);
// Group "Base", Int "RequireClientSSL"; default 0.
int GetRequireClientSSL(const char16_t* path);
// Group "Base", String "SMANumber", at most 255 characters; default empty.
void GetSMANumber(const char16_t* path, WideString& smaNumber);

// Group "Account": user, deciphered password and domain, each cut to
// bufferSize - 1 units. 0 if there is no file, else 1.
int GetAccount(const char16_t* path, WideString& user, WideString& password, WideString& domain,
               std::size_t bufferSize);

// Replaces the file with one that holds only the group "Account": every other
// setting of the file is lost, and callers who want to keep them must put
// them back. The password goes in enciphered, and an empty one leaves no
// Password value. The new file is readable by its owner only. 1 if the file
// was written, else 0.
int SetAccount(const char16_t* path, WideStringView user, WideStringView password, WideStringView domain);

struct AccountEntryT {
  WideString key;   // "default", or a host
  WideString text;  // "domain\user@password" or "user@password"
};

// The account of the file under the key "default", then those of the groups
// "HostConfiguration_1", "_2", ... up to the first without a Host, each under
// its host's name. With `path` null or empty, the file is found through the
// registry's ConfigurationPath under HKEY_LOCAL_MACHINE\Software\Marlowen,
// else the default path; an empty `path` buffer then receives it, and
// `lastWrite`, if given, the file's last-write time (0 if there is none).
// 1, or 0 if the file can't be opened.
int ListAccounts(WideString* path, std::vector<AccountEntryT>& accounts, std::time_t* lastWrite);

}  // namespace Marlowen
