// A request context that remembers what was set on it, and the fixtures around it: an instance with one snapshot, and with a rule language.
#ifndef MODEL_FAKEHTTPCONTEXT_H
#define MODEL_FAKEHTTPCONTEXT_H

#include <set>

#include "base/FailEachAllocation.h"
#include "support/FakeInstance.h"
#include "tavRequestMapper/tavHttpContextForMapper.h"
#include "tavTargetSelector/tavHttpContextForSelector.h"
#include "tavURLMatcher/tavHttpContextForMatching.h"

inline const char *chars(const Text &text) { return text ? text->c_str() : nullptr; }
inline Text textOf(const char *text) { return text ? Text(text) : std::nullopt; }

struct _TavHttpContext {
    Tav *tav = nullptr;
    TrContext *trContext = nullptr;
    EnvHttpContext request;
    TavAction action = NONE;
    int errorCode = 0;
    Text errorMsg, redirectURL, editionName, applicationName, moduleName, contextRoot, vHostName;
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
    std::string breakReason;
};

// An instance and one snapshot of it. Nothing may stay allocated after it.
class ModelTest : public LeakFree {
protected:
    Tav tav;
    TavRoutingInfo ri{&tav};
};

// With a rule language of the common words and the "uri" of the fake request.
class RulesTest : public ModelTest {
protected:
    RulesTest();
    ~RulesTest() override;
    TavHttpContext request(const char *path);
};

#endif
