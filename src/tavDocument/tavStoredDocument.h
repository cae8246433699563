// The index over a connector's stored document, through which deltas are merged into it.
//
// The stored document is the last complete document with every later delta merged in. Its "set" is worked into its "add" when it is taken
// in: a later delta's value must not be overridden by it. The index leads from a full name to its entry and from a pair of names to its
// relationship entry, so the cost of a merge follows the delta and not the document. A removed element leaves a null in its array; the
// array is closed up when every second element is one.
//
// The index borrows texts and entries from the document. Everything here runs with the control lock held.
#ifndef TAV_TAVSTOREDDOCUMENT_H
#define TAV_TAVSTOREDDOCUMENT_H

#include "tavDocument.h"
#include "tavJsonWalk.h"
#include "tavNodeTable.h"

struct StoredObject {
    StoredObject *chain;
    uint32_t hash;
    uint32_t position; // in `array`
    const char *name;  // the entry's
    json_t *entry;
    json_t *array; // null: the entry stands alone as its holder's "objects"
    const ObjectHandler *handler;
    StoredObject *holder;     // the entry whose "objects" it is in; null at the top
    StoredObject *firstChild; // objects that go with this one
    StoredObject *next;
    StoredObject **link; // what points to this one among its siblings; null: none
    uint32_t holes;      // nulls among its "objects"
    Boolean repeated;    // later entries of the complete document have the same name: the snapshot refuses them
};

typedef struct StoredPair {
    struct StoredPair *chain;
    uint32_t hash;
    uint32_t position;
    json_t *entry;
    int kind;
    const char *first; // the entry's texts
    const char *second;
} StoredPair;

// One end of a pair, found by its name.
typedef struct StoredPairEnd {
    struct StoredPairEnd *chain;
    uint32_t hash;
    StoredPair *pair;
} StoredPairEnd;

typedef struct StoredKind {
    json_t *array; // borrowed from the document; null until there is a pair
    uint32_t holes;
} StoredKind;

struct _TavStoredDocument {
    json_t *document; // borrowed: the connector's
    NodeTable<StoredObject> objects;
    uint32_t holes;       // nulls among the top-level objects
    Boolean orphans;      // entries are left out of the index because no document had their parent
    Boolean pairsIndexed; // on the first need
    NodeTable<StoredPair> pairs;
    NodeTable<StoredPairEnd> ends;
    StoredKind kinds[RELATIONSHIP_KINDS];
    const DocumentObserver *observer; // hears of what a replay refuses; null but for the call that set it
};

// Takes a complete document in: works its "set" into its "add" and indexes it. Borrows the document, which must outlive the
// index. Null without memory: the document may be changed, and is of no use. Returns new.
TavStoredDocument *tavStoredDocumentCreate(json_t *document, TavConnector *c, const DocumentObserver *observer) noexcept;
// "version" is kept current. FALSE without memory.
Boolean tavStoredDocumentSetVersion(json_t *document, int64_t version) noexcept;

// The walk's work in a pass over the stored document; sets `failed` in the context when memory runs out, and then the entry is as it was.
StoredObject *deltaObjects(const EntryView *entry, const WalkLevel *above, ParseInfo *info) noexcept;

// A relationship entry of the delta; `names` are those of the kind's first and second type.
void deltaRel(const RelationshipHandler *kind, json_t *entry, const char *const names[2], ParseInfo *info) noexcept;
// An object is about to go: the pairs that name it join the delta's own "del", so that the snapshots that it is applied to part them first.
// FALSE without memory: the stored document is as it was.
Boolean storedDocumentGatherPairs(ParseInfo *info, const char *name) noexcept;
// Drops every pair that names the object, after storedDocumentGatherPairs().
void storedDocumentDropPairs(TavStoredDocument *stored, const char *name) noexcept;

// Is there an object of that name, and is it of that type? In the document that is changed or in another group's: a pair may join objects
// of two controllers.
Boolean storedDocumentsHaveObject(const ParseInfo *info, const char *name, const char *type) noexcept;

#endif
