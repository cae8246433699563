// A read-only table of hosts and the positions of the groups that each selects, on any port and on one. Only for this folder.
//
// Open addressing over 8-byte slots; text, ports and positions of an entry lie side by side. A look-up among thousands of groups so touches
// one line of the slots and one of the entries.
#ifndef TAVURLMATCHER_KEYTABLE_H
#define TAVURLMATCHER_KEYTABLE_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

typedef std::vector<int> Positions; // of groups, sorted

// Borrowed.
struct GroupRange {
    const int *next = nullptr;
    const int *end = nullptr;
};

// What one host selects.
struct HostGroups {
    Positions anyPort;
    std::map<int, Positions> byPort;
};

class KeyTable {
public:
    struct Found { // both empty when the host is absent
        GroupRange anyPort;
        GroupRange onPort;
    };
    // Fills an empty table. Throws std::bad_alloc.
    void fill(const std::unordered_map<std::string, HostGroups> &hosts);
    Found find(std::string_view host, int port) const noexcept;

private:
    static constexpr uint32_t NO_ENTRY = UINT32_MAX;
    struct Slot {
        uint32_t tag;   // upper half of the hash
        uint32_t entry; // index into words_
    };
    static uint64_t hashOf(std::string_view key) noexcept { return std::hash<std::string_view>()(key); }
    static uint32_t tagOf(uint64_t hash) noexcept { return static_cast<uint32_t>(hash >> 32); }
    void addEntry(std::string_view host, const HostGroups &groups);
    void addPositions(const Positions &positions);
    void addSlot(uint64_t hash, uint32_t entry) noexcept;
    static Found rangesOf(const int *ranges, int port) noexcept;

    std::vector<Slot> slots_; // a power of two, at most two thirds used; none for an empty table
    // Per entry: length of the text, length of the text in words, text; number of positions on any port, those; number of ports; per port
    // its number, the number of positions on it, those.
    std::vector<int> words_;
};

#endif
