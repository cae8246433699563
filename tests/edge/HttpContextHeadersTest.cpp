// The private headers of the request, and what is read from and added to the response.
#include "base/FailEachAllocation.h"
#include "edge/Site.h"

namespace {

const Text ABSENT = "(unset)", REMOVED;

std::string show(const Changes &changes) {
    std::string text;
    for (const auto &[name, value] : changes) text += name + "=" + value.value_or("(removed)") + "\n";
    return text;
}

// ---- request ----

class PrivateHeaders : public Site {
protected:
    void SetUp() override {
        Site::SetUp();
        addServer("S1");
    }
    void routeAndRelease() {
        host.headersSet.clear();
        route();
    }
};

TEST_F(PrivateHeaders, TellTheBackEndAboutTheClient) {
    routeAndRelease();
    const std::string common =
        "_ZV_HAPRT_WLMVERSION=\n$ZVRA=127.0.0.1\n$ZVRH=127.0.0.1\n$ZVSN=localhost\n$ZVSP=80\n$ZVPR=HTTP/1.1\n$ZVSC=http\n";
    EXPECT_EQ(show(host.headersSet),
              common + "$ZVIS=FALSE\n$ZVCC=(removed)\n$ZVCS=(removed)\n$ZVSI=(removed)\n$ZVAT=(removed)\n$ZVRU=(removed)\n");
    host.clientHost = "pc"; // the address is sent, not the name
    host.clientCertificate = "-----BEGIN";
    host.sslCipherSuite = "TLS_X";
    host.sslSessionId = "5E";
    host.authType = "BASIC";
    host.userName = "eve";
    routeAndRelease();
    EXPECT_EQ(show(host.headersSet), common + "$ZVIS=FALSE\n$ZVCC=-----BEGIN\n$ZVCS=TLS_X\n$ZVSI=5E\n$ZVAT=BASIC\n$ZVRU=eve\n");
    host.clientIp.reset();
    routeAndRelease();
    EXPECT_EQ(host.lastSet("$ZVRA"), REMOVED);
}

TEST_F(PrivateHeaders, ATrustedProxyKeepsWhatItSent) {
    host.headers = {{"$ZVRA", {"10.1.1.1"}}, {"$zvru", {"mallory"}}, {"_ZV_HAPRT_WLMVERSION", {"9"}}};
    const Headers sent = host.headers;
    set("TrustedProxyList", "127.0.0.1");
    for (const auto &[client, enabled] : {std::pair("127.0.0.1", true), {"127.0.0.11", true}, {"127.0.0.1", false}}) {
        host.headers = sent;
        host.clientIp = client;
        tav->enableTrustedProxy = enabled;
        routeAndRelease();
        const bool kept = enabled && *host.clientIp == "127.0.0.1";
        EXPECT_EQ(host.lastSet("$ZVRA"), kept ? ABSENT : client);
        EXPECT_EQ(host.lastSet("$ZVRU"), kept ? ABSENT : REMOVED);
        EXPECT_EQ(host.lastSet("$ZVSC"), "http"); // not sent
        EXPECT_EQ(host.lastSet("_ZV_HAPRT_WLMVERSION"), "");
    }
    host.headers = sent;
    tav->env.http.request.getHeaderValue = nullptr; // nobody can tell what was sent
    tav->enableTrustedProxy = TRUE;
    routeAndRelease();
    EXPECT_EQ(host.lastSet("$ZVRA"), "127.0.0.1");
}

TEST_F(PrivateHeaders, ThePartitionVersionAlwaysGoes) {
    tav->privateHeadersDisabled = TRUE;
    const std::string longVersion(300, 'v');
    for (const char *version : {"42", "", longVersion.c_str()}) {
        tavSetPartitionData(tav, clusterName, tsPartitionIDDataCreate(nullptr, version));
        routeAndRelease();
        EXPECT_EQ(show(host.headersSet), "_ZV_HAPRT_WLMVERSION=" + std::string(version) + "\n");
    }
}

TEST_F(PrivateHeaders, GoOnceForEachRequest) {
    addServer("S2");
    Obtained ctx = route();
    host.headersSet.clear();
    tavHttpContextSetState(ctx, CONNECT_FAILURE, 0, nullptr);
    EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    EXPECT_EQ(show(host.headersSet), "");
    tavHttpContextBreakAffinity(ctx);
    EXPECT_EQ(show(host.headersSet), "$ZVFO=true\n");
}

// ---- response ----

class Response : public Site {
protected:
    // The response of a routed request, as the library leaves it: cookies set by name, then header changes.
    std::string respond() {
        host.responseHeadersSet.clear();
        host.responseCookiesSet.clear();
        Obtained ctx = route();
        tavHttpContextSetState(ctx, RESPONSE_ARRIVED, 0, nullptr);
        ctx.reset();
        return show(host.responseCookiesSet) + show(host.responseHeadersSet);
    }
    PartitionIDData *partitionData() { return static_cast<PartitionIDData *>(tavHashGet(tav->partitionIDData.map, clusterName)); }
};

TEST_F(Response, StoresThePartitionTable) {
    const struct {
        Text table, version;
        const char *cloneOfP1; // "-": nothing is stored, "": no such partition
    } cases[] = {
        {"p1:c1;p2:c2", "7", "c1"}, {"p1:c1;p1:c9", "7", "c9"}, {";p2;:x;p1:c1:more;", "7", "c1"}, {"", "7", ""}, {";;p1;", "7", ""},
        {"p1:c1", REMOVED, "-"},    {REMOVED, "7", "-"},
    };
    addServer("S1");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.table.value_or("no table"));
        host.responseHeaders.clear();
        if (c.table) host.responseHeaders["$ZVPT"] = {*c.table};
        if (c.version) host.responseHeaders["_ZV_HAPRT_WLMVERSION"] = {*c.version};
        tavSetPartitionData(tav, clusterName, tsPartitionIDDataCreate(nullptr, "before"));
        const PartitionIDData *const before = partitionData();
        const bool both = c.table && c.version;
        EXPECT_EQ(respond(), both ? "$ZVPT=(removed)\n_ZV_HAPRT_WLMVERSION=(removed)\n" : "");
        PartitionIDData *data = partitionData();
        EXPECT_EQ(data == before, !both);
        if (!both) continue;
        EXPECT_EQ(data == tsDefaultPartitionIDData(), !*c.cloneOfP1);
        if (!*c.cloneOfP1) continue;
        EXPECT_STREQ(tsPartitionIDDataGetVersion(data), "7");
        EXPECT_STREQ(static_cast<char *>(tavHashGet(data->partition2CloneIdMap, "p1")), c.cloneOfP1);
    }
    Obtained ctx = route(); // a table for no cluster is dropped
    tsLinkClusterServer(cluster, first().server, FALSE);
    const int blocks = settle();
    for (const char *table : {"p1:c1", ""}) {
        host.responseHeaders = {{"$ZVPT", {table}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
        host.responseHeadersSet.clear();
        tavHttpContextPerformResponseProcessing(ctx);
        EXPECT_EQ(host.responseHeadersSet.size(), 2u);
    }
    EXPECT_EQ(tavGetMemCount(), blocks);
}

TEST_F(Response, FollowsTheSessionCookie) {
    const char *const own = "APPLICATION_SERVER", *const web = "WEB_SERVER",
                      *const learn = "LEARN"; // a web server that learns its clone id
    const struct {
        const char *type, *cloneId;
        std::vector<std::string> setCookie;
        const char *expected; // attributes of the added cookie; "": none is added
        const char *cloneIdAfter;
    } cases[] = {
        {web, "c1", {"JSESSIONID=abc; Path=/; Secure"}, "Path=/; Secure", "c1"},
        {own, "c1", {"JSESSIONID=abc; Path=/"}, "", "c1"}, // sets its own
        {web, "c1", {"JSESSIONID=abc"}, "", "c1"},         // without attributes
        {web, nullptr, {"JSESSIONID=abc; Path=/"}, "", nullptr},
        {web, "c1", {"lang=de; Path=/"}, "", "c1"},
        {web, "c1", {"MYSIDE=x; Path=/a"}, "Path=/a", "c1"}, // the name inside another one
        {web, "c1", {"a=SID; Path=/b"}, "Path=/b", "c1"},    // or in the value
        {web, "c1", {"=SID; Path=/"}, "", "c1"},
        {web, "c1", {"SID; Path"}, "", "c1"},
        {web, "c1", {"JSESSIONID=j; Path=/j", "SID=s; Path=/s"}, "Path=/s", "c1"}, // the first name wins
        {learn, nullptr, {"SID=abc:c7:c8; Path=/:x"}, "", "c7"},
        {learn, nullptr, {"SID=abc; Path=/:x"}, "", nullptr},
        {learn, "c1", {"SID=abc:; Path=/"}, "Path=/", "c1"},
        {learn, "c1", {"SID=abc:c7; Path=/"}, "", "c1"}, // the first id stays
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.type << " " << c.setCookie[0]);
        const Back &s = addServer(("S" + std::to_string(&c - cases)).c_str(), c.cloneId, c.type == learn ? web : c.type);
        const char *names[] = {"", "SID", "JSESSIONID", nullptr};
        hapCreate(module, names, ":", c.type == learn);
        tsVirtualClusterCreate(ts, module, wmGetName(module)); // forgets the policy it had
        host.responseHeaders = {{"Set-Cookie", c.setCookie}};
        EXPECT_EQ(respond(), *c.expected ? std::string("ZVJSESSIONID=aa:c1; ") + c.expected + "\n" : "");
        EXPECT_STREQ(tsServerGetCloneId(s.server), c.cloneIdAfter);
        tsServerSetPropStr(s.server, "state", "STOPPED");
    }
}

