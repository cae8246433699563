// The text dump of a matcher into a sink, for this module and the virtual-host group's dump.
#ifndef URIMATCHER_URIINFO_H
#define URIMATCHER_URIINFO_H

#include "URIMatcher/TextSink.h"
#include "URIMatcher/URIMatcher.h"

void uriMatcherAddTo(const URIMatcher *matcher, TextSink *sink) noexcept;

#endif
