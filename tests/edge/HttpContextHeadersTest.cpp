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
    PrivateHeaders() { addServer("S1"); }
    void routeAndRelease() {
        host.headersSet.clear();
        tavHttpContextRelease(route());
    }
};

TEST_F(PrivateHeaders, TellTheBackEndAboutTheClient) {
    routeAndRelease();
    EXPECT_EQ(
        show(host.headersSet),
        "_ZV_HAPRT_WLMVERSION=\n$ZVRA=127.0.0.1\n$ZVRH=127.0.0.1\n$ZVSN=localhost\n$ZVSP=80\n$ZVPR=HTTP/1.1\n$ZVSC=http\n$ZVIS=FALSE\n"
        "$ZVCC=(removed)\n$ZVCS=(removed)\n$ZVSI=(removed)\n$ZVAT=(removed)\n$ZVRU=(removed)\n");
    host.clientHost = "pc";
    host.clientCertificate = "-----BEGIN";
    host.sslCipherSuite = "TLS_X";
    host.sslSessionId = "5E";
    host.authType = "BASIC";
    host.userName = "eve";
    routeAndRelease();
    EXPECT_EQ(host.lastSet("$ZVRH"), "127.0.0.1"); // the address, not the name
    EXPECT_EQ(host.lastSet("$ZVCC"), "-----BEGIN");
    EXPECT_EQ(host.lastSet("$ZVCS"), "TLS_X");
    EXPECT_EQ(host.lastSet("$ZVSI"), "5E");
    EXPECT_EQ(host.lastSet("$ZVAT"), "BASIC");
    EXPECT_EQ(host.lastSet("$ZVRU"), "eve");
    host.clientIp.reset();
    routeAndRelease();
    EXPECT_EQ(host.lastSet("$ZVRA"), REMOVED);
}

// Set directly: the selector refuses some of these requests.
TEST_F(PrivateHeaders, SchemeAndPort) {
    const struct {
        Text protocol;
        int port;
        Text scheme, secure, portText;
    } cases[] = {
        {"https", 443, "https", "TRUE", "443"},
        {"HTTPS", 443, "HTTPS", "FALSE", "443"},
        {"http", 80, "http", "FALSE", "80"},
        {"https ", 0, "https ", "FALSE", "0"},
        {REMOVED, -2147483647 - 1, REMOVED, "FALSE", "-2147483648"},
    };
    for (const auto &c : cases) {
        host = EnvHttpContext();
        host.protocol = c.protocol;
        host.port = c.port;
        TavHttpContext *ctx = obtain();
        tavHttpContextSetMyTargetInfo(ctx, servers[0].endpoint, nullptr);
        EXPECT_EQ(host.lastSet("$ZVSC"), c.scheme);
        EXPECT_EQ(host.lastSet("$ZVIS"), c.secure);
        EXPECT_EQ(host.lastSet("$ZVSP"), c.portText);
        tavHttpContextResetMyTargetInfo(ctx);
        tavHttpContextRelease(ctx);
    }
}

TEST_F(PrivateHeaders, ATrustedProxyKeepsWhatItSent) {
    const struct {
        const char *name;
        bool enabled;
        const char *proxy;
        Text address, scheme, user;
    } cases[] = {
        {"trusted", true, "127.0.0.1", ABSENT, "http", ABSENT},
        {"another one", true, "127.0.0.11", "127.0.0.1", "http", REMOVED},
        {"listed but not enabled", false, "127.0.0.1", "127.0.0.1", "http", REMOVED},
    };
    for (const auto &c : cases) {
        host = EnvHttpContext();
        host.path = "/shop/a";
        host.headers = {{"$ZVRA", {"10.1.1.1"}}, {"$zvru", {"mallory"}}, {"_ZV_HAPRT_WLMVERSION", {"9"}}};
        tav.trustedProxyEnabled = c.enabled;
        tav.trustedProxies = {c.proxy};
        routeAndRelease();
        EXPECT_EQ(host.lastSet("$ZVRA"), c.address) << c.name;
        EXPECT_EQ(host.lastSet("$ZVSC"), c.scheme) << c.name;
        EXPECT_EQ(host.lastSet("$ZVRU"), c.user) << c.name;
        EXPECT_EQ(host.lastSet("_ZV_HAPRT_WLMVERSION"), "") << c.name;
    }
    tav.env.http.request.getHeaderValue = nullptr; // nobody can tell what was sent
    tav.trustedProxyEnabled = true;
    tav.trustedProxies = {"127.0.0.1"};
    routeAndRelease();
    EXPECT_EQ(host.lastSet("$ZVRA"), "127.0.0.1");
}

