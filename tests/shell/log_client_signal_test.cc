// The log client where a crashing process needs it: no heap on the way out,
// and a line sent from a fault handler in a child process arrives.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "shell/log_client.h"
#include "log_capture.h"
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

constexpr int kHandlerLogged = 42;
constexpr int kHandlerNotLogged = 43;

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
  auto listener = std::make_unique<testing_support::LogCapture>(root_);
  ASSERT_TRUE(listener->bound());

  countingAllocations = true;
  const int opened = LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"one", u"/a/b");
  countingAllocations = false;
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(listener->NextMessage(), u"one");

  // A new listener makes the next line go through the reconnect.
  listener.reset();
  listener = std::make_unique<testing_support::LogCapture>(root_);
  ASSERT_TRUE(listener->bound());
  countingAllocations = true;
  const int reopened = LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"two", u"");
  countingAllocations = false;
  EXPECT_EQ(reopened, 1);
  EXPECT_EQ(listener->NextMessage(), u"two");
  EXPECT_EQ(allocations.load(), 0);
#endif
}

void LogFromFaultHandler(int) {
  const int sent =
      LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"Fault in the child", u"");
  _exit(sent == 1 ? kHandlerLogged : kHandlerNotLogged);
}

TEST_F(LogClientSignalTest, LineFromAFaultHandlerInAChildArrives) {
  testing_support::LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());

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
  EXPECT_EQ(listener.NextMessage(), u"Fault in the child");
}

}  // namespace
