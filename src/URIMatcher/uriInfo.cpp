#include "URIMatcher/uriInfo.h"

#include "URIMatcher/WebModuleForMatching.h"
#include "URIMatcher/uriTree.h"
#include "tavUtil/tavString.h"

static std::string_view targetText(const URIMatcher *matcher, const void *target) noexcept {
    switch (matcher->targetKind) {
        case UriTargetKind::WebModule:
            return tavOrNull(wmGetName(static_cast<const WebModule *>(target)));
        case UriTargetKind::Text:
            return static_cast<const char *>(target);
        default:
            return "?"; // both kinds in one matcher: nothing tells which one this is
    }
}

static void addSuffixes(const URIMatcher *matcher, const Node *node, TextSink *sink) noexcept {
    if (!node->suffixes) return;
    sink->add(" suffixes=(");
    for (const Suffix *suffix = node->suffixes; suffix; suffix = suffix->next) {
        sink->add(uriSuffixText(suffix)).add("->").add(targetText(matcher, suffix->target));
        if (suffix->next) sink->add(",");
    }
    sink->add(")");
}

static void addNode(const URIMatcher *matcher, const Node *node, int level, TextSink *sink) noexcept {
    sink->add("\n");
    for (int i = 0; i < level; ++i) sink->add("  ");
    sink->add("chars='").add(uriNodeName(node)).add("'");
    if (node->exactTarget) sink->add(" exact=").add(targetText(matcher, node->exactTarget));
    if (node->prefixTarget) sink->add(" prefix=").add(targetText(matcher, node->prefixTarget));
    addSuffixes(matcher, node, sink);
}

static void addTree(const URIMatcher *matcher, const Node *root, UriWalkStack *stack, TextSink *sink) noexcept {
    stack->pushChildren(root, 2);
    while (!stack->empty()) {
        const UriWalkStack::Frame frame = stack->pop();
        addNode(matcher, frame.node, frame.level, sink);
        stack->pushChildren(frame.node, frame.level + 1);
    }
}

void uriMatcherAddTo(const URIMatcher *matcher, TextSink *sink) noexcept {
    if (!matcher) return;
    UriWalkStack stack(matcher->arena.nodeCount);
    if (!stack.ok()) return;
    sink->add("\ngenAppTree:");
    addTree(matcher, &matcher->genAppTree, &stack, sink);
    sink->add("\nrealAppTree:");
    addTree(matcher, &matcher->realAppTree, &stack, sink);
}

void URIMatcherAddInfo(const URIMatcher *matcher, char *buffer) noexcept {
    if (!buffer) return;
    TextSink sink(buffer);
    uriMatcherAddTo(matcher, &sink);
}

size_t URIMatcherInfoLength(const URIMatcher *matcher) noexcept {
    TextSink sink;
    uriMatcherAddTo(matcher, &sink);
    return sink.length();
}
