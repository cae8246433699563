#include "tavUtil/tavMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>
#include <vector>

#include "base/FailEachAllocation.h"
#include "tavUtil/tavSharedText.h"
#include "tavUtil/tavStringBuffer.h"

TEST(Memory, CountIsExactAfterBlocksChangedThreads) {
    constexpr int THREADS = 24, BLOCKS = 200; // more threads than shards
    const int before = tavGetMemCount();
    std::array<std::array<void *, BLOCKS>, THREADS> blocks{};
    const auto inThreads = [](auto work) {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < THREADS; i++) threads.emplace_back(work, i);
        for (auto &thread : threads) thread.join();
    };
    inThreads([&](size_t i) {
        for (void *&block : blocks[i]) block = tavMalloc(8);
    });
    EXPECT_EQ(tavGetMemCount(), before + THREADS * BLOCKS);
    inThreads([&](size_t i) {
        for (void *block : blocks[(i + 7) % THREADS]) tavFree(block);
    });
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST(Memory, ClearsBlocksEndsTextsAndKeepsTheOldTextWithoutMemory) {
    const std::unique_ptr<unsigned char, TavFreer> bytes(static_cast<unsigned char *>(tavMalloc(64)));
    EXPECT_EQ(std::count(bytes.get(), bytes.get() + 64, 0), 64);
    EXPECT_STREQ(TavText(tavStrndup("abcdef", 3)).get(), "abc");
    EXPECT_STREQ(TavText(tavStrndup("ab", SIZE_MAX)).get(), "ab");
    failEachAllocation([](auto failed) {
        char *text = nullptr;
        const Boolean first = tavReplaceStr(&text, "old value");
        EXPECT_EQ(first, !failed());
        const Boolean second = tavReplaceStr(&text, text ? text + 4 : "value"); // a part of the text that goes
        EXPECT_TRUE(first || second);
        EXPECT_STREQ(text, second ? "value" : "old value");
        EXPECT_TRUE(tavReplaceStr(&text, nullptr));
        EXPECT_EQ(text, nullptr);
    });
}

TEST(SharedText, IsOneTextUntilTheLastHolderLetsGo) {
    const int before = tavGetMemCount();
    char source[] = "name";
    char *text = tavSharedTextCreate(source);
    source[0] = 'x';
    EXPECT_EQ(tavSharedTextObtain(text), text);
    EXPECT_EQ(tavGetMemCount(), before + 1);
    tavSharedTextRelease(text);
    EXPECT_STREQ(text, "name");
    tavSharedTextRelease(text);
    EXPECT_EQ(tavGetMemCount(), before);
    EXPECT_TRUE(!tavSharedTextCreate(nullptr) && !tavSharedTextObtain(nullptr));
}

TEST(StringBuffer, GrowsToTheLargerOfTwiceAndOldPlusText) {
    const struct {
        int capacity;
        const char *first, *second;
        int expectedMax;
    } cases[] = {
        {4, "abcd", "", 4},      {4, "abcd", "e", 8}, {4, "abcd", "0123456789", 14}, // full, twice, old + text
        {4, "ab", "012345", 10}, {0, "", "a", 1},     {-5, "", "ab", 2}              // old capacity, not old length
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.capacity << " " << c.first << "+" << c.second);
        const TavStringBufferPtr sb(sbCreate(c.capacity));
        sbAdd(sb.get(), c.first);
        sbAdd(sb.get(), c.second);
        EXPECT_EQ(sb->max, c.expectedMax);
        EXPECT_EQ(sbStr(sb.get()), std::string(c.first) + c.second);
    }
}

TEST(StringBuffer, TakesItsOwnTextAndNumbersAndMarksAMissingPiece) {
    failEachAllocation([](auto failed) {
        const TavStringBufferPtr sb(sbCreate(2));
        if (!sb) return;
        sbAddInt(sb.get(), -12);
        sbAdd(sb.get(), sbStr(sb.get()));
        sbAdd(sb.get(), sbStr(sb.get()));
        sbAddInt(sb.get(), INT32_MIN);
        EXPECT_EQ(sb->failed, failed());
        if (failed()) {
            EXPECT_EQ(strlen(sbStr(sb.get())) % 3, 0U) << "no half piece: " << sbStr(sb.get());
        } else {
            EXPECT_STREQ(sbStr(sb.get()), "-12-12-12-12-2147483648");
        }
    });
}
