// The interest specification: what a connector group asks its controller for. JSON-like text in single quotes; quotes inside a condition
// are escaped. Built once per group, so later changes of the group's settings do not show in it.
#include "tav/tavControl.h"
#include "tav/tavRecord.h"
#include "tavConnector/tavConnector.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavStringBuffer.h"

namespace {

constexpr const char *kServerTypes[] = {"APPLICATION_SERVER", "DEPLOYMENT_MANAGER", "NODE_AGENT",        "TOMCAT_SERVER",
                                        "MORLE_SERVER",       "JBOSS_SERVER",       "PHP_SERVER",        "WEBLOGIC_SERVER",
                                        "APACHE_SERVER",      "QVXAPP_SERVER",      "CUSTOMHTTP_SERVER", "BRINDLE_SERVER"};
constexpr int kDeploymentManager = 1;
constexpr int kNodeAgent = 2;

constexpr const char *kApplicationProps[] = {"edition", "root", "sessionAffinityCookies", "state", nullptr};
constexpr const char *kWebModuleProps[] = {"routingEnabled", "contextRoot", "protocolMap", "fileServingEnabled", nullptr};
constexpr const char *kRuleProps[] = {"expression", "action", nullptr};
constexpr const char *kVHostProps[] = {"host", "port", nullptr};
constexpr const char *kHealthPolicyProps[] = {"type", "threshold", nullptr};
constexpr const char *kClusterProps[] = {"cloneIdSeparator",       "cookieNames",    "serverType", "learnCloneIds",
                                         "appEditionRolloutState", "ioTimeoutRetry", nullptr};
constexpr const char *kNodeProps[] = {"cp.node.maintenancemode", nullptr};
constexpr const char *kServerProps[] = {"id",
                                        "state",
                                        "weight",
                                        "server.maintenancemode",
                                        "sessionAffinityCookies",
                                        "type",
                                        "cloneSeparatorChange",
                                        "connectTimeout",
                                        "ioTimeout",
                                        "wsIoTimeout",
                                        "wsIdleTimeout",
                                        "extendedHandshake",
                                        "waitForContinue",
                                        "maxConnections",
                                        nullptr};
constexpr const char *kTransportProps[] = {"protocol", "host", "port", "isActive", "namedEndpoint", "channelPersistentTimeout", nullptr};
constexpr const char *kServerApplicationProps[] = {"state", nullptr};

constexpr const char *kRelationships[][2] = {
    {"webModule", "vHostGroup"}, {"webModule", "cluster"}, {"webModule", "server"}, {"cluster", "server"}, {"healthPolicy", "server"}};

class InterestSpec {
public:
    explicit InterestSpec(bool adminTraffic) noexcept : sb_(sbCreate(2048)), adminTraffic_(adminTraffic) {}

    // Returns new; null without memory.
    char *build() noexcept {
        if (!sb_) return nullptr;
        add("{'interests':\n{'objects':[\n");
        addCell();
        addApplications();
        addClusterAndPolicy();
        addNode();
        add("],\n");
        addRelationships();
        return sb_->failed ? nullptr : tavStrdup(sbStr(sb_.get()));
    }

private:
    void add(const char *text) noexcept { sbAdd(sb_.get(), text); }
    void open(const char *type) noexcept {
        add("{'type':'");
        add(type);
        add("',");
    }
    void props(const char *const *names, const char *prefix = "") noexcept {
        add("'props':[");
        for (const char *const *name = names; *name; name++) {
            add(name == names ? "'" : ",'");
            add(prefix);
            add(*name);
            add("'");
        }
        add("]\n");
    }
    void cond(const char *condition) noexcept {
        add("'cond':'");
        add(condition);
        add("',");
    }
    // The condition on a property that must be one of the server types.
    void condServerType(const char *property, bool deploymentManager, bool nodeAgent) noexcept {
        add("'cond':'propStr$");
        add(property);
        add(" in (");
        const char *separator = "\\'";
        for (int i = 0; i < static_cast<int>(sizeof kServerTypes / sizeof *kServerTypes); i++) {
            if ((i == kDeploymentManager && !deploymentManager) || (i == kNodeAgent && !nodeAgent)) continue;
            add(separator);
            add(kServerTypes[i]);
            add("\\'");
            separator = ",\\'";
        }
        add(")',");
    }
    void leaf(const char *type, const char *const *names) noexcept {
        open(type);
        props(names);
        add("}");
    }
    void rule(const char *parentCondition) noexcept {
        open("rule");
        cond(parentCondition);
        props(kRuleProps);
        add("}");
    }

    void addCell() noexcept {
        open("cell");
        props(tavCustomPropertyNames, "cp.");
        add("},\n");
    }
    void addApplications() noexcept {
        leaf("application", kApplicationProps);
        add(",\n");
        open("webModule");
        props(kWebModuleProps);
        add(",'objects':[\n{'type':'uri','cond':'parentType = \\'webModule\\''}]\n},\n");
        open("webRouteWorkClass");
        add("'objects':[\n");
        rule("parentType = \\'webRouteWorkClass\\'");
        add("]\n},\n");
        open("vHostGroup");
        add("'objects':[\n");
        leaf("vHost", kVHostProps);
        add("]\n},\n");
    }
    void addClusterAndPolicy() noexcept {
        leaf("healthPolicy", kHealthPolicyProps);
        add(",\n");
        open("cluster");
        condServerType("serverType", adminTraffic_, false);
        props(kClusterProps);
        add("},\n");
    }
    void addNode() noexcept {
        open("node");
        props(kNodeProps);
        add(",'objects':[\n");
        open("server");
        cond("propStr$type in (\\'WEB_SERVER\\')");
        props(tavCustomPropertyNames, "cp.sf.");
        add("},\n");
        open("server");
        condServerType("type", true, true);
        props(kServerProps);
        add(",'objects':[\n");
        addServerChildren();
        add("]\n}]\n}\n");
    }
    void addServerChildren() noexcept {
        open("transport");
        cond("propStr$protocol in (\\'http\\',\\'https\\') or name=\\'ZKAGENT_PORT\\'");
        props(kTransportProps);
        add("},\n");
        leaf("serverApplication", kServerApplicationProps);
        add(",\n");
        open("ruleSet");
        add("'objects':[\n");
        rule("parentType = \\'ruleSet\\'");
        add("]\n}\n");
    }
    void addRelationships() noexcept {
        add("'relationships': [");
        const char *separator = "";
        for (const auto &types : kRelationships) {
            add(separator);
            add("{'types':['");
            add(types[0]);
            add("','");
            add(types[1]);
            add("']}");
            separator = ",\n";
        }
        add("]}}\n");
    }

    TavStringBufferPtr sb_;
    bool adminTraffic_;
};

} // namespace

const char *tavGetInterestSpec(Tav *, TavConnectorGroup *cg) TAV_NOEXCEPT {
    if (!cg) return nullptr;
    TavControlScope control("tavGetInterestSpec");
    if (!cg->interestSpec) cg->interestSpec = InterestSpec(cg->enableAdminTraffic).build();
    return cg->interestSpec;
}
