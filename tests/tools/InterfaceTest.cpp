// What every command shares: help, the man page and the completions tell the same options; nothing is coloured off a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "Tool.h"

using testing::HasSubstr;
using testing::Not;

namespace {

std::set<std::string> longOptions(const std::string &help) {
    static const std::regex option("--[a-z][a-z-]+");
    std::set<std::string> options;
    const size_t start = help.find("Options:");
    const std::string text = help.substr(start, help.find("\n\n", start) - start);
    for (std::sregex_iterator it(text.begin(), text.end(), option), end; it != end; ++it) options.insert(it->str());
    return options;
}

TEST(Interface, manPageAndCompletionsKnowEveryOption) {
    std::string man = readText(TAV_SOURCE_DIR "/tools/tavctl/tavctl.1");
    man = std::regex_replace(man, std::regex(R"(\\-)"), "-");
    const std::string bash = readText(TAV_SOURCE_DIR "/tools/tavctl/completion/tavctl.bash");
    const std::string zsh = readText(TAV_SOURCE_DIR "/tools/tavctl/completion/_tavctl");
    for (const char *command : {"route", "check", "test", "rule", "dump", "interests", "controller"}) {
        const ToolRun run = runTool({command, "--help"});
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.out, HasSubstr("Example")) << command;
        EXPECT_THAT(man, HasSubstr(std::string(".SS ") + command + "\n"));
        for (const std::string &option : longOptions(run.out)) {
            EXPECT_THAT(man, HasSubstr(option)) << command;
            EXPECT_THAT(bash, HasSubstr(option)) << command;
            EXPECT_THAT(zsh, HasSubstr(option)) << command;
        }
    }
    EXPECT_THAT(longOptions(runTool({"route", "--help"}).out), testing::SizeIs(testing::Ge(11u)));
}

TEST(Interface, wrongUsageEndsWithTwo) {
    for (const std::vector<std::string> &args : {std::vector<std::string>{}, {"rout"}, {"check", "--jsn", "site.json"}, {"test"}}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, HasSubstr("tavctl --help"));
    }
    EXPECT_EQ(runTool({"--help"}).status, 0);
    EXPECT_THAT(runTool({"--version"}).out, HasSubstr("tavctl ("));
}

TEST(Interface, coloursAreForTerminalsAndCanBeRefused) {
    unsetenv("NO_COLOR");
    setenv("TERM", "xterm", 1);
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"route", "-c", "site.json", "/"}, {"check", "broken.json"}, {"test", "gone.jsonl"}}) {
        const ToolRun run = runTool(args);
        EXPECT_THAT(run.out + run.err, Not(HasSubstr("\033")));
        EXPECT_THAT(runToolOnTerminal(args), HasSubstr("\033["));
        setenv("NO_COLOR", "1", 1);
        EXPECT_THAT(runToolOnTerminal(args), Not(HasSubstr("\033")));
        unsetenv("NO_COLOR");
    }
}

TEST(Interface, aFullDiskIsNoticed) {
    const std::string command = "cd " TOOLS_TEST_DIR "/data && " TAVCTL " dump -c site.json > /dev/full 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(system(command.c_str())), 2);
}

} // namespace
