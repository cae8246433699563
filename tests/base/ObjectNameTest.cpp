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
        {"/cell/", "", "cell", "", ""},
        {"//", "", "", "", ""},
        {"x/node/n", "x", "node", "n", "n"},
        {"/cell/c1/node", "/cell", "c1", "node", "node"}, // an odd count still goes by the last two slashes
        {"/cell", "null", "null", "null", "null"},
        {"/cell\\/c1", "null", "null", "null", "null"},
        {"/", "null", "null", "null", "null"},
        {"", "null", "null", "null", "null"},
        {nullptr, "null", "null", "null", "null"},
    };
    const int before = tavGetMemCount();
    for (const auto &c : cases) {
        SCOPED_TRACE(tavOrNull(c.name));
        EXPECT_EQ(taken(tavGetParentName(c.name)), c.parent);
        EXPECT_EQ(taken(tavNameGetType(c.name)), c.type);
        EXPECT_EQ(taken(tavNameGetValue(c.name, FALSE)), c.value);
        EXPECT_EQ(taken(tavNameGetValue(c.name, TRUE)), c.asis);
    }
    EXPECT_EQ(tavGetMemCount(), before);
}

TEST(ObjectName, UriParentEndsAtTheFirstUri) {
    const struct {
        const char *name, *parent;
    } cases[] = {
        {"/webModule/m/uri//a/b/*", "/webModule/m"},
        {"/webModule/m/uri//x/uri/y", "/webModule/m"},
        {"/uri/a", ""},
        {"/webModule/m/uris/a", "/webModule/m"},
        {"/webModule/m", ""},
        {"/uri", "null"},
    };
    for (const auto &c : cases) EXPECT_EQ(taken(tavHackGetParentName(c.name)), c.parent) << c.name;
}
