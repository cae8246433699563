#include "decision/Decision.h"

#include "DecisionJson.h"
#include "engine/Inside.h"
#include "support/Fault.h"

namespace tavctl {

RoutedRequest::RoutedRequest(Tav *tav, EnvHttpContext request)
    : request_(std::make_unique<EnvHttpContext>(std::move(request))), context_(tavHttpContextObtain(tav, request_.get())) {
    if (!context_) throw InternalFault("the library gives no request context");
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

Json RoutedRequest::toJson(const std::string &id) const {
    const bool broken = request_->headersSet.contains(tavhost::AFFINITY_BROKEN_HEADER);
    return Json(tavhost::decisionJson(id.c_str(), {context_.get(), handled_, endpoint_, broken}, request_->headersSet.toJson()));
}

Decision RoutedRequest::decision(const std::string &id) const {
    Json reasons(json_object());
    tavhost::addReasons(reasons.get(), context_.get());
    return {toJson(id), std::move(reasons), mappingOf(context_.get()), trace_};
}

} // namespace tavctl
