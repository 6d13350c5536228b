// Event channels: what they receive, payloads, deletion.

#include "tests/conformance/storage.h"

#include <memory>

namespace {

class Events : public Storage {
  protected:
    handle open_events(sts_event_start_t start = STS_EVENTS_KEPT, const std::string& lsu = "",
                       uint64_t kinds = 0) {
        sts_event_source_s source = {};
        set_field(source.lsu, lsu);
        source.kinds = kinds;
        handle channel;
        EXPECT_EQ(call::open_events(&session, server_name().c_str(), &source, start, out(channel)),
                  STS_OK);
        return channel;
    }
    /// Opening the events of a server that gives none. The channel is there and is to be closed.
    int open_status(const std::string& name) {
        sts_event_source_s source = {};
        handle channel;
        const int status =
            call::open_events(&session, name.c_str(), &source, STS_EVENTS_FROM_NOW, out(channel));
        EXPECT_NE(channel.value, nullptr);
        EXPECT_EQ(call::close_events(channel), STS_OK);
        return status;
    }
    /// All that wait, in words.
    std::vector<std::string> take(handle channel) {
        std::vector<std::string> taken;
        auto event = std::make_unique<sts_event_s>();
        int status = STS_OK;
        while ((status = call::get_event(channel, event.get())) == STS_OK) {
            EXPECT_EQ(event->server_name, server_name());
            EXPECT_GT(event->time, 0);
            taken.push_back(std::to_string(event->kind) + " " + event->lsu + "/" + event->image);
        }
        EXPECT_EQ(status, STS_ERR_NO_EVENT);
        return taken;
    }
};

TEST_F(Events, TellWhatHappenedInItsOrder) {
    const handle channel = open_events(STS_EVENTS_FROM_NOW);
    EXPECT_EQ(create_lsu("second", "label"), STS_OK);
    store("image", "content");
    const handle again = open("image", STS_IMAGE_WRITE);
    EXPECT_EQ(close(again), STS_OK);
    EXPECT_EQ(delete_image("image"), STS_OK);
    const sts_lsu_ref_s lsu = ref("second");
    EXPECT_EQ(call::label_lsu(&lsu, forward("other")), STS_OK);
    EXPECT_EQ(call::delete_lsu(lsu), STS_OK);
    EXPECT_THAT(take(channel), testing::ElementsAre("4 second/", "1 lsu/image", "2 lsu/image",
                                                    "3 lsu/image", "6 second/", "5 second/"));
    EXPECT_EQ(call::close_events(channel), STS_OK);
}

TEST_F(Events, OfBeforeAreGivenToWhoWantsThem) {
    store("image", "content");
    const handle late = open_events(STS_EVENTS_FROM_NOW);
    const handle early = open_events(STS_EVENTS_KEPT);
    EXPECT_THAT(take(late), testing::IsEmpty());
    EXPECT_THAT(take(early), testing::ElementsAre("4 lsu/", "1 lsu/image"));
    EXPECT_EQ(call::close_events(early), STS_OK);
    EXPECT_EQ(call::close_events(late), STS_OK);
}

TEST_F(Events, AreOfTheLsuAndTheKindsThatWereAskedFor) {
    EXPECT_EQ(create_lsu("second"), STS_OK);
    store("image", "content", "", "second");
    store("image", "content");
    const handle channel = open_events(STS_EVENTS_KEPT, "second", 1U << STS_EVENT_IMAGE_CREATED);
    EXPECT_THAT(take(channel), testing::ElementsAre("1 second/image"));
    EXPECT_EQ(call::close_events(channel), STS_OK);
}

TEST_F(Events, DontNeedAnOpenServer) {
    store("image", "content");
    EXPECT_EQ(call::close_server(server), STS_OK);
    server = {};
    const handle channel = open_events();
    EXPECT_EQ(take(channel).size(), 2U);
    EXPECT_EQ(call::close_events(channel), STS_OK);
}

TEST_F(Events, ThatArentThereLeaveTheRecordAlone) {
    const handle channel = open_events(STS_EVENTS_FROM_NOW);
    auto event = std::make_unique<sts_event_s>();
    event->number = 77;
    EXPECT_EQ(call::get_event(channel, event.get()), STS_ERR_NO_EVENT);
    EXPECT_EQ(event->number, 77U);
    EXPECT_EQ(event->server_name, differs(rules::event_name_always) ? server_name() : "");
    EXPECT_EQ(call::close_events(channel), STS_OK);
}

TEST_F(Events, HaveAPayload) {
    store("image", "content", "group");
    const handle channel = open_events(STS_EVENTS_KEPT, "", 1U << STS_EVENT_IMAGE_CREATED);
    sts_event_s event = {};
    ASSERT_EQ(call::get_event(channel, &event), STS_OK);
    sts_event_payload_s payload = {};
    EXPECT_EQ(call::get_event_payload(server, forward(&event), forward(&payload)), STS_OK);
    EXPECT_STREQ(payload.text, "size=7\ngroup=group\n");
    EXPECT_EQ(payload.length, event.payload_length);
    EXPECT_EQ(call::get_event_payload(server, forward(&event), 0), STS_ERR_INVALID);
    EXPECT_EQ(call::close_events(channel), STS_OK);
}

TEST_F(Events, StayUntilTheyAreDeleted) {
    const handle channel = open_events();
    sts_event_s event = {};
    ASSERT_EQ(call::get_event(channel, &event), STS_OK);
    EXPECT_EQ(call::delete_event(server, &event), STS_OK);
    EXPECT_EQ(call::delete_event(server, &event), errno_status(ENOENT));
    EXPECT_EQ(call::delete_event(server, nullptr), STS_ERR_INVALID);
    sts_event_payload_s payload = {};
    EXPECT_EQ(call::get_event_payload(server, forward(&event), forward(&payload)),
              errno_status(ENOENT));
    EXPECT_EQ(call::close_events(channel), STS_OK);
    const handle later = open_events();
    EXPECT_THAT(take(later), testing::IsEmpty());
    EXPECT_EQ(call::close_events(later), STS_OK);
}

TEST_F(Events, OfAServerThatIsntThereGiveItsStatus) {
    EXPECT_EQ(open_status(server_name("missing")), errno_status(ENOENT));
    EXPECT_EQ(open_status(stack::current().server_name("nobody:x")), STS_ERR_NOT_CLAIMED);
}

TEST_F(Events, NeedASource) {
    handle channel;
    EXPECT_EQ(
        call::open_events(&session, server_name().c_str(), nullptr, STS_EVENTS_KEPT, out(channel)),
        STS_ERR_INVALID);
    EXPECT_EQ(channel.value == nullptr, differs(rules::source_first));
    if (channel.value != nullptr) {
        EXPECT_EQ(call::close_events(channel), STS_OK);
    }
}

} // namespace
