#include "tavList/tavList.h"

#include <gtest/gtest.h>

#include <string>

#include "base/FailEachAllocation.h"
#include "tavUtil/tavMemory.h"

namespace {

std::string destroyed;
void recordDestroyed(void *object) { destroyed += static_cast<const char *>(object); }

// Objects are constant texts of one letter.
void *letter(const char *text) { return const_cast<char *>(text); }
char *const A = const_cast<char *>("a");
char *const B = const_cast<char *>("b");
char *const C = const_cast<char *>("c");

// Contents from head to tail, checked against the way back and the count.
std::string contents(const TavList *list) {
    std::string forward, backward;
    for (const char *text : TavListRange<const char>(list)) forward += text;
    for (TavListEle *ele = tavListGetTail(list); ele; ele = tavListGetPrev(ele)) {
        backward.insert(0, static_cast<const char *>(tavListEleGetObject(ele)));
    }
    EXPECT_EQ(forward, backward);
    EXPECT_EQ(tavListGetCount(list), static_cast<int>(forward.size()));
    EXPECT_EQ(tavListIsEmpty(list), forward.empty());
    return forward;
}

class ListTest : public testing::Test {
protected:
    ListTest() { destroyed.clear(); }
    ~ListTest() override {
        list.reset();
        EXPECT_EQ(tavGetMemCount(), before);
    }
    int before = tavGetMemCount();
    TavListPtr list{tavListCreate(recordDestroyed)};
};

} // namespace

TEST_F(ListTest, AddsAndRemovesAtEveryPlace) {
    EXPECT_EQ(tavListRemoveHead(list.get()), nullptr);
    EXPECT_EQ(tavListRemoveTail(list.get()), nullptr);
    TavListEle *b = tavListAddHead(list.get(), B);
    tavListAddTail(list.get(), letter("d"));
    tavListInsertBefore(list.get(), b, A);
    tavListInsertBefore(list.get(), tavListGetNext(b), C);
    tavListInsertBefore(list.get(), nullptr, letter("e")); // no element: at the tail
    EXPECT_EQ(contents(list.get()), "abcde");
    EXPECT_EQ(tavListRemove(list.get(), b), B);
    EXPECT_EQ(tavListRemoveHead(list.get()), A);
    EXPECT_STREQ(static_cast<char *>(tavListRemoveTail(list.get())), "e");
    EXPECT_EQ(contents(list.get()), "cd");
    EXPECT_EQ(destroyed, "") << "remove hands objects back";
    tavListDelete(list.get(), tavListGetHead(list.get()));
    EXPECT_EQ(destroyed, "c");
    EXPECT_EQ(tavListFindAndRemove(list.get(), A), nullptr);
    EXPECT_EQ(contents(list.get()), "d");
}

TEST_F(ListTest, FindsByIdentity) {
    char twin[] = "a";
    EXPECT_TRUE(tavListAddUnique(list.get(), A));
    EXPECT_FALSE(tavListAddUnique(list.get(), A));
    EXPECT_TRUE(tavListAddUnique(list.get(), twin));
    EXPECT_EQ(tavListFind(list.get(), twin), tavListGetTail(list.get()));
    EXPECT_EQ(tavListFindStr(list.get(), "a"), tavListGetHead(list.get()));
    EXPECT_EQ(tavListFindStr(list.get(), "A"), nullptr);
    EXPECT_FALSE(tavListRemoveObject(list.get(), B));
    EXPECT_TRUE(tavListRemoveObject(list.get(), twin));
    EXPECT_EQ(destroyed, "a");
    EXPECT_EQ(tavListFindAndRemove(list.get(), A), A);
    EXPECT_EQ(destroyed, "a");
}

TEST_F(ListTest, CleansHeadToTailAfterItIsEmpty) {
    static TavList *looked;
    looked = list.get();
    list->destructor = [](void *object) {
        recordDestroyed(object);
        EXPECT_EQ(tavListGetHead(looked), nullptr);
        EXPECT_EQ(tavListGetCount(looked), 0);
    };
    for (char *object : {A, B, C}) tavListAddTail(list.get(), object);
    tavListClean(list.get());
    EXPECT_EQ(destroyed, "abc");
    tavListDestroy(nullptr);
    EXPECT_EQ(tavListGetHead(nullptr), nullptr);
    EXPECT_EQ(tavListEleGetObject(nullptr), nullptr);
}

TEST_F(ListTest, RangeSurvivesRemovalOfTheCurrentElement) {
    for (char *object : {A, B, C}) tavListAddTail(list.get(), object);
    for (char *object : TavListRange<char>(list.get())) {
        if (object != B) tavListRemoveObject(list.get(), object);
    }
    EXPECT_EQ(contents(list.get()), "b");
}

TEST_F(ListTest, ArrayIsInOrderAndTerminated) {
    const auto array = [this] { return std::unique_ptr<void *, TavFreer>(tavListCreateArray(list.get())); };
    EXPECT_EQ(*array(), nullptr);
    tavListAddTail(list.get(), A);
    tavListAddTail(list.get(), B);
    const auto two = array();
    EXPECT_EQ(two.get()[0], A);
    EXPECT_EQ(two.get()[1], B);
    EXPECT_EQ(two.get()[2], nullptr);
}

TEST_F(ListTest, AnAddWithoutMemoryDestroysTheObject) {
    failEachAllocation([this](auto failed) {
        destroyed.clear();
        const bool added = tavListAddTail(list.get(), A) && tavListAddHead(list.get(), B) && tavListInsertBefore(list.get(), nullptr, C);
        EXPECT_EQ(added, !failed());
        EXPECT_EQ(destroyed.size(), failed() ? 1U : 0U);
        contents(list.get());
        tavListClean(list.get());
    });
}

TEST_F(ListTest, TextListsHoldCopies) {
    failEachAllocation([](auto failed) {
        TavList *texts = tavListCreateDbg(nullptr, __FILE__, __LINE__); // no destructor: a lost copy would show
        char text[] = "x";
        const Boolean added = tavListAddUniqueStr(texts, text);
        EXPECT_EQ(added, !failed());
        text[0] = 'y';
        if (!failed()) {
            EXPECT_FALSE(tavListAddUniqueStr(texts, "x"));
            EXPECT_FALSE(tavListFindAndRemoveStr(texts, "y"));
            EXPECT_TRUE(tavListFindAndRemoveStr(texts, "x"));
        }
        EXPECT_TRUE(tavListIsEmpty(texts));
        tavListDestroyDbg(texts, __FILE__, __LINE__);
    });
}
