#include "tavURLMatcher/keyTable.h"

#include <cstring>

void KeyTable::addEntry(std::string_view key, const std::vector<int> &positions) {
    const size_t entry = words_.size();
    words_.push_back(static_cast<int>(key.size()));
    words_.push_back(static_cast<int>(positions.size()));
    words_.insert(words_.end(), positions.begin(), positions.end());
    const size_t text = words_.size();
    words_.resize(text + (key.size() + sizeof(int) - 1) / sizeof(int));
    if (!key.empty()) memcpy(&words_[text], key.data(), key.size());
    addSlot(hashOf(key), static_cast<uint32_t>(entry));
}

void KeyTable::addSlot(uint64_t hash, uint32_t entry) noexcept {
    const size_t mask = slots_.size() - 1;
    size_t at = hash & mask;
    while (slots_[at].entry != NO_ENTRY) at = (at + 1) & mask;
    slots_[at] = {tagOf(hash), entry};
}

GroupRange KeyTable::find(std::string_view key) const noexcept {
    if (slots_.empty()) return {};
    const uint64_t hash = hashOf(key);
    const size_t mask = slots_.size() - 1;
    for (size_t at = hash & mask; slots_[at].entry != NO_ENTRY; at = (at + 1) & mask) {
        if (slots_[at].tag != tagOf(hash)) continue;
        const int *entry = &words_[slots_[at].entry];
        const int *end = entry + 2 + entry[1];
        if (key == std::string_view(reinterpret_cast<const char *>(end), static_cast<size_t>(entry[0]))) return {entry + 2, end};
    }
    return {};
}
