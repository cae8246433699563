#include "Tool.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

Arguments operator+(Arguments before, const Arguments &args) {
    before.insert(before.end(), args.begin(), args.end());
    return before;
}

// Files instead of pipes: nothing can block however much is written.
ToolRun runTool(const Arguments &args, const std::string &input) {
    const ScratchFile in("in", input);
    std::string command = "cd '" TOOLS_TEST_DIR "/data' && exec '" TAVCTL "'";
    for (const std::string &arg : args) command += " '" + std::regex_replace(arg, std::regex("'"), R"('\'')") + "'";
    command += " <" + in.path() + " >" + in.path() + ".out 2>" + in.path() + ".err";
    const int status = system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(in.path() + ".out"), readText(in.path() + ".err")};
}

ScratchFile::ScratchFile(const std::string &name, const std::string &text) {
    std::string pattern = (std::filesystem::temp_directory_path() / "tavctl-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no scratch folder");
    folder_ = pattern;
    path_ = folder_ + "/" + name;
    std::ofstream(path_) << text;
}

ScratchFile::~ScratchFile() { std::filesystem::remove_all(folder_); }

std::string readText(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void expectGolden(const std::string &name, const std::string &text) {
    const std::string path = std::string(TOOLS_TEST_DIR "/golden/") + name;
    if (getenv("TAV_UPDATE_GOLDEN")) std::ofstream(path) << text;
    EXPECT_EQ(text, readText(path)) << path;
}
