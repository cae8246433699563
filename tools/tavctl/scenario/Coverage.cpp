#include "scenario/Coverage.h"

#include <fmt/format.h>

#include <algorithm>

#include "check/DocumentIndex.h"
#include "support/Output.h"

namespace tavctl {

namespace {

size_t countTouched(const std::map<std::string, bool> &objects) {
    return static_cast<size_t>(std::count_if(objects.begin(), objects.end(), [](const auto &object) { return object.second; }));
}

} // namespace

void Coverage::addDocument(const json_t *stored) {
    ruleNames_ = ruleNamesOf(stored);
    forEachObject(stored, [this](const ObjectEntry &entry) {
        if (entry.operation != "add") return;
        if (entry.type == "vHostGroup") groups_.touched.emplace(entry.name, false);
        if (entry.type == "webModule") modules_.touched.emplace(entry.name, false);
        if (isRoutingRule(entry)) rules_.touched.emplace(entry.name, false);
    });
}

void Coverage::touch(Kind &kind, const std::string &name) {
    const auto found = kind.touched.find(name);
    if (found != kind.touched.end()) found->second = true;
}

void Coverage::addRequest(const RoutedRequest &request) {
    const MappingView mapping = mappingOf(request.context());
    const char *group = tavHttpContextGetMatchedVHostName(request.context());
    const char *module = tavHttpContextGetModuleName(request.context());
    touch(groups_, group ? group : "");
    touch(modules_, module ? module : mapping.module); // a request that a rule turned away has no module of its own
    if (const char *expression = tavHttpContextGetRuleExpression(request.context()))
        touch(rules_, ruleNames_.find(mapping.workClass, tavHttpContextGetRuleOrder(request.context()), expression));
}

double Coverage::percent() const {
    size_t all = 0, touched = 0;
    for (const Kind *kind : kinds()) {
        all += kind->touched.size();
        touched += countTouched(kind->touched);
    }
    return all == 0 ? 100.0 : 100.0 * static_cast<double>(touched) / static_cast<double>(all);
}

void Coverage::print(FILE *stream) const {
    for (const Kind *kind : kinds()) {
        const size_t touched = countTouched(kind->touched);
        fmt::print(stream, "coverage: {} of {} {}\n", touched, kind->touched.size(), kind->title);
        for (const auto &[name, seen] : kind->touched) {
            if (!seen) fmt::print(stream, "  {} {}\n", paint(Colour::Yellow, "not touched:", stream), name);
        }
    }
    fmt::print(stream, "coverage: {:.1f}%\n", percent());
}

} // namespace tavctl
