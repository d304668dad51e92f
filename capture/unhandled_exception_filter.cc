#include "capture/unhandled_exception_filter.h"

#include <unistd.h>

#include <atomic>

namespace Marlowen {
namespace {

std::atomic<TopLevelExceptionFilter> g_filter{nullptr};
static_assert(std::atomic<TopLevelExceptionFilter>::is_always_lock_free,
              "the filter is read in signal handlers");

}  // namespace

TopLevelExceptionFilter SetUnhandledExceptionFilter(TopLevelExceptionFilter filter) {
  return g_filter.exchange(filter);
}

TopLevelExceptionFilter CurrentUnhandledExceptionFilter() { return g_filter.load(); }

void ExitProcess(std::uint32_t code) { _exit(static_cast<int>(code)); }

std::uint32_t GetCurrentThreadId() { return static_cast<std::uint32_t>(gettid()); }

std::uint32_t GetCurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace Marlowen
