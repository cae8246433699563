// A shop as a configuration: two applications in two editions, every object type and every kind of rule. Each generation of it carries its
// number in the names of what serves requests, so that a request shows from which configuration each part of its decision came.
#ifndef SYSTEM_SHOP_H
#define SYSTEM_SHOP_H

#include <string>
#include <utility>
#include <vector>

#include <tav/tav.h>

#include "support/FakeHost.h"

namespace shop {

// A file of the source folder.
std::string contentOf(const std::string &path);
// Single quotes become double ones, "`" a single quote, "@" the generation.
std::string fill(const std::string &text, int generation);
// The complete document that brings `version`.
std::string document(int generation, long long version = 1);
// {"version", "restVersion", "delta"} and the operations, filled.
std::string delta(int generation, long long version, const std::string &operations);

// The paths of the shop's objects, before they are filled.
inline const std::string CELL = "/cell/c";
inline const std::string NODE = "/cell/c/node/n@";
inline const std::string S1 = NODE + "/server/s1-@";
inline const std::string S2 = NODE + "/server/s2-@";
inline const std::string CLUSTER = "/cell/c/cluster/k@";
inline const std::string OTHER_CLUSTER = "/cell/c/cluster/other@";
inline const std::string GROUP = "/cell/c/vHostGroup/v@";
inline const std::string APPLICATION = "/cell/c/application/shop-edition@";
inline const std::string WORK_CLASS = APPLICATION + "/webRouteWorkClass/Default_HTTP_WC";
inline const std::string STORE = APPLICATION + "/webModule/store@";
inline const std::string BETA = "/cell/c/application/shop-editionB@/webModule/beta@";
inline const std::string CONSOLE = "/cell/c/application/admin@/webModule/console@";

// {"name": name, "type": type, "props": {props}} for a delta; without `props` none.
std::string entry(const std::string &name, const std::string &type, const std::string &props = "");
// "op": {"objects": [entries]} and "op": {"relationships": {kind: [one pair]}}.
std::string objects(const std::string &op, const std::string &entries);
std::string pair(const std::string &op, const std::string &kind, const std::string &first, const std::string &second);

// Changes of the running shop that need no rebuild, as operations: each with what undoes it.
using Change = std::pair<std::string, std::string>;
const std::vector<Change> &changes();

// What the library decided for one request.
struct Decision {
    int handled = 0;
    TavAction action = NONE;
    int errorCode = 0;
    std::string edition, application, module, group, redirect, error;
    std::string server, cluster, host; // of the endpoint; empty without one
    int port = 0;
    std::string text() const; // all of it on one line
    // The generation that everything in it is of; -1 when nothing tells one, -2 when not all is of the same.
    int generation() const;
};

// Decides for the request and ends it, with no report of progress in between.
Decision decide(Tav *tav, EnvHttpContext &request);
// The server that is chosen for a GET of the path; empty when there is none.
std::string serverFor(Tav *tav, const std::string &path);
// Reads what `ctx` has decided, endpoint included.
Decision decisionOf(TavHttpContext *ctx);

// A request of the shop's host.
EnvHttpContext request(const std::string &path);

} // namespace shop

#endif
