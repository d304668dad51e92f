// ml-locale-tool run as a program on real files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "locale_test_files.h"

namespace {

using locale_testing::LocaleXml;
using testing_support::PathExists;
using testing_support::ReadFileText;

struct RunResult {
  int status = -1;
  std::string output;
};

RunResult RunTool(const std::string& arguments) {
  const std::string command = "'" ML_LOCALE_TOOL "' " + arguments + " 2>&1";
  RunResult result;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  char chunk[4096];
  std::size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) result.output.append(chunk, n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
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

  RunResult update = RunTool("update " + Quoted(master) + " " + Quoted(folder));
  EXPECT_EQ(update.status, 0) << update.output;
  EXPECT_TRUE(PathExists(folder + "/new/Demo_de.locale"));
  const std::string report = ReadFileText(folder + "/new/Demo_de.txt");
  ASSERT_GE(report.size(), 2u);
  EXPECT_EQ(report.substr(0, 2), std::string("-\0", 2));  // UTF-16LE, no byte-order mark

  RunResult count = RunTool("word-count " + Quoted(folder + "/new/Demo_de.locale") + " " +
                            Quoted(root.Path("count.txt")));
  EXPECT_EQ(count.status, 0) << count.output;
  EXPECT_EQ(ReadFileText(root.Path("count.txt")),
            "Save\r\n" + std::string(83, '-') + "\r\nTotal number of words: 1\r\n");

  RunResult import = RunTool("import " + Quoted(german) + " " + Quoted(german));
  EXPECT_EQ(import.status, 1);
  EXPECT_NE(import.output.find("nothing to import"), std::string::npos) << import.output;

  RunResult notLocale = RunTool("merge " + Quoted(root.Path("count.txt")) + " " + Quoted(german));
  EXPECT_EQ(notLocale.status, 1);
  EXPECT_NE(notLocale.output.find("count.txt"), std::string::npos) << notLocale.output;

  RunResult missingFolder = RunTool("update " + Quoted(master) + " " + Quoted(root.Path("none")));
  EXPECT_EQ(missingFolder.status, 1);
  EXPECT_NE(missingFolder.output.find("not a folder"), std::string::npos) << missingFolder.output;

  EXPECT_EQ(RunTool("").status, 2);
  RunResult unknown = RunTool("translate-everything");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.output.find("Usage: ml-locale-tool"), std::string::npos) << unknown.output;
  EXPECT_EQ(RunTool("merge only-one").status, 2);
  EXPECT_EQ(RunTool("help").status, 0);
}

}  // namespace
