// The Server.xml readers and writers on real files in a test root: defaults,
// the process-wide caches, the account with its enciphered password, and the
// host list. Every test runs in a process of its own, so the caches start
// empty each time.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <string>
#include <vector>

#include "shell/registry.h"
#include "support/password_cipher.h"
#include "support/server_settings.h"
#include "support/settings_text.h"
#include "test_root.h"
#include "xml_outline.h"

namespace {

using namespace Marlowen;
using settings_test::WriteSettingsXml;
using settings_test::XmlOutline;

class ServerSettingsTest : public ::testing::Test {
 protected:
  // A Password value as the account functions store it.
  static std::string EncipheredPassword(const std::string& plain) {
    std::vector<std::uint8_t> cipher;
    EXPECT_TRUE(EncipherPassword(plain, kAccountKeyPartA, kAccountKeyPartB, cipher));
    return WideToUtf8(BytesToBin64Text(cipher.data(), cipher.size()));
  }

  testing_support::TestRoot root_;
  std::string file_ = root_.Path("var/lib/Marlowen/Server Settings/Server.xml");
  WideString path_ = Utf8ToWide(file_);
};

TEST_F(ServerSettingsTest, NoFileGivesTheDefaultsTheCacheKeepsThemAndAPathRefillsIt) {
  EXPECT_EQ(GetServerPort(nullptr, false), 7000);
  EXPECT_EQ(GetServerPort(nullptr, true), 7001);
  EXPECT_EQ(GetEnableDebugLogging(nullptr), 0);
  WideString sma = u"stale";
  GetSMANumber(nullptr, sma);
  EXPECT_EQ(sma, u"");
  EXPECT_FALSE(testing_support::PathExists(file_));  // nothing is saved
  EXPECT_EQ(ServerSettingsPath(u""), path_);

  WriteSettingsXml(file_, "<Group name=\"Other\"><Int name=\"ServerPort\">1</Int></Group>"
                          "<Group name=\"Base\"><Int name=\"ServerPort\">8123</Int><Int name=\"ServerPortSSL\">8443</Int>"
                          "<Int name=\"EnableDebugLogging\">1</Int><Int name=\"RequireClientSSL\">1</Int>"
                          "<String name=\"SMANumber\">" + std::string(300, '9') + "</String></Group>");
  // Filled caches answer without the file; an empty SMA number is no fill.
  EXPECT_EQ(GetServerPort(nullptr, false), 7000);
  EXPECT_EQ(GetEnableDebugLogging(nullptr), 0);
  GetSMANumber(nullptr, sma);
  EXPECT_EQ(sma, WideString(kMaxSmaNumber, u'9'));

  EXPECT_EQ(GetServerPort(path_.c_str(), false), 8123);
  EXPECT_EQ(GetServerPort(nullptr, false), 8123);
  EXPECT_EQ(GetServerPort(nullptr, true), 7001);  // each value has its own cache
  EXPECT_EQ(GetServerPort(path_.c_str(), true), 8443);
  EXPECT_EQ(GetRequireClientSSL(path_.c_str()), 1);
}

TEST_F(ServerSettingsTest, AccountRoundTripsWithTheStoredPasswordEnciphered) {
  WideString user = u"keep", password, domain;
  EXPECT_EQ(GetAccount(nullptr, user, password, domain, 64), 0);
  WriteSettingsXml(file_, "<Group name=\"Base\"><Int name=\"ServerPort\">8123</Int></Group>");
  ASSERT_EQ(SetAccount(nullptr, u"svc-backup", u"s3cret-P\u00e4ss", u"CORP"), 1);
  ASSERT_EQ(GetAccount(nullptr, user, password, domain, 256), 1);
  EXPECT_EQ(user, u"svc-backup");
  EXPECT_EQ(password, u"s3cret-P\u00e4ss");
  EXPECT_EQ(domain, u"CORP");
  EXPECT_EQ(testing_support::ReadFileText(file_).find("s3cret"), std::string::npos);
  // The other settings are gone with the old file. A whole cipher block is 16
  // bytes, 24 characters of Base64; the plain text's would start "czNjcmV0".
  const std::string outline = XmlOutline(file_);
  const std::string prefix = "Marlowen_Settings\n  Group name=Account\n    String name=Username: svc-backup\n"
                             "    Bin64 name=Password: ";
  ASSERT_EQ(outline.substr(0, prefix.size()), prefix) << outline;
  const std::string stored = outline.substr(prefix.size(), 24);
  EXPECT_NE(stored.substr(0, 8), "czNjcmV0");
  EXPECT_EQ(outline.substr(prefix.size() + 24), "\n    String name=Domain: CORP\n");
  EXPECT_EQ(GetServerPort(path_.c_str(), false), 7000);
  struct stat info;
  ASSERT_EQ(stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  ASSERT_EQ(GetAccount(path_.c_str(), user, password, domain, 4), 1);  // cut to the caller's buffer
  EXPECT_EQ(user, u"svc");
  EXPECT_EQ(password, u"s3c");
  ASSERT_EQ(SetAccount(path_.c_str(), u"u", WideString(100, u'k'), u""), 1);
  ASSERT_EQ(GetAccount(path_.c_str(), user, password, domain, 256), 1);
  EXPECT_EQ(password, WideString(kMaxDecipheredPassword, u'k'));

  // An empty password leaves no element.
  ASSERT_EQ(SetAccount(nullptr, u"u", u"", u""), 1);
  EXPECT_EQ(XmlOutline(file_), "Marlowen_Settings\n  Group name=Account\n    String name=Username: u\n    String name=Domain\n");
}

TEST_F(ServerSettingsTest, ListAccountsStopsAtTheFirstMissingHost) {
  const std::string file = root_.Path("hosts.xml");
  WriteSettingsXml(file, "<Group name=\"Account\"><String name=\"Username\">admin</String>"
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
  std::vector<std::u16string> listed;
  for (const AccountEntryT& account : accounts) listed.push_back(account.key + u" " + account.text);
  EXPECT_EQ(listed, (std::vector<std::u16string>{u"default CORP\\admin@top", u"alpha u1@p1", u"beta u2@"}));
}

TEST_F(ServerSettingsTest, ListAccountsFindsTheFileThroughTheRegistryOrAtTheDefaultPath) {
  WriteSettingsXml(file_, "<Group name=\"Account\"><String name=\"Username\">dflt</String></Group>");
  WideString path;
  std::vector<AccountEntryT> accounts;
  ASSERT_EQ(ListAccounts(&path, accounts, nullptr), 1);
  EXPECT_EQ(path, path_);

  const std::string folder = root_.Path("opt/marlowen");
  WriteSettingsXml(folder + "/Server Settings/Server.xml", "<Group name=\"Account\"><String name=\"Username\">reg</String></Group>");
  ASSERT_TRUE(WriteRegistryString(u"\\\\HKLM\\SOFTWARE\\Marlowen", u"ConfigurationPath", Utf8ToWide(folder)));
  path.clear();
  accounts.clear();
  std::time_t when = 0;
  ASSERT_EQ(ListAccounts(&path, accounts, &when), 1);
  EXPECT_EQ(path, Utf8ToWide(folder + "/Server Settings/Server.xml"));
  struct stat info;
  ASSERT_EQ(stat(WideToUtf8(path).c_str(), &info), 0);
  EXPECT_EQ(when, info.st_mtime);
}

}  // namespace
