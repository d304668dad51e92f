// The Server.xml readers and writers on real files in a test root: defaults,
// the process-wide caches, the account with its enciphered password, and the
// host list. Every test runs in a process of its own, so the caches start
// empty each time.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <string>
#include <vector>

#include "platform/machine_paths.h"
#include "shell/format_string.h"
#include "shell/registry.h"
#include "support/password_cipher.h"
#include "support/server_settings.h"
#include "support/settings_store.h"
#include "support/settings_text.h"
#include "test_root.h"
#include "xml_outline.h"

namespace {

using namespace Marlowen;
using settings_test::XmlOutline;
using testing_support::ReadFileText;
using testing_support::TestRoot;
using testing_support::WriteFileText;

class ServerSettingsTest : public ::testing::Test {
 protected:
  std::string DefaultFile() const { return root_.Path("var/lib/Marlowen/Server Settings/Server.xml"); }

  void WriteServerXml(const std::string& path, const std::string& groups) const {
    testing_support::MakeFolders(path.substr(0, path.rfind('/')));
    WriteFileText(path, "<?xml version=\"1.0\"?>\n<Marlowen_Settings>" + groups + "</Marlowen_Settings>\n");
  }

  // A Password value as the account functions store it.
  static std::string EncipheredPassword(const std::string& plain) {
    std::vector<std::uint8_t> cipher;
    EXPECT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
    return WideToUtf8(BytesToBin64Text(cipher.data(), cipher.size()));
  }

