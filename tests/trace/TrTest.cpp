// Groups, records, specifications, contexts and the death row.
#include <array>
#include <string>

#include "TraceFixture.h"

namespace {

constexpr const char *tree =
    "<entry name=\"m\" id=\"M1\" level=\"ERROR\"><text>\"%s!\"</text></entry>"
    "<group name=\"control\"><record name=\"process\" defaultLevel=\"DEBUG\"/><record name=\"bare\" level=\"INFO\"/><group name=\"rules\">"
    "<record name=\"list\" level=\"DEBUG\"/></group></group><group name=\"http\"><record id=\"M1\"/><group name=\"both\"/>"
    "<record name=\"both\" level=\"INFO\"/><record name=\"off\" level=\"OFF\"/></group><record name=\"top\" level=\"INFO\"/>";

class Trace : public TraceTest {
protected:
    Trace() { load(tree); }
    TrSpec *newSpec() { return trSpecCreate(mgr, ":INFO"); }
};

TEST_F(Trace, SpecificationsReachWhatTheyName) {
    // Levels of control.process, control.rules.list, http.m, .top and http.both: the group comes before a record of the same path.
    const std::pair<const char *, std::array<unsigned, 5>> cases[] = {
        {nullptr, {255, 255, 255, 255, 255}},
        {"", {5, 5, 5, 5, 5}},
        {"control.rules:OFF", {255, 0, 255, 255, 255}},
        {"control", {5, 5, 255, 255, 255}},
        {"control.process:iNfO", {7, 255, 255, 255, 255}},
        {":ERROR,control:DEBUG,control.rules:ALERT", {8, 2, 4, 4, 4}},
        {"control:DEBUG,:ERROR", {4, 4, 4, 4, 4}},
        {"control:DEBUG,", {5, 5, 5, 5, 5}},
        {"control:DEBUG,,http.m:OFF,http.m:OFF", {5, 5, 0, 5, 5}},
        {".top:EMERG", {255, 255, 255, 1, 255}},
        {":OFF,http.both:INFO", {0, 0, 0, 0, 0}},
    };
    for (const auto &[text, expected] : cases) {
        TrSpec *spec = trSpecCreate(mgr, text);
        ASSERT_NE(spec, nullptr) << text;
        TrSpec *copy = trSpecCopy(spec);
        for (const TrSpec *s : {spec, copy}) {
            const std::array<unsigned, 5> levels = {level(s, "control.process"), level(s, "control.rules.list"), level(s, "http.m"),
                                                    level(s, ".top"), level(s, "http.both")};
            EXPECT_EQ(levels, expected) << text;
        }
        trKillSpec(spec);
        trKillSpec(copy);
    }
}

TEST_F(Trace, SpecificationsAreRefused) {
    const std::pair<const char *, const char *> cases[] = {
        {"control:VERBOSE", "level name: 'VERBOSE'"},
        {"control:DEBU", "level name: 'DEBU'"},
        {"control:8", "level name: '8'"},
        {"control:", "level name: ''"},
        {":DEBUG,nobody:INFO,:LOUD", "group or record name: 'nobody'"},
        {" control:INFO", "group or record name: ' control'"},
        {"Control", "group or record name: 'Control'"},
    };
    for (const auto &[text, message] : cases) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(trSpecCreate(mgr, text), nullptr) << text;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("INVALID trace spec ") + message + "\n");
    }
}

TEST_F(Trace, AMegabyteOfCommasIsOneItem) {
    for (int i = 0; i < 20000; i++) trRecordCreate(trGroupGet(mgr, "control"), ("r" + std::to_string(i)).c_str(), TR_INFO, -1);
    TrSpec *spec = trSpecCreate(mgr, (":DEBUG" + std::string(1 << 20, ',')).c_str()); // minutes, were each comma to reach every record
    EXPECT_EQ(level(spec, "control.r19999"), 5u);
    trKillSpec(spec);
}

