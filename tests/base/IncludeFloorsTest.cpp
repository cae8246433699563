// A module of the library includes only its own floor and the floors below.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;

// Lowest first. tavInstance holds only a header of plain getters; what stands above it may include it.
const std::string FLOORS[] = {" tavUtil tavList tavHash tavLock tavThread tavProperties tavLibUtil tavVersion ",
                              " tavInstance ",
                              " tavSxLex tavSxp tr ",
                              " tavTokenizer tavLanguage tavCommonLanguage ",
                              " tavUrl URIMatcher vHost VHostMatcher tavURLMatcher ",
                              " tavRule tavRequestMapper tavTargetSelector tavHealthMonitor ",
                              " tavHttpContext tavHttpLanguage tavHttpClient tavConnector tavMultiProcess ",
                              " tavSnapshot tavObjects tavDocument tavProcess tavStatus tav "};

// -1: in no floor.
int floorOf(const std::string &folder) {
    for (size_t i = 0; i < std::size(FLOORS); i++) {
        if (FLOORS[i].find(" " + folder + " ") != std::string::npos) return static_cast<int>(i);
    }
    return -1;
}

// The module that `line` includes, as "module/file"; empty when it is no such line.
std::string includedBy(const std::string &line) {
    static const std::regex include(R"re([ \t]*#[ \t]*include[ \t]*"([^"]*)".*)re");
    std::smatch found;
    return std::regex_match(line, found, include) ? found[1].str() : "";
}

// What is wrong with `line` in a source of `folder`; empty when nothing is.
std::string faultOf(const std::string &folder, const std::string &line) {
    const std::string path = includedBy(line), target = path.substr(0, path.find('/'));
    if (path.find("..") != std::string::npos) return "leaves its folder by a relative path: " + path;
    if (target == path || target == folder) return "";
    if (floorOf(folder) < 0 || floorOf(target) < 0) return "in no floor: " + folder + " or " + target;
    return floorOf(target) > floorOf(folder) ? "includes upward: " + path : "";
}

} // namespace

TEST(IncludeFloors, NoModuleIncludesUpward) {
    const fs::path src = fs::path(TAV_SOURCE_DIR) / "src";
    std::set<std::pair<std::string, std::string>> edges; // module, module that it includes
    for (const auto &entry : fs::recursive_directory_iterator(src)) {
        const fs::path relative = fs::relative(entry.path(), src);
        const std::string folder = relative.begin()->string();
        EXPECT_TRUE(!entry.is_directory() || floorOf(folder) >= 0) << folder << " is in no floor";
        const std::string extension = entry.path().extension().string();
        if (!entry.is_regular_file() || (extension != ".h" && extension != ".cpp")) continue;
        EXPECT_TRUE(entry.path().parent_path() != src) << relative << " lies in no module";
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            EXPECT_EQ(faultOf(folder, line), "") << relative;
            const std::string path = includedBy(line), target = path.substr(0, path.find('/'));
            if (target != folder && target != path) edges.emplace(folder, target);
        }
    }
    // Below the core two modules know each other only where it is meant: a server's health is checked with the selector's lock held.
    std::string mutual;
    for (const auto &[from, to] : edges)
        if (from < to && edges.count({to, from}) && floorOf(from) + 1 < static_cast<int>(std::size(FLOORS)))
            mutual += from + " " + to + ";";
    EXPECT_EQ(mutual, "tavHealthMonitor tavTargetSelector;");
}
