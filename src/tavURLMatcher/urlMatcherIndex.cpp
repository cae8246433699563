// The index of one sealed URL matcher. A group stands in the lists of each thing that selects it; a request merges at most four sorted
// lists, so its cost depends on the groups that select it, not on all of them. The groups' patterns are reached without the groups' own
// records: among thousands of groups each record would be one more wait for memory.
#include "tavURLMatcher/urlMatcherIndex.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "VHostMatcher/hostKey.h"

typedef std::vector<int> Positions;

typedef std::unordered_map<std::string, Positions> PositionsByText;

struct UrlMatcherIndex {
    Positions any;
    std::unordered_map<int, Positions> byPort;
    KeyTable byHost;
    KeyTable byHostAndPort;                                // "host:port"
    std::unique_ptr<std::atomic<URIMatcher *>[]> matchers; // of each group, by position
};

// What the groups hold, collected before the tables are filled.
struct Collected {
    PositionsByText byHost;
    PositionsByText byHostAndPort;
};

static void addPosition(Positions *positions, int position) {
    if (positions->empty() || positions->back() != position) positions->push_back(position);
}

static void addFolded(PositionsByText *map, const HostKey &key, int position) {
    // A longer host than that is never asked for.
    if (key.fits()) addPosition(&(*map)[std::string(key.view())], position);
}

static void addGroup(UrlMatcherIndex *index, Collected *collected, const VHostMatcher *group, int position) {
    if (group->any) {
        addPosition(&index->any, position);
        return;
    }
    for (int i = 0; i < group->noOfports; ++i) addPosition(&index->byPort[group->ports[i]], position);
    for (int i = 0; i < group->noOfhosts; ++i) addFolded(&collected->byHost, HostKey(group->hosts[i]), position);
    for (int i = 0; i < group->noOfvhosts; ++i) {
        const VHost *vhost = group->vhostArray[i];
        addFolded(&collected->byHostAndPort, HostKey(vhost->host, vhost->port), position);
    }
}

UrlMatcherIndex *urlMatcherIndexCreate(VHostMatcher *const *groups, int count) noexcept {
    UrlMatcherIndex *index = nullptr;
    try {
        index = new UrlMatcherIndex;
        Collected collected;
        for (int i = 0; i < count; ++i) addGroup(index, &collected, groups[i], i);
        index->byHost.fill(collected.byHost);
        index->byHostAndPort.fill(collected.byHostAndPort);
        index->matchers = std::make_unique<std::atomic<URIMatcher *>[]>(static_cast<size_t>(count));
    } catch (const std::bad_alloc &) {
        delete index;
        return nullptr;
    }
    for (int i = 0; i < count; ++i) {
        index->matchers[static_cast<size_t>(i)] = getURIMatcher(groups[i]);
        groups[i]->mirror = &index->matchers[static_cast<size_t>(i)];
    }
    return index;
}

void urlMatcherIndexDelete(UrlMatcherIndex *index, VHostMatcher *const *groups, int count) noexcept {
    for (int i = 0; index && i < count; ++i) groups[i]->mirror = nullptr;
    delete index;
}

bool urlMatcherIndexCovers(const char *host) noexcept { return HostKey(host).fits(); }

static GroupRange rangeOf(const Positions &positions) noexcept { return {positions.data(), positions.data() + positions.size()}; }

GroupWalk::GroupWalk(const UrlMatcherIndex *index, const char *host, int port) noexcept : index_(index) {
    ranges_[0] = rangeOf(index->any);
    const auto byPort = index->byPort.find(port);
    if (byPort != index->byPort.end()) ranges_[1] = rangeOf(byPort->second);
    if (!host) return;
    ranges_[2] = index->byHost.find(HostKey(host).view());
    ranges_[3] = index->byHostAndPort.find(HostKey(host, port).view());
}

int GroupWalk::nextPosition() noexcept {
    int lowest = INT_MAX;
    for (const GroupRange &range : ranges_) {
        if (range.next != range.end) lowest = std::min(lowest, *range.next);
    }
    if (lowest == INT_MAX) return -1;
    for (GroupRange &range : ranges_) {
        if (range.next != range.end && *range.next == lowest) ++range.next;
    }
    return lowest;
}

const URIMatcher *GroupWalk::next() noexcept {
    const int position = nextPosition();
    if (position < 0) return nullptr;
    const URIMatcher *matcher = index_->matchers[static_cast<size_t>(position)].load(std::memory_order_acquire);
    URIMatcherPrefetch(matcher);
    return matcher;
}
