// The instance's connector groups.
#include "tavConnector/tavConnector.h"
#include "tavControl.h"
#include "tavInternal.h"
#include "tavUtil/tavString.h"
#include "tr/tr.h"

void tavAddConnectorGroup(Tav *tav, TavConnectorGroup *cg) TAV_NOEXCEPT {
    if (!tav || !cg) return;
    TavControlScope control("tavAddConnectorGroup");
    TR_DEBUG(tav->trCtx, tav->processRec, "tavAddConnectorGroup '%s'\n", tavOrNull(tavConnectorGroupGetName(cg)));
    // A new group adds itself; a host that adds it again must not make the instance delete it twice.
    if (tavListFind(tav->connectorGroupList, cg)) return;
    // A failed add destroys the group: the list owned it already. So does one that comes too late.
    if (tav->destroying) return tavConnectorGroupDelete(cg);
    tavListAddTail(tav->connectorGroupList, cg);
}

void tavRemoveConnectorGroup(Tav *tav, TavConnectorGroup *cg) TAV_NOEXCEPT {
    if (!tav || !cg) return;
    TavControlScope control("tavRemoveConnectorGroup");
    TR_DEBUG(tav->trCtx, tav->processRec, "tavRemoveConnectorGroup '%s'\n", tavOrNull(tavConnectorGroupGetName(cg)));
    tavListFindAndRemove(tav->connectorGroupList, cg);
}

TavConnectorGroup *tavFindConnectorGroup(Tav *tav, const char *name) TAV_NOEXCEPT {
    if (!tav || !name) return nullptr;
    TavControlScope control("tavFindConnectorGroup");
    for (TavConnectorGroup *cg : TavListRange<TavConnectorGroup>(tav->connectorGroupList)) {
        if (tavStrEquals(tavConnectorGroupGetName(cg), name)) return cg;
    }
    return nullptr;
}
