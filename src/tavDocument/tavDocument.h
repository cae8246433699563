// Configuration documents: from a text to objects and relationships, and the stored document that deltas are merged into.
#ifndef TAV_TAVDOCUMENT_H
#define TAV_TAVDOCUMENT_H

#include <jansson.h>

#include <cstdint>

#include "tavConnector/tavConnector.h"
#include "tavObjects/tavObjectHandler.h"

// Hears of everything in a document that was refused, skipped or not taken. The texts are the library's own and valid during the call.
typedef struct DocumentObserver {
    // `kind` is "document", "object", "property" or "relationship"; `jsonPath` an RFC 6901 pointer into the document.
    void (*finding)(void *passback, const char *jsonPath, const char *kind, const char *text);
    void *passback;
} DocumentObserver;

// Where the walk stands: one frame per level, on the stack of the walk.
typedef struct DocumentPath {
    const struct DocumentPath *up;
    const char *key; // null: `index` of an array
    size_t index;
} DocumentPath;

typedef enum OpType { AddOp = 0, DelOp = 1, SetOp = 2 } OpType;

// One pass over a document.
typedef struct ParseInfo {
    Tav *tav;
    TavConnectorGroup *cg;
    TavConnector *c;
    TavRoutingInfo *ri; // the snapshot being changed
    TrContext *trCtx;
    TrRecord *trRec;
    OpType op;
    const char *opName;
    json_t *jsonToUpdate; // the connector's stored document, or null
    json_t *jsonToAdd;    // the piece being added
    const char *propName;
    json_t *propValue;
    Boolean callObjectHandlers;       // FALSE: only the stored document is maintained
    Boolean resetRoutingInfo;         // set by the pass when a rebuild is needed
    Boolean failed;                   // memory ran out
    TavStoredDocument *stored;        // index over jsonToUpdate; null when that is
    Boolean delta;                    // the document is a delta
    Boolean merged;                   // an earlier pass has taken the document in, and reported what it refused
    const DocumentObserver *observer; // may be null
    const DocumentPath *path;
    json_t *document; // that is walked; borrowed
    json_t *array;    // that the walk is in; null when an entry stands by itself
    Boolean indexing; // the pass takes a complete document into `stored`
} ParseInfo;

// ---- walks; all with the control lock held ----
int64_t jsonHandle(json_t *document, ParseInfo *info) noexcept;
void jsonHandleOp(json_t *opValue, ParseInfo *info) noexcept;
void jsonHandleObjects(json_t *json, const char *parentName, ParseInfo *info, int depth) noexcept;
void jsonHandleRelationships(json_t *relationships, ParseInfo *info) noexcept;
// Tells the observer, if there is one.
void documentFinding(const ParseInfo *info, const char *kind, const char *format, ...) noexcept __attribute__((format(printf, 3, 4)));

// ---- documents ----
// Parses `text` (`len` bytes); null and a log line that names `source` when it is no JSON object. Returns new.
json_t *tavParseJson(Tav *tav, const char *text, size_t len, const char *source) noexcept;
// The connector that a document names ("connectorGroupName", "connectorURL"); borrowed, null with a log line when there is none.
TavConnector *tavFindConnectorFromJson(Tav *tav, json_t *json) noexcept;
// tavHandleJsonFromRestService() with the control lock held.
int64_t tavHandleJsonFromRestService2(const char *text, TavConnector *connector) noexcept;
// The same, telling `observer` of what was not taken. Takes the control lock.
int64_t tavHandleJsonObserved(const char *text, TavConnector *connector, const DocumentObserver *observer) noexcept;
// A document from the daemon in a worker: applied to the snapshot being received, else to the current one. Control lock held.
int64_t tavHandleJsonFromDaemon(Tav *tav, json_t *document, TavConnector *connector) noexcept;
// Sends a document to every worker as `type` (a TavMessageType). Does nothing without a daemon's process object. Control lock held.
void tavBroadcastDocument(Tav *tav, json_t *document, int type) noexcept;
// Replays the connector's stored document into a snapshot under construction. FALSE when memory ran out. Control lock held.
Boolean tavReplayStoredDocument(TavRoutingInfo *ri, TavConnectorGroup *cg, TavConnector *c) noexcept;
// Frees the index over a connector's stored document. Null ignored.
void tavStoredDocumentDelete(TavStoredDocument *stored) noexcept;

#endif
