// The applications of a snapshot with their editions, web modules and work classes, and the step that maps a request to a web module.
//
// Filled by the configuration before the snapshot is published; requests then read it without a lock. What may still change on a published
// snapshot: rules (see tavRule.h), affinity policies (see tavHttpAffinityPolicy.h), a web module's place in a virtual-host group (the group
// publishes a changed copy) and a web module's names of clusters and groups (under the mapper lock, not on the request's side).
//
// Ownership: the mapper owns roots, a root its applications, an application its web modules and work classes, a work class its rules.
// Deleting any of them deletes what it owns. Object names are full configuration paths. Setters return TRUE when they took the property.
#ifndef TAVREQUESTMAPPER_TAVREQUESTMAPPER_H
#define TAVREQUESTMAPPER_TAVREQUESTMAPPER_H

#include <atomic>

#include <tav/types.h>

#include "tavHash/tavHash.h"
#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavLock/tavLock.h"
#include "tavRequestMapper/tavHttpAffinityPolicy.h"
#include "tavRequestMapper/tsModuleHint.h"
#include "tavRule/tavRule.h"

struct json_t;

typedef struct _URLMatcher URLMatcher;
typedef struct _VHostMatcher VHostMatcher;
typedef struct _ApplicationRoot ApplicationRoot;
typedef struct _WebRouteWorkClass WebRouteWorkClass;

struct _RequestMapper {
    TavRoutingInfo *ri;                           // borrowed
    TavLock *lock;                                // rank RequestMapper
    TavHashMap *appRoots TAV_PT_GUARDED_BY(lock); // root name to ApplicationRoot
    URLMatcher *matcher;                          // owned
    TrContext *trCtx;
    TrRecord *debugCtl;
    TrRecord *debugReq;
    TrRecord *rolloutRec;
    // private
    std::atomic<HttpAffinityPolicy *> retiredPolicies; // only ever added to
};

struct _ApplicationRoot {
    RequestMapper *rm;
    char *name;            // without the edition suffix
    TavList *applications; // owned
};

struct _Application {
    RequestMapper *rm;
    char *name;
    char *simpleName;
    char *edition; // "" is the base edition
    char *sessionAffinityCookies;
    char *state;
    ApplicationRoot *root;
    TavList *webModules;          // owned
    TavList *webRouteWorkClasses; // owned
    WebRouteWorkClass *defaultWebRouteWorkClass;
    // private
    TavListEle *rootEle;     // place in the root's list
    TavList *newWorkClasses; // owned: created, not yet initialised
};

struct _WebRouteWorkClass {
    Application *application;
    char *name;
    TavRules *rules;
    // private
    TavListEle *ele; // place in one of the application's two lists
    Boolean initialised;
};

struct _WebModule {
    RequestMapper *rm;
    Application *application;
    char *name;
    char *contextRoot;
    char *sessionAffinityCookies;
    TavSSLMapMode sslMapMode;
    TavList *uris; // of texts, owned
    std::atomic<HttpAffinityPolicy *> hap;
    TavList *clusters TAV_PT_GUARDED_BY(rm->lock); // of texts, owned
    Boolean fileServingEnabled;
    int restVersion;
    // private
    TavListEle *ele; // place in the application's list
    TsModuleHint hint;
    // Where the last request found the rules and what TavRuleMatch::places tells: only to ask for cache lines.
    std::atomic<const void *> rulePlaces[1 + TavRuleMatch::PLACES];
    TavList *vHostGroups TAV_PT_GUARDED_BY(rm->lock); // names of the groups that have its patterns, owned
};

// ---- mapper ----
RequestMapper *rmCreate(TavRoutingInfo *ri) noexcept; // borrows; returns new, null without memory
void rmDelete(RequestMapper *rm) noexcept;            // with everything that remains in it; null ignored
TavRoutingInfo *rmGetRoutingInfo(const RequestMapper *rm) noexcept;
URLMatcher *rmGetURLMatcher(const RequestMapper *rm) noexcept; // returns borrowed
// Takes the group over when TRUE.
Boolean rmAddVHostMatcher(RequestMapper *rm, VHostMatcher *vhostMatcher) noexcept;
// add: puts the web module's URI patterns into the group (also while requests match against it). Removing does nothing and succeeds. Takes
// the mapper lock.
Boolean rmLinkVHostAndWebModule(VHostMatcher *vhostMatcher, WebModule *webModule, Boolean add) noexcept;
// Adds (once) or removes the cluster's name. Takes the mapper lock. FALSE: null argument or no memory.
Boolean rmLinkClusterToWebModule(const char *clusterName, WebModule *webModule, Boolean add) noexcept;
// Maps the request. 1: mapped, or decided by a rule (the context has the action); 0: not mapped (the context has the rejection); -1: host
// or path are missing, or no memory (rejected with 500). Takes no lock.
int rmMapRequest(RequestMapper *rm, TavHttpContext *ctx) noexcept;
// The edition that the application's rules choose for the request: the context's copy, borrowed from it. Null: rejected or redirected.
const char *evaluateAppEditionRoutingRules(Application *application, TavHttpContext *ctx) noexcept;
// The first application of the root with exactly this edition, or null.
Application *getApplicationByEdition(const ApplicationRoot *root, const char *edition) noexcept;
// New text before the first "?" or ";"; null for null or without memory.
char *pathOnly(const char *path) noexcept;
// Return new references; null without memory. rmToJSON gives the array of the roots and takes the mapper lock.
json_t *rmToJSON(RequestMapper *rm) noexcept;
json_t *appRootToJSON(const ApplicationRoot *root) noexcept;
json_t *wmToJSON(const WebModule *webModule) noexcept;

