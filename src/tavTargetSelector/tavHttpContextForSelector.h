// What the selector asks of a request context, and what it keeps in one. Implemented by the context's own module; called on the
// request's thread.
#ifndef TAVTARGETSELECTOR_TAVHTTPCONTEXTFORSELECTOR_H
#define TAVTARGETSELECTOR_TAVHTTPCONTEXTFORSELECTOR_H

#include <atomic>
#include <cstddef>

#include <tav/context.h>

typedef struct _TargetServerApplication TargetServerApplication;
typedef struct _TargetServer TargetServer;
typedef struct _TargetNode TargetNode;
typedef struct _Cluster Cluster;
typedef struct _HttpAffinityPolicy HttpAffinityPolicy;
typedef struct _TsEndPointPeriod TsEndPointPeriod;

typedef struct _TsModuleHint TsModuleHint;                               // tavRequestMapper/tsModuleHint.h
TsModuleHint *tavHttpContextGetModuleHint(TavHttpContext *ctx) noexcept; // borrowed; null: none for the module name that the context has

// The records that one request holds, each counted once, exactly as they were when it was selected: a relink since then changes nothing
// here. All null: the request holds nothing. The context only stores it; the selector fills, releases and clears it.
typedef struct _TsTargetInfo {
    TargetServerApplication *sapp;
    TavTargetEndpoint *endpoint;
    TargetServer *server;
    TargetNode *node;
    Cluster *cluster;
    TsEndPointPeriod *period; // keeps what the endpoint's accessors give: texts and the host's object
} TsTargetInfo;

TsTargetInfo *tavHttpContextGetTargetInfo(TavHttpContext *ctx) noexcept; // the context's private storage; borrowed

// Is the request only tried? Then the selection counts nothing and moves no turn.
Boolean tavHttpContextIsTrial(TavHttpContext *ctx) noexcept;
// Stores both and, unless it is a trial, marks the request as outstanding. Not under the selector lock.
void tavHttpContextSetMyTargetInfo(TavHttpContext *ctx, TavTargetEndpoint *endpoint, TargetServerApplication *sapp) noexcept;
void tavHttpContextResetMyTargetInfo(TavHttpContext *ctx) noexcept;
TavTargetEndpoint *tavHttpContextGetMyTargetEndPoint(TavHttpContext *ctx) noexcept;                // borrowed
TargetServerApplication *tavHttpContextGetMyTargetServerApplication(TavHttpContext *ctx) noexcept; // borrowed

Boolean tavHttpContextSetReject(TavHttpContext *ctx, int code, const char *text) noexcept; // copies; FALSE: without the text
void tavHttpContextSetPerformedLoadBalancing(TavHttpContext *ctx, Boolean performed) noexcept;

inline constexpr size_t TS_BREAK_REASON_SIZE = 384; // bytes of a reason why affinity is broken, with its NUL
inline constexpr const char *TS_FAILED_BEFORE = "previously failed to route this request to this server";

// Called under the selector lock.
Boolean tavHttpContextIsFailedServerApp(TavHttpContext *ctx, const TargetServerApplication *sapp) noexcept; // by identity only
void tavHttpContextBreakAffinity(TavHttpContext *ctx) noexcept;                                             // tells the back end
// Stores why the session's server does not serve the request, as much as fits into TS_BREAK_REASON_SIZE; null: no reason any more.
void tavHttpContextSetAffinityBreakReason(TavHttpContext *ctx, const char *reason) noexcept;
void tavHttpContextSetAffinityPolicy(TavHttpContext *ctx, HttpAffinityPolicy *policy) noexcept; // borrows for the request

#endif
