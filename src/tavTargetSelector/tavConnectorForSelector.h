// What the selector asks of a connector. Implemented by the connector's own module; any thread, never under the selector lock.
#ifndef TAVTARGETSELECTOR_TAVCONNECTORFORSELECTOR_H
#define TAVTARGETSELECTOR_TAVCONNECTORFORSELECTOR_H

#include <tav/types.h>

// Counts one more holder; this one may be called under the selector lock.
void tavConnectorObtainRef(TavConnector *connector, const char *reason) noexcept;
void tavConnectorReleaseRef(TavConnector *connector, const char *reason) noexcept;
// Server application `path` became routable (add) or stopped being so.
void tavConnectorPostRoutingChange(TavConnector *connector, const char *path, Boolean add, Boolean fromDaemonSide) noexcept;

#endif