// ---- applications ----
// Joins (or makes) its root; takes the mapper lock. Returns new, owned by the root; null without memory.
Application *rmApplicationCreate(RequestMapper *rm, const char *name) noexcept;
Boolean rmApplicationSetPropStr(Application *application, const char *name, const char *value) noexcept;
Boolean rmApplicationSetPropInt(Application *application, const char *name, int value) noexcept;
Boolean rmApplicationSetPropBool(Application *application, const char *name, Boolean value) noexcept;
Boolean rmApplicationSetPropNull(Application *application, const char *name) noexcept;
Boolean rmApplicationSetState(Application *application, const char *state) noexcept;
Boolean rmApplicationSetEdition(Application *application, const char *edition) noexcept;
Boolean rmApplicationSetSessionAffinityCookies(Application *application, const char *cookies) noexcept;
TavRoutingInfo *rmApplicationGetRoutingInfo(const Application *application) noexcept;
const char *rmApplicationGetSimpleName(const Application *application) noexcept;   // returns borrowed
const char *appGetSessionAffinityCookies(const Application *application) noexcept; // returns borrowed; null: none
Boolean appAddWebModule(Application *application, WebModule *webModule) noexcept;  // takes the module over when TRUE
void rmApplicationDelete(Application *application) noexcept; // with its modules and work classes; takes the mapper lock; null ignored

// ---- web modules ----
WebModule *rmWebModuleCreate(Application *application, const char *name, int restVersion) noexcept; // owned by the application
Boolean rmWebModuleSetPropStr(WebModule *webModule, const char *name, const char *value) noexcept;
Boolean rmWebModuleSetPropInt(WebModule *webModule, const char *name, int value) noexcept;
Boolean rmWebModuleSetPropBool(WebModule *webModule, const char *name, Boolean value) noexcept;
Boolean rmWebModuleInit(WebModule *webModule) noexcept;                    // a negative restVersion: the one URI "*"
Boolean rmWebModuleAddUri(WebModule *webModule, const char *uri) noexcept; // copies
const char *rmWebModuleGetName(const WebModule *webModule) noexcept;
const char *rmWebModuleGetAppSimpleName(const WebModule *webModule) noexcept;
TavSSLMapMode rmWebModuleGetSSLMapMode(const WebModule *webModule) noexcept; // NullMapMode for null
void rmWebModuleSetFileServingEnabled(WebModule *webModule, Boolean enabled) noexcept;
Boolean rmWebModuleGetFileServingEnabled(const WebModule *webModule) noexcept;
void rmWebModuleDelete(WebModule *webModule) noexcept; // null ignored; its policy is retired
// Borrowed getters; null for a null module.
const char *wmGetName(const WebModule *webModule) noexcept;
const char *wmGetContextRoot(const WebModule *webModule) noexcept; // null: none
Application *wmGetApplication(const WebModule *webModule) noexcept;
HttpAffinityPolicy *wmGetHttpAffinityPolicy(const WebModule *webModule) noexcept; // until the mapper dies; any thread
TavList *wmGetClusters(const WebModule *webModule) noexcept;                      // configuration side only
const char *wmGetSessionAffinityCookies(const WebModule *webModule) noexcept;
Boolean wmSetSessionAffinityCookies(WebModule *webModule, const char *cookies) noexcept; // copies
// Gives the module a policy (null: none) and retires the previous one. Takes it over. Any thread.
void wmSetHttpAffinityPolicy(WebModule *webModule, HttpAffinityPolicy *policy) noexcept;

// ---- work classes ----
WebRouteWorkClass *rmWebRouteWorkClassCreate(Application *application, const char *name) noexcept; // owned by the application
Boolean rmWebRouteWorkClassSetPropStr(WebRouteWorkClass *workClass, const char *name, const char *value) noexcept;
Boolean rmWebRouteWorkClassSetPropInt(WebRouteWorkClass *workClass, const char *name, int value) noexcept;
Boolean rmWebRouteWorkClassSetPropBool(WebRouteWorkClass *workClass, const char *name, Boolean value) noexcept;
Boolean rmWebRouteWorkClassInit(WebRouteWorkClass *workClass) noexcept; // from here on it takes part; "...Default_HTTP_WC" is the default
void rmWebRouteWorkClassDelete(WebRouteWorkClass *workClass) noexcept;  // with its rules; null ignored

// ---- web patterns: accepted and ignored ----
void *rmWebPatternCreate(void *parent, const char *name) noexcept; // null
Boolean rmWebPatternSetPropStr(void *pattern, const char *name, const char *value) noexcept;
Boolean rmWebPatternSetPropInt(void *pattern, const char *name, int value) noexcept;
Boolean rmWebPatternSetPropBool(void *pattern, const char *name, Boolean value) noexcept;
Boolean rmWebPatternInit(void *pattern) noexcept;
void rmWebPatternDelete(void *pattern) noexcept;

// ---- edition routing rules (also on a published snapshot) ----
// A rule of the work class, not inserted: the caller's until rmEditionRoutingRuleInit returned TRUE. Null without memory.
TavRule *rmEditionRoutingRuleCreate(WebRouteWorkClass *workClass, const char *name) noexcept;
Boolean rmEditionRoutingRuleSetPropStr(TavRule *rule, const char *name, const char *value) noexcept; // any name: the action text
Boolean rmEditionRoutingRuleSetPropInt(TavRule *rule, const char *name, int value) noexcept;
Boolean rmEditionRoutingRuleSetPropBool(TavRule *rule, const char *name, Boolean value) noexcept;
Boolean rmEditionRoutingRuleInit(TavRule *rule) noexcept; // inserts it
void rmEditionRoutingRuleDelete(TavRule *rule) noexcept;  // removes and frees it; null ignored

#endif
