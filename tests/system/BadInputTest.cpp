// Bad input: the corpora of the fuzz targets, each of which checks what must hold for any input.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "FuzzShop.h"

#define TARGETS(apply)                                                                                                           \
    apply(catalogue) apply(controlState) apply(daemonFrames) apply(delta) apply(document) apply(healthBlock) apply(httpResponse) \
        apply(names) apply(pollAnswer) apply(request) apply(rule) apply(traceSpec) apply(uriPatterns) apply(workerFrames)
#define DECLARE(name) int fuzz_##name(const uint8_t *data, size_t size);
TARGETS(DECLARE)

namespace {

const std::string CORPUS = "fuzz/corpus/";

struct Target {
    const char *name;
    int (*run)(const uint8_t *data, size_t size);
};

class BadInput : public testing::TestWithParam<Target> {
protected:
    void TearDown() override { FuzzShop::drop(); }
};

TEST_P(BadInput, CorpusHolds) {
    std::vector<std::string> paths;
    for (const auto &file : std::filesystem::directory_iterator(TAV_SOURCE_DIR "/" + CORPUS + GetParam().name))
        paths.push_back(CORPUS + GetParam().name + "/" + file.path().filename().string());
    std::sort(paths.begin(), paths.end());
    ASSERT_GT(paths.size(), 5u);
    for (const std::string &path : paths) {
        // A target that finds something ends the program: the last name told is the culprit.
        fprintf(stderr, "%s\n", path.c_str());
        const std::string content = shop::contentOf(path);
        GetParam().run(reinterpret_cast<const uint8_t *>(content.data()), content.size());
    }
}

#define ROW(name) Target{#name, fuzz_##name},
const Target ROWS[] = {TARGETS(ROW)};
INSTANTIATE_TEST_SUITE_P(Targets, BadInput, testing::ValuesIn(ROWS), [](const auto &tested) { return tested.param.name; });

// Deltas of random choices: the snapshot that took them in place has the objects that a rebuild gives.
TEST(RandomInput, DeltasEndWhereARebuildDoes) {
    std::mt19937 random(1);
    for (int round = 0; round < 150; round++) {
        std::string input(200, '0');
        for (char &byte : input) byte = static_cast<char>(random());
        fuzz_delta(reinterpret_cast<const uint8_t *>(input.data()), input.size());
    }
    FuzzShop::drop();
}

} // namespace
