// Text and JSON forms of a group.
#include <jansson.h>

#include "URIMatcher/uriInfo.h"
#include "VHostMatcher/VHostMatcher.h"

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
static bool addPairs(const VHostMatcher *matcher, json_t *array) noexcept {
    for (const VHost *vhost : TavListRange<const VHost>(matcher->vhostList)) {
        if (json_array_append_new(array, vhostToJSON(vhost)) != 0) return false;
    }
    for (int i = 0; i < matcher->noOfports; ++i) {
        if (json_array_append_new(array, vhostPairToJSON("*", matcher->ports[i])) != 0) return false;
    }
    return true;
}

json_t *vhostMatcherToJSON(const VHostMatcher *matcher) noexcept {
    json_t *group = json_object();
    json_t *pairs = json_array();
    const bool filled = group && pairs && addPairs(matcher, pairs) &&
                        json_object_set_new(group, "VHostGroup", vhostJsonText(matcher->name)) == 0 &&
                        json_object_set(group, "VHosts", pairs) == 0;
    json_decref(pairs);
    if (filled) return group;
    json_decref(group);
    return nullptr;
}
