// A block of bytes as a health trigger; and four texts that make one, which must come out of it as they went in.
#include "FuzzShop.h"
#include "FuzzTarget.h"
#include "support/Ipc.h"
#include "tav/tavControl.h"
#include "tavUtil/tavMemory.h"

FUZZ_TARGET(fuzz_healthBlock) {
    FuzzShop &shop = FuzzShop::get();
    FuzzInput input(data, size);
    const bool raw = input.pick(2);
    std::string block = input.rest();
    if (!raw) {
        FuzzInput lines(data, size);
        std::string texts[4];
        for (std::string &text : texts) text = lines.line().c_str();
        const TriggerNames names{texts[0].c_str(), texts[1].c_str(), texts[2].c_str(), texts[3].c_str()};
        const std::unique_ptr<HealthPolicyTriggerReq, TavFreer> req(hmTriggerReqCreate(names, TRUE));
        TriggerNames read{};
        FUZZ_CHECK(req && hmTriggerReqRead(req.get(), &read));
        FUZZ_CHECK(texts[0] == read.policy && texts[1] == read.server && texts[2] == read.connectorGroup && texts[3] == read.connectorUrl);
        block = triggerBlock(TRUE, names.policy, names.server, "g", "http://127.0.0.1:1");
    }
    // Its length is right, as after a whole frame: the offsets are what is left to spoil.
    if (raw && block.size() >= sizeof(HealthPolicyTriggerReq)) {
        const int len = static_cast<int>(block.size());
        memcpy(block.data(), &len, sizeof len);
    }
    TavControlScope control("fuzz");
    receiveTrigger(shop.tav, block, 7);
    hmClientProcessCleanup(shop.tav, 7);
    hmResetInfo(shop.tav);
    return 0;
}
