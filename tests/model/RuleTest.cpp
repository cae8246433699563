#include <gmock/gmock.h>

#include <climits>

#include "ModelTest.h"
#include "tavLanguage/tavLanguage.h"
#include "tavRule/tavRule.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

using testing::ElementsAre;

namespace {

using RulesPtr = std::unique_ptr<TavRules, decltype([](TavRules *rules) { tavRulesFree(rules); })>;

class RuleTest : public ModelTest {
protected:
    RulesPtr makeSet() {
        RulesPtr rules(tavRulesCreate(tav->httpLanguage, tav));
        tavRulesSetType(rules.get(), TAVRULESTYPE_WEBROUTEWORKCLASS);
        return rules;
    }
    // An inserted work-class rule; `action` may be null.
    TavRule *add(const RulesPtr &rules, int order, const char *expr, const char *action) {
        TavRule *rule = tavRuleCreate(rules.get());
        tavRuleSetType(rule, TAVRULETYPE_WEBROUTEWORKCLASS);
        tavRuleSetOrder(rule, order);
        if (expr) tavRuleSetExpr(rule, expr);
        if (action) tavRuleSetObject(rule, actionCreate(action));
        EXPECT_TRUE(tavRulesInsertRule(rules.get(), rule));
        return rule;
    }
    TavRuleMatch match(const RulesPtr &rules, const RequestPtr &ctx) { return tavRulesMatch(ctx->trContext, rules.get(), ctx.get()); }
    // Edition that the set permits for the path, "-" without a match.
    std::string editionFor(const RulesPtr &rules, const char *path) {
        TavRuleMatch found = match(rules, request(path));
        return found.entry() ? actionGetEdition(found.entry()->action) : "-";
    }
    std::vector<std::string> expressions(const RulesPtr &rules) {
        std::vector<std::string> texts;
        for (TavRule *rule : TavListRange<TavRule>(rules->rules)) texts.push_back(rule->expressionString ? rule->expressionString : "");
        return texts;
    }
};

} // namespace

// "text > action"; "-": none.
TEST(ActionTest, TextsBecomeActions) {
    for (const std::string row :
         {"permit:shop-edition2.0 > permit 2.0", "permit:shop > permit ", "permit:a-edition1-edition2 > permit 1-edition2",
          "permit:shop-Edition2 > permit ", "permitsticky:shop-edition3 > sticky 3", "reject:503 > reject 503", "reject:404x > reject 404",
          "reject: > reject 0", "reject:99999999999 > reject 2147483647", "redirect:http://x/y:1 > http://x/y:1", "redirect: > ",
          "allow:x > -", "PERMIT:x > -", " permit:x > -", "reject 503 > -"}) {
        const std::string text = row.substr(0, row.find(" > "));
        Action *action;
        EXPECT_TRUE(actionTryCreate(text.c_str(), &action)); // no action is not no memory
        const TavAction type = action ? actionGetType(action) : NONE;
        const std::string shown = type == PERMIT
                                      ? (actionGetPermitSticky(action) ? "sticky " : "permit ") + std::string(actionGetEdition(action))
                                  : type == REJECT   ? "reject " + std::to_string(actionGetRejectErrorCode(action))
                                  : type == REDIRECT ? actionGetRedirectUrl(action)
                                                     : "-";
        EXPECT_EQ(text + " > " + shown, row);
        actionDelete(action);
    }
    EXPECT_EQ(actionCreate(nullptr), nullptr);
}

TEST(RuleNameTest, NamesGiveOrders) {
    EXPECT_EQ(ruleNameToSortOrder("/cell/c/webRouteWorkClass/w/rule/7"), 7);
    EXPECT_EQ(ruleNameToSortOrder("/rule/12_beta"), 12);
    EXPECT_EQ(ruleNameToSortOrder("0"), 0);
    EXPECT_EQ(ruleNameToSortOrder("/rule/99999999999"), INT_MAX);
    for (const char *name :
         {"/rule/default", "/5/default", "/rule/-3", "/rule/ 3", "/rule/beta2", "/rule/", static_cast<const char *>(nullptr)})
        EXPECT_EQ(ruleNameToSortOrder(name), 999800) << (name ? name : "null");
}

TEST_F(RuleTest, OrderDecidesAndTiesKeepTheirTurn) {
    RulesPtr rules = makeSet();
    add(rules, 5, "uri = '/a'", "permit:-editionfirst5");
    add(rules, 1, "uri = '/1'", "permit:-edition1");
    add(rules, 5, "uri LIKE '/%'", "permit:-editionsecond5");
    TavRule *three = add(rules, 3, "uri = '/3'", "permit:-edition3");
    EXPECT_THAT(expressions(rules), ElementsAre("uri = '/1'", "uri = '/3'", "uri = '/a'", "uri LIKE '/%'"));
    const RequestPtr ctx = request("/a");
    tavRulesLockObtain(rules.get(), "test"); // matching does without it
    EXPECT_STREQ(actionGetEdition(match(rules, ctx).entry()->action), "first5");
    tavRulesLockRelease(rules.get());
    EXPECT_EQ(editionFor(rules, "/3"), "3");
    EXPECT_EQ(editionFor(rules, "/b"), "second5");

    // A changed order moves nothing by itself; the next rule still goes before the first one that is strictly greater.
    ASSERT_TRUE(tavRuleSetOrder(three, 9));
    add(rules, 6, "uri = '/4'", "permit:-edition4");
    add(rules, 1, "uri LIKE '/3%'", "permit:-edition1b");
    EXPECT_THAT(expressions(rules), ElementsAre("uri = '/1'", "uri LIKE '/3%'", "uri = '/4'", "uri = '/3'", "uri = '/a'", "uri LIKE '/%'"));
    EXPECT_EQ(editionFor(rules, "/3"), "1b");
    EXPECT_EQ(editionFor(rules, "/4"), "4");
}

