// Without a usable display, the layer says so instead of ending the process.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dialog_test_support.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/message_box.h"
#include "run_command.h"

namespace {

// The probe runs in a fresh copy of this program, before the test framework
// and before any application object, so it sees the process as the tool does
// at its start. "full" also tries a dialog and a message box.
struct DisplayProbe {
  DisplayProbe() {
    const char* mode = std::getenv("ML_DIALOGS_PROBE");
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

// The probe's output with exactly this environment; a probe that did not
// exit 0 answers its status.
std::string RunProbe(const std::string& environment) {
  char self[PATH_MAX] = {};
  if (readlink("/proc/self/exe", self, sizeof self - 1) <= 0) return "no exe";
  testing_support::CommandResult run = testing_support::RunCommand("env -i " + environment + " '" + self + "'");
  return run.status == 0 ? run.output : "status " + std::to_string(run.status);
}

TEST(DialogsAvailableTest, NoDisplayGivesAnAnswerNotAnAbort) {
  // A display whose server is not there is no display either.
  for (const char* display : {"", "DISPLAY=:7391", "DISPLAY=nonsense"}) {
    EXPECT_EQ(RunProbe(std::string("ML_DIALOGS_PROBE=full ") + display), "available=0 box=-1 message=0") << display;
  }
}

TEST(DialogsAvailableTest, ADisplayThatAnswersIsTakenAtItsWord) {
  // A listener on the abstract socket where a local X server would listen.
  const int number = 7000 + static_cast<int>(getpid() % 1000);
  const std::string name = "/tmp/.X11-unix/X" + std::to_string(number);
  int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, name.data(), name.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(listen(listener, 4), 0);
  const std::string display = "ML_DIALOGS_PROBE=available DISPLAY=:" + std::to_string(number);
  EXPECT_EQ(RunProbe(display + ".0"), "available=1");
  close(listener);
  EXPECT_EQ(RunProbe(display), "available=0");
  EXPECT_EQ(RunProbe("ML_DIALOGS_PROBE=available DISPLAY=far.example:0"), "available=1");
  EXPECT_EQ(RunProbe("ML_DIALOGS_PROBE=available QT_QPA_PLATFORM=offscreen"), "available=1");
}

}  // namespace
