// The install rules of the tool, run as `cmake --install` runs them.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/tool_registry_entry.h"
#include "reporter_tool_harness.h"
#include "shell/registry.h"
#include "test_root.h"

namespace reporter_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr mode_t kSharedSticky = 01777;

class ReporterInstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "DESTDIR"}) {
      unsetenv(name);
    }
  }

  // The tool's part of the install, into prefix.
  ProcessResult Install(const std::string& prefix) {
    return RunProgram(ML_CMAKE_COMMAND,
                      {"-DCMAKE_INSTALL_PREFIX=" + prefix, "-P", ML_TOOL_INSTALL_SCRIPT});
  }

  static std::string Registered(const char16_t* valueName) {
    return WideToUtf8(ReadRegistryString(Marlowen::kToolRegistryPath, valueName));
  }

  static mode_t ModeOf(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  }

  testing_support::TestRoot root_;
};

TEST_F(ReporterInstallTest, StagedInstallRegistersFinalPathsBelowDestdir) {
  const std::string stage = root_.Path("stage");
  const std::string prefix = root_.Path("usr");
  setenv("DESTDIR", stage.c_str(), 1);
  setenv("MARLOWEN_ROOT", "/machine", 1);
  const ProcessResult result = Install(prefix);
  unsetenv("DESTDIR");
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;

  const std::string folder = stage + prefix + "/lib/marlowen";
  EXPECT_THAT(testing_support::ListFolder(folder), ElementsAre("MLCrashReporter", "libmldbghelp.so"));
  EXPECT_EQ(access((folder + "/MLCrashReporter").c_str(), X_OK), 0);

  // The machine root of the target lies below DESTDIR as well.
  const std::string machine = stage + "/machine";
  setenv("MARLOWEN_ROOT", machine.c_str(), 1);
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), prefix + "/lib/marlowen/MLCrashReporter");
  EXPECT_EQ(Registered(Marlowen::kToolFolderValueName), prefix + "/lib/marlowen");
  EXPECT_EQ(ModeOf(machine + "/var/lib/Marlowen"), kSharedSticky);
  EXPECT_EQ(ModeOf(machine + "/var/lib/Marlowen/Crash Reports"), kSharedSticky);
}

TEST_F(ReporterInstallTest, PrefixWithBlankIsRegisteredWithAWarning) {
  const std::string prefix = root_.Path("my programs");
  const ProcessResult result = Install(prefix);
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_THAT(result.standardError, HasSubstr("holds a blank"));
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), prefix + "/lib/marlowen/MLCrashReporter");
}

// The uninstall's registry step appends a deletion section; a later install
// must register the tool again behind it.
TEST_F(ReporterInstallTest, UninstallLineRemovesTheEntryAndReinstallRestoresIt) {
  const std::string prefix = root_.Path("usr");
  ASSERT_EQ(Install(prefix).exitStatus, 0);
  const std::string registryFile = root_.Path("etc/marlowen/registry.reg");
  testing_support::WriteFileText(
      registryFile,
      testing_support::ReadFileText(registryFile) +
          "\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App "
          "Paths\\MLCrashReporter.exe]\n");
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), "");
  EXPECT_EQ(Registered(Marlowen::kToolFolderValueName), "");

  ASSERT_EQ(Install(prefix).exitStatus, 0);
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), prefix + "/lib/marlowen/MLCrashReporter");
}

TEST_F(ReporterInstallTest, InstalledToolSendsTheReportOfACrashingProduct) {
  ASSERT_EQ(Install(root_.Path("usr")).exitStatus, 0);
  Collector collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  const ProcessResult crash =
      RunProgram(ML_SAMPLE_PRODUCT, {"--name", "Orbit Designer", "illegal-instruction"});
  EXPECT_EQ(crash.exitStatus, 254);
  ASSERT_TRUE(WaitForLines(root_.Path("collector/uploads.jsonl"), 1));
  const std::vector<std::string> received = collector.Received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].starts_with("Orbit Designer_")) << received[0];
}

}  // namespace
}  // namespace reporter_test