TEST_F(RuleTest, TextsInErrorStayAndNeverMatch) {
    RulesPtr rules = makeSet();
    TavRule *rule = add(rules, 1, nullptr, "permit:-edition1");
    const std::string none = "tavRule: Internal Error - no expression created. 0^";
    const auto error = [rule] {
        return tavOrNull(tavRuleGetError(rule)) + (" " + std::to_string(tavRuleGetErrorPosition(rule))) +
               tavOrNull(tavRuleGetErrorPositionIndicatorString(rule));
    };
    EXPECT_EQ(tavRuleGetErrorPosition(rule), -1);
    EXPECT_EQ(editionFor(rules, "/a"), "-");
    RequestPtr ctx = request("/a");
    traceOn(":DEBUG");
    // A text that does not scan brings the scanner's own message and place; one that scans but does not parse brings the parser's.
    const std::pair<const char *, std::string> cases[] = {
        {"", none},
        {"   ", none},
        {"uri =", none},
        {"uri uri", none},
        {nullptr, none},
        {"uri = 'abc", "Literal has no terminating character. 11          ^"},
        {"uri IN ('a', 1)", "List types must be homogeneous. 0^"},
    };
    for (const auto &[text, expected] : cases) {
        ASSERT_TRUE(tavRuleSetExpr(rule, text));
        EXPECT_STREQ(rule->expressionString, text);
        EXPECT_EQ(error(), expected);
        EXPECT_EQ(tavRuleMatches(ctx->trContext, rule, ctx.get()), 0);
        EXPECT_EQ(editionFor(rules, "/a"), "-");
    }
    ASSERT_TRUE(tavRuleSetExpr(rule, "uri = '/a'"));
    EXPECT_FALSE(tavRuleIsError(rule));
    EXPECT_EQ(tavRuleGetErrorPosition(rule), -1);
    EXPECT_EQ(tavRuleMatches(ctx->trContext, rule, ctx.get()), 1);
    EXPECT_EQ(editionFor(rules, "/a"), "1");
}

TEST_F(RuleTest, ARuleHasOneSetAndPurgingFreesIt) {
    RulesPtr rules = makeSet(), others = makeSet();
    TavRule *a = add(rules, 1, "uri = '/a'", "permit:-editiona");
    EXPECT_EQ(tavRulesRemoveRule(others.get(), a), nullptr);
    EXPECT_FALSE(tavRulesInsertRule(others.get(), a));
    EXPECT_EQ(editionFor(rules, "/a"), "a");
    ASSERT_EQ(tavRulesRemoveRule(rules.get(), a), a);
    EXPECT_EQ(tavRulesRemoveRule(rules.get(), a), nullptr);
    ASSERT_TRUE(tavRulesInsertRule(others.get(), a));
    for (int i = 0; i < 2; i++) tavRulesPurge(others.get());
    EXPECT_EQ(editionFor(others, "/a"), "-");
    add(others, 1, "uri = '/a'", "permit:-editionagain");
    EXPECT_EQ(editionFor(others, "/a"), "again");
}

TEST_F(RuleTest, MatchesKeepWhatTheyFound) {
    RulesPtr rules = makeSet();
    TavRule *rule = add(rules, 1, "uri = '/a'", "permit:-editionold");
    RequestPtr ctx = request("/a");
    TavRuleMatch first = match(rules, ctx);
    tavRuleSetObject(rule, actionCreate("permit:-editionnew"));
    tavRuleSetExpr(rule, "uri = '/b'");
    EXPECT_STREQ(actionGetEdition(first.entry()->action), "old");
    EXPECT_STREQ(first.entry()->expressionString, "uri = '/a'");
    EXPECT_EQ(editionFor(rules, "/a"), "-");
    EXPECT_EQ(editionFor(rules, "/b"), "new");

    ctx = request("/b");
    TavRuleMatch second = match(rules, ctx);
    EXPECT_EQ(second.entry()->rule, rule);
    first = std::move(second);
    EXPECT_EQ(second.entry(), nullptr);
    rules.reset();
    EXPECT_STREQ(actionGetEdition(first.entry()->action), "new");
    EXPECT_STREQ(first.entry()->typeString, "WEBROUTEWORKCLASS");
}

TEST_F(RuleTest, RemovalNeedsNoMemory) {
    RulesPtr rules = makeSet();
    TavRule *a = add(rules, 1, "uri = '/a'", "permit:-editiona");
    TavRule *b = add(rules, 2, "uri = '/a'", "permit:-editionb");
    add(rules, 3, "uri = '/a'", "permit:-editionc");
    RequestPtr ctx = request("/a");
    TavRuleMatch pin = match(rules, ctx);
    tavSetAllocationGate([](size_t) noexcept -> Boolean { return FALSE; });
    EXPECT_EQ(tavRulesRemoveRule(rules.get(), a), a);
    tavRuleFree(b);
    tavSetAllocationGate(nullptr);
    EXPECT_EQ(editionFor(rules, "/a"), "c");
    EXPECT_STREQ(actionGetEdition(pin.entry()->action), "a");

    ASSERT_TRUE(tavRulesInsertRule(rules.get(), a)); // comes back at its place, once
    EXPECT_EQ(editionFor(rules, "/a"), "a");
    tavRuleSetExpr(a, "uri = '/b'");
    EXPECT_EQ(editionFor(rules, "/a"), "c");
}
