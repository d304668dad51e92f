#include "tools/server_settings/server_settings_tool.h"

#include <unistd.h>

#include <charconv>
#include <functional>
#include <memory>
#include <istream>
#include <ostream>

#include <xercesc/dom/DOM.hpp>

#include "support/server_settings.h"
#include "support/settings_store.h"
#include "support/settings_xml.h"

namespace {

namespace xc = XERCES_CPP_NAMESPACE;
using namespace Marlowen;

constexpr int kExitDone = 0;
constexpr int kExitFileError = 1;
constexpr int kExitUsage = 2;

constexpr char16_t kBaseGroup[] = u"Base";
constexpr std::size_t kShowBuffer = 4096;

constexpr char kUsage[] =
    "Usage: ml-server-settings [--file PATH] COMMAND [ARGUMENTS]\n"
    "\n"
    "Reads and changes the server settings file, by default\n"
    "<root>/var/lib/Marlowen/Server Settings/Server.xml.\n"
    "\n"
    "Commands:\n"
    "  show                          print every setting (the password only as set or not)\n"
    "  set-port PORT                 port of plain connections (1-65535; default 7000)\n"
    "  set-ssl-port PORT             port of SSL connections (1-65535; default 7001)\n"
    "  set-require-client-ssl on|off whether clients must connect with SSL\n"
    "  set-debug-logging on|off      whether the server logs for debugging\n"
    "  set-sma-number NUMBER         the maintenance agreement number (up to 255 characters)\n"
    "  set-account USER [DOMAIN]     the service account; the password is read from the\n"
    "                                first line of standard input (empty for none)\n"
    "  help                          print this text\n";

int Usage(std::ostream& err, const std::string& problem) {
  err << "ml-server-settings: " << problem << "\n\n" << kUsage;
  return kExitUsage;
}

bool ParseWhole(const std::string& text, long& value) {
  if (text.empty()) return false;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool ParsePort(const std::string& text, std::int32_t& port) {
  long value = 0;
  if (!ParseWhole(text, value) || value < 1 || value > 65535) return false;
  port = static_cast<std::int32_t>(value);
  return true;
}

bool ParseSwitch(const std::string& text, std::int32_t& flag) {
  if (text == "on" || text == "1" || text == "yes") {
    flag = 1;
  } else if (text == "off" || text == "0" || text == "no") {
    flag = 0;
  } else {
    return false;
  }
  return true;
}

bool FileExists(const WideString& path) { return access(WideToUtf8(path).c_str(), F_OK) == 0; }

// An existing file that is not a settings file would open as an empty store,
// and saving that would throw its content away: refuse instead.
bool CheckExistingFile(const WideString& path, std::ostream& err) {
  if (!FileExists(path)) return true;
  xc::DOMDocument* document = nullptr;
  const SettingsParse parse = ParseSettingsFile(WideToUtf8(path), document);
  bool good = false;
  if (parse == SettingsParse::kParsed && document->getDocumentElement()) {
    good = xc::XMLString::equals(document->getDocumentElement()->getTagName(), u"Marlowen_Settings");
  }
  if (document) document->release();
  if (parse == SettingsParse::kNoFile) {
    err << "ml-server-settings: cannot read " << WideToUtf8(path) << "\n";
    return false;
  }
  if (!good) {
    err << "ml-server-settings: " << WideToUtf8(path)
        << " is not a settings file (root Marlowen_Settings); it was left unchanged\n";
  }
  return good;
}

int WriteBaseValue(const WideString& path, const std::function<void(SettingsStore&)>& change, std::ostream& err) {
  if (!CheckExistingFile(path, err)) return kExitFileError;
  std::unique_ptr<SettingsStore> store = OpenStore(path);
  if (!store) {
    err << "ml-server-settings: the XML library could not be started\n";
    return kExitFileError;
  }
  change(*store);
  const bool saved = SaveStore(*store);
  CloseStore(store);
  if (!saved) {
    err << "ml-server-settings: cannot write " << WideToUtf8(path) << "\n";
    return kExitFileError;
  }
  return kExitDone;
}

int SetInt(const WideString& path, const char16_t* name, std::int32_t value, std::ostream& err) {
  return WriteBaseValue(path, [&](SettingsStore& store) { IntValue(value, 0, name, kBaseGroup, store, true); }, err);
}

// Setting the account rewrites the file with the account alone; the other
// groups are carried over from the old file so that nothing else is lost.
int SetAccountKeepingOthers(const WideString& path, const std::string& user, const std::string& domain,
                            const std::string& password, std::ostream& err) {
  if (!CheckExistingFile(path, err)) return kExitFileError;
  std::unique_ptr<SettingsStore> old = FileExists(path) ? OpenStore(path) : nullptr;
  if (!SetAccount(path.c_str(), Utf8ToWide(user), Utf8ToWide(password), Utf8ToWide(domain))) {
    err << "ml-server-settings: cannot write " << WideToUtf8(path) << "\n";
    return kExitFileError;
  }
  if (!old) return kExitDone;
  std::unique_ptr<SettingsStore> fresh = OpenStore(path);
  if (!fresh) return kExitFileError;
  bool carried = false;
  for (xc::DOMNode* node = old->rootElement->getFirstChild(); node; node = node->getNextSibling()) {
    if (node->getNodeType() != xc::DOMNode::ELEMENT_NODE) continue;
    auto* group = static_cast<xc::DOMElement*>(node);
    if (xc::XMLString::equals(group->getTagName(), u"Group") &&
        xc::XMLString::equals(group->getAttribute(u"name"), u"Account")) {
      continue;
    }
    fresh->rootElement->appendChild(fresh->document->importNode(group, true));
    carried = true;
  }
  if (carried && !SaveStore(*fresh)) {
    err << "ml-server-settings: the account was written, but the other settings could not be put back into "
        << WideToUtf8(path) << "\n";
    return kExitFileError;
  }
  return kExitDone;
}

int Show(const WideString& path, std::ostream& out, std::ostream& err) {
  if (!CheckExistingFile(path, err)) return kExitFileError;
  const char16_t* file = path.c_str();
  WideString sma;
  GetSMANumber(file, sma);
  out << "file: " << WideToUtf8(path) << (FileExists(path) ? "" : " (absent; defaults shown)") << "\n";
  out << "ServerPort: " << GetServerPort(file, false) << "\n";
  out << "ServerPortSSL: " << GetServerPort(file, true) << "\n";
  out << "RequireClientSSL: " << GetRequireClientSSL(file) << "\n";
  out << "EnableDebugLogging: " << GetEnableDebugLogging(file) << "\n";
  out << "SMANumber: " << WideToUtf8(sma) << "\n";
  WideString user;
  WideString password;
  WideString domain;
  if (GetAccount(file, user, password, domain, kShowBuffer)) {
    out << "Account: " << WideToUtf8(user) << "\n";
    out << "Domain: " << WideToUtf8(domain) << "\n";
    out << "Password: " << (password.empty() ? "not set" : "set") << "\n";
  }
  WideString listed = path;
  std::vector<AccountEntryT> accounts;
  if (ListAccounts(&listed, accounts, nullptr)) {
    for (const AccountEntryT& entry : accounts) {
      if (entry.key != u"default") out << "Host: " << WideToUtf8(entry.key) << "\n";
    }
  }
  return kExitDone;
}

}  // namespace

int ServerSettingsMain(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                       std::ostream& err) {
  std::size_t at = 0;
  WideString given;
  if (at < args.size() && args[at] == "--file") {
    if (at + 1 >= args.size() || args[at + 1].empty()) return Usage(err, "--file needs a path");
    given = Utf8ToWide(args[at + 1]);
    at += 2;
  }
  if (at >= args.size()) return Usage(err, "no command given");
  const std::string command = args[at++];
  const std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(at), args.end());
  const WideString path = ServerSettingsPath(given.c_str());

