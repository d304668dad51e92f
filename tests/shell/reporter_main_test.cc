// The tool's reading of its command line and of report names.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/report_modes.h"
#include "shell/reporter_main.h"

namespace {

struct ModeCase {
  const char* name;
  const char16_t* commandText;  // already trimmed, as the entry passes it
  ReporterMode mode;
  const char16_t* reportName;
};

class ChooseModeTest : public ::testing::TestWithParam<ModeCase> {};

TEST_P(ChooseModeTest, TestsOptionsInOrderWithCase) {
  const ModeChoice choice = ChooseMode(GetParam().commandText);
  EXPECT_EQ(choice.mode, GetParam().mode);
  EXPECT_EQ(WideToUtf8(choice.reportName), WideToUtf8(GetParam().reportName));
}

// The other options are run end to end by the reporter tool test.
INSTANTIATE_TEST_SUITE_P(
    Table, ChooseModeTest,
    ::testing::Values(ModeCase{"CrashWithTail", u"-crashnow", ReporterMode::kCrash, u""},
                      ModeCase{"SendAlCountsPositionSix", u"-sendAl", ReporterMode::kSend, u"l"},
                      ModeCase{"SendKeepsBlanksAndQuotes", u"-send \"A B_1\"", ReporterMode::kSend, u"\"A B_1\""},
                      ModeCase{"RestOfAPath", u"blank/MLCrashReporter -send A_1", ReporterMode::kSettings, u""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(CommandText, ConvertsUtf8AndTrimsLineEnds) {
  EXPECT_EQ(CommandTextFromCommandLine(" \t\r\n-send Z\xC3\xBCrich_1 \r\n"), u"-send Z\u00FCrich_1");
  EXPECT_EQ(CommandTextFromCommandLine(" \t \n"), u"");
}

struct ProductCase {
  const char16_t* reportName;
  const char16_t* productName;
  bool unattended;
};

class UnattendedProductTest : public ::testing::TestWithParam<ProductCase> {};

TEST_P(UnattendedProductTest, CutsAtFirstUnderscoreAndTestsPrefixesWithoutCase) {
  WideString product = u"left over";
  EXPECT_EQ(IsUnattendedProduct(GetParam().reportName, product), GetParam().unattended);
  EXPECT_EQ(WideToUtf8(product), WideToUtf8(GetParam().productName));
}

INSTANTIATE_TEST_SUITE_P(
    Table, UnattendedProductTest,
    ::testing::Values(ProductCase{u"Orbit Designer_20260101000000_7_8", u"Orbit Designer", true},
                      ProductCase{u"NoUnderscore", u"NoUnderscore", true},
                      ProductCase{u"", u"", true},
                      ProductCase{u"tarnhollows server_1", u"tarnhollows server", false},
                      ProductCase{u"Brindlemoor Setup Wizard_1_2", u"Brindlemoor Setup Wizard",
                                  false},
                      ProductCase{u"Brindlemoor Setup_1", u"Brindlemoor Setup", true},
                      ProductCase{u"My TARNHOLLOWS_1", u"My TARNHOLLOWS", true}));

}  // namespace
