#include "tavHash/tavHash.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "base/FailEachAllocation.h"

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

class HashTest : public LeakFree {
protected:
    HashTest() { destroyed.clear(); }
    TavHashMapPtr owner{tavHashMapCreate()};
    TavHashMap *hm = owner.get();
};

} // namespace

TEST_F(HashTest, ComputesUnsignedAndKeepsEqualHashesApart) {
    EXPECT_EQ(tavHashCompute("\xff"), 255); // not -1
    EXPECT_EQ(tavHashCompute("zzzzzzzz"), static_cast<int>(0x6c1a6ed0U));
    ASSERT_EQ(tavHashCompute("bA"), 97 * 33 + 98);
    ASSERT_EQ(tavHashCompute("ab"), 97 * 33 + 98);
    tavHashPut(hm, "bA", ONE);
    tavHashPut(hm, "ab", TWO);
    EXPECT_EQ(keys(hm), "bA ab ");
    EXPECT_EQ(tavHashPut(hm, "bA", nullptr), ONE);
    EXPECT_EQ(tavHashGet(hm, "ab"), TWO);
    EXPECT_EQ(tavHashGet2(hm, "ab", 7), nullptr) << "the given hash counts";
}

TEST_F(HashTest, GrowsWhenAnInsertionMeetsMoreThanTheMask) {
    std::set<std::string> stored, seen;
    for (int i = 0; i < 16; i++) tavHashPut(hm, stored.insert("key" + std::to_string(i)).first->c_str(), ONE);
    tavHashGet(hm, "absent");
    tavHashPut(hm, "absent", nullptr);
    EXPECT_EQ(hm->max, 15) << "neither a get nor a removal grows";
    tavHashPut(hm, "key3", ONE);
    EXPECT_EQ(hm->max, 31) << "an insertion grows even when the key exists";
    for (auto [key, value] : TavHashRange<char>(hm)) {
        seen.insert(key);
        EXPECT_EQ(tavHashPut(hm, key, nullptr), ONE) << "the current entry may go";
    }
    EXPECT_EQ(seen, stored);
    EXPECT_EQ(tavHashMapGetCount(hm), 0);
}

TEST_F(HashTest, OrderIsBucketThenChainAndGrowingTurnsChains) {
    // Given hashes choose the buckets: 1, 33 and 65 share bucket 1 of 16 and of 32 buckets; -16 goes to bucket 0.
    const std::pair<const char *, int> puts[] = {{"c", 2}, {"a33", 33}, {"a1", 1}, {"a65", 65}, {"neg", -16}};
    for (const auto &[key, hash] : puts) tavHashPut2(hm, key, hash, ONE);
    EXPECT_EQ(keys(hm), "neg a33 a1 a65 c ");
    for (int i = 5; i < 16; i++) tavHashPut2(hm, std::to_string(i).c_str(), 15, ONE);
    tavHashPut2(hm, "a1", 1, ONE);
    EXPECT_EQ(keys(hm).substr(0, 13), "a65 a1 a33 c ") << "each moved entry goes to the head of its new chain";
}

TEST_F(HashTest, LinkedEntriesStandWherePutOnesWouldAndStayTheCallers) {
    const TavHashMapPtr put(tavHashMapCreate());
    TavHashEle own[40];
    std::string names[40];
    for (int i = 0; i < 40; i++) {
        names[i] = std::to_string(i);
        own[i] = {&own[0], tavHashCompute(names[i].c_str()), names[i].c_str(), TWO};
        tavHashLink(hm, &own[i]);
        tavHashPut(put.get(), names[i].c_str(), TWO);
    }
    EXPECT_EQ(keys(hm), keys(put.get()));
    for (int i = 0; i < 40; i += 3) {
        tavHashUnlink(hm, &own[i]);
        tavHashPut(put.get(), names[i].c_str(), nullptr);
    }
    EXPECT_EQ(keys(hm), keys(put.get()));
    EXPECT_TRUE(!tavHashGet(hm, "3") && tavHashFindEle(hm, "10", 2, own[10].hash) == &own[10]);
    tavHashMapForget(hm);
    EXPECT_EQ(keys(hm), "");
    EXPECT_EQ(own[10].val, TWO);
}

TEST_F(HashTest, CleansByPrefixAfterUnlinking) {
    static TavHashMap *looked;
    looked = hm;
    for (const char *key : {"ab", "abc", "a", "xab"}) tavHashPut(hm, key, const_cast<char *>(key));
    tavHashMapClean2(hm, "ab", [](void *val) {
        EXPECT_EQ(tavHashPut(looked, static_cast<char *>(val), nullptr), nullptr) << "already gone";
        recordDestroyed(val);
    });
    tavHashMapClean2(hm, "x", nullptr);
    EXPECT_EQ(destroyed.size(), 5U) << "no destructor: the value is left alone";
    tavHashMapSetDestructor(hm, recordDestroyed);
    tavHashMapClean(hm);
    EXPECT_EQ(destroyed.back(), 'a');
    EXPECT_EQ(keys(hm), "");
}