  TestRoot root_;
};

TEST_F(ServerSettingsTest, NoFileGivesTheDefaultsAndTheCacheKeepsThem) {
  EXPECT_EQ(GetServerPort(nullptr, false), 7000);
  EXPECT_EQ(GetServerPort(nullptr, true), 7001);
  EXPECT_EQ(GetEnableDebugLogging(nullptr), 0);
  EXPECT_EQ(GetRequireClientSSL(nullptr), 0);
  WideString sma = u"stale";
  GetSMANumber(nullptr, sma);
  EXPECT_EQ(sma, u"");
  EXPECT_FALSE(testing_support::PathExists(DefaultFile()));  // nothing is saved

  WriteServerXml(DefaultFile(),
                 "<Group name=\"Base\"><Int name=\"ServerPort\">8123</Int><Int name=\"ServerPortSSL\">8443</Int>"
                 "<Int name=\"EnableDebugLogging\">1</Int><String name=\"SMANumber\">SMA-77</String></Group>");
  // Filled caches answer without the file; an empty SMA number is no fill.
  EXPECT_EQ(GetServerPort(nullptr, false), 7000);
  EXPECT_EQ(GetServerPort(nullptr, true), 7001);
  EXPECT_EQ(GetEnableDebugLogging(nullptr), 0);
  GetSMANumber(nullptr, sma);
  EXPECT_EQ(sma, u"SMA-77");

  // A path reads the file and refills the cache.
  const WideString path = Utf8ToWide(DefaultFile());
  EXPECT_EQ(GetServerPort(path.c_str(), false), 8123);
  EXPECT_EQ(GetServerPort(nullptr, false), 8123);
  EXPECT_EQ(GetServerPort(nullptr, true), 7001);
  EXPECT_EQ(GetServerPort(path.c_str(), true), 8443);
  EXPECT_EQ(GetEnableDebugLogging(path.c_str()), 1);
  EXPECT_EQ(GetEnableDebugLogging(nullptr), 1);
}

TEST_F(ServerSettingsTest, ValuesComeFromTheGivenFile) {
  const std::string file = root_.Path("etc/server.xml");
  WriteServerXml(file,
                 "<Group name=\"Other\"><Int name=\"ServerPort\">1</Int></Group>"
                 "<Group name=\"Base\"><Int name=\"RequireClientSSL\">1</Int>"
                 "<String name=\"SMANumber\">" + std::string(300, '9') + "</String></Group>");
  const WideString path = Utf8ToWide(file);
  EXPECT_EQ(GetRequireClientSSL(path.c_str()), 1);
  EXPECT_EQ(GetServerPort(path.c_str(), false), 7000);
  WideString sma;
  GetSMANumber(path.c_str(), sma);
  EXPECT_EQ(sma, WideString(kMaxSmaNumber, u'9'));
  EXPECT_EQ(ServerSettingsPath(u""), Utf8ToWide(DefaultFile()));
  EXPECT_EQ(ServerSettingsPath(path.c_str()), path);
}

TEST_F(ServerSettingsTest, AccountRoundTripsWithTheStoredPasswordEnciphered) {
  const WideString path = Utf8ToWide(DefaultFile());
  const WideString password = u"s3cret-P\u00e4ss";
  ASSERT_EQ(SetAccount(nullptr, u"svc-backup", password, u"CORP"), 1);

  WideString user, readPassword, domain;
  ASSERT_EQ(GetAccount(nullptr, user, readPassword, domain, 256), 1);
  EXPECT_EQ(user, u"svc-backup");
  EXPECT_EQ(WideToUtf8(readPassword), WideToUtf8(password));
  EXPECT_EQ(domain, u"CORP");

  const std::string text = ReadFileText(DefaultFile());
  EXPECT_EQ(text.find("s3cret"), std::string::npos);
  const std::string outline = XmlOutline(DefaultFile());
  const std::size_t at = outline.find("Bin64 name=Password: ");
  ASSERT_NE(at, std::string::npos) << outline;
  // Base64 of plain text would start "czNjcmV0"; a whole Twofish block is
  // 16 bytes, which is 24 characters.
  const std::string stored = outline.substr(at + 21, outline.find('\n', at) - at - 21);
  EXPECT_EQ(stored.size(), 24u);
  EXPECT_NE(stored.substr(0, 8), "czNjcmV0");

  struct stat info;
  ASSERT_EQ(stat(DefaultFile().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  // Cut to the caller's buffer.
  ASSERT_EQ(GetAccount(path.c_str(), user, readPassword, domain, 4), 1);
  EXPECT_EQ(user, u"svc");
  EXPECT_EQ(readPassword, u"s3c");
}

TEST_F(ServerSettingsTest, SetAccountReplacesTheWholeFile) {
  WriteServerXml(DefaultFile(), "<Group name=\"Base\"><Int name=\"ServerPort\">8123</Int></Group>");
  ASSERT_EQ(SetAccount(nullptr, u"u", u"", u""), 1);
  // The other settings are gone, and an empty password leaves no element.
  EXPECT_EQ(XmlOutline(DefaultFile()),
            "Marlowen_Settings\n  Group name=Account\n    String name=Username: u\n    String name=Domain\n");
  const WideString path = Utf8ToWide(DefaultFile());
  EXPECT_EQ(GetServerPort(path.c_str(), false), 7000);
  WideString user, password = u"x", domain;
  ASSERT_EQ(GetAccount(path.c_str(), user, password, domain, 64), 1);
  EXPECT_EQ(password, u"");
}

TEST_F(ServerSettingsTest, PasswordsComeBackCutToSixtyFourBytes) {
  const WideString path = Utf8ToWide(root_.Path("long.xml"));
  const std::string longPassword(100, 'k');
  ASSERT_EQ(SetAccount(path.c_str(), u"u", Utf8ToWide(longPassword), u""), 1);
  WideString user, password, domain;
  ASSERT_EQ(GetAccount(path.c_str(), user, password, domain, 256), 1);
  EXPECT_EQ(WideToUtf8(password), std::string(kMaxDecipheredPassword, 'k'));
}

TEST_F(ServerSettingsTest, NoFileMeansNoAccount) {
  WideString user = u"keep", password, domain;
  EXPECT_EQ(GetAccount(nullptr, user, password, domain, 64), 0);
  EXPECT_EQ(user, u"keep");
}

TEST_F(ServerSettingsTest, UndecipherablePasswordReadsEmpty) {
  // 15 bytes are no whole block.
  WriteServerXml(DefaultFile(),
                 "<Group name=\"Account\"><String name=\"Username\">u</String>"
                 "<Bin64 name=\"Password\">AAECAwQFBgcICQoLDA0O</Bin64></Group>");
  WideString user, password = u"x", domain;
  ASSERT_EQ(GetAccount(nullptr, user, password, domain, 64), 1);
  EXPECT_EQ(user, u"u");
  EXPECT_EQ(password, u"");
}

TEST_F(ServerSettingsTest, ListAccountsStopsAtTheFirstMissingHost) {
  const std::string file = root_.Path("hosts.xml");
  WriteServerXml(file,
                 "<Group name=\"Account\"><String name=\"Username\">admin</String>"
                 "<Bin64 name=\"Password\">" + EncipheredPassword("top") + "</Bin64>"
                 "<String name=\"Domain\">CORP</String></Group>"
                 "<Group name=\"HostConfiguration_1\"><String name=\"Host\">alpha</String>"
                 "<String name=\"Username\">u1</String>"
                 "<Bin64 name=\"Password\">" + EncipheredPassword("p1") + "</Bin64></Group>"
                 "<Group name=\"HostConfiguration_2\"><String name=\"Host\">beta</String>"
                 "<String name=\"Username\">u2</String></Group>"
                 "<Group name=\"HostConfiguration_4\"><String name=\"Host\">hidden</String></Group>");
  WideString path = Utf8ToWide(file);
  std::vector<AccountEntryT> accounts;
  std::time_t when = 12345;
  ASSERT_EQ(ListAccounts(&path, accounts, &when), 1);
  EXPECT_EQ(when, 12345);  // only looked up for the found path
  ASSERT_EQ(accounts.size(), 3u);
  EXPECT_EQ(accounts[0].key, u"default");
  EXPECT_EQ(accounts[0].text, u"CORP\\admin@top");
  EXPECT_EQ(accounts[1].key, u"alpha");
  EXPECT_EQ(accounts[1].text, u"u1@p1");
  EXPECT_EQ(accounts[2].key, u"beta");
  EXPECT_EQ(accounts[2].text, u"u2@");
}

TEST_F(ServerSettingsTest, ListAccountsFindsTheFileThroughTheRegistry) {
  const std::string folder = root_.Path("opt/marlowen");
  WriteServerXml(folder + "/Server Settings/Server.xml",
                 "<Group name=\"Account\"><String name=\"Username\">reg</String></Group>");
  ASSERT_TRUE(WriteRegistryString(u"\\\\HKLM\\SOFTWARE\\Marlowen", u"ConfigurationPath", Utf8ToWide(folder)));

  WideString path;
  std::vector<AccountEntryT> accounts;
  std::time_t when = 0;
  ASSERT_EQ(ListAccounts(&path, accounts, &when), 1);
  EXPECT_EQ(path, Utf8ToWide(folder + "/Server Settings/Server.xml"));
  struct stat info;
  ASSERT_EQ(stat(WideToUtf8(path).c_str(), &info), 0);
  EXPECT_EQ(when, info.st_mtime);
  ASSERT_EQ(accounts.size(), 1u);
  EXPECT_EQ(accounts[0].text, u"reg@");
}

TEST_F(ServerSettingsTest, ListAccountsWithoutRegistryUsesTheDefaultPath) {
  WriteServerXml(DefaultFile(), "<Group name=\"Account\"><String name=\"Username\">dflt</String></Group>");
  WideString path;
  std::vector<AccountEntryT> accounts;
  ASSERT_EQ(ListAccounts(&path, accounts, nullptr), 1);
  EXPECT_EQ(path, Utf8ToWide(DefaultFile()));
  ASSERT_EQ(accounts.size(), 1u);
  EXPECT_EQ(accounts[0].text, u"dflt@");
}

}  // namespace
