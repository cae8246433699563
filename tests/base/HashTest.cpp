#include "tavHash/tavHash.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "base/FailEachAllocation.h"
#include "tavUtil/tavMemory.h"

namespace {

std::string destroyed;
void recordDestroyed(void *val) { destroyed += static_cast<const char *>(val); }

char *const ONE = const_cast<char *>("1");
char *const TWO = const_cast<char *>("2");

std::string keys(TavHashMap *hm) {
    std::string all;
    for (auto [key, value] : TavHashRange<char>(hm)) all += std::string(key) + " ";
    return all;
}

class HashTest : public testing::Test {
protected:
    HashTest() { destroyed.clear(); }
    ~HashTest() override {
        hm.reset();
        EXPECT_EQ(tavGetMemCount(), before);
    }
    int before = tavGetMemCount();
    TavHashMapPtr hm{tavHashMapCreate()};
};

} // namespace

TEST_F(HashTest, ComputesUnsignedModulo32Bits) {
    EXPECT_EQ(tavHashCompute(""), 0);
    EXPECT_EQ(tavHashCompute("ab"), 97 * 33 + 98);
    EXPECT_EQ(tavHashCompute("\xff"), 255); // not -1
    EXPECT_EQ(tavHashCompute("zzzzzzzz"), static_cast<int>(0x6c1a6ed0U));
}

TEST_F(HashTest, PutHandsBackWhatItDisplaces) {
    tavHashMapSetDestructor(hm.get(), recordDestroyed);
    EXPECT_EQ(tavHashPut(hm.get(), "k", nullptr), nullptr);
    EXPECT_EQ(tavHashMapGetCount(hm.get()), 0);
    char key[] = "k";
    EXPECT_EQ(tavHashPut(hm.get(), key, ONE), nullptr);
    key[0] = 'x'; // the map has its own copy
    EXPECT_EQ(tavHashGet(hm.get(), "k"), ONE);
    EXPECT_EQ(tavHashPut(hm.get(), "k", ONE), nullptr) << "the same pointer must not be freed by the caller";
    EXPECT_EQ(tavHashPut(hm.get(), "k", TWO), ONE);
    EXPECT_EQ(tavHashMapGetCount(hm.get()), 1);
    EXPECT_EQ(tavHashPut(hm.get(), "k", nullptr), TWO);
    EXPECT_EQ(tavHashGet(hm.get(), "k"), nullptr);
    EXPECT_EQ(tavHashMapGetCount(hm.get()), 0);
    EXPECT_EQ(destroyed, "");
    EXPECT_EQ(tavHashGet(hm.get(), nullptr), nullptr);
    EXPECT_EQ(tavHashGet(nullptr, "k"), nullptr);
}

TEST_F(HashTest, EqualHashesKeepTheirKeysApart) {
    // "b" + "A" and "a" + "b": 98 * 33 + 65 == 97 * 33 + 98
    ASSERT_EQ(tavHashCompute("bA"), tavHashCompute("ab"));
    tavHashPut(hm.get(), "bA", ONE);
    tavHashPut(hm.get(), "ab", TWO);
    EXPECT_EQ(keys(hm.get()), "bA ab ");
    EXPECT_EQ(tavHashPut(hm.get(), "bA", nullptr), ONE);
    EXPECT_EQ(tavHashGet(hm.get(), "ab"), TWO);
    EXPECT_EQ(tavHashGet2(hm.get(), "ab", 7), nullptr) << "the given hash counts";
}

TEST_F(HashTest, GrowsWhenAnInsertionMeetsMoreThanTheMask) {
    std::set<std::string> stored;
    const auto put = [&](int i) {
        stored.insert("key" + std::to_string(i));
        tavHashPut(hm.get(), ("key" + std::to_string(i)).c_str(), ONE);
    };
    for (int i = 0; i < 16; i++) put(i);
    EXPECT_EQ(hm->max, 15);
    tavHashGet(hm.get(), "absent");
    tavHashPut(hm.get(), "absent", nullptr);
    EXPECT_EQ(hm->max, 15) << "neither a get nor a removal grows";
    put(3);
    EXPECT_EQ(hm->max, 31) << "an insertion grows even when the key exists";
    for (int i = 16; i < 32; i++) put(i);
    EXPECT_EQ(hm->max, 31);
    put(32);
    EXPECT_EQ(hm->max, 63);
    std::set<std::string> seen;
    for (auto [key, value] : TavHashRange<char>(hm.get())) seen.insert(key);
    EXPECT_EQ(seen, stored);
    for (const auto &key : stored) EXPECT_EQ(tavHashGet(hm.get(), key.c_str()), ONE) << key;
}

