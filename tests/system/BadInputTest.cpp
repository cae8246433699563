// Bad input: the corpora of the fuzz targets, each of which checks what must hold for any input; and what whole documents come to.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "FuzzShop.h"

int fuzz_catalogue(const uint8_t *data, size_t size);
int fuzz_controlState(const uint8_t *data, size_t size);
int fuzz_delta(const uint8_t *data, size_t size);
int fuzz_document(const uint8_t *data, size_t size);
int fuzz_httpResponse(const uint8_t *data, size_t size);
int fuzz_names(const uint8_t *data, size_t size);
int fuzz_pollAnswer(const uint8_t *data, size_t size);
int fuzz_request(const uint8_t *data, size_t size);
int fuzz_rule(const uint8_t *data, size_t size);
int fuzz_traceSpec(const uint8_t *data, size_t size);
int fuzz_uriPatterns(const uint8_t *data, size_t size);

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
                                         Target{"delta", fuzz_delta}, Target{"document", fuzz_document},
                                         Target{"httpResponse", fuzz_httpResponse}, Target{"names", fuzz_names},
                                         Target{"pollAnswer", fuzz_pollAnswer}, Target{"request", fuzz_request}, Target{"rule", fuzz_rule},
                                         Target{"traceSpec", fuzz_traceSpec}, Target{"uriPatterns", fuzz_uriPatterns}),
                         [](const auto &tested) { return tested.param.name; });

// -1: refused, and the shop is served as before. Otherwise the version that counts; the shop is gone unless the document has it.
TEST(BadDocument, IsRefusedWholeOrTakenForWhatItSays) {
    const struct {
        const char *name;
        long long result;
        bool shopStays;
    } rows[] = {
        {"empty", -1, true},
        {"array", -1, true},
        {"text", -1, true},
        {"truncated", -1, true},
        {"trailing", -1, true},
        {"bad-utf8", -1, true},
        {"nul", -1, true},
        {"big-integer", -1, true},
        {"deep-arrays", -1, true},
        {"deep-objects", -1, true},
        {"delta-itself", 1, true},
        {"empty-object", 0, false},
        {"real-version", 0, false},
        {"delta-one", 2, false},
        {"double-keys", 2, false},
        {"add-is-text", 2, false},
        {"objects-odd", 2, false},
        {"entry-odd", 2, false},
        {"names", 2, false},
        {"wrong-parents", 2, false},
        {"wrong-ends", 2, false},
        {"kinds-odd", 2, false},
        {"duplicates", 2, false},
        {"values", 2, false},
        {"set-and-del", 9, false},
        {"vhosts", 2, false},
        {"rules", 2, false},
        {"shop", 1, true},
        {"negative-version", -1, false},
    };
    SystemInstance instance;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(instance.give(shop::document(1)), 1);
        EnvHttpContext request = shop::request("/admin/");
        const std::string before = shop::decide(instance.tav, request).text();
        EXPECT_EQ(instance.give(contentOf(CORPUS / "document" / row.name)), row.result);
        const shop::Decision after = shop::decide(instance.tav, request);
        if (row.shopStays) {
            EXPECT_EQ(after.text(), before);
        } else {
            EXPECT_EQ(after.handled, 0);
            EXPECT_EQ(after.errorCode, 404);
        }
    }
}

} // namespace
