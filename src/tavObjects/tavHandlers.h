// The functions that the object and relationship tables name, where a component's own function does not fit as it stands.
#ifndef TAV_TAVHANDLERS_H
#define TAV_TAVHANDLERS_H

#include "tavObjectHandler.h"

// ---- topology ----
Object *tavCellCreate(void *snapshot, const char *name, TavConnector *connector) noexcept;
Boolean tavCellSetPropStr(Object *cell, const char *name, const char *value) noexcept; // value null: the property was removed
void tavCellDelete(Object *cell) noexcept;                                             // null ignored
Object *tavNodeCreate(void *snapshot, const char *name, TavConnector *connector) noexcept;
Object *tavServerCreate(void *node, const char *name, TavConnector *connector) noexcept;
Object *tavServerApplicationCreate(void *server, const char *name, TavConnector *connector) noexcept; // the handle
void tavServerApplicationDelete(Object *handle) noexcept;
void tavServerApplicationRelease(Object *handle) noexcept; // the record stays with its server
Object *tavEndPointCreate(void *server, const char *name, TavConnector *connector) noexcept;
Boolean tavEndPointInit(Object *endpoint) noexcept;
void tavEndPointDelete(Object *endpoint) noexcept;
Object *tavClusterCreate(void *snapshot, const char *name, TavConnector *connector) noexcept;
Object *tavHealthPolicyCreate(void *snapshot, const char *name, TavConnector *connector) noexcept;

// ---- applications and virtual hosts ----
Object *tavApplicationCreate(void *snapshot, const char *name, TavConnector *connector) noexcept;
Object *tavWebModuleCreate(void *application, const char *name, TavConnector *connector) noexcept;
Boolean tavWebModuleSetPropStr(Object *webModule, const char *name, const char *value) noexcept;
Boolean tavWebModuleSetPropInt(Object *webModule, const char *name, int value) noexcept;
Boolean tavWebModuleSetPropBool(Object *webModule, const char *name, tav_boolean value) noexcept;
Boolean tavWebModuleInit(Object *webModule) noexcept;
void tavWebModuleDelete(Object *webModule) noexcept;
Object *tavUriCreate(void *webModule, const char *name, TavConnector *connector) noexcept; // the web module
Object *tavVHostGroupCreate(void *snapshot, const char *name, TavConnector *connector) noexcept;
Boolean tavVHostGroupInit(Object *group) noexcept;
void tavVHostGroupRelease(Object *group) noexcept; // frees a group that never joined the mapper
Object *tavVHostCreate(void *group, const char *name, TavConnector *connector) noexcept;
Boolean tavVHostSetPropStr(Object *vHost, const char *name, const char *value) noexcept;
Boolean tavVHostSetPropInt(Object *vHost, const char *name, int value) noexcept;
Boolean tavVHostSetPropBool(Object *vHost, const char *name, tav_boolean value) noexcept; // takes nothing
Boolean tavVHostInit(Object *vHost) noexcept;
void tavVHostDelete(Object *vHost) noexcept;

// ---- rules; the object of a work class and of a rule set is a TavRuleParentWrapper ----
Object *tavWebRouteWorkClassCreate(void *application, const char *name, TavConnector *connector) noexcept;
Boolean tavWebRouteWorkClassSetPropStr(Object *workClass, const char *name, const char *value) noexcept;
Boolean tavWebRouteWorkClassSetPropInt(Object *workClass, const char *name, int value) noexcept;
Boolean tavWebRouteWorkClassSetPropBool(Object *workClass, const char *name, tav_boolean value) noexcept;
Boolean tavWebRouteWorkClassInit(Object *workClass) noexcept;
void tavWebRouteWorkClassDelete(Object *workClass) noexcept;
void tavWebRouteWorkClassRelease(Object *workClass) noexcept; // the work class stays with its application
Object *tavRuleSetCreateFromJSON(void *server, const char *name, TavConnector *connector) noexcept;
void tavRuleSetDelete(Object *ruleSet) noexcept; // with its rules
Object *tavRuleCreateFromJson(void *parent, const char *name, TavConnector *connector) noexcept;
Boolean tavRuleSetPropStr(Object *rule, const char *name, const char *value) noexcept;
Boolean tavRuleInit(Object *rule) noexcept;
void tavRuleDelete(Object *rule) noexcept;
void tavRuleRelease(Object *rule) noexcept; // an inserted edition rule stays with its work class

// ---- links ----
Boolean tavLinkClusterToWebModule(Object *cluster, Object *webModule, Boolean add) noexcept;
Boolean tavLinkVHostAndWebModule(Object *group, Object *webModule, Boolean add) noexcept;
Boolean tavLinkServerToWebModule(Object *server, Object *webModule, Boolean add) noexcept;

#endif
