#include "support/server_settings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <mutex>

#include "platform/machine_paths.h"
#include "shell/format_string.h"
#include "shell/registry.h"
#include "shell/string_helpers.h"
#include "support/password_cipher.h"
#include "support/settings_store.h"

namespace Marlowen {

namespace {

constexpr char16_t kBaseGroup[] = u"Base";
constexpr char16_t kAccountGroup[] = u"Account";
constexpr std::size_t kAccountBuffer = kMaxSettingsText + 1;
constexpr std::size_t kSmaBuffer = kMaxSmaNumber + 1;

// One lock for all Server.xml readers, so that each cache is filled once.
std::mutex& ServerSettingsLock() {
  static std::mutex lock;
  return lock;
}

// -1 and empty mean "not filled yet".
int cachedDebugLogging = -1;
int cachedServerPort = -1;
int cachedServerPortSsl = -1;
int cachedRequireClientSsl = -1;
WideString cachedSmaNumber;

bool HasPath(const char16_t* path) { return path && *path; }

// Reads one Int of the group "Base" through the cache.
int ReadCachedInt(const char16_t* path, int& cache, const char16_t* name, int defaultValue) {
  std::lock_guard<std::mutex> guard(ServerSettingsLock());
  if (!path && cache != -1) return cache;
  std::unique_ptr<SettingsStore> store = OpenStore(ServerSettingsPath(path));
  if (!store) return -1;
  std::int32_t value = defaultValue;
  IntValue(value, defaultValue, name, kBaseGroup, *store, false);
  CloseStore(store);
  cache = value;
  return value;
}

// The Bin64 "Password" of `group`, deciphered; empty if absent or if it
// doesn't decipher.
std::string ReadPassword(SettingsStore& store, WideStringView group) {
  std::uint8_t cipher[kMaxDecipheredPassword] = {};
  std::size_t length = 0;
  Bin64Value(cipher, sizeof cipher, u"Password", group, store, false, &length);
  std::string plain;
  if (length == 0 || !DecipherPassword(cipher, length, kAccountKeyPartA, kAccountKeyPartB, plain)) {
    plain.clear();
  }
  return plain;
}

WideString Cut(const WideString& text, std::size_t bufferSize) {
  if (bufferSize == 0) return WideString();
  return text.substr(0, bufferSize - 1);
}

WideString DefaultServerSettingsPath() {
  return Utf8ToWide(platform::CommonAppDataFolder()) + u"/Marlowen/Server Settings/Server.xml";
}

}  // namespace

WideString ServerSettingsPath(const char16_t* path) {
  if (HasPath(path)) return WideString(path);
  return DefaultServerSettingsPath();
}

int GetEnableDebugLogging(const char16_t* path) {
  return ReadCachedInt(path, cachedDebugLogging, u"EnableDebugLogging", 0);
}

int GetServerPort(const char16_t* path, bool ssl) {
  if (ssl) return ReadCachedInt(path, cachedServerPortSsl, u"ServerPortSSL", kDefaultServerPortSsl);
  return ReadCachedInt(path, cachedServerPort, u"ServerPort", kDefaultServerPort);
}

int GetRequireClientSSL(const char16_t* path) {
  return ReadCachedInt(path, cachedRequireClientSsl, u"RequireClientSSL", 0);
}

void GetSMANumber(const char16_t* path, WideString& smaNumber) {
  std::lock_guard<std::mutex> guard(ServerSettingsLock());
  if (!path && !cachedSmaNumber.empty()) {
    smaNumber = cachedSmaNumber;
    return;
  }
  std::unique_ptr<SettingsStore> store = OpenStore(ServerSettingsPath(path));
  if (!store) {
    smaNumber.clear();
    return;
  }
  StringValue(smaNumber, kSmaBuffer, u"", u"SMANumber", kBaseGroup, *store, false);
  CloseStore(store);
  cachedSmaNumber = smaNumber;
}

int GetAccount(const char16_t* path, WideString& user, WideString& password, WideString& domain,
               std::size_t bufferSize) {
  std::lock_guard<std::mutex> guard(ServerSettingsLock());
  const WideString file = ServerSettingsPath(path);
  if (access(WideToUtf8(file).c_str(), F_OK) != 0) return 0;
  std::unique_ptr<SettingsStore> store = OpenStore(file);
  if (!store) return 0;
  StringValue(user, bufferSize, u"", u"Username", kAccountGroup, *store, false);
  password = Cut(MultiByteToWide(ReadPassword(*store, kAccountGroup), kCodePageUtf8), bufferSize);
  StringValue(domain, bufferSize, u"", u"Domain", kAccountGroup, *store, false);
  CloseStore(store);
  return 1;
}

int SetAccount(const char16_t* path, WideStringView user, WideStringView password, WideStringView domain) {
  const WideString file = ServerSettingsPath(path);
  const std::string utf8File = WideToUtf8(file);
  // The old file goes first. Its mode doesn't matter for unlink here, and
  // changing it could follow a symbolic link to some other file.
  unlink(utf8File.c_str());
  std::unique_ptr<SettingsStore> store = CreateStore(file);
  if (!store) return 0;
  WideString text(user);
  StringValue(text, kAccountBuffer, u"", u"Username", kAccountGroup, *store, true);
  std::string plain = WideToUtf8(password);
  if (plain.size() > kMaxStoredPassword) plain.resize(kMaxStoredPassword);
  if (!plain.empty()) {
    std::vector<std::uint8_t> cipher;
    if (EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher)) {
      Bin64Value(cipher.data(), cipher.size(), u"Password", kAccountGroup, *store, true);
    }
  }
  text.assign(domain);
  StringValue(text, kAccountBuffer, u"", u"Domain", kAccountGroup, *store, true);
  // The file holds a password: its owner alone may read it.
  const bool saved = SaveStore(*store, 0600);
  CloseStore(store);
  return saved ? 1 : 0;
}

