// What the elements of a catalogue create, what ends the process, and the catalogue that is delivered.
#include <unistd.h>

#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "TraceFixture.h"

namespace {

class Catalogue : public TraceTest {
protected:
    std::string show(const char *path) const {
        const TrRecord *record = trMgrGetRecord(mgr, path);
        if (!record) return "absent";
        const char *format = trRecordGetFormat(record);
        return std::to_string(record->level) + "," + std::to_string(trRecordGetDefaultLevel(record)) + "," + record->messageId + "," +
               (format ? format : "(none)");
    }
};

TEST_F(Catalogue, RecordsTakeFromTheirMessages) {
    load(
        "<e><Entry name=\"n\" ID=\"m1\" level=\"notice\"><text>\"%s is %d\"</text></entry><entry name=\"n2\" id=\"m2\" level=OFF/>"
        "<group name=\"g\" description=\"d\"><record id=\"m1\"/><record name=\"own\" id=\"m1\" level=\"ERROR\" defaultLevel=\"DEBUG\"/>"
        "<record name=\"def\" defaultLevel=\"debug\"/><record name=\"lev\" level=\"INFO\" defaultLevel=\"none\"/><record id=\"m2\"/>"
        "<group name=\"h\"><record name=\"r\" level=\"ALERT\"/></group></group></e>");
    EXPECT_EQ(show("g.n"), "6,6,m1,%s is %d");
    EXPECT_EQ(show("g.own") + show("g.def"), "4,8,m1,%s is %d-1,8,-1,(none)");
    EXPECT_EQ(show("g.lev") + show("g.n2") + show("g.h.r"), "7,7,-1,(none)0,0,m2,(none)2,2,-1,(none)");
    EXPECT_STREQ(trMgrGetGroup(mgr, "g")->description, "d");
    EXPECT_EQ(trMgrGetGroup(mgr, "h"), nullptr);
}

TEST_F(Catalogue, ElementsOutOfPlaceDoNoHarm) {
    load(
        "<text>\"lost\"</text><record name=\"top\" level=\"ERROR\"/>"
        "<group><group name=\"a\"><text>\"lost\"</text><group><record name=\"r\" level=\"INFO\"><text>\"lost\"</text><group "
        "name=\"b\"/></record>"
        "</group></group></group>"
        "<entry name=\"e\" id=\"1\" level=\"INFO\"><entry name=\"f\" id=\"1\" level=\"INFO\"/><text>\"of a message that is gone\"</text>"
        "<record name=\"q\" level=\"INFO\"/></entry><group name=\"a\"><record name=\"r\" level=\"ERROR\"/><record id=\"1\"/></group>"
        "<group name=\"open\"><record name=\"s\" level=\"INFO\"/>");
    EXPECT_EQ(show(".top"), "4,4,-1,(none)");
    EXPECT_EQ(show(".q"), "7,7,-1,(none)");
    EXPECT_EQ(show("a.r"), "4,4,-1,(none)") << "the later record of a path";
    EXPECT_EQ(show("a.f"), "7,7,1,(none)") << "the later message of an id";
    EXPECT_EQ(show("open.s"), "7,7,-1,(none)");
    EXPECT_NE(trMgrGetGroup(mgr, "b"), nullptr);
    EXPECT_EQ(tavListGetCount(trGroupGetRoot(mgr)->groups), 4) << "a, b, a again, open";
}

TEST_F(Catalogue, DepthIsBounded) {
    std::string text;
    for (int i = 0; i < TR_MAX_GROUP_DEPTH; i++) text += "<group name=\"g\">";
    load(text + "<record name=\"r\" level=\"INFO\"/>");
    trSetFatalHook(trace::onFatal);
    EXPECT_EQ(trMgrCreate(openText(text + "<group name=\"g\"/>"), TRUE), nullptr);
    EXPECT_EQ(trace::fatal, "2|TrMgr.initTr: Failed to parse the file tav-trace.xml\n");
}

#define FATAL "FATAL INTERNAL ERROR: "

TEST_F(Catalogue, FaultsEndTheProcess) {
    const struct {
        const char *catalogue;
        int status;
        const char *message;
    } cases[] = {
        {"<entry id=1 level=INFO/>", 1, FATAL "message with no 'name' defined in trace-cfg.xml\n"},
        {"<entry name=n level=INFO/>", 1, FATAL "message 'n' defined in trace-cfg.xml\n"},
        {"<entry name=n id=1/>", 1, FATAL "message 'n' has no 'level' field defined in trace-cfg.xml\n"},
        {"<entry name=n id=1 level=LOUD/>", 1, FATAL "invalid level value of 'LOUD' for message 'n' in trace-cfg.xml\n"},
        {"<record name=r id=7/>", 1, FATAL "message id '7' is not defined in trace-cfg.xml\n"},
        {"<record level=INFO/>", 1, FATAL "record with no name in trace-cfg.xml\n"},
        {"<record name=r/>", 1, FATAL "record 'r' has no level or defaultLevel in trace-cfg.xml\n"},
        {"<a></b>", 2, "TrMgr.initTr: Failed to parse the file tav-trace.xml\n"},
    };
    for (const auto &c : cases) {
        // The contents' faults go to standard output, the syntax's to standard error; only standard error is compared.
        auto run = [&c] {
            dup2(c.status == 1 ? STDERR_FILENO : STDIN_FILENO, STDOUT_FILENO);
            trMgrCreate(openText(c.catalogue), TRUE);
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(c.status), testing::Eq(std::string(c.message))) << c.catalogue;
        // With a hook the same fault is reported once and nothing is left behind.
        trSetFatalHook(trace::onFatal);
        trace::fatal.clear();
        EXPECT_EQ(trMgrCreate(openText(c.catalogue), TRUE), nullptr);
        EXPECT_EQ(trace::fatal, std::to_string(c.status) + "|" + c.message);
        trSetFatalHook(nullptr);
    }
    load("");
    trSetFatalHook(trace::onFatal);
    trace::fatal.clear();
    trRecordGet(mgr, "no.such");
    EXPECT_EQ(trace::fatal, "1|" FATAL "Invalid record path: 'no.such'; check trace-cfg.xml for the valid path.\n");
}

// ---- the catalogue that is delivered ----

class Delivered : public TraceTest {
protected:
    Delivered() { load(fopen(TAV_SOURCE_DIR "/share/tav-trace.xml", "r")); }
};

std::vector<std::string> words(const char *text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// What the library hands to trContextLog, record by record.
TEST_F(Delivered, TextsFitTheirArguments) {
    const std::pair<const char *, const char *> cases[] = {
        {"%s%s%s", "control.stateChange control.serverStateChange"},
        {"%s%s%s%s", "control.connectorStateChange"},
        {"%s",
         "control.json.received control.json.updated control.json.sent control.error.invalidJSON control.error.invalidAction "
         "control.error.invalidKey control.error.noConnectorError control.trace.requestTraceSpecAdded "
         "control.trace.requestTraceSpecRemoved control.trace.defaultReqTraceSpecSet control.trace.defaultTraceSpecSet"},
        {"", "control.trace.defaultReqTraceSpecReset control.trace.defaultTraceSpecSetEmpty control.trace.defaultTraceSpecReset"},
        {"%s%s%s%s%d%d", "control.responseHealthPolicyTriggered control.timeoutHealthPolicyTriggered"},
        {"%d%s%s%s%d%s", "http.request.rules.traceRuleMatch"},
        {"%s%s", "http.request.connectFailure"},
    };
    std::map<std::string, std::string> expected, found; // the conversions as they stand in the texts, by path
    for (const auto &[conversions, paths] : cases) {
        for (const std::string &path : words(paths)) expected[path] = conversions;
    }
    for (const TrRecord *record : TavListRange<TrRecord>(mgr->records)) {
        if (!trRecordGetFormat(record)) continue;
        std::string &conversions = found[trRecordGetPath(record)];
        for (const char *p = strchr(trRecordGetFormat(record), '%'); p; p = strchr(p + 1, '%')) conversions.append(p, 2);
    }
    EXPECT_EQ(found, expected);
    trContextLog(trMgrGetDefaultContext(mgr), trRecordGet(mgr, "control.stateChange"), "A", "B", "C");
    EXPECT_EQ(trace::printed, "NOTICE|TAV0001N|Routing state changed from A to B: C.");
}

TEST_F(Delivered, FreshInstallationIsQuietButTellsFaults) {
    const auto on = words(
        "control.badportpath control.rules.parsing.error http.response.error.503 control.stateChange control.serverStateChange "
        "control.connectorStateChange control.error.invalidJSON control.error.invalidAction control.error.invalidKey "
        "control.error.noConnectorError http.request.connectFailure control.trace.defaultTraceSpecSet "
        "control.trace.defaultReqTraceSpecSet control.trace.defaultReqTraceSpecReset control.trace.defaultTraceSpecReset "
        "control.trace.defaultTraceSpecSetEmpty control.trace.requestTraceSpecAdded control.trace.requestTraceSpecRemoved "
        "control.responseHealthPolicyTriggered control.timeoutHealthPolicyTriggered");
    TrContext *ctx = trMgrGetDefaultContext(mgr);
    std::set<std::string> told;
    for (const TrRecord *record : TavListRange<TrRecord>(mgr->records)) {
        if (trContextLogEnabled(ctx, record)) told.insert(trRecordGetPath(record));
        EXPECT_TRUE(record->defaultLevel == TR_DEBUG_LEVEL || strcmp(record->messageId, "-1") != 0) << trRecordGetPath(record);
    }
    EXPECT_EQ(told, std::set<std::string>(on.begin(), on.end()));
    trContextSetSpec(ctx, trSpecCreate(mgr, ":DEBUG"));
    for (const TrRecord *record : TavListRange<TrRecord>(mgr->records))
        EXPECT_TRUE(trContextLogEnabled(ctx, record)) << trRecordGetPath(record);
}

} // namespace
