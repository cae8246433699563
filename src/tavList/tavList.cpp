// A doubly linked list of untyped objects.
//
// Invariants: `head` and `tail` are both null or both set; `count` is the number of elements between them. A list owns its objects when it
// has a destructor, and it owns what it is given from the moment of the call: an add without memory destroys the object.
//
// Objects are destroyed only after they are unlinked, so a destructor that looks at its list never meets a dying object. Not locked.
// The list record and each element are one counted block each, whichever create was used, so every create balances every destroy.
#include "tavList/tavList.h"

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

void discard(const TavList *list, void *object) noexcept {
    if (list->destructor) list->destructor(object);
}

// Links `ele` before `next`, or at the tail for null.
void link(TavList *list, TavListEle *ele, TavListEle *next) noexcept {
    TavListEle *prev = next ? next->prev : list->tail;
    ele->prev = prev;
    ele->next = next;
    (prev ? prev->next : list->head) = ele;
    (next ? next->prev : list->tail) = ele;
    list->count++;
}

TavListEle *insert(TavList *list, TavListEle *next, void *object) noexcept {
    if (!list) return nullptr;
    auto *ele = tavNewRecord<TavListEle>(object, nullptr, nullptr);
    if (!ele) {
        discard(list, object);
        return nullptr;
    }
    link(list, ele, next);
    return ele;
}

template <typename Matches>
TavListEle *findFirst(const TavList *list, Matches matches) noexcept {
    for (TavListEle *ele = tavListGetHead(list); ele; ele = ele->next) {
        if (matches(ele->object)) return ele;
    }
    return nullptr;
}

} // namespace

TavList *tavListCreate(TavDestructorFcn destructor) noexcept { return tavNewRecord<TavList>(destructor, nullptr, nullptr, 0); }

void tavListDestroy(TavList *list) noexcept {
    tavListClean(list);
    tavFree(list);
}

TavList *tavListCreateDbg(TavDestructorFcn destructor, const char *, int) noexcept { return tavListCreate(destructor); }

void tavListDestroyDbg(TavList *list, const char *, int) noexcept { tavListDestroy(list); }

void tavListClean(TavList *list) noexcept {
    if (!list) return;
    TavListEle *ele = list->head;
    list->head = list->tail = nullptr;
    list->count = 0;
    while (ele) {
        TavListEle *next = ele->next;
        void *object = ele->object;
        tavFree(ele);
        discard(list, object);
        ele = next;
    }
}

TavListEle *tavListAddHead(TavList *list, void *object) noexcept { return insert(list, tavListGetHead(list), object); }

TavListEle *tavListAddTail(TavList *list, void *object) noexcept { return insert(list, nullptr, object); }

TavListEle *tavListInsertBefore(TavList *list, TavListEle *ele, void *object) noexcept { return insert(list, ele, object); }

void tavListLinkTail(TavList *list, TavListEle *ele, void *object) noexcept {
    ele->object = object;
    link(list, ele, nullptr);
}

void tavListUnlink(TavList *list, TavListEle *ele) noexcept {
    (ele->prev ? ele->prev->next : list->head) = ele->next;
    (ele->next ? ele->next->prev : list->tail) = ele->prev;
    list->count--;
}

void *tavListRemove(TavList *list, TavListEle *ele) noexcept {
    if (!ele || tavListIsEmpty(list)) return nullptr;
    tavListUnlink(list, ele);
    void *object = ele->object;
    tavFree(ele);
    return object;
}

void tavListDelete(TavList *list, TavListEle *ele) noexcept {
    if (!ele || tavListIsEmpty(list)) return;
    discard(list, tavListRemove(list, ele));
}

void *tavListRemoveHead(TavList *list) noexcept { return tavListRemove(list, tavListGetHead(list)); }

void *tavListRemoveTail(TavList *list) noexcept { return tavListRemove(list, tavListGetTail(list)); }

TavListEle *tavListFind(const TavList *list, const void *object) noexcept {
    return findFirst(list, [object](const void *candidate) { return candidate == object; });
}

TavListEle *tavListFindStr(const TavList *list, const char *text) noexcept {
    return findFirst(list, [text](const void *candidate) { return tavStrEquals(static_cast<const char *>(candidate), text); });
}

void *tavListFindAndRemove(TavList *list, void *object) noexcept { return tavListRemove(list, tavListFind(list, object)); }

Boolean tavListFindAndRemoveStr(TavList *list, const char *text) noexcept {
    TavListEle *ele = tavListFindStr(list, text);
    if (!ele) return FALSE;
    tavFree(tavListRemove(list, ele));
    return TRUE;
}

Boolean tavListRemoveObject(TavList *list, void *object) noexcept {
    TavListEle *ele = tavListFind(list, object);
    tavListDelete(list, ele);
    return ele != nullptr;
}

Boolean tavListAddUnique(TavList *list, void *object) noexcept {
    return !tavListFind(list, object) && tavListAddTail(list, object) != nullptr;
}

Boolean tavListAddUniqueStr(TavList *list, const char *text) noexcept {
    if (!list || !text || tavListFindStr(list, text)) return FALSE;
    TavText copy(tavStrdup(text));
    // Not through insert(): a list without a destructor would lose the copy.
    auto *ele = copy ? tavNewRecord<TavListEle>(copy.get(), nullptr, nullptr) : nullptr;
    if (!ele) return FALSE;
    copy.release();
    link(list, ele, nullptr);
    return TRUE;
}

int tavListGetCount(const TavList *list) noexcept { return list ? list->count : 0; }

Boolean tavListIsEmpty(const TavList *list) noexcept { return tavListGetCount(list) == 0; }

TavListEle *tavListGetHead(const TavList *list) noexcept { return list ? list->head : nullptr; }

TavListEle *tavListGetTail(const TavList *list) noexcept { return list ? list->tail : nullptr; }

TavListEle *tavListGetNext(const TavListEle *ele) noexcept { return ele ? ele->next : nullptr; }

TavListEle *tavListGetPrev(const TavListEle *ele) noexcept { return ele ? ele->prev : nullptr; }

void *tavListEleGetObject(const TavListEle *ele) noexcept { return ele ? ele->object : nullptr; }

void **tavListCreateArray(const TavList *list) noexcept {
    auto **array = static_cast<void **>(tavMalloc((static_cast<size_t>(tavListGetCount(list)) + 1) * sizeof(void *)));
    if (!array) return nullptr;
    void **slot = array;
    for (void *object : TavListRange<void>(list)) *slot++ = object;
    return array;
}