TEST_F(PrivateHeaders, ThePartitionVersionAlwaysGoes) {
    tav.privateHeadersDisabled = true;
    const std::string longVersion(300, 'v');
    for (const char *version : {"42", "", longVersion.c_str()}) {
        tavSetPartitionData(&tav, "C1", tsPartitionIDDataCreate(nullptr, version));
        routeAndRelease();
        EXPECT_EQ(show(host.headersSet), "_ZV_HAPRT_WLMVERSION=" + std::string(version) + "\n");
        EXPECT_FALSE(tav.partitionsLocked);
    }
    tavSetPartitionData(&tav, "C1", tsDefaultPartitionIDData());
    routeAndRelease();
    EXPECT_EQ(host.lastSet("_ZV_HAPRT_WLMVERSION"), "");
}

TEST_F(PrivateHeaders, GoOnceForEachRequest) {
    addServer("S2");
    TavHttpContext *ctx = route();
    host.headersSet.clear();
    tavHttpContextSetState(ctx, CONNECT_FAILURE, 0, nullptr);
    EXPECT_NE(tavHttpContextGetTargetEndpoint(ctx), nullptr);
    EXPECT_EQ(show(host.headersSet), "");
    tavHttpContextBreakAffinity(ctx);
    EXPECT_EQ(show(host.headersSet), "$ZVFO=true\n");
    tavHttpContextRelease(ctx);
}

// ---- response ----

class Response : public Site {
protected:
    // The response of a routed request, as the library leaves it: cookies set by name, then header changes.
    std::string respond() {
        host.responseHeadersSet.clear();
        host.responseCookiesSet.clear();
        TavHttpContext *ctx = route();
        tavHttpContextSetState(ctx, RESPONSE_ARRIVED, 0, nullptr);
        tavHttpContextRelease(ctx);
        return show(host.responseCookiesSet) + show(host.responseHeadersSet);
    }
};

TEST_F(Response, StoresThePartitionTable) {
    const struct {
        const char *name;
        Text table, version;
        const char *cloneOfP1; // "-": nothing is stored, "": no such partition
    } cases[] = {
        {"two partitions", "p1:c1;p2:c2", "7", "c1"},
        {"the later of one key", "p1:c1;p1:c9", "7", "c9"},
        {"items without key or value", ";p2;:x;p1:c1:more;", "7", "c1"},
        {"empty", "", "7", ""},
        {"no items", ";;p1;", "7", ""},
        {"no version", "p1:c1", REMOVED, "-"},
        {"no table", REMOVED, "7", "-"},
    };
    addServer("S1");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        host.responseHeaders.clear();
        if (c.table) host.responseHeaders["$ZVPT"] = {*c.table};
        if (c.version) host.responseHeaders["_ZV_HAPRT_WLMVERSION"] = {*c.version};
        tav.partitionsSet = 0;
        const bool both = c.table && c.version;
        EXPECT_EQ(respond(), both ? "$ZVPT=(removed)\n_ZV_HAPRT_WLMVERSION=(removed)\n" : "");
        EXPECT_EQ(tav.partitionsSet, both ? 1 : 0);
        if (!both) continue;
        PartitionIDData *data = tav.partitions["C1"];
        if (!*c.cloneOfP1) {
            EXPECT_EQ(data, tsDefaultPartitionIDData());
            continue;
        }
        EXPECT_STREQ(tsPartitionIDDataGetVersion(data), "7");
        EXPECT_STREQ(static_cast<char *>(tavHashGet(data->partition2CloneIdMap, "p1")), c.cloneOfP1);
    }
}

