// The filter's pieces in this process: report names, the name table and
// the stack guard test.
#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "capture/exception_record.h"
#include "capture/top_level_filter.h"
#include "platform/system_time.h"
#include "shell/wide_string.h"
#include "store/file_time.h"
#include "test_root.h"

namespace capture_test {
namespace {

using namespace Marlowen;
using testing_support::TestRoot;

TEST(ReportFileNameTest, IsFolderNameUtcDigitsProcessAndThread) {
  TestRoot root;
  const std::string ids = "_" + std::to_string(getpid()) + "_" + std::to_string(gettid()) + ".dmp";
  // Two digits for every field but the year, so the names sort by time.
  const platform::SystemTime time{2027, 1, 0, 2, 3, 4, 5, 0};
  FILETIME fileTime;
  ASSERT_TRUE(SystemTimeToFileTime(time, fileTime));
  EXPECT_EQ(WideToUtf8(MakeReportFileName(u"Orbit Designer", fileTime)),
            root.ReportFolder() + "/Orbit Designer_20270102030405" + ids);
  EXPECT_EQ(WideToUtf8(MakeReportFileName(u"", fileTime)), root.ReportFolder() + "/_20270102030405" + ids);

  EXPECT_EQ(RemoveCharacters(u"2026-11-14 14:16:11_x", u" :-_", true), u"20261114141611x");
  EXPECT_EQ(RemoveCharacters(u"2026-11-14 14:16:11_x", u" :-_", false), u"-- ::_");
  EXPECT_EQ(RemoveCharacters(u"abc", u"", true), u"abc");
}

TEST(ExceptionNameTest, UnknownCodesAndMissingRecordsAreUnknown) {
  EXCEPTION_RECORD record;
  EXCEPTION_POINTERS pointers{&record, nullptr, nullptr};
  record.ExceptionCode = kExceptionStackOverflow;  // never reaches a report, but has its name
  EXPECT_EQ(ExceptionName(&pointers), u"Stack Overflow");
  for (std::uint32_t code : {kExceptionCxxThrow, kExceptionFatalAppExit, kExceptionInvalidSystemService, 0u}) {
    record.ExceptionCode = code;
    EXPECT_EQ(ExceptionName(&pointers), u"Exception Unknown") << std::hex << code;
  }
  EXPECT_EQ(ExceptionName(nullptr), u"Exception Unknown");
  EXCEPTION_POINTERS empty{};
  EXPECT_EQ(ExceptionName(&empty), u"Exception Unknown");
}

TEST(StackGuardTest, OnlyASegmentationFaultNextToTheStackPointerIsAnOverflow) {
  ucontext_t context;
  getcontext(&context);
  const auto stackPointer = static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
  siginfo_t info{};
  info.si_signo = SIGSEGV;
  info.si_code = SEGV_MAPERR;
  info.si_addr = reinterpret_cast<void*>(stackPointer - 8);
  EXPECT_TRUE(IsStackGuardFault(info, context));
  EXPECT_EQ(ExceptionCodeForSignal(info, context), kExceptionStackOverflow);
  info.si_addr = reinterpret_cast<void*>(stackPointer - kStackGuardReach);
  EXPECT_FALSE(IsStackGuardFault(info, context));
  info.si_addr = nullptr;
  EXPECT_EQ(ExceptionCodeForSignal(info, context), kExceptionAccessViolation);
  info.si_signo = SIGBUS;
  info.si_code = BUS_ADRERR;
  info.si_addr = reinterpret_cast<void*>(stackPointer - 8);
  EXPECT_FALSE(IsStackGuardFault(info, context));
}

}  // namespace
}  // namespace capture_test
