#include "Tool.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

extern char **environ;

namespace {

struct FileCloser {
    void operator()(FILE *file) const noexcept { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Unnamed files instead of pipes: nothing can block however much is written.
File scratch(const std::string &text = "") {
    File file(tmpfile());
    if (!file) throw std::runtime_error("no scratch file");
    fwrite(text.data(), 1, text.size(), file.get());
    rewind(file.get());
    return file;
}

std::string contents(const File &file) {
    std::string text;
    rewind(file.get());
    char buffer[4096];
    while (size_t count = fread(buffer, 1, sizeof buffer, file.get())) text.append(buffer, count);
    return text;
}

std::vector<char *> argumentsOf(const Arguments &args) {
    std::vector<char *> argv = {const_cast<char *>("tavctl")};
    for (const std::string &arg : args) argv.push_back(const_cast<char *>(arg.c_str()));
    argv.push_back(nullptr);
    return argv;
}

} // namespace

Arguments operator+(Arguments before, const Arguments &args) {
    before.insert(before.end(), args.begin(), args.end());
    return before;
}

ToolRun runTool(const Arguments &args, const std::string &input) {
    const File in = scratch(input), out = scratch(), err = scratch();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, TOOLS_TEST_DIR "/data");
    posix_spawn_file_actions_adddup2(&actions, fileno(in.get()), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(err.get()), STDERR_FILENO);
    const std::vector<char *> argv = argumentsOf(args);
    pid_t child = 0;
    const int error = posix_spawn(&child, TAVCTL, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("tavctl cannot be started");
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(out), contents(err)};
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
