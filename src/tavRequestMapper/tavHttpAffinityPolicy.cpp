#include "tavRequestMapper/tavHttpAffinityPolicy.h"

#include <string_view>

#include "tavRequestMapper/tavRequestMapper.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

constexpr const char *DEFAULT_DELIMITER = ":";

// Returns new, ends with null; null without memory.
char **copyNames(const char *const *names) noexcept {
    size_t count = 0;
    while (names && names[count]) count++;
    auto **copies = static_cast<char **>(tavMalloc((count + 1) * sizeof(char *)));
    for (size_t i = 0; copies && i < count; i++) {
        copies[i] = tavStrdup(names[i]);
        if (copies[i]) continue;
        tavFreeStrSplitArray(copies);
        return nullptr;
    }
    return copies;
}

// Takes `descriptor` and `names`. Null (both freed) without memory, and when `names` is null for want of it.
HttpAffinityPolicy *makePolicy(TavText descriptor, char **names, const char *delimiter, Boolean learnServerIDs) noexcept {
    auto *policy = tavNewRecord<HttpAffinityPolicy>();
    if (!policy) {
        if (names) tavFreeStrSplitArray(names);
        return nullptr;
    }
    policy->descriptor = descriptor.release();
    policy->cookieNames = names;
    policy->delimiter = tavStrdup(delimiter);
    policy->learnServerIDs = learnServerIDs;
    if (policy->cookieNames && policy->delimiter) return policy;
    hapDelete(policy);
    return nullptr;
}

HttpAffinityPolicy *giveTo(WebModule *webModule, HttpAffinityPolicy *policy) noexcept {
    if (policy) wmSetHttpAffinityPolicy(webModule, policy);
    return policy;
}

// Ends the text at its first ";" and returns what follows it; "" when there is none.
char *cutPart(char *text) noexcept {
    int at = tavIndexOfChar(text, ';');
    if (at < 0) return text + std::string_view(text).size();
    text[at] = '\0';
    return text + at + 1;
}

} // namespace

HttpAffinityPolicy *hapCreate(WebModule *webModule, const char *const *cookieNames, const char *delimiter,
                              Boolean learnServerIDs) noexcept {
    return giveTo(webModule, makePolicy(nullptr, copyNames(cookieNames), delimiter ? delimiter : DEFAULT_DELIMITER, learnServerIDs));
}

HttpAffinityPolicy *hapCreate1(WebModule *webModule, const char *descriptor) noexcept {
    TavText copy(tavStrdup(descriptor));
    TavText names(tavStrdup(descriptor));
    if (!copy || !names) return nullptr;
    char *delimiter = cutPart(names.get());
    char *learn = cutPart(delimiter);
    cutPart(learn);
    Boolean learns = tavStrCmpIgnoreCase(learn, "true") == 0;
    return giveTo(webModule,
                  makePolicy(std::move(copy), tavStrSplit(names.get(), ","), *delimiter ? delimiter : DEFAULT_DELIMITER, learns));
}

const char *hapGetDelimiter(const HttpAffinityPolicy *policy) noexcept { return policy ? policy->delimiter : nullptr; }
const char *const *hapGetCookieNames(const HttpAffinityPolicy *policy) noexcept { return policy ? policy->cookieNames : nullptr; }
Boolean hapGetLearnServerIDs(const HttpAffinityPolicy *policy) noexcept { return policy ? policy->learnServerIDs : FALSE; }

void hapDelete(HttpAffinityPolicy *policy) noexcept {
    if (!policy) return;
    tavFree(policy->descriptor);
    if (policy->cookieNames) tavFreeStrSplitArray(policy->cookieNames);
    tavFree(policy->delimiter);
    tavDestroyRecord(policy);
}
