// The install rules of the tool, run as `cmake --install` runs them.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/tool_registry_entry.h"
#include "collector_process.h"
#include "run_command.h"
#include "shell/registry.h"
#include "test_root.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing_support::CommandResult;
using testing_support::RunCommand;

class ReporterInstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "DESTDIR"}) unsetenv(name);
  }

  // The tool's part of the install, into prefix.
  static CommandResult Install(const std::string& prefix) {
    return RunCommand("'" ML_CMAKE_COMMAND "' '-DCMAKE_INSTALL_PREFIX=" + prefix + "' -P '" ML_TOOL_INSTALL_SCRIPT
                      "' 2>&1");
  }

  static std::string Registered(const char16_t* valueName) {
    return WideToUtf8(ReadRegistryString(Marlowen::kToolRegistryPath, valueName));
  }

  testing_support::TestRoot root_;
};

TEST_F(ReporterInstallTest, StagedInstallRegistersFinalPathsBelowDestdir) {
  const std::string stage = root_.Path("stage");
  const std::string prefix = root_.Path("usr");
  setenv("DESTDIR", stage.c_str(), 1);
  setenv("MARLOWEN_ROOT", "/machine", 1);
  const CommandResult result = Install(prefix);
  unsetenv("DESTDIR");
  ASSERT_EQ(result.status, 0) << result.output;

  const std::string folder = stage + prefix + "/lib/marlowen";
  EXPECT_THAT(testing_support::ListFolder(folder), ElementsAre("MLCrashReporter", "libmldbghelp.so"));
  EXPECT_EQ(access((folder + "/MLCrashReporter").c_str(), X_OK), 0);

  // The machine root of the target lies below DESTDIR as well.
  const std::string machine = stage + "/machine";
  setenv("MARLOWEN_ROOT", machine.c_str(), 1);
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), prefix + "/lib/marlowen/MLCrashReporter");
  EXPECT_EQ(Registered(Marlowen::kToolFolderValueName), prefix + "/lib/marlowen");
  for (const char* shared : {"/var/lib/Marlowen", "/var/lib/Marlowen/Crash Reports"}) {
    struct stat info {};
    ASSERT_EQ(stat((machine + shared).c_str(), &info), 0) << shared;
    EXPECT_EQ(info.st_mode & 07777, 01777u) << shared;
  }
}

// The uninstall's registry step appends a deletion section; a later install
// must register the tool again behind it.
TEST_F(ReporterInstallTest, UninstallLineRemovesTheEntryAndReinstallRestoresIt) {
  const std::string prefix = root_.Path("my programs");
  const CommandResult result = Install(prefix);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("holds a blank"));
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), prefix + "/lib/marlowen/MLCrashReporter");

  const std::string registryFile = root_.Path("etc/marlowen/registry.reg");
  testing_support::WriteFileText(
      registryFile, testing_support::ReadFileText(registryFile) +
                        "\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App "
                        "Paths\\MLCrashReporter.exe]\n");
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), "");
  EXPECT_EQ(Registered(Marlowen::kToolFolderValueName), "");

  ASSERT_EQ(Install(prefix).status, 0);
  EXPECT_EQ(Registered(Marlowen::kToolPathValueName), prefix + "/lib/marlowen/MLCrashReporter");
}

TEST_F(ReporterInstallTest, InstalledToolSendsTheReportOfACrashingProduct) {
  ASSERT_EQ(Install(root_.Path("usr")).status, 0);
  upload_test::CollectorProcess collector(root_.Path("collector"));
  ASSERT_TRUE(collector.started());
  collector.UseAsServers();

  // The tool shares the product's standard error, so this waits for it too.
  EXPECT_EQ(RunCommand("'" ML_SAMPLE_PRODUCT "' --name 'Orbit Designer' illegal-instruction 2>&1 >/dev/null").status,
            254);
  const std::vector<std::string> received = testing_support::ListFolder(collector.Value("receivedDir"));
  ASSERT_EQ(received.size(), 1u);
  EXPECT_TRUE(received[0].starts_with("Orbit Designer_")) << received[0];
}

}  // namespace
