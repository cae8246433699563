// Small services of the instance to connectors and the health monitor that belong to no other file.
#include "tavConnector/tavInstanceForConnector.h"
#include "tavHealthMonitor/tavConnectorForHealth.h"
#include "tavMultiProcess/tavMultiProcess.h"
#include "tavRecord.h"

Boolean tavIsRequestLimitPassed(Tav *tav) noexcept {
    const int limit = tav->maxRequestsPerDaemon;
    return tavIsServerProcess(tav) && limit != 0 && tav->requestsPerDaemon > limit;
}

int tavClientProcessSendHealthTrigger(Tav *tav, void *block, int len) noexcept {
    if (!tav->clientProcess) return -1;
    TavMessage message = {{MT_CLIENT_TO_SERVER_HEALTH_TRIGGER, 0, len}, block};
    return tavClientProcessSendMessage(tav->clientProcess, &message);
}
