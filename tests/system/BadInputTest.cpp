// Bad input: the corpora of the fuzz targets, each of which checks what must hold for any input; and what whole documents come to.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "FuzzShop.h"

int fuzz_catalogue(const uint8_t *data, size_t size);
int fuzz_controlState(const uint8_t *data, size_t size);
int fuzz_daemonFrames(const uint8_t *data, size_t size);
int fuzz_delta(const uint8_t *data, size_t size);
int fuzz_document(const uint8_t *data, size_t size);
int fuzz_healthBlock(const uint8_t *data, size_t size);
int fuzz_httpResponse(const uint8_t *data, size_t size);
int fuzz_names(const uint8_t *data, size_t size);
int fuzz_pollAnswer(const uint8_t *data, size_t size);
int fuzz_request(const uint8_t *data, size_t size);
int fuzz_rule(const uint8_t *data, size_t size);
int fuzz_traceSpec(const uint8_t *data, size_t size);
int fuzz_uriPatterns(const uint8_t *data, size_t size);
int fuzz_workerFrames(const uint8_t *data, size_t size);

namespace {

const std::filesystem::path CORPUS = TAV_SOURCE_DIR "/fuzz/corpus";

std::string contentOf(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Target {
    const char *name;
    int (*run)(const uint8_t *data, size_t size);
};

class BadInput : public testing::TestWithParam<Target> {
protected:
    static void TearDownTestSuite() { FuzzShop::drop(); }
};

TEST_P(BadInput, CorpusHolds) {
    std::vector<std::filesystem::path> paths;
    for (const auto &file : std::filesystem::directory_iterator(CORPUS / GetParam().name)) paths.push_back(file.path());
    std::sort(paths.begin(), paths.end());
    ASSERT_GT(paths.size(), 5u);
    for (const auto &path : paths) {
        // A target that finds something ends the program: the last name told is the culprit.
        fprintf(stderr, "%s\n", path.c_str());
        const std::string content = contentOf(path);
        GetParam().run(reinterpret_cast<const uint8_t *>(content.data()), content.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, BadInput,
                         testing::Values(Target{"catalogue", fuzz_catalogue}, Target{"controlState", fuzz_controlState},
                                         Target{"daemonFrames", fuzz_daemonFrames}, Target{"delta", fuzz_delta},
                                         Target{"document", fuzz_document}, Target{"healthBlock", fuzz_healthBlock},
                                         Target{"httpResponse", fuzz_httpResponse}, Target{"names", fuzz_names},
                                         Target{"pollAnswer", fuzz_pollAnswer}, Target{"request", fuzz_request}, Target{"rule", fuzz_rule},
                                         Target{"traceSpec", fuzz_traceSpec}, Target{"uriPatterns", fuzz_uriPatterns},
                                         Target{"workerFrames", fuzz_workerFrames}),
                         [](const auto &tested) { return tested.param.name; });

// Refused (-1), and the shop is served as before; or taken, and the version counts: the shop is gone unless the document has it.
TEST(BadDocument, IsRefusedWholeOrTakenForWhatItSays) {
    const struct {
        const char *names;
        long long result;
        bool shopStays;
    } rows[] = {
        {"empty array text truncated trailing bad-utf8 nul big-integer deep-arrays deep-objects", -1, true},
        {"delta-itself shop", 1, true},
        {"empty-object real-version", 0, false},
        {"delta-one double-keys add-is-text objects-odd entry-odd names wrong-parents wrong-ends kinds-odd duplicates values vhosts rules",
         2, false},
        {"set-and-del", 9, false},
        {"negative-version", -1, false},
    };
    SystemInstance instance;
    for (const auto &row : rows) {
        std::istringstream names(row.names);
        for (std::string name; names >> name;) {
            SCOPED_TRACE(name);
            ASSERT_EQ(instance.give(shop::document(1)), 1);
            EnvHttpContext request = shop::request("/admin/");
            const std::string before = shop::decide(instance.tav, request).text();
            EXPECT_EQ(instance.give(contentOf(CORPUS / "document" / name)), row.result);
            const shop::Decision after = shop::decide(instance.tav, request);
            EXPECT_EQ(after.text() == before, row.shopStays) << after.text();
            EXPECT_EQ(after.errorCode, row.shopStays ? 0 : 404);
        }
    }
}

} // namespace
