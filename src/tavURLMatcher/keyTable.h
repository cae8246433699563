// A read-only table of texts and the positions of the groups that each selects. Only for this folder.
//
// Open addressing over 8-byte slots; text and positions of an entry lie side by side. A look-up among thousands of groups so touches one
// line of the slots and one of the entries.
#ifndef TAVURLMATCHER_KEYTABLE_H
#define TAVURLMATCHER_KEYTABLE_H

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

// Sorted positions of groups, borrowed.
struct GroupRange {
    const int *next = nullptr;
    const int *end = nullptr;
};

class KeyTable {
public:
    // Fills an empty table from a map of texts to sorted position vectors. Throws std::bad_alloc.
    template <typename Map>
    void fill(const Map &map);
    GroupRange find(std::string_view key) const noexcept; // empty when absent

private:
    static constexpr uint32_t NO_ENTRY = UINT32_MAX;
    struct Slot {
        uint32_t tag;   // upper half of the hash
        uint32_t entry; // index into words_
    };
    static uint64_t hashOf(std::string_view key) noexcept { return std::hash<std::string_view>()(key); }
    static uint32_t tagOf(uint64_t hash) noexcept { return static_cast<uint32_t>(hash >> 32); }
    void addEntry(std::string_view key, const std::vector<int> &positions);
    void addSlot(uint64_t hash, uint32_t entry) noexcept;

    std::vector<Slot> slots_; // a power of two, at most two thirds used; none for an empty table
    std::vector<int> words_;  // per entry: length of the text, number of positions, positions, text
};

template <typename Map>
void KeyTable::fill(const Map &map) {
    if (map.empty()) return;
    size_t size = 4;
    while (size * 2 < map.size() * 3) size *= 2;
    slots_.assign(size, Slot{0, NO_ENTRY});
    for (const auto &[key, positions] : map) addEntry(key, positions);
}

#endif
