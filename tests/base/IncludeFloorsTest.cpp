// A module of the library includes only its own floor and the floors below.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>

namespace {

namespace fs = std::filesystem;

// Lowest first. tavInstance holds only a header of plain getters; what stands above it may include it.
const std::map<std::string, int> &floors() {
    static const std::map<std::string, int> table = [] {
        const std::initializer_list<std::initializer_list<const char *>> upwards = {
            {"tavUtil", "tavList", "tavHash", "tavLock", "tavThread", "tavProperties", "tavLibUtil", "tavVersion"},
            {"tavInstance"},
            {"tavSxLex", "tavSxp", "tr"},
            {"tavTokenizer", "tavLanguage", "tavCommonLanguage"},
            {"tavUrl", "URIMatcher", "vHost", "VHostMatcher", "tavURLMatcher"},
            {"tavRule", "tavRequestMapper", "tavTargetSelector", "tavHealthMonitor"},
            {"tavHttpContext", "tavHttpLanguage", "tavHttpClient", "tavConnector", "tavMultiProcess"},
            {"tav"},
        };
        std::map<std::string, int> result;
        int floor = 0;
        for (const auto &folders : upwards) {
            for (const char *folder : folders) result[folder] = floor;
            floor++;
        }
        return result;
    }();
    return table;
}

std::optional<int> floorOf(const std::string &folder) {
    const auto found = floors().find(folder);
    return found == floors().end() ? std::nullopt : std::optional<int>(found->second);
}

// The path of a quoted include; empty for any other line.
std::string includedPath(const std::string &line) {
    const size_t hash = line.find_first_not_of(" \t");
    if (hash == std::string::npos || line[hash] != '#') return "";
    const size_t word = line.find_first_not_of(" \t", hash + 1);
    if (word == std::string::npos || line.compare(word, 7, "include") != 0) return "";
    const size_t open = line.find_first_not_of(" \t", word + 7);
    if (open == std::string::npos || line[open] != '"') return "";
    return line.substr(open + 1, line.find('"', open + 1) - open - 1);
}

// What is wrong with `line` in a source of `folder`; empty when nothing is.
std::string faultOf(const std::string &folder, const std::string &line) {
    const std::string path = includedPath(line);
    if (path.empty()) return "";
    if (path.find("..") != std::string::npos) return "leaves its folder by a relative path: " + path;
    const std::string target = path.substr(0, path.find('/'));
    if (target == path || target == folder) return "";
    const auto from = floorOf(folder), to = floorOf(target);
    if (!from || !to) return "in no floor: " + (from ? target : folder);
    return *to > *from ? "includes upward: " + path : "";
}

} // namespace

TEST(IncludeFloors, TheCheckerSeesFaults) {
    const struct {
        const char *folder, *line;
        bool fault;
    } cases[] = {
        {"tr", "#include \"tavList/tavList.h\"", false},
        {"tavList", "#include \"tavHash/tavHash.h\"", false},
        {"tavList", "#include \"tr/tr.h\"", true},
        {"tavList", "  #  include \"tr/tr.h\" // why", true},
        {"tr", "#include \"tavInstance/tavInstance.h\"", false},
        {"tavLock", "#include \"tavInstance/tavInstance.h\"", true},
        {"tavInstance", "#include \"tav/tav.h\"", true},
        {"tavRule", "#include \"tavHttpContext/tavHttpContext.h\"", true},
        {"tavRule", "#include \"tavRule/tavHttpContextForRule.h\"", false},
        {"tavRule", "#include \"../tav/tav.h\"", true},
        {"tavList", "#include <tav/types.h>", false},
        {"tavList", "// #include \"tr/tr.h\"", false},
        {"tavList", "#include \"unheardOf/x.h\"", true},
        {"unheardOf", "#include \"tavList/tavList.h\"", true},
    };
    for (const auto &c : cases) EXPECT_EQ(!faultOf(c.folder, c.line).empty(), c.fault) << c.folder << ": " << c.line;
}

TEST(IncludeFloors, NoModuleIncludesUpward) {
    const fs::path src = fs::path(TAV_SOURCE_DIR) / "src";
    int lines = 0;
    for (const auto &entry : fs::recursive_directory_iterator(src)) {
        const fs::path relative = fs::relative(entry.path(), src);
        const std::string folder = relative.begin()->string();
        if (entry.is_directory()) {
            EXPECT_TRUE(floorOf(folder)) << folder << " is in no floor";
        }
        const std::string extension = entry.path().extension().string();
        if (!entry.is_regular_file() || (extension != ".h" && extension != ".cpp")) continue;
        EXPECT_TRUE(entry.path().parent_path() != src) << relative << " lies in no module";
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line); lines++) {
            const std::string fault = faultOf(folder, line);
            EXPECT_TRUE(fault.empty()) << relative << ": " << fault;
        }
    }
    EXPECT_GT(lines, 0);
}
