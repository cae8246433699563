// A transport that accepts every request and answers none: for instances whose configuration comes from files.
#ifndef TAV_HOSTS_SILENTTRANSPORT_H
#define TAV_HOSTS_SILENTTRANSPORT_H

#include <tav/env.h>

namespace tavhost {

// Polls wait for an answer that never comes; what would be reported to the controller is refused.
void useSilentTransport(EnvCallBacks &env);
// Ends every accepted request of the group without a response. Call it after tavStop() and after tavDestroy(), with no callback of the
// library on the stack: it drops the last references that the requests hold. `group` is not followed.
void endSilentRequests(const TavConnectorGroup *group);

} // namespace tavhost

#endif
