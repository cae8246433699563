// The tables: what is done with each object type and each relationship kind.
//
// A component's function that takes its own record type goes into the table through `as<>`, which restores the type; everything else is
// told in tavHandlers.h. A type with `release` has objects that their owner does not free; the others belong to mapper or selector.
#include <algorithm>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "VHostMatcher/VHostMatcher.h"
#include "tavHandlers.h"
#include "tavHealthMonitor/tavHealthMonitor.h"
#include "tavRequestMapper/tavRequestMapper.h"
#include "tavTargetSelector/tavTargetSelector.h"

namespace {

// f(Record *, rest...) as a function of (Object *, rest...).
template <auto f>
struct As;
template <typename Result, typename Record, typename... Rest, Result (*f)(Record *, Rest...) noexcept>
struct As<f> {
    static Result call(Object *object, Rest... rest) noexcept { return f(static_cast<Record *>(object), rest...); }
};
template <auto f>
inline constexpr auto as = &As<f>::call;

template <auto link>
struct AsLink;
template <typename First, typename Second, Boolean (*link)(First *, Second *, Boolean) noexcept>
struct AsLink<link> {
    static Boolean call(Object *first, Object *second, Boolean add) noexcept {
        return link(static_cast<First *>(first), static_cast<Second *>(second), add);
    }
};

Boolean cellSetPropNull(Object *cell, const char *name) noexcept { return tavCellSetPropStr(cell, name, nullptr); }

constexpr ObjectHandler kObjectHandlers[] = {
    {.objectType = "cell",
     .parmType = RoutingInfo,
     .create = tavCellCreate,
     .setPropStr = tavCellSetPropStr,
     .setPropNull = cellSetPropNull,
     .delete_ = tavCellDelete,
     .release = tavCellDelete},
    {.objectType = "node",
     .parmType = RoutingInfo,
     .create = tavNodeCreate,
     .setPropStr = as<tsNodeSetPropStr>,
     .delete_ = as<tsNodeDelete>},
    {.objectType = "server",
     .parmType = ParentMandatory,
     .create = tavServerCreate,
     .setPropStr = as<tsServerSetPropStr>,
     .setPropInt = as<tsServerSetPropInt>,
     .setPropBool = as<tsServerSetPropBool>,
     .setPropNull = as<tsServerSetPropNull>,
     .init = as<tsServerInit>,
     .delete_ = as<tsServerDelete>,
     .parentTypes = "node"},
    {.objectType = "serverApplication",
     .parmType = ParentMandatory,
     .create = tavServerApplicationCreate,
     .setPropStr = as<tsServerApplicationSetPropStr>,
     .setPropInt = as<tsServerApplicationSetPropInt>,
     .setPropBool = as<tsServerApplicationSetPropBool>,
     .init = as<tsServerApplicationInit>,
     .delete_ = tavServerApplicationDelete,
     .parentTypes = "server",
     .release = tavServerApplicationRelease},
    {.objectType = "transport",
     .parmType = ParentMandatory,
     .create = tavEndPointCreate,
     .setPropStr = as<tsEndPointSetPropStr>,
     .setPropInt = as<tsEndPointSetPropInt>,
     .setPropBool = as<tsEndPointSetPropBool>,
     .init = tavEndPointInit,
     .delete_ = tavEndPointDelete,
     .parentTypes = "server"},
    {.objectType = "cluster",
     .parmType = RoutingInfo,
     .create = tavClusterCreate,
     .setPropStr = as<tsClusterSetPropStr>,
     .setPropInt = as<tsClusterSetPropInt>,
     .setPropBool = as<tsClusterSetPropBool>,
     .delete_ = as<tsClusterDelete>},
    {.objectType = "application",
     .parmType = RoutingInfo,
     .requiresRoutingInfoReset = TRUE,
     .create = tavApplicationCreate,
     .setPropStr = as<rmApplicationSetPropStr>,
     .setPropInt = as<rmApplicationSetPropInt>,
     .setPropBool = as<rmApplicationSetPropBool>,
     .setPropNull = as<rmApplicationSetPropNull>,
     .delete_ = as<rmApplicationDelete>},
    {.objectType = "webModule",
     .parmType = ParentMandatory,
     .requiresRoutingInfoReset = TRUE,
     .create = tavWebModuleCreate,
     .setPropStr = tavWebModuleSetPropStr,
     .setPropInt = tavWebModuleSetPropInt,
     .setPropBool = tavWebModuleSetPropBool,
     .init = tavWebModuleInit,
     .delete_ = tavWebModuleDelete,
     .parentTypes = "application"},
    {.objectType = "uri",
     .parmType = ParentMandatory,
     .requiresRoutingInfoReset = TRUE,
     .create = tavUriCreate,
     .parentTypes = "webModule"},
    {.objectType = "vHostGroup",
     .parmType = RoutingInfo,
     .requiresRoutingInfoReset = TRUE,
     .create = tavVHostGroupCreate,
     .init = tavVHostGroupInit,
     .delete_ = as<deleteVHostMatcher>,
     .release = tavVHostGroupRelease},
    {.objectType = "vHost",
     .parmType = ParentMandatory,
     .requiresRoutingInfoReset = TRUE,
     .create = tavVHostCreate,
     .setPropStr = tavVHostSetPropStr,
     .setPropInt = tavVHostSetPropInt,
     .setPropBool = tavVHostSetPropBool,
     .init = tavVHostInit,
     .delete_ = tavVHostDelete,
     .parentTypes = "vHostGroup",
     .release = tavVHostDelete},
    {.objectType = "webRouteWorkClass",
     .parmType = ParentMandatory,
     .requiresRoutingInfoReset = TRUE,
     .create = tavWebRouteWorkClassCreate,
     .setPropStr = tavWebRouteWorkClassSetPropStr,
     .setPropInt = tavWebRouteWorkClassSetPropInt,
     .setPropBool = tavWebRouteWorkClassSetPropBool,
     .init = tavWebRouteWorkClassInit,
     .delete_ = tavWebRouteWorkClassDelete,
     .parentTypes = "application",
     .release = tavWebRouteWorkClassRelease},
    {.objectType = "rule",
     .parmType = ParentMandatory,
     .create = tavRuleCreateFromJson,
     .setPropStr = tavRuleSetPropStr,
     .init = tavRuleInit,
     .delete_ = tavRuleDelete,
     .parentTypes = "webRouteWorkClass,ruleSet",
     .release = tavRuleRelease},
    {.objectType = "ruleSet",
     .parmType = ParentMandatory,
     .create = tavRuleSetCreateFromJSON,
     .delete_ = tavRuleSetDelete,
     .parentTypes = "server",
     .release = tavRuleSetDelete},
    {.objectType = "healthPolicy",
     .parmType = RoutingInfo,
     .create = tavHealthPolicyCreate,
     .setPropStr = as<hmHealthPolicySetPropStr>,
     .setPropInt = as<hmHealthPolicySetPropInt>,
     .delete_ = as<hmHealthPolicyDelete>,
     .release = as<hmHealthPolicyDelete>},
    {},
};

constexpr RelationshipHandler kRelationshipHandlers[] = {
    {"cluster:server", AsLink<tsLinkClusterServer>::call},
    {"cluster:webModule", tavLinkClusterToWebModule},
    {"vHostGroup:webModule", tavLinkVHostAndWebModule},
    {"server:webModule", tavLinkServerToWebModule},
    {"server:healthPolicy", AsLink<tsLinkServerToHealthPolicy>::call},
};
static_assert(std::size(kRelationshipHandlers) == RELATIONSHIP_KINDS);

} // namespace

