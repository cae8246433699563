// States of the instance and how the connector groups decide them.
#include <initializer_list>

#include "tavConnector/tavConnector.h"
#include "tavInternal.h"
#include "tavUtil/tavStringBuffer.h"
#include "tr/tr.h"

const char *tavState2String(TavComponentState state) TAV_NOEXCEPT {
    switch (state) {
        case STARTING:
            return "STARTING";
        case STARTED:
            return "STARTED";
        case PARTIAL_START:
            return "PARTIAL START";
        case FAILED:
            return "FAILED";
        case STOPPING:
            return "STOPPING";
        case STOPPED:
            return "STOPPED";
        default:
            return "UNKNOWN";
    }
}

namespace {

Boolean isOneOf(Tav *tav, std::initializer_list<TavComponentState> states) noexcept {
    if (!tav) return FALSE;
    const TavComponentState current = tav->state;
    for (TavComponentState state : states) {
        if (state == current) return TRUE;
    }
    return FALSE;
}

} // namespace

TavComponentState tavGetState(Tav *tav) TAV_NOEXCEPT { return tav ? tav->state.load() : INVALID; }
Boolean isStartable(Tav *tav) noexcept { return isOneOf(tav, {STOPPED, FAILED}); }
Boolean isStoppable(Tav *tav) noexcept { return isOneOf(tav, {STARTING, STARTED, PARTIAL_START}); }
Boolean isInitialized(Tav *tav) noexcept { return isOneOf(tav, {STARTED, FAILED, STOPPING, STOPPED}); }
Boolean tavIsStopped(Tav *tav) TAV_NOEXCEPT { return isOneOf(tav, {STOPPED, DELETED}); }
Boolean tavIsUsable(Tav *tav) TAV_NOEXCEPT { return isOneOf(tav, {STARTING, STARTED, PARTIAL_START}); }
Boolean tavCanRoute(Tav *tav) TAV_NOEXCEPT { return isOneOf(tav, {STARTING, STARTED, PARTIAL_START, FAILED}); }

void tavSetState(Tav *tav, TavComponentState state, const char *reason) noexcept {
    const TavComponentState old = tav->state;
    if (old == state || old == DELETED) return;
    TR_LOG(tav->trCtx, tav->controlStateChangeRec, tavState2String(old), tavState2String(state), reason);
    tav->state = state;
    if (tav->env.stateChange.tav) tav->env.stateChange.tav(tav, state, const_cast<char *>(reason));
}

namespace {

// The last group found in each class of states.
struct GroupCensus {
    TavConnectorGroup *starting = nullptr;
    TavConnectorGroup *started = nullptr;
    TavConnectorGroup *failed = nullptr;
    TavConnectorGroup *stopping = nullptr;
    TavConnectorGroup *stopped = nullptr;
    TavConnectorGroup *other = nullptr;

    TavConnectorGroup *&slot(TavComponentState state) noexcept {
        switch (state) {
            case STARTING:
                return starting;
            case STARTED:
                return started;
            case FAILED:
                return failed;
            case STOPPING:
                return stopping;
            case STOPPED:
                return stopped;
            default:
                return other;
        }
    }
};

void setStateWithGroup(Tav *tav, TavComponentState state, TavConnectorGroup *cg, const char *suffix) noexcept {
    TavStringBufferPtr reason(sbCreate(64));
    if (!reason) return tavSetState(tav, state, suffix + 1);
    sbAdd(reason.get(), tavConnectorGroupGetName(cg));
    sbAdd(reason.get(), suffix);
    tavSetState(tav, state, sbStr(reason.get()));
}

} // namespace

void tavCheckState(Tav *tav) noexcept {
    GroupCensus groups;
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) groups.slot(tavConnectorGroupGetState(cg)) = cg;
    if (groups.starting) return setStateWithGroup(tav, STARTING, groups.starting, " is starting");
    if (groups.started && !groups.stopping && !groups.stopped && !groups.failed && !groups.other)
        return tavSetState(tav, STARTED, "all connector groups are started");
    if (groups.started) return setStateWithGroup(tav, PARTIAL_START, groups.started, " is started");
    if (groups.stopping) return setStateWithGroup(tav, STOPPING, groups.stopping, " is stopping");
    if (groups.stopped && !groups.failed && !groups.other) return tavSetState(tav, STOPPED, "all connector groups are stopped");
    if (groups.stopped) return tavSetState(tav, STOPPED, "connector groups are either in stopped, invalid or failed states");
    if (groups.failed) return tavSetState(tav, FAILED, "all connector groups are in failed state");
    if (groups.other) return tavSetState(tav, STOPPED, "all connector groups are in invalid state");
    tavSetState(tav, STOPPED, "no connector groups");
}
