// A web module for the matching benchmarks, which run without the floors above.
#ifndef BENCH_MATCHINGFAKES_H
#define BENCH_MATCHINGFAKES_H

#include <string>

#include "URIMatcher/WebModuleForMatching.h"

struct _WebModule {
    std::string name;
    std::string contextRoot;
};

#endif
