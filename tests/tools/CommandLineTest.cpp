// What all sub-commands have in common: help that teaches by example, exit codes, completion files, pages.
#include <gmock/gmock.h>

#include "RunOrm.h"

namespace orm::test {
namespace {

using testing::HasSubstr;

const std::vector<std::vector<std::string>> COMMANDS = {{"reg", "query"},    {"reg", "add"},
                                                        {"reg", "delete"},   {"reg", "copy"},
                                                        {"reg", "compare"},  {"reg", "export"},
                                                        {"reg", "import"},   {"reg", "undo"},
                                                        {"reg", "watch"},    {"reg", "check"},
                                                        {"trace", "areas"},  {"trace", "set"},
                                                        {"trace", "format"}, {"trace", "target"},
                                                        {"trace", "policy"}, {"trace", "watch"},
                                                        {"trace", "tail"},   {"class", "paths"},
                                                        {"class", "list"},   {"class", "show"},
                                                        {"class", "create"}, {"class", "cache"},
                                                        {"class", "probe"},  {"archive", "show"},
                                                        {"archive", "make"}, {"machine", "init"},
                                                        {"machine", "info"}, {"machine", "check"},
                                                        {"draw", "font"},    {"draw", "bitmap"},
                                                        {"draw", "sheet"},   {"rc"},
                                                        {"completion"},      {"man"}};

TEST(CommandLine, EveryHelpTeachesByExample) {
  for (std::vector<std::string> command : COMMANDS) {
    std::string name = "orm";
    for (const std::string& word : command) name += " " + word;
    command.emplace_back("--help");
    const Outcome outcome = RunOrm(command);
    EXPECT_EQ(outcome.code, 0) << name;
    EXPECT_THAT(outcome.out, HasSubstr("Examples:\n  ")) << name;
    EXPECT_THAT(outcome.out, HasSubstr(name)) << name;
  }
}

TEST(CommandLine, AWrongLineIsExitCode2) {
  for (const std::vector<std::string>& line :
       std::vector<std::vector<std::string>>{{},
                                             {"nonsense"},
                                             {"reg"},
                                             {"reg", "query"},
                                             {"reg", "query", "HKCU", "--nonsense"},
                                             {"completion", "tcsh"}}) {
    EXPECT_EQ(RunOrm(line).code, 2) << testing::PrintToString(line);
  }
  EXPECT_EQ(RunOrm({"--version"}).code, 0);
}

TEST(CommandLine, CompletionFilesAndPagesNameEveryCommand) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const std::string script = RunOrm({"completion", shell}).out;
    for (const auto& command : COMMANDS) EXPECT_THAT(script, HasSubstr(command.back())) << shell;
  }
  const std::string script = WriteFileBytes(
      "complete.bash", RunOrm({"completion", "bash"}).out +
                           "COMP_WORDS=(orm reg ex); COMP_CWORD=2; _orm; [ \"${COMPREPLY[*]}\" = export ]\n");
  EXPECT_EQ(std::system(("bash " + script).c_str()), 0);
  EXPECT_THAT(RunOrm({"completion", "fish"}).out, HasSubstr("-l depfile"));
  EXPECT_THAT(RunOrm({"man", "reg"}).out, HasSubstr(".SH orm reg export"));
  EXPECT_THAT(RunOrm({"man", "draw"}).out, HasSubstr(".SH orm draw bitmap"));
  EXPECT_THAT(RunOrm({"man", "rc"}).out, HasSubstr(".B \\-M, \\-\\-depfile"));
  EXPECT_EQ(RunOrm({"man", "nonsense"}).code, 1);
}

}  // namespace
}  // namespace orm::test
