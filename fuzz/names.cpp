// A URL and a configuration object's name: the first line as both, the second as a separator.
#include <cstring>
#include <string_view>

#include "FuzzTarget.h"
#include "tavLibUtil/tavObjectName.h"
#include "tavUrl/tavUrl.h"
#include "tavUtil/tavString.h"

namespace {

void checkUrl(const std::string &text) {
    TavUrl *url = tavUrlCreate(text.c_str());
    if (!url) return;
    FUZZ_CHECK(std::string_view(text).starts_with(std::string(tavUrlGetProtocol(url)) + "://" + tavUrlGetHost(url)));
    FUZZ_CHECK(tavUrlGetPort(url) >= -1);
    FUZZ_CHECK(tavUrlGetPath(url)[0] == '/');
    tavUrlDelete(url);
}

void checkName(const std::string &name) {
    const TavText parent(tavGetParentName(name.c_str())), hackParent(tavHackGetParentName(name.c_str()));
    const TavText type(tavNameGetType(name.c_str()));
    const TavText value(tavNameGetValue(name.c_str(), FALSE)), asis(tavNameGetValue(name.c_str(), TRUE));
    if (parent) {
        FUZZ_CHECK(std::string_view(name).starts_with(parent.get()));
        FUZZ_CHECK(strlen(parent.get()) < name.size());
    }
    if (hackParent) FUZZ_CHECK(std::string_view(name).starts_with(hackParent.get()));
    if (parent && type && asis) FUZZ_CHECK(std::string(parent.get()) + "/" + type.get() + "/" + asis.get() == name.c_str());
    if (value && asis) FUZZ_CHECK(strlen(value.get()) <= strlen(asis.get()));
    FUZZ_CHECK(std::string_view(name).ends_with(tavPathToName(name.c_str())) || name.find('\0') != std::string::npos);
}

// The pieces and the separators between them are the text.
void checkSplit(const std::string &text, const std::string &separator) {
    char **pieces = tavStrSplit(text.c_str(), separator.c_str());
    FUZZ_CHECK(pieces);
    std::string joined;
    for (char **piece = pieces; *piece; piece++) joined += (piece == pieces ? "" : separator) + *piece;
    FUZZ_CHECK(joined == text.c_str() || joined + separator == text.c_str());
    tavFreeStrSplitArray(pieces);

    std::string copy = text.c_str();
    char *last = nullptr;
    for (char *word = tavStrtok(copy.data(), separator.c_str(), &last); word; word = tavStrtok(nullptr, separator.c_str(), &last))
        FUZZ_CHECK(*word && !strpbrk(word, separator.c_str()));
}

} // namespace

FUZZ_TARGET(fuzz_names) {
    FuzzInput input(data, size);
    const std::string text = input.line(), separator = input.line();
    const FuzzBalance balance;
    checkUrl(text);
    checkName(text);
    checkSplit(text, separator.c_str());
    tavParseInt(text.c_str());
    return 0;
}
