// Runs the built tavctl as a user would.
#ifndef TOOLS_TOOL_H
#define TOOLS_TOOL_H

#include <string>
#include <vector>

using Arguments = std::vector<std::string>;

struct ToolRun {
    int status; // exit status; -1 when a signal ended it
    std::string out, err;
};

// In tests/tools/data, with `input` as standard input and no terminal.
ToolRun runTool(const Arguments &args, const std::string &input = "");
// `args` behind `before`.
Arguments operator+(Arguments before, const Arguments &args);

// A file that lives as long as the object, in a folder of its own.
class ScratchFile {
public:
    ScratchFile(const std::string &name, const std::string &text);
    ~ScratchFile();
    ScratchFile(const ScratchFile &) = delete;
    ScratchFile &operator=(const ScratchFile &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string folder_, path_;
};

std::string readText(const std::string &path);
// Compares with tests/tools/golden/NAME; with TAV_UPDATE_GOLDEN in the environment it writes the file instead.
void expectGolden(const std::string &name, const std::string &text);

#endif