TEST_F(Response, APartitionTableForNoClusterIsDropped) {
    SiteServer &s = addServer("S1");
    TavHttpContext *ctx = route();
    tsLinkClusterServer(cluster, s.server, FALSE);
    const int blocks = tavGetMemCount();
    for (const char *table : {"p1:c1", ""}) {
        host.responseHeaders = {{"$ZVPT", {table}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
        host.responseHeadersSet.clear();
        tavHttpContextPerformResponseProcessing(ctx);
        EXPECT_EQ(host.responseHeadersSet.size(), 2u);
    }
    EXPECT_EQ(tavGetMemCount(), blocks);
    EXPECT_TRUE(tav.partitions.empty());
    tavHttpContextSetState(ctx, CONNECT_FAILURE, 0, nullptr); // no endpoint any more
    host.responseHeaders = {{"$ZVPT", {"p1:c1"}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
    tavHttpContextPerformResponseProcessing(ctx);
    EXPECT_EQ(host.responseHeadersSet.size(), 4u);
    EXPECT_TRUE(tav.partitions.empty());
    tavHttpContextRelease(ctx);
}

// The module's cookies are "SID,JSESSIONID", the delimiter is ":" unless told.
TEST_F(Response, FollowsTheSessionCookie) {
    const struct {
        const char *name, *type, *cloneId;
        bool learn;
        std::vector<std::string> setCookie;
        const char *expected, *cloneIdAfter;
    } cases[] = {
        {"with attributes", "WEB_SERVER", "c1", false, {"JSESSIONID=abc; Path=/; Secure"}, "ZVJSESSIONID=aa:c1; Path=/; Secure\n", "c1"},
        {"an application server sets its own", "APPLICATION_SERVER", "c1", false, {"JSESSIONID=abc; Path=/"}, "", "c1"},
        {"without attributes", "WEB_SERVER", "c1", false, {"JSESSIONID=abc"}, "", "c1"},
        {"no clone id", "WEB_SERVER", nullptr, false, {"JSESSIONID=abc; Path=/"}, "", nullptr},
        {"another cookie", "WEB_SERVER", "c1", false, {"lang=de; Path=/"}, "", "c1"},
        {"the name inside another one", "WEB_SERVER", "c1", false, {"MYSIDE=x; Path=/a"}, "ZVJSESSIONID=aa:c1; Path=/a\n", "c1"},
        {"the name in the value", "WEB_SERVER", "c1", false, {"a=SID; Path=/b"}, "ZVJSESSIONID=aa:c1; Path=/b\n", "c1"},
        {"nothing before the equals sign", "WEB_SERVER", "c1", false, {"=SID; Path=/"}, "", "c1"},
        {"no equals sign", "WEB_SERVER", "c1", false, {"SID; Path"}, "", "c1"},
        {"the first name wins",
         "WEB_SERVER",
         "c1",
         false,
         {"JSESSIONID=j; Path=/j", "SID=s; Path=/s"},
         "ZVJSESSIONID=aa:c1; Path=/s\n",
         "c1"},
        {"learned", "WEB_SERVER", nullptr, true, {"SID=abc:c7:c8; Path=/:x"}, "", "c7"},
        {"nothing to learn in the attributes", "WEB_SERVER", nullptr, true, {"SID=abc; Path=/:x"}, "", nullptr},
        {"an empty piece", "WEB_SERVER", "c1", true, {"SID=abc:; Path=/"}, "ZVJSESSIONID=aa:c1; Path=/\n", "c1"},
        {"the first id stays", "WEB_SERVER", "c1", true, {"SID=abc:c7; Path=/"}, "", "c1"},
    };
    int number = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        SiteServer &s = addServer(("S" + std::to_string(number++)).c_str(), c.cloneId, c.type);
        const char *names[] = {"SID", "JSESSIONID", "", nullptr};
        hapCreate(module, names, ":", c.learn);
        tsVirtualClusterCreate(ri.selector, module, wmGetName(module)); // forgets the policy it had
        host.responseHeaders = {{"Set-Cookie", c.setCookie}};
        EXPECT_EQ(respond(), c.expected);
        EXPECT_STREQ(tsServerGetCloneId(s.server), c.cloneIdAfter);
        tsServerSetPropStr(s.server, "state", "STOPPED");
    }
}

TEST_F(Response, HostsWithFewerCallbacks) {
    SiteServer &s = addServer("S1", "c1", "WEB_SERVER");
    host.responseHeaders = {{"Set-Cookie", {"JSESSIONID=abc; Path=/"}}};
    tav.env.http.response.setCookieValue = nullptr;
    EXPECT_EQ(respond(), "Set-Cookie=ZVJSESSIONID=aa:c1; Path=/\n");
    tav.env.http.response.getHeaderValues = nullptr; // only the first value is seen
    host.responseHeaders = {{"Set-Cookie", {"JSESSIONID=abc; Path=/1", "x=y"}}};
    EXPECT_EQ(respond(), "Set-Cookie=ZVJSESSIONID=aa:c1; Path=/1\n");
    host.responseHeaders = {{"Set-Cookie", {"x=y", "JSESSIONID=abc; Path=/1"}}};
    EXPECT_EQ(respond(), "");
    tav.env.http.response = {};
    host.responseHeaders = {{"Set-Cookie", {"JSESSIONID=abc; Path=/"}}, {"$ZVPT", {"a:b"}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
    EXPECT_EQ(respond(), "");
    EXPECT_EQ(s.server->outstandingRequestCount, 0);
}

TEST_F(Response, StickyRequestsGetACookie) {
    addRule("1", "queryparm(sticky) = '1'", "permitsticky:shop");
    addRule("default", "true", "permit:shop");
    SiteServer &s = addServer("S1", "c1");
    const struct {
        const char *name, *query;
        std::map<std::string, std::string> cookies;
        std::vector<std::string> setCookie;
        const char *expected;
    } cases[] = {
        {"sticky", "sticky=1", {}, {}, "ZVJESSIONID=aa:c1; Path=/shop\n"},
        {"not sticky", "sticky=0", {}, {}, ""},
        {"the response has a session", "sticky=1", {}, {"JSESSIONID=x"}, ""},
        {"another cookie of the request", "sticky=1", {{"jsessionid", "x"}}, {}, "ZVJESSIONID=aa:c1; Path=/shop\n"},
        {"the request has a session of nowhere", "sticky=1", {{"JSESSIONID", "x"}}, {}, ""},
    };
    for (const auto &c : cases) {
        host.query = c.query;
        host.cookies = c.cookies;
        host.responseHeaders.clear();
        if (!c.setCookie.empty()) host.responseHeaders["Set-Cookie"] = c.setCookie;
        EXPECT_EQ(respond(), c.expected) << c.name;
    }
    tav.env.http.response.setCookieValue = nullptr;
    host.query = "sticky=1";
    host.cookies.clear();
    host.responseHeaders.clear();
    EXPECT_EQ(respond(), "Set-Cookie=ZVJESSIONID=aa:c1; Path=/shop\n");
    // Kept by affinity: the request has its cookie already.
    host.cookies = {{"JSESSIONID", "abc:c1"}};
    EXPECT_EQ(respond(), "");
    EXPECT_EQ(s.server->outstandingRequestCount, 0);
}

TEST_F(Response, FailingMemoryLosesNothing) {
    addServer("S1", "c1", "WEB_SERVER");
    const char *names[] = {"SID", nullptr};
    hapCreate(module, names, ":", TRUE);
    TavHttpContext *ctx = route();
    host.responseHeaders = {{"Set-Cookie", {"SID=abc; Path=/"}}, {"$ZVPT", {"p1:c1;p1:c2;p2:c3"}}, {"_ZV_HAPRT_WLMVERSION", {"1"}}};
    const Headers response = host.responseHeaders;
    failEachAllocation([&](auto) {
        host.responseHeaders = response;
        host.responseHeadersSet.clear();
        tavHttpContextPerformResponseProcessing(ctx);
        EXPECT_EQ(host.responseHeadersSet.size(), 2u) << "the private headers must not reach the client";
        for (auto &[name, data] : tav.partitions) tsPartitionIDDataDelete(data);
        tav.partitions.clear();
    });
    tavHttpContextRelease(ctx);
}

} // namespace
