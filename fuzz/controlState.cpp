// The daemon's control state as a worker gets it: an object replaces the one before and is what the dump shows; anything else leaves it.
#include <jansson.h>

#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "tav/tavControl.h"
#include "tavProcess/tavIpc.h"

namespace {

void receive(Tav *tav, std::string body) {
    TavControlScope control("fuzz");
    TavMessage message = {{MT_S2C_SET_CONTROL_STATE, 1, static_cast<int32_t>(body.size())}, body.empty() ? nullptr : body.data()};
    tavClientProcessHandleMessage(tav, &message);
}

} // namespace

FUZZ_TARGET(fuzz_controlState) {
    FuzzShop &shop = FuzzShop::get();
    std::string body(reinterpret_cast<const char *>(data), size);
    receive(shop.tav, "{\"before\": 1}");
    receive(shop.tav, body);
    while (!body.empty() && body.back() == '\0') body.pop_back();
    json_t *expected = json_loadb(body.data(), body.size(), 0, nullptr);
    if (!json_is_object(expected)) {
        json_decref(expected);
        expected = json_pack("{s:i}", "before", 1);
    }
    json_t *dump = tavToJSON(shop.tav);
    FUZZ_CHECK(json_equal(json_object_get(dump, "connectorGroups"), expected));
    json_decref(dump);
    json_decref(expected);
    free(tavToJSONString(shop.tav));
    TavControlScope control("fuzz");
    json_decref(shop.tav->controlState);
    shop.tav->controlState = nullptr;
    return 0;
}
