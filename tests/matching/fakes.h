// Stand-ins for the modules above this floor.
#ifndef MATCHING_FAKES_H
#define MATCHING_FAKES_H

#include <string>

#include "URIMatcher/WebModuleForMatching.h"
#include "tavInstance/tavInstance.h"
#include "tavURLMatcher/tavHttpContextForMatching.h"

struct _WebModule {
    std::string name;
    std::string contextRoot;
    bool noRoot = false; // contextRoot is null
};

struct _TavRoutingInfo {
    Boolean published = FALSE;
};

struct _TavHttpContext {
    std::string matchedVHost = "untouched";
    bool hasMatchedVHost = false;
};

#endif