TEST_F(Response, HostsWithFewerCallbacks) {
    addServer("S1", "c1", "WEB_SERVER");
    host.responseHeaders = {{"Set-Cookie", {"JSESSIONID=abc; Path=/"}}};
    tav->env.http.response.setCookieValue = nullptr;
    EXPECT_EQ(respond(), "Set-Cookie=ZVJSESSIONID=aa:c1; Path=/\n");
    tav->env.http.response.getHeaderValues = nullptr; // only the first value is seen
    host.responseHeaders = {{"Set-Cookie", {"JSESSIONID=abc; Path=/1", "x=y"}}};
    EXPECT_EQ(respond(), "Set-Cookie=ZVJSESSIONID=aa:c1; Path=/1\n");
    host.responseHeaders = {{"Set-Cookie", {"x=y", "JSESSIONID=abc; Path=/1"}}};
    EXPECT_EQ(respond(), "");
    tav->env.http.response = {};
    host.responseHeaders = {{"Set-Cookie", {"JSESSIONID=abc; Path=/"}}, {"$ZVPT", {"a:b"}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
    EXPECT_EQ(respond(), "");
}

TEST_F(Response, StickyRequestsGetACookie) {
    addRule("1", "queryparm(sticky) = '1'", "permitsticky:shop");
    addRule("default", "true", "permit:shop");
    addServer("S1", "c1");
    const struct {
        const char *query, *cookie, *value;
        Headers response;
        bool given;
    } cases[] = {
        {"sticky=1", "any", "x", {}, true},
        {"sticky=0", "any", "x", {}, false},
        {"sticky=1", "any", "x", {{"Set-Cookie", {"JSESSIONID=x"}}}, false}, // the response has a session
        {"sticky=1", "jsessionid", "x", {}, true},
        {"sticky=1", "JSESSIONID", "x", {}, false}, // of nowhere
        {"sticky=1", "JSESSIONID", "abc:c1", {}, false},
    };
    for (const auto &c : cases) {
        host.query = c.query;
        host.cookies = {{c.cookie, c.value}};
        host.responseHeaders = c.response;
        EXPECT_EQ(respond(), c.given ? "ZVJESSIONID=aa:c1; Path=/shop\n" : "") << c.query << " " << c.cookie << "=" << c.value;
    }
    tav->env.http.response.setCookieValue = nullptr;
    host.cookies.clear();
    EXPECT_EQ(respond(), "Set-Cookie=ZVJESSIONID=aa:c1; Path=/shop\n");
}

TEST_F(Response, FailingMemoryLosesNothing) {
    addServer("S1", "c1", "WEB_SERVER");
    const char *names[] = {"SID", nullptr};
    hapCreate(module, names, ":", TRUE);
    Obtained ctx = route();
    host.responseHeaders = {{"Set-Cookie", {"SID=abc; Path=/"}}, {"$ZVPT", {"p1:c1;p1:c2;p2:c3"}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
    const Headers response = host.responseHeaders;
    tavSetPartitionData(tav, clusterName, tsDefaultPartitionIDData());
    settle();
    failEachAllocation([&](auto) {
        host.responseHeaders = response;
        host.responseHeadersSet.clear();
        tavHttpContextPerformResponseProcessing(ctx);
        EXPECT_EQ(host.responseHeadersSet.size(), 2u) << "the private headers must not reach the client";
        tavSetPartitionData(tav, clusterName, tsDefaultPartitionIDData());
    });
}

} // namespace