const ObjectHandler *getObjectHandler(const char *type) noexcept {
    if (!type) return nullptr;
    const std::string_view wanted = type;
    for (const ObjectHandler *handler = kObjectHandlers; handler->objectType; handler++) {
        if (wanted == handler->objectType) return handler;
    }
    return nullptr;
}

const RelationshipHandler *getRelationshipHandler(const char *name) noexcept {
    if (!name) return nullptr;
    const auto *end = std::end(kRelationshipHandlers);
    const auto *found = std::find_if(std::begin(kRelationshipHandlers), end,
                                     [name](const RelationshipHandler &row) { return std::string_view(row.relationshipName) == name; });
    return found == end ? nullptr : found;
}

int relationshipHandlerIndex(const RelationshipHandler *handler) noexcept { return static_cast<int>(handler - kRelationshipHandlers); }
const RelationshipHandler *relationshipHandlerAt(int index) noexcept { return &kRelationshipHandlers[index]; }

Boolean objectHandlerAcceptsParent(const ObjectHandler *child, const ObjectHandler *parent) noexcept {
    std::string_view types = child->parentTypes ? child->parentTypes : "";
    while (!types.empty()) {
        const size_t comma = std::min(types.find(','), types.size());
        if (types.substr(0, comma) == parent->objectType) return TRUE;
        types.remove_prefix(std::min(comma + 1, types.size()));
    }
    return FALSE;
}
