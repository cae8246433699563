// Random patterns and paths over a small alphabet for the fuzz target, which compares with the plain implementation: unsealed, sealed,
// cloned, opened again. And trees of extreme shape.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>

#include "URIMatcher/URIMatcher.h"

int fuzz_uriPatterns(const uint8_t *data, size_t size);

namespace {

using MatcherPtr = std::unique_ptr<URIMatcher, decltype([](URIMatcher *matcher) { URIMatcherDelete(matcher); })>;

TEST(URIMatcherProperty, MatchesAsThePlainImplementation) {
    static constexpr std::array<const char *, 9> PIECES{"/", "/", "a", "b", "ab", ".", "\xC3", "/a", "c"};
    std::mt19937 random(1);
    const auto below = [&](size_t n) { return random() % n; };
    const auto path = [&](size_t longest) {
        std::string text;
        for (size_t n = 1 + below(longest); n > 0; --n) text += PIECES[below(PIECES.size())];
        return text;
    };
    for (int round = 0; round < 600; ++round) {
        std::string input;
        for (size_t n = below(40); n > 0; --n) {
            std::string pattern = path(6);
            if (below(2)) pattern.insert(below(pattern.size() + 1), "*");
            input += (below(4) ? "" : "!") + pattern + "\n";
        }
        input += "\n";
        for (int n = 0; n < 60; ++n) input += path(9) + "\n";
        fuzz_uriPatterns(reinterpret_cast<const uint8_t *>(input.data()), input.size()); // ends the program when they differ
    }
}

// Children of one node beyond what fits into it, and as many as there are first bytes.
TEST(URIMatcherProperty, ManyChildren) {
    static char targets[256][2];
    for (const int children : {7, 8, 9, 16, 17, 128, 253}) {
        SCOPED_TRACE(children);
        const MatcherPtr matcher(URIMatcherCreate(nullptr, "many"));
        std::string paths;
        const auto path = [&](size_t n) { return std::string("/r/") + paths[n] + "x.y"; };
        for (int c = 1; paths.size() < static_cast<size_t>(children); ++c)
            if (c != '*' && c != '/') paths += static_cast<char>(c);
        const auto expectEach = [&] {
            for (size_t n = 0; n < paths.size(); ++n) {
                ASSERT_EQ(URIMatcherMatch(matcher.get(), path(n).c_str(), nullptr), targets[n]);
                ASSERT_EQ(URIMatcherMatch(matcher.get(), path(n).substr(0, 4).c_str(), nullptr), nullptr);
            }
        };
        for (size_t n = 0; n < paths.size(); ++n) URIMatcherPut(matcher.get(), path(n).c_str(), targets[n], FALSE);
        ASSERT_NO_FATAL_FAILURE(expectEach());
        ASSERT_TRUE(URIMatcherSeal(matcher.get()));
        ASSERT_NO_FATAL_FAILURE(expectEach());
        URIMatcherPut(matcher.get(), (path(0).substr(0, 5) + "q").c_str(), targets[255], FALSE); // a split among many children moves them
        ASSERT_NO_FATAL_FAILURE(expectEach());
    }
}

// A chain of a node per character: nothing may recurse over it.
TEST(URIMatcherProperty, LongChain) {
    const MatcherPtr matcher(URIMatcherCreate(nullptr, "chain"));
    std::string pattern = "/";
    char target[] = "target";
    for (int i = 0; i < 3000; ++i) URIMatcherPut(matcher.get(), (pattern += "a").c_str(), target, FALSE);
    ASSERT_TRUE(URIMatcherSeal(matcher.get()));
    EXPECT_EQ(URIMatcherMatch(matcher.get(), pattern.c_str(), nullptr), target);
    EXPECT_EQ(URIMatcherMatch(matcher.get(), (pattern + "a").c_str(), nullptr), nullptr);
    std::string dump(URIMatcherInfoLength(matcher.get()) + 1, '\0');
    URIMatcherAddInfo(matcher.get(), dump.data());
    EXPECT_EQ(dump.find('\0'), dump.size() - 1);
}

} // namespace
