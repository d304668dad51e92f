// The log client where a crashing process needs it: no heap on the way out,
// and a line sent from a fault handler in a child process arrives.
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "shell/log_client.h"
#include "test_root.h"

#if defined(__SANITIZE_ADDRESS__)
#define ML_COUNT_ALLOCATIONS 0
#else
#define ML_COUNT_ALLOCATIONS 1
#endif

#if ML_COUNT_ALLOCATIONS
// Every allocation of this test program passes here, so a heap call anywhere
// under the log client, the C library's included, is counted.
namespace {
std::atomic<bool> countingAllocations{false};
std::atomic<long> allocations{0};
}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) {
  if (countingAllocations.load(std::memory_order_relaxed)) ++allocations;
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  if (countingAllocations.load(std::memory_order_relaxed)) ++allocations;
  return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  if (countingAllocations.load(std::memory_order_relaxed)) ++allocations;
  return __libc_realloc(block, size);
}
}
#endif

namespace {

constexpr int kReceiveTimeoutMs = 5000;
constexpr int kHandlerLogged = 42;
constexpr int kHandlerNotLogged = 43;

int BindListener(const testing_support::TestRoot& root) {
  testing_support::MakeFolders(root.Path("run/marlowen"));
  const std::string path = root.Path("run/marlowen/MLLog.1");
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

void CloseListener(const testing_support::TestRoot& root, int fd) {
  close(fd);
  unlink(root.Path("run/marlowen/MLLog.1").c_str());
}

// The message field of the next record, or "" after a timeout.
std::u16string ReceiveMessage(int fd) {
  pollfd wait{fd, POLLIN, 0};
  if (poll(&wait, 1, kReceiveTimeoutMs) != 1) return u"";
  LogRecord record{};
  if (recv(fd, &record, sizeof(record), 0) != static_cast<ssize_t>(sizeof(record))) return u"";
  return std::u16string(record.message);
}

class LogClientSignalTest : public ::testing::Test {
 protected:
  void SetUp() override { Forget(); }
  void TearDown() override { Forget(); }
  static void Forget() {
    if (LogMailslotHandle > 0) close(LogMailslotHandle);
    LogMailslotHandle = 0;
  }
  testing_support::TestRoot root_;
};

TEST_F(LogClientSignalTest, OpeningWritingAndReopeningUseNoHeap) {
#if !ML_COUNT_ALLOCATIONS
  GTEST_SKIP() << "the sanitizer owns malloc";
#else
  int listener = BindListener(root_);
  ASSERT_GE(listener, 0);

  countingAllocations = true;
  const int opened = LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"one", u"/a/b");
  countingAllocations = false;
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(ReceiveMessage(listener), u"one");

  CloseListener(root_, listener);
  listener = BindListener(root_);
  ASSERT_GE(listener, 0);
  countingAllocations = true;
  const int reopened = LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"two", u"");
  countingAllocations = false;
  EXPECT_EQ(reopened, 1);
  EXPECT_EQ(ReceiveMessage(listener), u"two");
  EXPECT_EQ(allocations.load(), 0);
  CloseListener(root_, listener);
#endif
}

void LogFromFaultHandler(int) {
  const int sent =
      LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"Fault in the child", u"");
  _exit(sent == 1 ? kHandlerLogged : kHandlerNotLogged);
}

TEST_F(LogClientSignalTest, LineFromAFaultHandlerInAChildArrives) {
  const int listener = BindListener(root_);
  ASSERT_GE(listener, 0);

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    struct sigaction action {};
    action.sa_handler = LogFromFaultHandler;
    sigemptyset(&action.sa_mask);
    sigaction(SIGSEGV, &action, nullptr);
    sigaction(SIGILL, &action, nullptr);
    // A page without access: a real fault that no sanitizer claims first.
    void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    *static_cast<volatile int*>(page) = 1;
    _exit(1);
  }

  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kHandlerLogged);
  EXPECT_EQ(ReceiveMessage(listener), u"Fault in the child");
  CloseListener(root_, listener);
}

}  // namespace
