#include "tools/host/records.h"

#include <gtest/gtest.h>

namespace {

TEST(Records, KindOfEventThatIsNotKnownIsANumber) {
    sts_event_s event = {};
    for (const uint32_t kind : {0U, 7U}) {
        event.kind = kind;
        EXPECT_EQ(fields_of(event).at("kind"), "kind-" + std::to_string(kind));
    }
}

TEST(Records, PayloadThatIsLongerThanItsFieldIsCut) {
    sts_event_payload_s payload = {};
    payload.length = UINT32_MAX;
    EXPECT_EQ(fields_of(payload).at("text").get<std::string>().size(), sizeof payload.text);
}

} // namespace
