#include "tavProperties/tavProperties.h"

#include <gtest/gtest.h>

#include "base/FailEachAllocation.h"
#include "tavUtil/tavString.h"

namespace {

// Knows "Known" in any case, except for the value "bad".
char *setKnown(void *passback, char *name, char *value) {
    if (passback) ++*static_cast<int *>(passback);
    static char canonical[] = "Known";
    return tavStrCmpIgnoreCase(name, canonical) == 0 && !tavStrEquals(value, "bad") ? canonical : nullptr;
}

using PropertiesPtr = std::unique_ptr<TavProperties, decltype([](TavProperties *props) { tavPropertiesDelete(props); })>;

class Properties : public LeakFree {};

} // namespace

TEST_F(Properties, StoresRefusesAndRemoves) {
    int calls = 0;
    const PropertiesPtr props(tavPropertiesCreate(setKnown, &calls));
    const struct {
        const char *name, *value;
        Boolean validate;
        int result;
        const char *stored; // under "Known" for a validated set, else under the name
    } steps[] = {
        // nothing to remove; the set's own spelling; an unknown name; a refused value; a known name by the unvalidated way
        {"Known", nullptr, TRUE, 1, nullptr},
        {"kNOWN", "one", TRUE, 0, "one"},
        {"other", "two", TRUE, -1, "one"},
        {"Known", "bad", TRUE, -1, "one"},
        {"Known", "x", FALSE, -1, "one"},
        {"Known", "three", TRUE, 0, "three"},
        // a removal goes by the given name
        {"KNOWN", nullptr, TRUE, 1, "three"},
        {"other", "four", FALSE, 0, "four"},
        {"other", "five", FALSE, 0, "five"},
        {"other", nullptr, FALSE, 0, nullptr},
        {"other", nullptr, FALSE, 1, nullptr},
        {"Known", nullptr, TRUE, 0, nullptr},
    };
    for (const auto &s : steps) {
        SCOPED_TRACE(testing::Message() << s.name << "=" << tavOrNull(s.value) << " validate " << int{s.validate});
        EXPECT_EQ(tavPropertySet(props.get(), s.name, s.value, s.validate), s.result);
        EXPECT_STREQ(tavPropertyGet(props.get(), s.validate ? "Known" : s.name), s.stored);
        EXPECT_EQ(tavPropertyGet(props.get(), "kNOWN"), nullptr);
    }
    EXPECT_EQ(calls, static_cast<int>(std::size(steps)));
    char borrowed[] = "bad"; // refused by the setter, so the unvalidated way keeps the pointer itself
    EXPECT_EQ(tavPropertySet(props.get(), "Known", borrowed, FALSE), 0);
    EXPECT_EQ(tavPropertyGet(props.get(), "Known"), borrowed);
    EXPECT_EQ(tavPropertySet(props.get(), "Known", "good", TRUE), 0) << "displaces the borrowed pointer";
    EXPECT_EQ(tavPropertySet(props.get(), "Known", borrowed, FALSE), 0) << "displaces the copy";
    EXPECT_EQ(tavPropertySet(props.get(), "Known", nullptr, TRUE), 0);
    EXPECT_EQ(tavPropertySet(props.get(), "Known", "left for the delete", TRUE), 0);
}
