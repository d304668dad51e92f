// The filter's pieces in this process: report names, the name table, the
// dump types, the stack guard test and the dispositions that return.
#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/crash_report_writer.h"
#include "capture/exception_record.h"
#include "capture/top_level_filter.h"
#include "capture/unhandled_exception_filter.h"
#include "capture_test_support.h"
#include "platform/system_time.h"
#include "shell/wide_string.h"
#include "store/file_time.h"
#include "test_root.h"

namespace capture_test {
namespace {

using namespace Marlowen;
using testing::ElementsAre;
using testing::SizeIs;
using testing_support::TestRoot;

FILETIME FileTimeOf(std::uint16_t year, std::uint16_t month, std::uint16_t day, std::uint16_t hour,
                    std::uint16_t minute, std::uint16_t second) {
  platform::SystemTime time{};
  time.year = year;
  time.month = month;
  time.day = day;
  time.hour = hour;
  time.minute = minute;
  time.second = second;
  FILETIME fileTime;
  EXPECT_TRUE(SystemTimeToFileTime(time, fileTime));
  return fileTime;
}

std::string Ids() { return "_" + std::to_string(getpid()) + "_" + std::to_string(gettid()) + ".dmp"; }

TEST(ReportFileNameTest, IsFolderNameUtcDigitsProcessAndThread) {
  TestRoot root;
  EXPECT_EQ(WideToUtf8(MakeReportFileName(u"Orbit Designer", FileTimeOf(2026, 11, 14, 14, 16, 11))),
            root.ReportFolder() + "/Orbit Designer_20261114141611" + Ids());
  // Two digits for every field but the year, so the names sort by time.
  EXPECT_EQ(WideToUtf8(MakeReportFileName(u"A", FileTimeOf(2027, 1, 2, 3, 4, 5))),
            root.ReportFolder() + "/A_20270102030405" + Ids());
  EXPECT_EQ(WideToUtf8(MakeReportFileName(u"", FileTimeOf(2026, 11, 14, 14, 16, 11))),
            root.ReportFolder() + "/_20261114141611" + Ids());
}

TEST(RemoveCharactersTest, DropsOrKeepsTheListedCharactersInOrder) {
  EXPECT_EQ(RemoveCharacters(u"2026-11-14 14:16:11_x", u" :-_", true), u"20261114141611x");
  EXPECT_EQ(RemoveCharacters(u"2026-11-14 14:16:11_x", u" :-_", false), u"-- ::_");
  EXPECT_EQ(RemoveCharacters(u"", u"abc", true), u"");
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
}

TEST(ExceptionNameTest, WithoutARecordIsUnknown) {
  EXPECT_EQ(ExceptionName(nullptr), u"Exception Unknown");
  EXCEPTION_POINTERS empty;
  EXPECT_EQ(ExceptionName(&empty), u"Exception Unknown");
}

TEST(DumpTypeTest, FollowsTheLevel) {
  EXPECT_EQ(DumpTypeForLevel(1), 0x107u);
  EXPECT_EQ(DumpTypeForLevel(2), 0x105u);
  EXPECT_EQ(DumpTypeForLevel(3), 0x104u);
  EXPECT_EQ(DumpTypeForLevel(0), 0x104u);
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

// The filter's path for a product that wants its fault back: the report is
// written and the tool started, then the call returns by the disposition.
class DispositionTest : public testing::TestWithParam<std::pair<std::int32_t, std::int32_t>> {};

TEST_P(DispositionTest, ReturnsAfterTheReport) {
  TestRoot root;
  WriteToolEntry(FakeToolPath(), DumpLibraryFolder());
  ucontext_t context;
  getcontext(&context);
  siginfo_t info{};
  info.si_signo = SIGSEGV;
  info.si_code = SEGV_MAPERR;
  EXCEPTION_RECORD record;
  FillExceptionRecord(info, context, record);
  EXCEPTION_POINTERS pointers{&record, &context, &info};

  const TopLevelExceptionFilter before = CurrentUnhandledExceptionFilter();
  EXPECT_EQ(HandleTopLevelException(u"Disposition Check", kCrashExitCode, GetParam().first, &pointers),
            GetParam().second);
  EXPECT_EQ(CurrentUnhandledExceptionFilter(), &NestedTopLevelFilter);
  SetUnhandledExceptionFilter(before);

  const std::vector<std::string> names = ReportNames(root);
  ASSERT_THAT(names, SizeIs(1));
  EXPECT_THAT(ReportFiles(root), ElementsAre(names[0] + ".dat", names[0] + ".dmp"));
  EXPECT_THAT(ToolCalls(root, 1), ElementsAre("-send " + names[0]));
}

INSTANTIATE_TEST_SUITE_P(Values, DispositionTest,
                         testing::Values(std::pair{1, 1}, std::pair{2, 2}, std::pair{7, 1}, std::pair{-1, 1}));

}  // namespace
}  // namespace capture_test
