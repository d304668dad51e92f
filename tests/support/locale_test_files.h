// Helpers of the localization tests: .locale files written out by hand, and
// a fixture that gives each test its own root and a closed library.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "shell/wide_string.h"
#include "test_root.h"

namespace locale_testing {

struct TestString {
  TestString(std::string originalText, std::optional<std::string> localText = std::nullopt, std::uint32_t rowId = 7,
             std::optional<std::string> localNewText = std::nullopt)
      : original(std::move(originalText)), local(std::move(localText)), id(rowId), localNew(std::move(localNewText)) {}

  std::string original;
  std::optional<std::string> local;
  std::uint32_t id;
  std::optional<std::string> localNew;
};

struct TestBlock {
  std::string language;
  std::vector<TestString> strings;
};

// The XML of a .locale file; texts are escaped, CR as a character reference
// so that it survives parsing.
std::string LocaleXml(const std::string& application, const std::vector<TestBlock>& blocks);

// UTF-16LE bytes of a text, as the update report holds them.
std::vector<std::uint8_t> Utf16LeBytes(const std::u16string& text);

class LocalizationTest : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }
  static void Reset();

  // A folder inside the test root, created.
  std::string Folder(const std::string& relative);
  // Writes a .locale file and answers its path.
  std::string WriteLocale(const std::string& folder, const std::string& name, const std::string& application,
                          const std::vector<TestBlock>& blocks);

  testing_support::TestRoot root_;
};

}  // namespace locale_testing
