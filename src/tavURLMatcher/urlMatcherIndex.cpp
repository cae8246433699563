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

typedef std::pair<int, Positions> PortGroups;

struct UrlMatcherIndex {
    Positions any;
    std::vector<PortGroups> byPort; // sorted
    KeyTable byHost;
    std::unique_ptr<std::atomic<URIMatcher *>[]> matchers; // of each group, by position
};

// What the groups hold, collected before the index is filled.
struct Collected {
    std::map<int, Positions> byPort;
    std::unordered_map<std::string, HostGroups> byHost;

    // Null for a host that is longer than any that is asked for.
    HostGroups *host(const HostKey &key) { return key.fits() ? &byHost[std::string(key.view())] : nullptr; }
};

static void addPosition(Positions *positions, int position) {
    if (positions->empty() || positions->back() != position) positions->push_back(position);
}

static void addGroup(UrlMatcherIndex *index, Collected *collected, const VHostMatcher *group, int position) {
    if (group->any) {
        addPosition(&index->any, position);
        return;
    }
    for (int i = 0; i < group->noOfports; ++i) addPosition(&collected->byPort[group->ports[i]], position);
    for (int i = 0; i < group->noOfhosts; ++i) {
        if (HostGroups *host = collected->host(HostKey(group->hosts[i]))) addPosition(&host->anyPort, position);
    }
    for (int i = 0; i < group->noOfvhosts; ++i) {
        const VHost *vhost = group->vhostArray[i];
        if (HostGroups *host = collected->host(HostKey(vhost->host))) addPosition(&host->byPort[vhost->port], position);
    }
}

UrlMatcherIndex *urlMatcherIndexCreate(VHostMatcher *const *groups, int count) noexcept {
    UrlMatcherIndex *index = nullptr;
    try {
        index = new UrlMatcherIndex;
        Collected collected;
        for (int i = 0; i < count; ++i) addGroup(index, &collected, groups[i], i);
        index->byPort.assign(collected.byPort.begin(), collected.byPort.end());
        index->byHost.fill(collected.byHost);
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

static GroupRange rangeOf(const Positions &positions) noexcept { return {positions.data(), positions.data() + positions.size()}; }

static GroupRange rangeOfPort(const std::vector<PortGroups> &ports, int port) noexcept {
    const auto at = std::lower_bound(ports.begin(), ports.end(), port, [](const PortGroups &entry, int p) { return entry.first < p; });
    return at != ports.end() && at->first == port ? rangeOf(at->second) : GroupRange{};
}

GroupWalk::GroupWalk(const UrlMatcherIndex *index, const HostKey &host, int port) noexcept : index_(index) {
    ranges_[0] = rangeOf(index->any);
    ranges_[1] = rangeOfPort(index->byPort, port);
    const KeyTable::Found found = index->byHost.find(host.view(), port);
    ranges_[2] = found.anyPort;
    ranges_[3] = found.onPort;
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
