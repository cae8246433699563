#include "decision/Decision.h"

#include "engine/Inside.h"
#include "support/Fault.h"

namespace tavctl {

namespace {

constexpr const char *BREAK_HEADER = "$ZVFO"; // set on a request whose session went to another server

json_t *endpointJson(TavTargetEndpoint *endpoint) {
    if (!endpoint) return json_null();
    json_t *json = json_object();
    json_object_set_new(json, "name", jsonText(tavTargetEndpointGetName(endpoint)));
    json_object_set_new(json, "protocol", jsonText(tavTargetEndpointGetProtocol(endpoint)));
    json_object_set_new(json, "host", jsonText(tavTargetEndpointGetHostName(endpoint)));
    json_object_set_new(json, "port", json_integer(tavTargetEndpointGetPort(endpoint)));
    json_object_set_new(json, "server", jsonText(tavTargetEndpointGetServerName(endpoint)));
    json_object_set_new(json, "cluster", jsonText(tavTargetEndpointGetClusterName(endpoint)));
    json_object_set_new(json, "cloneId", jsonText(tavTargetEndpointGetCloneId(endpoint)));
    return json;
}

} // namespace

const char *actionName(TavAction action) {
    switch (action) {
        case SUSPEND:
            return "SUSPEND";
        case REJECT:
            return "REJECT";
        case REDIRECT:
            return "REDIRECT";
        case PERMIT:
            return "PERMIT";
        default:
            return "NONE";
    }
}

RoutedRequest::RoutedRequest(Tav *tav, EnvHttpContext request)
    : request_(std::make_unique<EnvHttpContext>(std::move(request))), context_(tavHttpContextObtain(tav, request_.get())) {
    if (!context_) throw Fault("the library gives no request context");
    traceInFull(context_.get());
}

void RoutedRequest::decide() {
    trace_.clear();
    const TraceRecording recording(trace_);
    handled_ = tavHttpContextShouldHandle(context_.get());
    if (tavHttpContextGetAction(context_.get()) == PERMIT) endpoint_ = tavHttpContextGetTargetEndpoint(context_.get());
}

void RoutedRequest::retarget() {
    trace_.clear();
    const TraceRecording recording(trace_);
    endpoint_ = tavHttpContextGetTargetEndpoint(context_.get());
}

void RoutedRequest::report(TavHttpContextState state) {
    const bool failure =
        state == CONNECT_FAILURE || state == REQUEST_SEND_ERROR || state == RESPONSE_READ_ERROR || state == RESPONSE_TIMEOUT;
    tavHttpContextSetState(context_.get(), state, 0, nullptr);
    if (failure) endpoint_ = nullptr;
}

void RoutedRequest::respond() {
    request_->responseHeadersSet.clear();
    request_->responseCookiesSet.clear();
    report(RESPONSE_ARRIVED);
}

bool RoutedRequest::affinityBroken() const { return request_->headersSet.contains(BREAK_HEADER); }

Json RoutedRequest::toJson(const std::string &id) const {
    TavHttpContext *ctx = context_.get();
    json_t *json = json_object();
    const auto set = [json](const char *name, json_t *value) { json_object_set_new(json, name, value); };
    // The edition's getter turns an unhandled request into a rejection of its own: it is asked for handled requests only.
    const char *edition = handled_ == 1 ? tavHttpContextGetApplicationEditionName(ctx) : nullptr;
    const char *message = tavHttpContextGetErrorMessage(ctx);
    set("id", jsonText(id.c_str()));
    set("handled", json_integer(handled_));
    set("action", jsonText(actionName(tavHttpContextGetAction(ctx))));
    set("errorCode", json_integer(tavHttpContextGetErrorCode(ctx)));
    if (message) set("errorMsg", jsonText(message));
    set("redirectURL", jsonText(tavHttpContextGetRedirectURL(ctx)));
    set("vhostGroup", jsonText(tavHttpContextGetMatchedVHostName(ctx)));
    set("application", jsonText(tavHttpContextGetApplicationName(ctx)));
    set("edition", jsonText(edition));
    set("module", jsonText(tavHttpContextGetModuleName(ctx)));
    set("contextRoot", jsonText(tavHttpContextGetContextRoot(ctx)));
    set("endpoint", endpointJson(endpoint_));
    set("loadBalanced", json_boolean(tavHttpContextGetPerformedLoadBalancing(ctx)));
    set("affinityBroken", json_boolean(affinityBroken()));
    set("headers", request_->headersSet.toJson());
    return Json(json);
}

} // namespace tavctl
