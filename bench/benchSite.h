// A site for the benchmarks: one instance with a host of fixed answers and a configuration document of any size.
#ifndef BENCH_BENCHSITE_H
#define BENCH_BENCHSITE_H

#include <string>

#include <tav/tav.h>

struct SiteSize {
    int applications;
    int clusters; // applications are spread over them
    int serversPerCluster;
};

// Every application app<i>: one web module under /app<i> in the group that takes any host on port 80, five edition rules of which the last
// permits, linked to cluster i % clusters and its servers. Server s<c>x<k> has clone id c<c>x<k> and one http transport.
std::string siteDocument(const SiteSize &size);

// The host's request: every getter answers with the field as it stands.
struct EnvHttpContext {
    char *path;
    char *cookie; // value of JSESSIONID, or null
    int headersSet = 0;
};

class BenchSite {
public:
    // `beforeStart` gets the instance with its group. An empty document is not given.
    explicit BenchSite(const std::string &document, void (*beforeStart)(Tav *tav) = nullptr);
    ~BenchSite();
    BenchSite(const BenchSite &) = delete;
    BenchSite &operator=(const BenchSite &) = delete;
    long long give(const std::string &document) { return tavHandleJsonFromRestService(document.c_str(), connector); }

    Tav *tav;
    TavConnector *connector;
};

// Obtain, should-handle, endpoint, the state reports of a plain request, release. False when no endpoint came.
bool driveRequest(Tav *tav, EnvHttpContext *request);

#endif
