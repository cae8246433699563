// The transport to the controller when the host brings none.
#ifndef TAV_TAVDEFAULTCONNECTOR_H
#define TAV_TAVDEFAULTCONNECTOR_H

#include <tav/env.h>

// Sets the four http.connector slots.
void tavDefaultConnectorInstall(EnvCallBacks &env) noexcept;

#endif
