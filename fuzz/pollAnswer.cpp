// Answers to polls, one a line after a byte that chooses the status: whatever comes, the group goes on with exactly one poll, and what is
// no good answer changes nothing.
#include "FuzzShop.h"
#include "FuzzTarget.h"

namespace {

constexpr int CODES[] = {200, 200, 200, 0, 404, 503};

void answer(FuzzShop &shop, int code, const std::string &body) {
    FUZZ_CHECK(systemPolls() == 1);
    FUZZ_CHECK(systemAnswerPoll(code, body));
    systemRing();
    systemAnswerReports();
    const TavComponentState state = tavConnectorGroupGetState(shop.group);
    FUZZ_CHECK(state == (code == 200 ? STARTED : FAILED));
}

} // namespace

FUZZ_TARGET(fuzz_pollAnswer) {
    FuzzShop &shop = FuzzShop::get();
    FuzzInput input(data, size);
    answer(shop, 200, shop::document(1));
    while (!input.empty()) {
        const int code = CODES[input.pick(std::size(CODES))];
        const std::string before = shop.dump();
        answer(shop, code, input.line());
        if (code != 200) {
            FUZZ_CHECK(shop.dump() == before);
            answer(shop, 200, "{}");
            answer(shop, 200, shop::document(1));
        }
    }
    shop.reset();
    return 0;
}
