// Request path to target, by servlet-style patterns.
//
// Two compressed prefix trees (generic applications, real ones) and one catch-all target. Each node may hold an exact target, a prefix
// target and suffix targets. A pattern also puts implied ones: "/a/*" serves "/a" and "/a/", "/a" serves "/a/"; their lower origin lets a
// pattern that someone wrote replace them.
//
// Invariants: below a root every key begins with "/"; sibling names begin with different bytes, so one byte chooses the only child that
// can match, and a child that matches partly ends the walk. All nodes and texts lie in the matcher's arena: nothing is freed one by one,
// names are slices of the patterns' texts, and a split only slices again.
//
// Ownership: the matcher owns name and arena; targets and snapshot are borrowed. Locks: none. One thread builds; afterwards the matcher
// is read-only. Sealing packs the arena into one block; the same walk serves both forms.
#include "URIMatcher/URIMatcher.h"

#include "URIMatcher/WebModuleForMatching.h"
#include "URIMatcher/matchTrace.h"
#include "URIMatcher/uriTree.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

URIMatcher *URIMatcherCreate(TavRoutingInfo *routingInfo, const char *name) noexcept {
    auto *matcher = tavNewRecord<URIMatcher>();
    if (!matcher) return nullptr;
    matcher->name = tavStrdup(name ? name : "");
    if (!matcher->name) {
        URIMatcherDelete(matcher);
        return nullptr;
    }
    uriNodeInit(&matcher->genAppTree, "", 0);
    uriNodeInit(&matcher->realAppTree, "", 0);
    const MatchTrace trace = matchTraceOf(routingInfo);
    matcher->ri = routingInfo;
    matcher->trCtx = trace.trCtx;
    matcher->debugCtl = trace.debugCtl;
    matcher->debugReq = trace.debugReq;
    return matcher;
}

void URIMatcherDelete(URIMatcher *matcher) noexcept {
    if (!matcher) return;
    uriArenaFree(&matcher->arena);
    if (matcher->placedSize) return; // the holder's block goes as a whole
    tavFree(matcher->name);
    tavDestroyRecord(matcher);
}

Boolean URIMatcherIsComplete(const URIMatcher *matcher) noexcept { return matcher && !matcher->failed; }

size_t URIMatcherMemorySize(const URIMatcher *matcher) noexcept {
    if (!matcher) return 0;
    const size_t record = matcher->placedSize ? matcher->placedSize : sizeof *matcher + strlen(matcher->name) + 1;
    return record + uriArenaSize(&matcher->arena);
}

static bool isValid(std::string_view pattern) noexcept {
    const size_t star = pattern.find('*');
    return !pattern.empty() && (star == std::string_view::npos || pattern.find('*', star + 1) == std::string_view::npos);
}

static Pattern cutPattern(std::string_view text, void *target) noexcept {
    const size_t star = text.find('*');
    if (star == std::string_view::npos) return {text, text, {}, -1, {target}};
    return {text, text.substr(0, star), text.substr(star + 1), static_cast<int>(star), {target}};
}

// The pattern with "/" in front if it has none, and one "/" more behind it than `pattern` shows: every implied pattern is a slice of it.
static bool copyPattern(UriArena *arena, std::string_view text, std::string_view *pattern) noexcept {
    const size_t lead = text[0] == '/' ? 0 : 1;
    char *copy = uriArenaNew<char>(arena, lead + text.size() + 1);
    if (!copy) return false;
    copy[0] = '/';
    memcpy(copy + lead, text.data(), text.size());
    copy[lead + text.size()] = '/';
    *pattern = {copy, lead + text.size()};
    return true;
}

static bool putPattern(URIMatcher *matcher, Node *root, std::string_view text, void *target, Origin origin) noexcept {
    return uriTreePut(&matcher->arena, root, cutPattern(text, target), origin);
}

