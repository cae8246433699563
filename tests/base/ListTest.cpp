#include "tavList/tavList.h"

#include <gtest/gtest.h>

#include <string>

#include "base/FailEachAllocation.h"

namespace {

std::string destroyed;
void recordDestroyed(void *object) { destroyed += static_cast<const char *>(object); }

// Objects are constant texts of one letter.
char *const A = const_cast<char *>("a");
char *const B = const_cast<char *>("b");
char *const C = const_cast<char *>("c");

class ListTest : public LeakFree {
protected:
    ListTest() { destroyed.clear(); }
    TavListPtr owner{tavListCreate(recordDestroyed)};
    TavList *list = owner.get();
};

} // namespace

TEST_F(ListTest, FindsByIdentity) {
    char twin[] = "a";
    EXPECT_TRUE(tavListAddUnique(list, A));
    EXPECT_FALSE(tavListAddUnique(list, A));
    EXPECT_TRUE(tavListAddUnique(list, twin));
    EXPECT_EQ(tavListFind(list, twin), tavListGetTail(list));
    EXPECT_EQ(tavListFindStr(list, "a"), tavListGetHead(list));
    EXPECT_EQ(tavListFindStr(list, "A"), nullptr);
    EXPECT_FALSE(tavListRemoveObject(list, B));
    EXPECT_TRUE(tavListRemoveObject(list, twin));
    EXPECT_EQ(tavListFindAndRemove(list, A), A);
    EXPECT_EQ(tavListFindAndRemove(list, A), nullptr);
    EXPECT_EQ(destroyed, "a") << "only the removed object, not the found one";
}

TEST_F(ListTest, WalksWhileElementsGoAndCleansAfterItIsEmpty) {
    const auto array = [this] { return std::unique_ptr<void *, TavFreer>(tavListCreateArray(list)); };
    EXPECT_EQ(*array(), nullptr);
    for (char *object : {A, B, C}) tavListAddTail(list, object);
    for (char *object : TavListRange<char>(list)) {
        if (object == B) tavListRemoveObject(list, object);
    }
    const auto two = array();
    EXPECT_TRUE(two.get()[0] == A && two.get()[1] == C && !two.get()[2]);
    static TavList *looked;
    looked = list;
    list->destructor = [](void *object) {
        recordDestroyed(object);
        EXPECT_TRUE(!tavListGetHead(looked) && tavListGetCount(looked) == 0);
    };
    tavListClean(list);
    EXPECT_EQ(destroyed, "bac") << "from head to tail";
}

TEST_F(ListTest, TextListsHoldCopies) {
    failEachAllocation([](auto failed) {
        TavList *texts = tavListCreateDbg(nullptr, __FILE__, __LINE__); // no destructor: a lost copy would show
        char text[] = "x";
        const Boolean added = tavListAddUniqueStr(texts, text);
        EXPECT_EQ(added, !failed());
        text[0] = 'y';
        EXPECT_FALSE(added && tavListAddUniqueStr(texts, "x"));
        EXPECT_FALSE(tavListFindAndRemoveStr(texts, "y"));
        EXPECT_EQ(tavListFindAndRemoveStr(texts, "x"), added);
        tavListDestroyDbg(texts, __FILE__, __LINE__);
    });
}