int ListAccounts(WideString* path, std::vector<AccountEntryT>& accounts, std::time_t* lastWrite) {
  std::lock_guard<std::mutex> guard(ServerSettingsLock());
  WideString file;
  if (!path || path->empty()) {
    const WideString configured =
        ReadRegistryString(u"\\\\HKLM\\Software\\Marlowen", u"ConfigurationPath");
    file = configured.empty() ? DefaultServerSettingsPath() : configured + u"/Server Settings/Server.xml";
    if (path) *path = file;
    if (lastWrite) {
      struct stat info;
      *lastWrite = stat(WideToUtf8(file).c_str(), &info) == 0 ? info.st_mtime : 0;
    }
  } else {
    file = *path;
  }
  std::unique_ptr<SettingsStore> store = OpenStore(file);
  if (!store) return 0;

  WideString user;
  WideString domain;
  StringValue(user, kAccountBuffer, u"", u"Username", kAccountGroup, *store, false);
  const WideString password = MultiByteToWide(ReadPassword(*store, kAccountGroup), kCodePageAnsi);
  StringValue(domain, kAccountBuffer, u"", u"Domain", kAccountGroup, *store, false);

  accounts.clear();
  accounts.reserve(5);
  accounts.push_back(AccountEntryT{
      u"default", domain.empty() ? FormatString(u"%s@%s", user.c_str(), password.c_str())
                                 : FormatString(u"%s\\%s@%s", domain.c_str(), user.c_str(), password.c_str())});

  for (int n = 1;; ++n) {
    const WideString group = FormatString(u"HostConfiguration_%i", n);
    WideString host;
    StringValue(host, kAccountBuffer, u"", u"Host", group, *store, false);
    if (host.empty()) break;
    WideString hostUser;
    StringValue(hostUser, kAccountBuffer, u"", u"Username", group, *store, false);
    const WideString hostPassword = MultiByteToWide(ReadPassword(*store, group), kCodePageAnsi);
    accounts.push_back(AccountEntryT{host, FormatString(u"%s@%s", hostUser.c_str(), hostPassword.c_str())});
  }
  CloseStore(store);
  return 1;
}

}  // namespace Marlowen
