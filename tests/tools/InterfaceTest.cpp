// What every command shares: help, the man page and the completions tell the same options; faults end with status 2.
#include <gmock/gmock.h>

#include <regex>
#include <set>

#include "Tool.h"

using testing::HasSubstr;

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
    for (const char *command : {"route", "explain", "check", "test", "rule", "dump", "interests", "controller", "watch"}) {
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

// Every command says what it cannot use, ends with status 2 and prints nothing else.
TEST(Interface, whatCannotBeUsedIsToldAndEndsWithTwo) {
    const ScratchFile cut("cut.json", "{\n  \"version\": 1,\n  \"add\": ]\n}\n");
    const ScratchFile rules("rules.jsonl", "{\"rule\": \"true\", \"req\": {}}\n");
    const Arguments route = {"route", "-c", "site.json"};
    const std::pair<Arguments, std::string> cases[] = {
        {{}, "tavctl --help"},
        {{"rout"}, "'rout' is not expected here\n`tavctl --help`"},
        {{"check", "--jsn"}, "'--jsn' is not expected here"}, // before the file that is missing
        {{"test"}, "tavctl --help"},
        {{"check", cut.path()}, cut.path() + ":3: "},
        {{"check", "site.json", "gone.json"}, "gone.json: No such file or directory"},
        {{"check"}, "files is required"},
        {{"route", "-c", "nowhere.json", "/"}, "nowhere.json: No such file"},
        {{"route", "-c", "maintenance.json", "/"}, "maintenance.json: "}, // a delta without a document
        {{"route", "-c", "site.jsonl", "/"}, "site.jsonl:1: "},
        {{"route", "/"}, "--config is required"},
        {route + Arguments{"shop.example"}, "'shop.example': write http://HOST"},
        {route + Arguments{"http://h:99999/"}, "'99999' is no port"},
        {route + Arguments{"-H", "Beta", "/"}, "header 'Beta'"},
        {route + Arguments{"-b", "session", "/"}, "cookie 'session'"},
        {route + Arguments{"-p", "Nothing=1", "/"}, "property 'Nothing=1'"},
        {route + Arguments{"--repeat", "0", "/"}, "--repeat"},
        {{"explain", "/"}, "--status is required"},
        {{"explain", "--status", "http://127.0.0.1:1/s?x", "/"}, "without a query"},
        {{"explain", "--status", "http://127.0.0.1:1/s", "shop.example"}, "'shop.example': write http://HOST"},
        {{"explain", "--status", "ftp://127.0.0.1:1/s", "/"}, "ftp://127.0.0.1:1/s: "},
        {{"explain", "--status", "http://127.0.0.1:1/s", "/"}, "http://127.0.0.1:1/s: "},
        {{"controller", "--dir", "gone"}, "tavctl: "},
        {{"controller", "--dir", cut.path()}, "tavctl: "}, // no folder
        {{"controller", "--dir", ".", "--listen", "127.0.0.1"}, "write ADDRESS:PORT"},
        {{"controller", "--dir", ".", "--listen", "host:1"}, "tavctl: "},
        {{"controller", "--dir", ".", "--listen", "127.0.0.1:99999"}, "tavctl: "},
        {{"controller", "--dir", ".", "--listen", "192.0.2.1:1"}, "tavctl: "},
        {{"controller", "--dir", ".", "--wait", "0"}, "--wait"},
        {{"watch", "--controller", "http://127.0.0.1:1", "--for", "1", "--group-property", "colour=red"}, "colour"},
        {{"watch", "--controller", "http://127.0.0.1:99999", "--for", "1"}, "'http://127.0.0.1:99999' is no URL"},
        {{"watch", "--controller", "127.0.0.1:80", "--for", "1"}, "'127.0.0.1:80' is no URL"},
        {{"rule"}, "give either an expression or --file"},
        {{"rule", "true", "--file", rules.path()}, "give either an expression or --file"},
        {{"rule", "true", "--request", "{"}, "--request:1: "},
        {{"rule", "true", "--request", "{\"pth\": 1}"}, "--request: unknown request member \"pth\""},
        {{"rule", "true", "/", "--request", "{}"}, "excludes"},
        {{"watch", "--controller", "http://127.0.0.1:1", "--for", "1e300"}, "--for"},
        {{"rule", "--file", rules.path()}, rules.path() + ":1: unknown rule member \"req\""},
    };
    for (const auto &[args, message] : cases) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.status, 2) << message;
        EXPECT_EQ(run.out, "") << message;
        EXPECT_THAT(run.err, HasSubstr(message));
    }
    EXPECT_EQ(runTool({"--help"}).status, 0);
    EXPECT_THAT(runTool({"--version"}).out, HasSubstr("tavctl ("));
}

TEST(Interface, aFullDiskIsNoticed) {
    const std::string command = "cd " TOOLS_TEST_DIR "/data && " TAVCTL " dump -c site.json > /dev/full 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(system(command.c_str())), 2);
}

} // namespace
