/*
 * tavlib: routes HTTP requests to back-end servers. This header brings the whole public interface.
 *
 *   types.h       shared types          env.h         the host's callbacks
 *   instance.h    the instance          properties.h  its properties
 *   connector.h   controllers           context.h     one request
 *   endpoint.h    where it goes         trace.h       trace output
 */
#ifndef TAV_TAV_H
#define TAV_TAV_H

#include "connector.h"
#include "context.h"
#include "endpoint.h"
#include "env.h"
#include "instance.h"
#include "properties.h"
#include "trace.h"
#include "types.h"

#endif
