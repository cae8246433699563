// Random patterns and paths over a small alphabet, against the plain implementation: unsealed, sealed, opened again, cloned.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>

#include "NaiveMatcher.h"
#include "URIMatcher/URIMatcher.h"

namespace {

using MatcherPtr = std::unique_ptr<URIMatcher, decltype([](URIMatcher *matcher) { URIMatcherDelete(matcher); })>;

class Texts {
public:
    explicit Texts(unsigned seed) : random_(seed) {}
    std::string path(int longest) {
        std::string text;
        for (int n = below(longest + 1); n > 0; --n) text += pieces_[static_cast<size_t>(below(pieces_.size()))];
        return text;
    }
    std::string pattern() {
        std::string text = path(6);
        if (below(2)) text.insert(static_cast<size_t>(below(text.size() + 1)), "*");
        return text;
    }
    int below(size_t n) { return static_cast<int>(random_() % n); }

private:
    std::mt19937 random_;
    std::array<const char *, 9> pieces_{"/", "/", "a", "b", "ab", ".", "\xC3", "/a", "c"};
};

// One matcher and its plain twin.
class Twins {
public:
    void put(const std::string &pattern, const char *target) {
        URIMatcherPut(matcher.get(), pattern.c_str(), const_cast<char *>(target), FALSE);
        if (pattern.empty()) return;
        (std::string(target).starts_with("genApp") ? generic_ : real_).put(pattern, target, 10);
    }
    void expectSame(const URIMatcher *other, const std::string &path) const {
        const char *expected = generic_.match(path);
        if (!expected) expected = real_.match(path);
        ASSERT_EQ(URIMatcherMatch(other, path.c_str(), nullptr), expected) << "path " << path;
    }
    MatcherPtr matcher{URIMatcherCreate(nullptr, "twin")};

private:
    NaiveTree generic_, real_;
};

void expectSamePaths(const Twins &twins, const URIMatcher *matcher, Texts &texts) {
    for (int i = 0; i < 60; ++i) {
        const std::string path = texts.path(9);
        ASSERT_NO_FATAL_FAILURE(twins.expectSame(matcher, path));
    }
}

TEST(URIMatcherProperty, MatchesAsThePlainImplementation) {
    static constexpr std::array<const char *, 7> TARGETS{"t0", "t1", "t2", "t3", "genApp0", "genApp1", "t4"};
    for (unsigned seed = 0; seed < 600; ++seed) {
        SCOPED_TRACE(seed);
        Texts texts(seed);
        Twins twins;
        const int count = texts.below(40);
        const auto putSome = [&](int n) {
            for (int i = 0; i < n; ++i) twins.put(texts.pattern(), TARGETS[static_cast<size_t>(texts.below(TARGETS.size()))]);
        };
        putSome(count);
        ASSERT_NO_FATAL_FAILURE(expectSamePaths(twins, twins.matcher.get(), texts));
        ASSERT_TRUE(URIMatcherSeal(twins.matcher.get()));
        ASSERT_NO_FATAL_FAILURE(expectSamePaths(twins, twins.matcher.get(), texts));
        const MatcherPtr before(URIMatcherClone(twins.matcher.get()));
        ASSERT_NO_FATAL_FAILURE(expectSamePaths(twins, before.get(), texts));
        putSome(10); // into a sealed matcher
        ASSERT_NO_FATAL_FAILURE(expectSamePaths(twins, twins.matcher.get(), texts));
        const MatcherPtr clone(URIMatcherClone(twins.matcher.get()));
        ASSERT_NO_FATAL_FAILURE(expectSamePaths(twins, clone.get(), texts));
        ASSERT_TRUE(URIMatcherIsComplete(clone.get()));
    }
}

// Children of one node beyond what fits into it, and as many as there are first bytes.
TEST(URIMatcherProperty, ManyChildren) {
    for (const int children : {7, 8, 9, 16, 17, 128, 253}) {
        SCOPED_TRACE(children);
        Twins twins;
        std::vector<std::string> paths;
        for (int c = 1, n = 0; n < children; ++c) {
            if (c == '*' || c == '/') continue;
            paths.push_back(std::string("/r/") + static_cast<char>(c) + "x.y");
            twins.put(paths.back(), n++ % 2 ? "odd" : "even");
        }
        for (int sealed = 0; sealed < 2; ++sealed) {
            for (const std::string &path : paths) {
                ASSERT_NO_FATAL_FAILURE(twins.expectSame(twins.matcher.get(), path));
                ASSERT_NO_FATAL_FAILURE(twins.expectSame(twins.matcher.get(), path.substr(0, 4)));
            }
            ASSERT_TRUE(URIMatcherSeal(twins.matcher.get()));
        }
        // A split among many children moves them.
        twins.put("/r/" + paths[0].substr(3, 2) + "q", "split");
        for (const std::string &path : paths) ASSERT_NO_FATAL_FAILURE(twins.expectSame(twins.matcher.get(), path));
    }
}

// A chain of a node per character: nothing may recurse over it.
TEST(URIMatcherProperty, LongChain) {
    MatcherPtr matcher(URIMatcherCreate(nullptr, "chain"));
    std::string pattern = "/";
    char target[] = "target";
    for (int i = 0; i < 3000; ++i) {
        pattern += "a";
        URIMatcherPut(matcher.get(), pattern.c_str(), target, FALSE);
    }
    ASSERT_TRUE(URIMatcherSeal(matcher.get()));
    EXPECT_EQ(URIMatcherMatch(matcher.get(), pattern.c_str(), nullptr), target);
    EXPECT_EQ(URIMatcherMatch(matcher.get(), (pattern + "a").c_str(), nullptr), nullptr);
    std::string dump(URIMatcherInfoLength(matcher.get()) + 1, '\0');
    URIMatcherAddInfo(matcher.get(), dump.data());
    EXPECT_EQ(dump.find('\0'), dump.size() - 1);
}

} // namespace