TEST_F(HashTest, OrderIsBucketThenChainAndGrowingTurnsChains) {
    // Given hashes choose the buckets: 1, 33 and 65 share bucket 1 of 16 and of 32 buckets.
    tavHashPut2(hm.get(), "c", 2, ONE);
    tavHashPut2(hm.get(), "a33", 33, ONE);
    tavHashPut2(hm.get(), "a1", 1, ONE);
    tavHashPut2(hm.get(), "a65", 65, ONE);
    tavHashPut2(hm.get(), "neg", -16, ONE); // bucket 0
    EXPECT_EQ(keys(hm.get()), "neg a33 a1 a65 c ");
    for (int i = 5; i < 16; i++) tavHashPut2(hm.get(), std::to_string(i).c_str(), 15, ONE);
    EXPECT_EQ(hm->max, 15);
    tavHashPut2(hm.get(), "a1", 1, ONE);
    EXPECT_EQ(hm->max, 31);
    EXPECT_EQ(keys(hm.get()).substr(0, 13), "a65 a1 a33 c ") << "each moved entry goes to the head of its new chain";
}

TEST_F(HashTest, CleansByPrefixAfterUnlinking) {
    static TavHashMap *looked;
    looked = hm.get();
    for (const char *key : {"ab", "abc", "a", "xab"}) tavHashPut(hm.get(), key, const_cast<char *>(key));
    tavHashMapClean2(hm.get(), "ab", [](void *val) {
        EXPECT_EQ(tavHashPut(looked, static_cast<char *>(val), nullptr), nullptr) << "already gone";
        recordDestroyed(val);
    });
    EXPECT_EQ(destroyed.size(), 5U);
    EXPECT_EQ(tavHashMapGetCount(hm.get()), 2);
    EXPECT_EQ(tavHashGet(hm.get(), "ab"), nullptr);
    EXPECT_NE(tavHashGet(hm.get(), "a"), nullptr);
    tavHashMapClean2(hm.get(), "x", nullptr);
    EXPECT_EQ(destroyed.size(), 5U) << "no destructor: the value is left alone";
    tavHashMapSetDestructor(hm.get(), recordDestroyed);
    tavHashMapClean(hm.get());
    EXPECT_EQ(destroyed.back(), 'a');
    EXPECT_EQ(keys(hm.get()), "");
}

TEST_F(HashTest, TheCurrentEntryMayGoWhileIterating) {
    for (int i = 0; i < 40; i++) tavHashPut(hm.get(), std::to_string(i).c_str(), ONE);
    int seen = 0;
    TavHashIterator *it = tavHashIteratorCreate(hm.get());
    while (tavHashNext(it)) {
        seen++;
        EXPECT_EQ(tavHashThisVal(it), ONE);
        EXPECT_EQ(tavHashPut(hm.get(), tavHashThisKey(it), nullptr), ONE);
    }
    EXPECT_EQ(tavHashNext(it), nullptr);
    tavHashIteratorDestroy(it);
    EXPECT_EQ(seen, 40);
    EXPECT_EQ(tavHashMapGetCount(hm.get()), 0);
}

TEST_F(HashTest, WithoutMemoryAPutHandsTheValueBack) {
    failEachAllocation([](auto failed) {
        const TavHashMapPtr map(tavHashMapCreate());
        if (!map) return;
        int stored = 0;
        for (int i = 0; i < 20; i++) {
            void *refused = tavHashPut(map.get(), std::to_string(i).c_str(), ONE);
            if (!refused) stored++;
            if (refused) {
                EXPECT_EQ(refused, ONE);
            }
        }
        EXPECT_EQ(tavHashMapGetCount(map.get()), stored);
        EXPECT_GE(stored, failed() ? 19 : 20) << "a growth that finds no memory loses nothing";
        EXPECT_EQ(map->max, 31) << "the next insertion grows again";
    });
}

TEST_F(HashTest, DumpsWhatItWalks) {
    tavHashPut2(hm.get(), "k", 5, reinterpret_cast<void *>(0x1a));
    testing::internal::CaptureStdout();
    tavHashMapDump(hm.get(), "here");
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.find("TAV: HashMapDump: begin here; count = 1; max = 15\n   (0) hi.current=0; hi.next=0; hi.index=0\n"), 0U) << text;
    EXPECT_NE(text.find("; hi.next=0; hi.index=6\n        current.next=0; current.hash=5; current.key=k; current.val=1a\n"),
              std::string::npos)
        << text;
    EXPECT_TRUE(text.ends_with("\nTAV: HashMapDump: end here\n")) << text;
}
