// What the files of the document walk share.
#ifndef TAV_TAVJSONWALK_H
#define TAV_TAVJSONWALK_H

#include <cstring>

#include "tavDocument.h"
#include "tavObjects/tavObjectMap.h"
#include "tr/tr.h"

// Nesting of entries and of arrays that is followed; the threads of a host's transport may have small stacks.
inline constexpr int DOCUMENT_MAX_DEPTH = 64;

// An object entry's members; null where the member is missing or of another type.
typedef struct EntryView {
    json_t *json;
    const char *type;
    const char *name;
    json_t *props;
    json_t *objects; // an array or an object
    const ObjectHandler *handler;
} EntryView;

typedef struct StoredObject StoredObject;

// The entry that the walk is below of: a hint at the parent of what follows.
typedef struct WalkLevel {
    const char *name; // null at the top
    size_t length;
    ObjectWrapper *wrapper; // null when absent, or in a pass without handlers
    StoredObject *stored;   // likewise in a pass over the stored document
} WalkLevel;

#define DOC_DEBUG(info, ...) TR_DEBUG((info)->trCtx, (info)->trRec, __VA_ARGS__)
// Something was refused, skipped or not taken: the log line, and the observer's share of it.
#define DOC_REFUSE(info, kind, ...)                                         \
    do {                                                                    \
        DOC_DEBUG(info, __VA_ARGS__);                                       \
        if ((info)->observer) documentFinding((info), (kind), __VA_ARGS__); \
    } while (0)
// The same, but silent towards the observer when an earlier pass has refused it already.
#define DOC_REFUSE_ONCE(info, kind, ...)                                                       \
    do {                                                                                       \
        DOC_DEBUG(info, __VA_ARGS__);                                                          \
        if ((info)->observer && !(info)->merged) documentFinding((info), (kind), __VA_ARGS__); \
    } while (0)

// Puts the frame in front of the chain. Out of line, because a compiler that sees the frame's address go into `info` warns that it outlives
// its scope; the scope's end takes it back.
[[gnu::noinline]] void documentPathPush(ParseInfo *info, DocumentPath *frame) noexcept;

// One step down for the time of a scope.
class DocumentStep {
public:
    DocumentStep(ParseInfo *info, const char *key) noexcept : info_(info), frame_{info->path, key, 0} { documentPathPush(info, &frame_); }
    DocumentStep(ParseInfo *info, size_t index) noexcept : info_(info), frame_{info->path, nullptr, index} {
        documentPathPush(info, &frame_);
    }
    ~DocumentStep() noexcept { info_->path = frame_.up; }
    DocumentStep(const DocumentStep &) = delete;
    DocumentStep &operator=(const DocumentStep &) = delete;
    void setIndex(size_t index) noexcept { frame_.index = index; }

private:
    ParseInfo *info_;
    DocumentPath frame_;
};

// Hears of a replay of the stored document and tells `observer` which of the refused properties a delta has brought.
class DeltaFindings {
public:
    // All borrowed for the object's life.
    DeltaFindings(json_t *delta, json_t *stored, const DocumentObserver *observer) noexcept;
    const DocumentObserver *observer() const noexcept { return observer_ && observer_->finding ? &own_ : nullptr; }

private:
    static void hear(void *passback, const char *jsonPath, const char *kind, const char *text) noexcept;
    void tell(const char *jsonPath, const char *text) const noexcept;

    json_t *delta_;
    json_t *stored_;
    const DocumentObserver *observer_;
    DocumentObserver own_;
};

// Are uri values written without escapes in this document?
inline bool documentHasUnescapedUris(const ParseInfo *info) noexcept { return info->c->restVersion < 0; }
// The one type that may be added again.
inline bool objectHandlerIsServerApplication(const ObjectHandler *handler) noexcept {
    return std::strcmp(handler->objectType, "serverApplication") == 0;
}
// Entries above others in a "del" only spell the path.
inline bool entryHasChildren(const EntryView *entry) noexcept {
    return entry->objects && (json_is_object(entry->objects) || json_array_size(entry->objects) > 0);
}

// Applies the entry's "props" to the object.
void jsonHandleProps(const EntryView *entry, Object *object, ParseInfo *info) noexcept;
// A property's value as text for a log line: borrowed from the value or from `buffer` (of 32 bytes).
const char *jsonValueText(json_t *value, char *buffer) noexcept;

// ---- what a pass does with one entry; each returns what the entry is known by, for the level below ----
ObjectWrapper *jsonApplyEntry(const EntryView *entry, const WalkLevel *above, ParseInfo *info) noexcept; // to the snapshot

#endif
