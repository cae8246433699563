// A doubly linked list of untyped objects with an optional element destructor. Not locked.
//
// Ownership: a list with a destructor owns its objects; the *Remove* functions hand an object back, the *Delete*/*Clean* ones destroy it.
// An add that finds no memory destroys the object (the list owned it already) and returns null: never free it again.
// Walking: take the next element before removing the current one. `TavListRange<T>` walks with a typed cast in one place.
#ifndef TAVLIST_TAVLIST_H
#define TAVLIST_TAVLIST_H

#include <memory>

#include <tav/types.h>

typedef void (*TavDestructorFcn)(void *object);

typedef struct _TavListEle {
    void *object;
    struct _TavListEle *prev;
    struct _TavListEle *next;
} TavListEle;

typedef struct _TavList {
    TavDestructorFcn destructor; // may be null
    TavListEle *head;
    TavListEle *tail;
    int count;
} TavList;

TavList *tavListCreate(TavDestructorFcn destructor) noexcept; // returns new, null without memory
void tavListDestroy(TavList *list) noexcept;                  // null ignored
void tavListClean(TavList *list) noexcept;                    // head to tail; the list is empty before the first destructor runs
// The same with the caller's source position; they count in tavGetMemCount().
TavList *tavListCreateDbg(TavDestructorFcn destructor, const char *file, int line) noexcept;
void tavListDestroyDbg(TavList *list, const char *file, int line) noexcept;

TavListEle *tavListAddHead(TavList *list, void *object) noexcept;
TavListEle *tavListAddTail(TavList *list, void *object) noexcept;
TavListEle *tavListInsertBefore(TavList *list, TavListEle *ele, void *object) noexcept; // null element: at the tail
void *tavListRemove(TavList *list, TavListEle *ele) noexcept;                           // the object; null when the list is empty
void tavListDelete(TavList *list, TavListEle *ele) noexcept;
void *tavListRemoveHead(TavList *list) noexcept;
void *tavListRemoveTail(TavList *list) noexcept;

// For elements that are the caller's own memory: linked at the tail without fail, taken out only by tavListUnlink. The list must be empty
// of them before it is cleaned or destroyed.
void tavListLinkTail(TavList *list, TavListEle *ele, void *object) noexcept;
void tavListUnlink(TavList *list, TavListEle *ele) noexcept; // an element of this list

TavListEle *tavListFind(const TavList *list, const void *object) noexcept;  // by identity
TavListEle *tavListFindStr(const TavList *list, const char *text) noexcept; // a list of texts
void *tavListFindAndRemove(TavList *list, void *object) noexcept;           // the object, or null
Boolean tavListFindAndRemoveStr(TavList *list, const char *text) noexcept;  // frees the stored text
Boolean tavListRemoveObject(TavList *list, void *object) noexcept;          // destroys it; TRUE when found
Boolean tavListAddUnique(TavList *list, void *object) noexcept;             // by identity; TRUE when it added
Boolean tavListAddUniqueStr(TavList *list, const char *text) noexcept;      // adds a copy; TRUE when it added

int tavListGetCount(const TavList *list) noexcept; // 0 for null
Boolean tavListIsEmpty(const TavList *list) noexcept;
TavListEle *tavListGetHead(const TavList *list) noexcept;
TavListEle *tavListGetTail(const TavList *list) noexcept;
TavListEle *tavListGetNext(const TavListEle *ele) noexcept;
TavListEle *tavListGetPrev(const TavListEle *ele) noexcept;
void *tavListEleGetObject(const TavListEle *ele) noexcept;
// New null-terminated array of the objects in list order (tavFree); null without memory.
void **tavListCreateArray(const TavList *list) noexcept;

// for (T *object : TavListRange<T>(list)): the current element may be removed inside the loop, others not. Null list: no turn.
template <typename T>
class TavListRange {
public:
    class Iterator {
    public:
        explicit Iterator(TavListEle *ele) noexcept : current_(ele), next_(ele ? ele->next : nullptr) {}
        T *operator*() const noexcept { return static_cast<T *>(current_->object); }
        Iterator &operator++() noexcept {
            current_ = next_;
            next_ = current_ ? current_->next : nullptr;
            return *this;
        }
        bool operator!=(const Iterator &other) const noexcept { return current_ != other.current_; }

    private:
        TavListEle *current_;
        TavListEle *next_;
    };
    explicit TavListRange(const TavList *list) noexcept : head_(list ? list->head : nullptr) {}
    Iterator begin() const noexcept { return Iterator(head_); }
    Iterator end() const noexcept { return Iterator(nullptr); }

private:
    TavListEle *head_;
};

struct TavListDeleter {
    void operator()(TavList *list) const noexcept { tavListDestroy(list); }
};
using TavListPtr = std::unique_ptr<TavList, TavListDeleter>;

#endif
