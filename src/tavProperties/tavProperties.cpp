// Property sets.
//
// A value stored with validation is the set's own copy under the setter's spelling of the name; a value stored without is the caller's
// pointer under the given name. A removal always goes by the given name. Each entry remembers which kind it is, and only copies are freed.
//
// The set's lock guards the map and the entries. The setter function runs without it, because it may reach into the rest of the library.
#include "tavProperties/tavProperties.h"

#include <utility>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

struct Entry {
    const char *value;
    bool owned; // `value` is a copy of this set
};

void entryDelete(void *object) noexcept {
    auto *entry = static_cast<Entry *>(object);
    if (entry && entry->owned) tavFree(const_cast<char *>(entry->value));
    tavFree(entry);
}

struct EntryDeleter {
    void operator()(Entry *entry) const noexcept { entryDelete(entry); }
};
using EntryPtr = std::unique_ptr<Entry, EntryDeleter>;

EntryPtr entryCreate(const char *value, bool copy) noexcept {
    TavText text(copy ? tavStrdup(value) : nullptr);
    if (copy && !text) return nullptr;
    EntryPtr entry(tavNewRecord<Entry>(copy ? text.get() : value, copy));
    if (entry) text.release();
    return entry;
}

// Puts `entry` (null: removes) and returns what must now be deleted. Takes the set's lock.
EntryPtr put(TavProperties *props, const char *name, EntryPtr entry) noexcept {
    TavLockGuard guard(props->lock, "tavPropertySet");
    return EntryPtr(static_cast<Entry *>(tavHashPut(props->map, name, entry.release())));
}

const Entry *find(const TavProperties *props, const char *name) noexcept TAV_REQUIRES(props->lock) {
    return static_cast<const Entry *>(tavHashGet(props->map, name));
}

} // namespace

TavProperties *tavPropertiesCreate(TavSetPropertyFcn setPropertyFcn, void *passback) noexcept {
    TavHashMapPtr map(tavHashMapCreate2(entryDelete));
    TavLock *lock = tavLockCreateRanked(TavLockRank::Properties);
    TavProperties *props = map && lock ? tavNewRecord<TavProperties>(map.get(), setPropertyFcn, passback, lock) : nullptr;
    if (props) {
        map.release();
    } else {
        tavLockDestroy(lock);
    }
    return props;
}

void tavPropertiesDelete(TavProperties *props) noexcept TAV_NO_ANALYSIS {
    if (!props) return;
    tavHashMapDestroy(props->map); // the last user: nobody to lock against
    tavLockDestroy(props->lock);
    tavDestroyRecord(props);
}

const char *tavPropertyGet(TavProperties *props, const char *name) noexcept {
    if (!props || !name) return nullptr;
    TavLockGuard guard(props->lock, "tavPropertyGet");
    const Entry *entry = find(props, name);
    return entry ? entry->value : nullptr;
}

char *tavPropertyGetCopy(TavProperties *props, const char *name) noexcept {
    if (!props || !name) return nullptr;
    TavLockGuard guard(props->lock, "tavPropertyGetCopy");
    const Entry *entry = find(props, name);
    return entry ? tavStrdup(entry->value) : nullptr;
}

int tavPropertySet(TavProperties *props, const char *name, const char *value, Boolean validate) noexcept {
    if (!props || !name) return -1;
    const char *known =
        props->setPropertyFcn ? props->setPropertyFcn(props->passback, const_cast<char *>(name), const_cast<char *>(value)) : nullptr;
    if ((validate != FALSE) != (known != nullptr)) return -1;
    if (!value) return put(props, name, nullptr) ? 0 : 1;

    EntryPtr entry = entryCreate(value, validate);
    if (!entry) return -1;
    const Entry *stored = entry.get();
    const EntryPtr displaced = put(props, validate ? known : name, std::move(entry));
    return displaced.get() == stored ? -1 : 0; // the map hands the new entry back when it has no memory for it
}
