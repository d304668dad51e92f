// The log client where a crashing process needs it: no heap on the way out,
// and a line sent from a fault handler in a child process arrives.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <memory>

#include <gtest/gtest.h>

#include "shell/log_client.h"
#include "log_capture.h"
#include "log_test_fixture.h"
#include "test_root.h"

#if !defined(__SANITIZE_ADDRESS__)
// Every allocation of this program passes here, the C library's included.
namespace {
std::atomic<bool> countingAllocations{false};
std::atomic<long> allocations{0};
void Count() {
  if (countingAllocations.load(std::memory_order_relaxed)) ++allocations;
}
}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* malloc(std::size_t size) { return Count(), __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) { return Count(), __libc_calloc(count, size); }
void* realloc(void* block, std::size_t size) { return Count(), __libc_realloc(block, size); }
}
#endif

namespace {

using testing_support::LogCapture;

using LogClientSignalTest = LogTest;

TEST_F(LogClientSignalTest, OpeningWritingAndReopeningUseNoHeap) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer owns malloc";
#else
  for (const char16_t* line : {u"one", u"two"}) {
    // A new listener each time makes the second line go through the reconnect.
    LogCapture listener(root_);
    ASSERT_TRUE(listener.bound());
    countingAllocations = true;
    const int sent = LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", line, u"/a/b");
    countingAllocations = false;
    EXPECT_EQ(sent, 1);
    EXPECT_EQ(listener.NextMessage(), line);
  }
  EXPECT_EQ(allocations.load(), 0);
#endif
}

void LogFromFaultHandler(int) {
  _exit(LogMessage(kLogError, 0, u"Marlowen", u"Crash Reporting", u"Fault in the child", u"") == 1 ? 42 : 43);
}

TEST_F(LogClientSignalTest, LineFromAFaultHandlerInAChildArrives) {
  LogCapture listener(root_);
  ASSERT_TRUE(listener.bound());
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    struct sigaction action {};
    action.sa_handler = LogFromFaultHandler;
    sigaction(SIGSEGV, &action, nullptr);
    // A page without access: a real fault that no sanitizer claims first.
    void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    *static_cast<volatile int*>(page) = 1;
    _exit(1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 42);
  EXPECT_EQ(listener.NextMessage(), u"Fault in the child");
}

}  // namespace
