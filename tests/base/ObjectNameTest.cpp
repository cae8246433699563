#include "tavLibUtil/tavObjectName.h"

#include <gtest/gtest.h>

#include <string>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {
std::string taken(char *text) {
    const TavText owner(text);
    return tavOrNull(text);
}
} // namespace

TEST(ObjectName, TakesTheLastPairApart) {
    const struct {
        const char *name, *parent, *type, *value, *asis;
    } cases[] = {
        {"/cell/c1/node/nodeA", "/cell/c1", "node", "nodeA", "nodeA"},
        {"/cell/c1", "", "cell", "c1", "c1"},
        {"/cell/c1/uri/\\/a\\/*", "/cell/c1", "uri", "/a/*", "\\/a\\/*"},
        {"/cell/a\\/b/node/n", "/cell/a\\/b", "node", "n", "n"},
        {"/cell/c\\", "", "cell", "c", "c\\"},
        {"//", "", "", "", ""},
        {"/cell/c1/node", "/cell", "c1", "node", "node"}, // an odd count still goes by the last two slashes
    };
    const int before = tavGetMemCount();
    for (const auto &c : cases) {
        SCOPED_TRACE(tavOrNull(c.name));
        EXPECT_EQ(taken(tavGetParentName(c.name)), c.parent);
        EXPECT_EQ(taken(tavNameGetType(c.name)), c.type);
        EXPECT_EQ(taken(tavNameGetValue(c.name, FALSE)), c.value);
        EXPECT_EQ(taken(tavNameGetValue(c.name, TRUE)), c.asis);
    }
    for (const char *name : {"/cell", "/cell\\/c1", "/", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(taken(tavGetParentName(name)) + taken(tavNameGetType(name)) + taken(tavNameGetValue(name, FALSE)), "nullnullnull");
    }
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST(ObjectName, UriParentEndsAtTheFirstUri) {
    const std::pair<const char *, const char *> cases[] = {{"/webModule/m/uri//a/b/*", "/webModule/m"},
                                                           {"/webModule/m/uri//x/uri/y", "/webModule/m"},
                                                           {"/uri/a", ""},
                                                           {"/webModule/m/uris/a", "/webModule/m"},
                                                           {"/webModule/m", ""},
                                                           {"/uri", "null"}};
    for (const auto &[name, parent] : cases) EXPECT_EQ(taken(tavHackGetParentName(name)), parent) << name;
}
