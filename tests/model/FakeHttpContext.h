// The world around this floor, as records: an instance, a snapshot, a host request and a request context that remembers what was set on it.
#ifndef MODEL_FAKEHTTPCONTEXT_H
#define MODEL_FAKEHTTPCONTEXT_H

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tavInstance/tavInstance.h"
#include "tavRequestMapper/tavHttpContextForMapper.h"
#include "tavTargetSelector/tavHttpContextForSelector.h"
#include "tavURLMatcher/tavHttpContextForMatching.h"
#include "tr/tr.h"

// A text of the host or of the context; nothing is the null text.
using FakeText = std::optional<std::string>;
inline const char *fakeChars(const FakeText &text) { return text ? text->c_str() : nullptr; }
inline FakeText fakeText(const char *text) { return text ? FakeText(text) : std::nullopt; }

struct EnvHttpContext {
    FakeText host = "shop.example";
    int port = 80;
    FakeText path = "/";
    FakeText protocol = "http";
    std::map<std::string, std::string> headers;
    std::map<std::string, std::string> cookies;
    std::string lent; // the one buffer that every text getter fills
};

struct _Tav {
    TrMgr *mgr = nullptr;
    EnvCallBacks env{};
    Language *httpLanguage = nullptr;
    TavSSLMapMode sslMapMode = NullMapMode;
    std::map<std::string, std::string> properties;
};

struct _TavRoutingInfo {
    Tav *tav = nullptr;
    Boolean published = FALSE;
    RequestMapper *requestMapper = nullptr;
    TargetSelector *targetSelector = nullptr;
};

struct _TavHttpContext {
    Tav *tav = nullptr;
    TrContext *trContext = nullptr;
    EnvHttpContext request;
    TavAction action = NONE;
    int errorCode = 0;
    FakeText errorMsg, redirectURL, editionName, applicationName, moduleName, contextRoot, vHostName;
    TsModuleHint *moduleHint = nullptr;
    Boolean sticky = FALSE;
    TavSSLMapMode sslMapMode = NullMapMode;
    HttpAffinityPolicy *policy = nullptr;
    TavTargetEndpoint *endpoint = nullptr;
    TargetServerApplication *sapp = nullptr;
    TsTargetInfo targetInfo{};
    std::set<const TargetServerApplication *> failedServerApps;
    int responseTimeouts = 0;
    Boolean performedLoadBalancing = FALSE;
    int brokenAffinity = 0;
    int copies = 0;     // texts copied so far
    int copyFails = -1; // the copy that finds no memory; -1: none
};

// What the trace hook got since the last clear.
extern std::vector<std::string> fakeTrace;

// An instance with the real trace catalogue at the given specification, and one snapshot of it. Nothing may stay allocated after it.
class ModelTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Replaces the trace specification.
    void traceAt(const char *spec);
    bool traced(const std::string &text) const; // a whole line of fakeTrace

    Tav tav;
    TavRoutingInfo ri;

private:
    int before_ = 0;
};

#endif
