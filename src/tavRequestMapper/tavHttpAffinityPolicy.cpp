#include "tavRequestMapper/tavHttpAffinityPolicy.h"

#include <cstring>
#include <string_view>

#include "tavRequestMapper/tavRequestMapper.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

constexpr const char *DEFAULT_DELIMITER = ":";

// A policy is one block: the record, the array of names, the texts. A request reads all of it, and there may be thousands.
class Block {
public:
    explicit Block(char *memory) noexcept : next_(memory) {}
    char *add(const char *text) noexcept {
        if (!text) return nullptr;
        const size_t size = strlen(text) + 1;
        auto *copy = static_cast<char *>(memcpy(next_, text, size));
        next_ += size;
        return copy;
    }

private:
    char *next_;
};

size_t sizeOf(const char *text) noexcept { return text ? strlen(text) + 1 : 0; }

// Returns new; null without memory. `names` ends with null (null: none).
HttpAffinityPolicy *makePolicy(const char *descriptor, const char *const *names, const char *delimiter, Boolean learnServerIDs) noexcept {
    size_t count = 0, texts = sizeOf(descriptor) + sizeOf(delimiter);
    for (; names && names[count]; count++) texts += sizeOf(names[count]);
    const size_t arrayEnd = sizeof(HttpAffinityPolicy) + (count + 1) * sizeof(char *);
    auto *memory = static_cast<char *>(tavMalloc(arrayEnd + texts));
    if (!memory) return nullptr;
    auto *policy = new (memory) HttpAffinityPolicy{};
    Block block(memory + arrayEnd);
    policy->cookieNames = reinterpret_cast<char **>(policy + 1);
    for (size_t i = 0; i < count; i++) policy->cookieNames[i] = block.add(names[i]);
    policy->delimiter = block.add(delimiter);
    policy->descriptor = block.add(descriptor);
    policy->learnServerIDs = learnServerIDs;
    return policy;
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
    return giveTo(webModule, makePolicy(nullptr, cookieNames, delimiter ? delimiter : DEFAULT_DELIMITER, learnServerIDs));
}

HttpAffinityPolicy *hapCreate1(WebModule *webModule, const char *descriptor) noexcept {
    TavText names(tavStrdup(descriptor));
    if (!names) return nullptr;
    char *delimiter = cutPart(names.get());
    char *learn = cutPart(delimiter);
    cutPart(learn);
    char **pieces = tavStrSplit(names.get(), ",");
    if (!pieces) return nullptr;
    HttpAffinityPolicy *policy =
        makePolicy(descriptor, pieces, *delimiter ? delimiter : DEFAULT_DELIMITER, tavStrCmpIgnoreCase(learn, "true") == 0);
    tavFreeStrSplitArray(pieces);
    return giveTo(webModule, policy);
}

const char *hapGetDelimiter(const HttpAffinityPolicy *policy) noexcept { return policy ? policy->delimiter : nullptr; }
const char *const *hapGetCookieNames(const HttpAffinityPolicy *policy) noexcept { return policy ? policy->cookieNames : nullptr; }
Boolean hapGetLearnServerIDs(const HttpAffinityPolicy *policy) noexcept { return policy ? policy->learnServerIDs : FALSE; }

void hapDelete(HttpAffinityPolicy *policy) noexcept { tavDestroyRecord(policy); }
