// Without any display, the layer says so instead of ending the process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"

namespace {

constexpr char kProbeVariable[] = "ML_DIALOGS_PROBE";

// The probe runs in a fresh copy of this program, before the test framework
// and before any application object, so it sees the process as the tool
// does at its start. It writes what it found to stdout and exits.
struct NoDisplayProbe {
  NoDisplayProbe() {
    if (std::getenv(kProbeVariable) == nullptr) return;
    bool available = DialogsAvailable();
    INT_PTR box = DialogBoxIndirectParamW(nullptr, &dialog_test::SampleTemplate(), nullptr, DialogProcedure, 0);
    int message = MessageBoxW(nullptr, u"text", u"caption", MB_OK);
    std::printf("available=%d box=%ld message=%d", available ? 1 : 0, static_cast<long>(box), message);
    std::fflush(stdout);
    _exit(0);
  }
} g_probe;

TEST(DialogsAvailableTest, NoDisplayGivesAnAnswerNotAnAbort) {
  int out[2];
  ASSERT_EQ(pipe(out), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(out[1], 1);
    close(out[0]);
    char probe[] = "ML_DIALOGS_PROBE=1";
    char* environment[] = {probe, nullptr};
    char* arguments[] = {const_cast<char*>("dialogs_test"), nullptr};
    execve("/proc/self/exe", arguments, environment);
    _exit(127);
  }
  close(out[1]);
  std::string text;
  char buffer[256];
  ssize_t n;
  while ((n = read(out[0], buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  close(out[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "child ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(text, "available=0 box=-1 message=0");
}

TEST(DialogsAvailableTest, AnOffscreenPlatformIsEnough) {
  // ctest runs every case with the offscreen platform named.
  ASSERT_NE(std::getenv("QT_QPA_PLATFORM"), nullptr);
  EXPECT_TRUE(DialogsAvailable());
  EXPECT_TRUE(EnsureDialogApplication());
  EXPECT_TRUE(DialogsAvailable());
}

}  // namespace
