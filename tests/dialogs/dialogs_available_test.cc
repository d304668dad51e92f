// Without a usable display, the layer says so instead of ending the process.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"

namespace {

constexpr char kProbeVariable[] = "ML_DIALOGS_PROBE";

// The probe runs in a fresh copy of this program, before the test framework
// and before any application object, so it sees the process as the tool does
// at its start. It prints what it found and exits. "full" also tries to show
// a dialog and a message box, which must fail without a display.
struct DisplayProbe {
  DisplayProbe() {
    const char* mode = std::getenv(kProbeVariable);
    if (mode == nullptr) return;
    std::printf("available=%d", DialogsAvailable() ? 1 : 0);
    if (std::strcmp(mode, "full") == 0) {
      INT_PTR box = DialogBoxIndirectParamW(nullptr, &dialog_test::SampleTemplate(), nullptr, DialogProcedure, 0);
      int message = MessageBoxW(nullptr, u"text", u"caption", MB_OK);
      std::printf(" box=%ld message=%d", static_cast<long>(box), message);
    }
    std::fflush(stdout);
    _exit(0);
  }
} g_probe;

// Runs the probe with exactly this environment; answers its output, or a
// description of how it ended if it did not exit normally.
std::string RunProbe(std::vector<std::string> environment) {
  int out[2];
  if (pipe(out) != 0) return "pipe failed";
  pid_t child = fork();
  if (child < 0) return "fork failed";
  if (child == 0) {
    dup2(out[1], 1);
    close(out[0]);
    std::vector<char*> pointers;
    for (std::string& entry : environment) pointers.push_back(entry.data());
    pointers.push_back(nullptr);
    char* arguments[] = {const_cast<char*>("dialogs_test"), nullptr};
    execve("/proc/self/exe", arguments, pointers.data());
    _exit(127);
  }
  close(out[1]);
  std::string text;
  char buffer[256];
  ssize_t n;
  while ((n = read(out[0], buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  close(out[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status)) return "signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit " + std::to_string(WEXITSTATUS(status));
  return text;
}

TEST(DialogsAvailableTest, NoDisplayGivesAnAnswerNotAnAbort) {
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=full"}), "available=0 box=-1 message=0");
  // A display whose server is not there is no display either.
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=full", "DISPLAY=:7391"}), "available=0 box=-1 message=0");
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=full", "DISPLAY=nonsense"}), "available=0 box=-1 message=0");
}

TEST(DialogsAvailableTest, ADisplayThatAnswersIsTakenAtItsWord) {
  // A listener on the abstract socket where a local X server would listen.
  int number = 7000 + static_cast<int>(getpid() % 1000);
  std::string name = "/tmp/.X11-unix/X" + std::to_string(number);
  int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, name.data(), name.size());
  socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(listen(listener, 4), 0);
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=available", "DISPLAY=:" + std::to_string(number) + ".0"}), "available=1");
  close(listener);
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=available", "DISPLAY=:" + std::to_string(number)}), "available=0");
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=available", "DISPLAY=far.example:0"}), "available=1");
  EXPECT_EQ(RunProbe({"ML_DIALOGS_PROBE=available", "QT_QPA_PLATFORM=offscreen"}), "available=1");
}

TEST(DialogsAvailableTest, TheRunningApplicationDecides) {
  ASSERT_TRUE(EnsureDialogApplication());
  EXPECT_TRUE(DialogsAvailable());
}

}  // namespace
