// A complete document. A refused one leaves everything as it was; an accepted one gives a snapshot that routes, dumps, and that a rebuild
// gives again.
#include <jansson.h>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "tav/tavControl.h"
#include "tavSnapshot/tavRoutingInfo.h"

namespace {

// A version of its own that tells nothing about the result.
bool hasNegativeVersion(const std::string &text) {
    json_t *json = json_loads(text.c_str(), 0, nullptr);
    const bool negative = json_integer_value(json_object_get(json, "version")) < 0;
    json_decref(json);
    return negative;
}

void rebuild(Tav *tav) {
    TavControlScope control("fuzz");
    FUZZ_CHECK(tavResetRoutingInfo(tav));
}

} // namespace

FUZZ_TARGET(fuzz_document) {
    FuzzShop &shop = FuzzShop::get();
    const std::string text(reinterpret_cast<const char *>(data), size), before = shop.dump();
    const long long version = shop.give(text);
    const std::string after = shop.dump();
    if (version < 0 && !hasNegativeVersion(text.c_str())) FUZZ_CHECK(after == before);
    for (const char *path : {"/shop/x.jsp", "/shop/secret", "/admin/", "/", "/a/b?c;d"}) shop::serverFor(shop.tav, path);
    free(tavToJSONString(shop.tav));
    rebuild(shop.tav);
    FUZZ_CHECK(shop.dump() == after);
    shop.reset();
    return 0;
}
