// Text and JSON forms of a group.
#include "URIMatcher/uriInfo.h"
#include "VHostMatcher/VHostMatcher.h"
#include "tavUtil/tavJson.h"

// "\n    " + label + "=(" + entries joined by "," + ")"
template <typename AddEntry>
static void addGroup(TextSink *sink, const char *label, int count, AddEntry addEntry) noexcept {
    sink->add("\n    ").add(label).add("=(");
    for (int i = 0; i < count; ++i) {
        if (i > 0) sink->add(",");
        addEntry(i);
    }
    sink->add(")");
}

static void addInfoTo(const VHostMatcher *matcher, TextSink *sink) noexcept {
    sink->add("vhost ").add(matcher->name).add("\n    any=").add(matcher->any ? "true" : "false");
    addGroup(sink, "ports", matcher->noOfports, [=](int i) { sink->add(matcher->ports[i]); });
    addGroup(sink, "hosts", matcher->noOfhosts, [=](int i) { sink->add(matcher->hosts[i]); });
    addGroup(sink, "hosts:ports", matcher->noOfvhosts, [=](int i) {
        const VHost *vhost = matcher->vhostArray[i];
        sink->add(vhost->host).add(":").add(vhost->port);
    });
    sink->add("\n");
    uriMatcherAddTo(getURIMatcher(matcher), sink);
}

void addInfoVHostMatcher(const VHostMatcher *matcher, char *buffer) noexcept {
    if (!buffer) return;
    TextSink sink(buffer);
    addInfoTo(matcher, &sink);
}

size_t vhostMatcherInfoLength(const VHostMatcher *matcher) noexcept {
    TextSink sink;
    addInfoTo(matcher, &sink);
    return sink.length();
}

// The hosts for any port and `any` are left out; readers of the dump know it so.
static json_t *pairsToJSON(const VHostMatcher *matcher) noexcept {
    JsonArray pairs;
    for (const VHost *vhost : TavListRange<const VHost>(matcher->vhostList)) pairs.add(vhostToJSON(vhost));
    for (int i = 0; i < matcher->noOfports; ++i) pairs.add(vhostPairToJSON("*", matcher->ports[i]));
    return pairs.release();
}

json_t *vhostMatcherToJSON(const VHostMatcher *matcher) noexcept {
    JsonObject group;
    group.text("VHostGroup", matcher->name);
    group.set("VHosts", pairsToJSON(matcher));
    return group.release();
}