// What else `pattern` (from copyPattern) serves.
static bool putImplied(URIMatcher *matcher, Node *root, std::string_view pattern, void *target) noexcept {
    const size_t length = pattern.size();
    const size_t star = pattern.find('*');
    const Origin origin = star == std::string_view::npos ? ORIGIN_AUTO_EXACT : ORIGIN_AUTO;
    auto put = [=](size_t n) { return putPattern(matcher, root, {pattern.data(), n}, target, origin); };
    if (pattern.ends_with("/*")) {
        const bool slash = put(length - 1);
        return (length <= 2 || put(length - 2)) && slash;
    }
    if (length > 1 && pattern.back() == '/') return put(length - 1);
    const std::string_view last = star == std::string_view::npos ? pattern : pattern.substr(star);
    return last.find('.') != std::string_view::npos || put(length + 1);
}

static bool putPatternInternal(URIMatcher *matcher, Node *root, std::string_view text, void *target) noexcept {
    std::string_view pattern;
    if (!copyPattern(&matcher->arena, text, &pattern)) return false;
    const bool implied = putImplied(matcher, root, pattern, target);
    return putPattern(matcher, root, pattern, target, ORIGIN_USER) && implied;
}

static void noteTargetKind(URIMatcher *matcher, Boolean targetIsWebModule) noexcept {
    const UriTargetKind kind = targetIsWebModule ? UriTargetKind::WebModule : UriTargetKind::Text;
    if (matcher->targetKind == UriTargetKind::None) matcher->targetKind = kind;
    if (matcher->targetKind != kind) matcher->targetKind = UriTargetKind::Mixed;
}

int URIMatcherPut(URIMatcher *matcher, const char *pattern, void *target, Boolean targetIsWebModule) noexcept {
    if (!matcher) return 0;
    const std::string_view text = tavView(pattern);
    if (!target || !isValid(text)) {
        TR_DEBUG(matcher->trCtx, matcher->debugCtl, "put: Invalid pattern String:%s has been ignored.\n", tavOrNull(pattern));
        return 0;
    }
    const char *name = targetIsWebModule ? wmGetName(static_cast<WebModule *>(target)) : static_cast<const char *>(target);
    const bool generic = targetIsWebModule ? tavIndexOfString(name, "/GenericApplication") >= 0 : tavView(name).starts_with("genApp");
    // Not at the very beginning: a name that begins with the text is no default.
    const bool isDefault = tavIndexOfString(name, "Default_default_host_HTTP_WC") > 0;
    noteTargetKind(matcher, targetIsWebModule);
    if (generic && isDefault && text == "/*") {
        matcher->catchAllTarget = target;
        return 0;
    }
    matcher->sealed = FALSE;
    if (!putPatternInternal(matcher, generic ? &matcher->genAppTree : &matcher->realAppTree, text, target)) matcher->failed = TRUE;
    return 0;
}

void *URIMatcherMatch(const URIMatcher *matcher, const char *path, TavHttpContext *requestContext) noexcept {
    if (!matcher) return nullptr;
    const UriPath uriPath(path);
    void *target = matchPattern(&matcher->genAppTree, uriPath);
    if (!target) target = matchPattern(&matcher->realAppTree, uriPath);
    if (!target) target = matcher->catchAllTarget;
    TrContext *trCtx;
    TrRecord *record;
    matchTraceFor(matcher, requestContext, &trCtx, &record);
    TR_DEBUG(trCtx, record, "URIMatcherMatch: %s path=%s %s\n", matcher->name, tavOrNull(path), target ? "matches" : "does not match");
    return target;
}

char *URIMatcherMakePattern(const char *contextRoot, const char *uri) noexcept {
    std::string_view root = tavView(contextRoot);
    std::string_view rest = tavView(uri);
    if (contextRoot && tavStrCmpIgnoreCase(contextRoot, "null") == 0) root = "";
    if (root.ends_with('/')) {
        if (rest.starts_with('/')) rest.remove_prefix(1);
        root.remove_suffix(1);
    } else if (rest.starts_with('/')) {
        rest.remove_prefix(1);
    }
    auto *pattern = static_cast<char *>(tavMalloc(root.size() + rest.size() + 2));
    if (!pattern) return nullptr;
    root.copy(pattern, root.size());
    pattern[root.size()] = '/';
    rest.copy(pattern + root.size() + 1, rest.size());
    return pattern;
}
