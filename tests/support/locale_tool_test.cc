// ml-locale-tool run as a program on real files.
#include <gtest/gtest.h>

#include <string>

#include "locale_test_files.h"
#include "run_command.h"

namespace {

using locale_testing::LocaleXml;
using testing_support::ReadFileText;

testing_support::CommandResult RunTool(const std::string& arguments) {
  return testing_support::RunCommand("'" ML_LOCALE_TOOL "' " + arguments + " 2>&1");
}

std::string Quoted(const std::string& path) { return "'" + path + "'"; }

TEST(LocaleToolTest, RunsTheFileToolsAndRefusesBadInput) {
  testing_support::TestRoot root;
  const std::string folder = root.Path("my lang");
  testing_support::MakeFolders(folder);
  const std::string master = root.Path("Demo_undefined.locale");
  testing_support::WriteFileText(master, LocaleXml("Demo", {{"UNDEFINED", {{"Open"}, {"Save"}}}}));
  const std::string german = folder + "/Demo_de.locale";
  testing_support::WriteFileText(german, LocaleXml("Demo", {{"de", {{"Open", "Öffnen"}, {"Old one"}}}}));

  auto result = RunTool("update " + Quoted(master) + " " + Quoted(folder));
  EXPECT_EQ(result.status, 0) << result.output;
  const std::string report = ReadFileText(folder + "/new/Demo_de.txt");
  EXPECT_EQ(report.substr(0, 2), std::string("-\0", 2));  // UTF-16LE, no byte-order mark
  result = RunTool("word-count " + Quoted(folder + "/new/Demo_de.locale") + " " + Quoted(root.Path("count.txt")));
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(ReadFileText(root.Path("count.txt")), "Save\r\n" + std::string(83, '-') + "\r\nTotal number of words: 1\r\n");

  struct Refusal {
    std::string arguments;
    int status;
    const char* text;
  };
  for (const Refusal& r : {Refusal{"import " + Quoted(german) + " " + Quoted(german), 1, "nothing to import"},
                           Refusal{"merge " + Quoted(root.Path("count.txt")) + " " + Quoted(german), 1, "count.txt"},
                           Refusal{"update " + Quoted(master) + " " + Quoted(root.Path("none")), 1, "not a folder"},
                           Refusal{"translate-everything", 2, "Usage: ml-locale-tool"}, Refusal{"", 2, ""},
                           Refusal{"merge only-one", 2, ""}, Refusal{"help", 0, ""}}) {
    result = RunTool(r.arguments);
    EXPECT_EQ(result.status, r.status) << r.arguments;
    EXPECT_NE(result.output.find(r.text), std::string::npos) << result.output;
  }
}

}  // namespace