  auto wantArguments = [&](std::size_t least, std::size_t most) {
    return rest.size() >= least && rest.size() <= most;
  };

  if (command == "help" || command == "--help" || command == "-h") {
    out << kUsage;
    return kExitDone;
  }
  if (command == "show") {
    if (!wantArguments(0, 0)) return Usage(err, "show takes no arguments");
    return Show(path, out, err);
  }
  if (command == "set-port" || command == "set-ssl-port") {
    std::int32_t port = 0;
    if (!wantArguments(1, 1) || !ParsePort(rest[0], port)) {
      return Usage(err, command + " needs one port number from 1 to 65535");
    }
    return SetInt(path, command == "set-port" ? u"ServerPort" : u"ServerPortSSL", port, err);
  }
  if (command == "set-require-client-ssl" || command == "set-debug-logging") {
    std::int32_t flag = 0;
    if (!wantArguments(1, 1) || !ParseSwitch(rest[0], flag)) return Usage(err, command + " needs on or off");
    return SetInt(path, command == "set-debug-logging" ? u"EnableDebugLogging" : u"RequireClientSSL", flag, err);
  }
  if (command == "set-sma-number") {
    if (!wantArguments(1, 1)) return Usage(err, "set-sma-number needs one number");
    WideString sma = Utf8ToWide(rest[0]);
    if (sma.size() > kMaxSmaNumber) return Usage(err, "the SMA number is longer than 255 characters");
    return WriteBaseValue(
        path, [&](SettingsStore& store) { StringValue(sma, kMaxSmaNumber + 1, u"", u"SMANumber", kBaseGroup, store, true); },
        err);
  }
  if (command == "set-account") {
    if (!wantArguments(1, 2) || rest[0].empty()) return Usage(err, "set-account needs a user and may take a domain");
    std::string password;
    std::getline(in, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
    // Longer passwords can be stored but not read back whole.
    if (password.size() > kMaxDecipheredPassword) {
      err << "ml-server-settings: the password is longer than " << kMaxDecipheredPassword
          << " bytes, which the server cannot read back; nothing was changed\n";
      return kExitUsage;
    }
    return SetAccountKeepingOthers(path, rest[0], rest.size() > 1 ? rest[1] : std::string(), password, err);
  }
  return Usage(err, "unknown command \"" + command + "\"");
}
