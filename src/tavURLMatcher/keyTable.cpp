#include "tavURLMatcher/keyTable.h"

#include <cstring>

void KeyTable::fill(const std::unordered_map<std::string, HostGroups> &hosts) {
    if (hosts.empty()) return;
    size_t size = 4;
    while (size * 2 < hosts.size() * 3) size *= 2;
    slots_.assign(size, Slot{0, NO_ENTRY});
    for (const auto &[host, groups] : hosts) addEntry(host, groups);
}

void KeyTable::addPositions(const Positions &positions) {
    words_.push_back(static_cast<int>(positions.size()));
    words_.insert(words_.end(), positions.begin(), positions.end());
}

void KeyTable::addEntry(std::string_view host, const HostGroups &groups) {
    const size_t entry = words_.size(), text = entry + 2, textWords = (host.size() + sizeof(int) - 1) / sizeof(int);
    words_.resize(text + textWords);
    words_[entry] = static_cast<int>(host.size());
    words_[entry + 1] = static_cast<int>(textWords);
    if (!host.empty()) memcpy(&words_[text], host.data(), host.size());
    addPositions(groups.anyPort);
    words_.push_back(static_cast<int>(groups.byPort.size()));
    for (const auto &[port, positions] : groups.byPort) {
        words_.push_back(port);
        addPositions(positions);
    }
    addSlot(hashOf(host), static_cast<uint32_t>(entry));
}

void KeyTable::addSlot(uint64_t hash, uint32_t entry) noexcept {
    const size_t mask = slots_.size() - 1;
    size_t at = hash & mask;
    while (slots_[at].entry != NO_ENTRY) at = (at + 1) & mask;
    slots_[at] = {tagOf(hash), entry};
}

KeyTable::Found KeyTable::rangesOf(const int *ranges, int port) noexcept {
    Found found;
    found.anyPort = {ranges + 1, ranges + 1 + ranges[0]};
    const int *at = found.anyPort.end;
    for (int ports = *at++; ports > 0; --ports) {
        const GroupRange range{at + 2, at + 2 + at[1]};
        if (at[0] == port) {
            found.onPort = range;
            break;
        }
        at = range.end;
    }
    return found;
}

KeyTable::Found KeyTable::find(std::string_view host, int port) const noexcept {
    if (slots_.empty()) return {};
    const uint64_t hash = hashOf(host);
    const size_t mask = slots_.size() - 1;
    for (size_t at = hash & mask; slots_[at].entry != NO_ENTRY; at = (at + 1) & mask) {
        if (slots_[at].tag != tagOf(hash)) continue;
        const int *entry = &words_[slots_[at].entry];
        if (host == std::string_view(reinterpret_cast<const char *>(entry + 2), static_cast<size_t>(entry[0])))
            return rangesOf(entry + 2 + entry[1], port);
    }
    return {};
}