TEST_F(Trace, EnabledUpToTheMaximum) {
    TrContext *ctx = trContextCreate(mgr);
    const TrRecord *process = trRecordGet(mgr, "control.process"), *off = trRecordGet(mgr, "http.off");
    EXPECT_FALSE(trContextLogEnabled(ctx, process)) << "no specification yet";
    EXPECT_TRUE(trContextLogEnabled(ctx, off)) << "OFF is not above the maximum of nothing";
    EXPECT_FALSE(trContextLogEnabled(nullptr, off));
    trContextSetSpec(ctx, trSpecCreate(mgr, "control:INFO,http:OFF"));
    EXPECT_FALSE(trContextLogEnabled(ctx, process));
    EXPECT_TRUE(trContextLogEnabled(ctx, trRecordGet(mgr, "control.bare")));
    EXPECT_TRUE(trContextTraceEnabled(ctx, process, TR_INFO));
    EXPECT_FALSE(trContextTraceEnabled(ctx, process, TR_DEBUG_LEVEL));
    EXPECT_TRUE(trContextLogEnabled(ctx, off));
    TrRecord *late = trRecordCreate(trGroupGetRoot(mgr), "late", TR_DEBUG_LEVEL, -1);
    EXPECT_TRUE(trContextLogEnabled(ctx, late)) << "younger than the specification";
    int evaluated = 0;
    TR_DEBUG(ctx, process, "%d", ++evaluated);
    TR_TRACE(ctx, process, TR_DEBUG_LEVEL, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    TR_TRACE(ctx, process, TR_INFO, "%d", ++evaluated);
    EXPECT_EQ(trace::printed, "INFO|-1|1");
    trContextDelete(ctx);
}

TEST_F(Trace, EmittersDescribeTheMessage) {
    TrContext *ctx = trMgrGetDefaultContext(mgr);
    const TrRecord *message = trRecordGet(mgr, "http.m"), *process = trRecordGet(mgr, "control.process");
    EXPECT_EQ(trContextLog(ctx, message, "x"), 42);
    EXPECT_EQ(trace::printed, "ERROR|M1|x!");
    trContextDebug(ctx, message, "d%d", 1);
    EXPECT_EQ(trace::printed, "ERROR|M1|d1");
    trContextDebug(ctx, process, "enter\n");
    EXPECT_EQ(trace::printed, "DEBUG|-1|enter\n");
    trContextLog(ctx, process);
    EXPECT_EQ(trace::printed, "(no level)|-1|(no format)");
    trContextTrace(ctx, message, TR_ALERT, "t");
    EXPECT_EQ(trace::printed, "ALERT|M1|t");
    EXPECT_EQ(trContextLog(nullptr, message) + trContextDebug(ctx, nullptr, "t"), 0);
    trMgrSetPrintf(mgr, nullptr);
    EXPECT_EQ(trContextTrace(ctx, message, TR_ALERT, "u"), 0);
}

TEST_F(Trace, RecordsAndGroupsWithSeveralParents) {
    TrGroup *control = trGroupGet(mgr, "control"), *rules = trGroupGet(mgr, "control.rules"), *http = trGroupGet(mgr, "http");
    TrRecord *list = trRecordGet(mgr, "control.rules.list");
    EXPECT_EQ(trGroupGetChildRecords(http)[3], nullptr);
    trRecordAddParent(list, http);
    EXPECT_STREQ(trRecordGetPath(list), "http.list");
    EXPECT_EQ(trGroupGetChildRecords(http)[3], list);
    EXPECT_EQ(trMgrGetRecord(mgr, "control.rules.list"), list);
    EXPECT_TRUE(trGroupAddParent(rules, http));
    EXPECT_EQ(trGroupGetChildGroups(http)[1], rules);
    for (TrGroup *parent : {rules, trGroupGet(mgr, "http.both")}) trGroupAddParent(http, parent);
    EXPECT_FALSE(trGroupAddParent(control, control));
    EXPECT_FALSE(trGroupAddParent(control, rules)) << "below itself";
    EXPECT_FALSE(trGroupAddParent(trGroupGetRoot(mgr), http));
    TrSpec *spec = trSpecCreate(mgr, "http:ERROR");
    EXPECT_EQ(level(spec, "control.rules.list"), 4u);
    trKillSpec(spec);

    trGroupDelete(control);
    EXPECT_EQ(trGroupGet(mgr, "control"), nullptr);
    EXPECT_EQ(trGroupGet(mgr, "control.rules"), rules) << "http still lists it";
    EXPECT_NE(trMgrGetRecord(mgr, "control.process"), nullptr) << "its creator's reference is left";
    trRecordDelete(trRecordGet(mgr, "control.process"));
    EXPECT_EQ(trMgrGetRecord(mgr, "control.process"), nullptr);
    trRecordDelete(list);
    EXPECT_EQ(trMgrGetRecord(mgr, "http.list"), list) << "its groups list it";
}

TEST_F(Trace, ReleasedSpecificationsWaitOnTheDeathRow) {
    trPurgeDeathRow();
    const int before = tavGetMemCount();
    auto alive = [before] { return tavGetMemCount() - before; };
    TrSpec *first = newSpec(), *second = newSpec(), *third = newSpec();
    EXPECT_EQ(trSpecRefRelease(nullptr), -1);
    EXPECT_EQ(trSpecRefRelease(trSpecRefObtain(first)), 1);
    EXPECT_EQ(trSpecRefRelease(first), 0);
    trace::now += 1000;
    trSpecRefRelease(second);
    trace::now += 1000;
    trCleanUpDeathRow();
    EXPECT_EQ(alive(), 3) << "2000 ms old: still readable";
    trSpecRefObtain(second); // comes back and dies again: waits anew, behind the third
    trSpecRefRelease(third);
    trSpecRefRelease(second);
    trace::now += 1;
    trCleanUpDeathRow();
    EXPECT_EQ(alive(), 2);
    trace::now += 2000;
    trSpecRefObtain(third); // alive when its time comes: off the row
    trCleanUpDeathRow();
    EXPECT_EQ(alive(), 1);
    EXPECT_FALSE(third->onDeathRow);

    trace::now -= 3600000; // set back: what died in the future is not freed early, nor an hour late
    trSpecRefRelease(third);
    trace::now += 3600000;
    TrSpec *fourth = newSpec();
    trSpecRefRelease(fourth);
    EXPECT_EQ(alive(), 1) << "the third is old by now";
    trace::now -= 3600000;
    trCleanUpDeathRow();
    EXPECT_EQ(alive(), 1);
    trace::now += 2001;
    trCleanUpDeathRow();
    EXPECT_EQ(alive(), 0);
}

TEST_F(Trace, TheRowIsSharedUntilItIsDestroyed) {
    trPurgeDeathRow();
    const int before = tavGetMemCount();
    TrSpec *held = newSpec(), *late = newSpec();
    trSpecRefRelease(held);
    TrMgr *other = trMgrCreate(nullptr, FALSE); // no catalogue: a row all the same, and the same one
    trMgrDelete(other);
    EXPECT_TRUE(held->onDeathRow);
    trDestroy();
    EXPECT_EQ(tavGetMemCount() - before, 1);
    EXPECT_EQ(trSpecRefRelease(late), 0);
    EXPECT_EQ(tavGetMemCount() - before, 0) << "freed at once";
    trMgrDelete(trMgrCreate(nullptr, FALSE));
    EXPECT_EQ(tavGetMemCount() - before, 1) << "a new manager opens the row again";
}

} // namespace
