// What the catalogue's elements mean. The manager's `elements` holds one TrElement per open group, entry or record; what stands where it
// has no meaning (a text outside an entry, a record outside a group) finds another kind on top and is passed over or goes to the root.
#include "tavSxp/tavSxp.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tr/trPriv.h"

namespace {

enum class ElementKind { Group, Message, Record };

struct TrElement {
    ElementKind kind;
    TrGroup *group;     // Group: where children go (a group without a name stands for the one around it)
    TrMessage *message; // Message: null once another message has taken its id
};

const char *attribute(const TavList *attributes, const char *name) {
    for (const TavNVPair *pair : TavListRange<TavNVPair>(attributes)) {
        if (tavStrCmpIgnoreCase(tavNvpairGetName(pair), name) == 0) return tavNvpairGetValue(pair);
    }
    return nullptr;
}

bool isElement(const char *name, const char *expected) { return tavStrCmpIgnoreCase(name, expected) == 0; }

TrElement *topElement(const TrMgr *mgr) {
    TavListEle *head = tavListGetHead(mgr->elements);
    return head ? static_cast<TrElement *>(tavListEleGetObject(head)) : nullptr;
}

TrGroup *enclosingGroup(const TrMgr *mgr) {
    const TrElement *top = topElement(mgr);
    return top && top->kind == ElementKind::Group ? top->group : mgr->rootGroup;
}

Boolean failWithoutMemory(TrMgr *mgr) {
    mgr->outOfMemory = TRUE;
    return FALSE;
}

Boolean failContent(TrMgr *mgr, const char *format, ...) __attribute__((format(printf, 2, 3)));
Boolean failContent(TrMgr *mgr, const char *format, ...) {
    mgr->catalogueFault = TRUE;
    va_list args;
    va_start(args, format);
    trVFatal(TR_EXIT_CONTENT, format, args);
    va_end(args);
    return FALSE;
}

Boolean push(TrMgr *mgr, ElementKind kind, TrGroup *group, TrMessage *message) {
    TrElement *element = tavNewRecord<TrElement>(kind, group, message);
    return element && tavListAddHead(mgr->elements, element) ? TRUE : failWithoutMemory(mgr);
}

Boolean startGroup(TrMgr *mgr, const TavList *attributes) {
    TrGroup *parent = enclosingGroup(mgr);
    const char *name = attribute(attributes, "name");
    if (!name) return push(mgr, ElementKind::Group, parent, nullptr);
    if (parent->depth >= TR_MAX_GROUP_DEPTH) return FALSE;
    TrGroup *group = trGroupCreateChild(parent, name);
    if (!group || !tavReplaceStr(&group->description, attribute(attributes, "description"))) return failWithoutMemory(mgr);
    return push(mgr, ElementKind::Group, group, nullptr);
}

// An older message of the id is freed; an element that is still open must not lead to it.
bool storeMessage(TrMgr *mgr, TrMessage *message) {
    auto *displaced = static_cast<TrMessage *>(tavHashPut(mgr->messageMap, message->id, message));
    if (displaced != message) {
        for (TrElement *element : TavListRange<TrElement>(mgr->elements)) {
            if (element->message == displaced) element->message = nullptr;
        }
    }
    trMessageDestroy(displaced);
    return displaced != message;
}

Boolean startEntry(TrMgr *mgr, const TavList *attributes) {
    const char *name = attribute(attributes, "name");
    const char *id = attribute(attributes, "id");
    const char *level = attribute(attributes, "level");
    if (!name) return failContent(mgr, "FATAL INTERNAL ERROR: message with no 'name' defined in trace-cfg.xml\n");
    if (!id) return failContent(mgr, "FATAL INTERNAL ERROR: message '%s' defined in trace-cfg.xml\n", name);
    if (!level) return failContent(mgr, "FATAL INTERNAL ERROR: message '%s' has no 'level' field defined in trace-cfg.xml\n", name);
    if (trLevelNameToIndex(level) < 0) {
        return failContent(mgr, "FATAL INTERNAL ERROR: invalid level value of '%s' for message '%s' in trace-cfg.xml\n", level, name);
    }
    TrMessage *message = trMessageCreate(name, id, level);
    if (!message || !storeMessage(mgr, message)) return failWithoutMemory(mgr);
    return push(mgr, ElementKind::Message, nullptr, message);
}

Boolean startRecord(TrMgr *mgr, const TavList *attributes) {
    const char *name = attribute(attributes, "name");
    const char *level = attribute(attributes, "level");
    const char *defaultLevel = attribute(attributes, "defaultLevel");
    const TrMessage *message = nullptr;
    if (const char *id = attribute(attributes, "id")) {
        message = static_cast<TrMessage *>(tavHashGet(mgr->messageMap, id));
        if (!message) return failContent(mgr, "FATAL INTERNAL ERROR: message id '%s' is not defined in trace-cfg.xml\n", id);
        if (!name) name = message->name;
        if (!level) level = message->level;
    }
    if (!name) return failContent(mgr, "FATAL INTERNAL ERROR: record with no name in trace-cfg.xml\n");
    int levelIndex = trLevelNameToIndex(level);
    int defaultIndex = defaultLevel ? trLevelNameToIndex(defaultLevel) : levelIndex;
    if (defaultIndex < 0) defaultIndex = levelIndex;
    if (defaultIndex < 0) {
        return failContent(mgr, "FATAL INTERNAL ERROR: record '%s' has no level or defaultLevel in trace-cfg.xml\n", name);
    }
    TavLockGuard guard(mgr->lock, "tavHandleStartElement");
    TrRecord *record = trMakeRecord(mgr, enclosingGroup(mgr), name, levelIndex, defaultIndex, message ? message->id : "-1",
                                    message ? message->format : nullptr);
    return record ? push(mgr, ElementKind::Record, nullptr, nullptr) : failWithoutMemory(mgr);
}

Boolean endText(TrMgr *mgr, const char *text) {
    const TrElement *top = topElement(mgr);
    if (!top || !top->message) return TRUE;
    return tavReplaceStr(&top->message->format, text) ? TRUE : failWithoutMemory(mgr);
}

} // namespace

TrMessage *trMessageCreate(const char *name, const char *id, const char *level) noexcept {
    TrMessage *message = tavNewRecord<TrMessage>();
    if (!message) return nullptr;
    message->name = tavStrdup(name);
    message->id = tavStrdup(id);
    message->level = tavStrdup(level);
    if (message->name && message->id && message->level) return message;
    trMessageDestroy(message);
    return nullptr;
}

void trMessageDestroy(TrMessage *message) noexcept {
    if (!message) return;
    tavFree(message->name);
    tavFree(message->id);
    tavFree(message->format);
    tavFree(message->level);
    tavDestroyRecord(message);
}

Boolean tavHandleStartElement(const char *name, TavList *attributes, void *cbArg) noexcept {
    auto *mgr = static_cast<TrMgr *>(cbArg);
    if (isElement(name, "group")) return startGroup(mgr, attributes);
    if (isElement(name, "entry")) return startEntry(mgr, attributes);
    if (isElement(name, "record")) return startRecord(mgr, attributes);
    return TRUE;
}

Boolean tavHandleEndElement(const char *name, const char *text, void *cbArg) noexcept {
    auto *mgr = static_cast<TrMgr *>(cbArg);
    if (isElement(name, "text")) return endText(mgr, text);
    if (isElement(name, "group") || isElement(name, "entry") || isElement(name, "record")) tavFree(tavListRemoveHead(mgr->elements));
    return TRUE;
}
