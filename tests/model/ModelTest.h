// An instance with a snapshot that is still built, and requests to it.
#ifndef MODEL_MODELTEST_H
#define MODEL_MODELTEST_H

#include <deque>
#include <memory>

#include "core/CoreFixture.h"
#include "tavHttpContext/tavHttpContext.h"
#include "tavSnapshot/tavRoutingInfo.h"

inline Text textOf(const char *text) { return text ? Text(text) : std::nullopt; }

struct Release {
    void operator()(TavHttpContext *ctx) const { tavHttpContextRelease(ctx); }
};
using RequestPtr = std::unique_ptr<TavHttpContext, Release>;

class ModelTest : public CoreFixture {
protected:
    void SetUp() override {
        CoreFixture::SetUp();
        ri = tav->routingInfo;
        ri->published = FALSE;
    }
    RequestPtr request(const char *path) {
        hosts.emplace_back().path = textOf(path);
        return RequestPtr(tavHttpContextObtain(tav, &hosts.back()));
    }

    TavRoutingInfo *ri = nullptr;
    std::deque<EnvHttpContext> hosts; // of the requests so far
};

#endif
