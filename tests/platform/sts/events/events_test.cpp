// Events and event channels of the storage library.

#include "tests/platform/sts/disk_store.h"
#include "tests/support/virtual_clock.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class StsEvents : public DiskStore {
  protected:
    /// A channel on the test's server.
    sts_next_evchannel_s* open_channel(sts_event_start_t start, const std::string& lsu = "",
                                       uint64_t kinds = 0) {
        sts_next_evchannel_s* channel = nullptr;
        EXPECT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
        add(channel, start, lsu, kinds, server_name());
        return channel;
    }
    void add(sts_next_evchannel_s* channel, sts_event_start_t start, const std::string& lsu,
             uint64_t kinds, const std::string& name) {
        sts_event_source_s source = {};
        strcpy(source.lsu, lsu.c_str());
        source.kinds = kinds;
        EXPECT_EQ(api->add_evsource(channel, 0, start, name.c_str(), &source, 0), STS_OK);
    }
    /// What the channel has, each event as "NUMBER KIND LSU/IMAGE".
    std::vector<std::string> take(sts_next_evchannel_s* channel) {
        std::vector<std::string> texts;
        int status = STS_OK;
        sts_event_s event = {};
        while ((status = api->get_event(channel, &event)) == STS_OK) {
            texts.push_back(std::to_string(event.number) + " " + std::to_string(event.kind) + " " +
                            event.lsu + "/" + event.image);
        }
        EXPECT_EQ(status, STS_ERR_NO_EVENT);
        return texts;
    }
    std::string payload_of(uint64_t number) {
        sts_event_s event = {};
        event.number = number;
        sts_event_payload_s payload = {};
        EXPECT_EQ(api->get_event_payload(server, forward(&event), forward(&payload)), STS_OK);
        EXPECT_EQ(strlen(payload.text), payload.length);
        return payload.text;
    }
    int delete_event(uint64_t number) {
        sts_event_s event = {};
        event.number = number;
        return api->delete_event(server, &event);
    }
};

TEST_F(StsEvents, TellWhatHappensToLsusAndImages) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_KEPT);
    const sts_lsu_ref_s second = ref("second");
    create_lsu("second", "label");
    EXPECT_EQ(api->label_lsu(&second, forward("new label")), STS_OK);
    store("image", "12345", "group", "second");
    EXPECT_EQ(close(open("image", STS_IMAGE_WRITE, "second")), STS_OK);
    EXPECT_EQ(delete_image("image", "second"), STS_OK);
    EXPECT_EQ(api->delete_lsu(&second), STS_OK);
    EXPECT_THAT(take(channel),
                ElementsAre("1 4 lsu/", "2 4 second/", "3 6 second/", "4 1 second/image",
                            "5 2 second/image", "6 3 second/image", "7 5 second/"));
    EXPECT_EQ(payload_of(2), "label=label\n");
    EXPECT_EQ(payload_of(3), "label=new label\n");
    EXPECT_EQ(payload_of(4), "size=5\ngroup=group\n");
    EXPECT_EQ(payload_of(5), "size=5\ngroup=group\n");
    EXPECT_EQ(payload_of(6), "size=5\ngroup=group\n");
    EXPECT_EQ(payload_of(7), "label=new label\n");
}

TEST_F(StsEvents, ArentWrittenForWhatCameToNothing) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    EXPECT_EQ(close(create("image"), STS_CLOSE_ABANDON), STS_OK);
    EXPECT_EQ(delete_image("none"), errno_status(ENOENT));
    const sts_lsu_ref_s none = ref("none");
    EXPECT_EQ(api->delete_lsu(&none), errno_status(ENOENT));
    EXPECT_EQ(api->label_lsu(&none, forward("x")), errno_status(ENOENT));
    store("image", "");
    EXPECT_EQ(close(open("image")), STS_OK); // a reader
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/image"));
}

TEST_F(StsEvents, CarryTheirTimeAndTheNameOfTheServer) {
    virtual_clock clock(1000);
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    store("image", "12345");
    sts_event_s event;
    memset(&event, 'x', sizeof event);
    ASSERT_EQ(api->get_event(channel, &event), STS_OK);
    EXPECT_EQ(event.time, 1000);
    EXPECT_STREQ(event.server_name, server_name().c_str());
    EXPECT_EQ(event.payload_length, strlen("size=5\ngroup=\n"));
    EXPECT_EQ(event.image[sizeof event.image - 1], '\0');
}

TEST_F(StsEvents, StayUntilTheyAreDeleted) {
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), ElementsAre("1 4 lsu/"));
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), ElementsAre("1 4 lsu/"));
    EXPECT_EQ(delete_event(1), STS_OK);
    EXPECT_EQ(delete_event(1), errno_status(ENOENT));
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), IsEmpty());
}

TEST_F(StsEvents, ThatWereDeletedArePassedOver) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_KEPT);
    for (const char* const name : {"a", "b", "c"}) {
        store(name, "");
    }
    EXPECT_EQ(delete_event(1), STS_OK);
    EXPECT_EQ(delete_event(3), STS_OK);
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/a", "4 1 lsu/c"));
}

TEST_F(StsEvents, KeepTheirNumbersGrowingAlsoWhenAllAreDeleted) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    EXPECT_EQ(delete_event(1), STS_OK);
    server = open_server();
    store("a", "");
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/a"));
}

TEST_F(StsEvents, AreKeptUpToALimit) {
    set("STS:EVENTS_KEPT", 3);
    for (const char* const name : {"a", "b", "c", "d"}) {
        store(name, "");
    }
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)),
                ElementsAre("3 1 lsu/b", "4 1 lsu/c", "5 1 lsu/d"));
    set("STS:EVENTS_KEPT", 1);
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), ElementsAre("5 1 lsu/d"));
}

TEST_F(StsEvents, ArentWrittenWhereNoneIsKept) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    set("STS:EVENTS_KEPT", 0);
    store("a", "");
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), IsEmpty());
    set("STS:EVENTS_KEPT", 5);
    store("b", "");
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/b"));
}

TEST_F(StsEvents, ThatCantBeWrittenDontUndoWhatHappened) {
    fs::create_directories(path("blocked"));
    std::ofstream(path("blocked/.server")) << "in the way";
    server = open_server("blocked");
    create_lsu("lsu");
    store("image", "content");
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsEvents, ReachAChannelOfWhatItAskedForAlone) {
    create_lsu("second");
    sts_next_evchannel_s* const of_second = open_channel(STS_EVENTS_FROM_NOW, "second");
    sts_next_evchannel_s* const deleted =
        open_channel(STS_EVENTS_FROM_NOW, "", 1U << STS_EVENT_IMAGE_DELETED);
    store("a", "");
    store("b", "", "", "second");
    EXPECT_EQ(delete_image("a"), STS_OK);
    EXPECT_THAT(take(of_second), ElementsAre("4 1 second/b"));
    EXPECT_THAT(take(deleted), ElementsAre("5 3 lsu/a"));
}

TEST_F(StsEvents, OfSeveralServersComeThroughOneChannel) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    sts_next_server_s* const first = server;
    server = open_server("other");
    add(channel, STS_EVENTS_FROM_NOW, "", 0, server_name("other"));
    create_lsu("lsu");
    store("b", "");
    server = first;
    store("a", "");
    std::vector<std::string> servers;
    sts_event_s event = {};
    while (api->get_event(channel, &event) == STS_OK) {
        servers.emplace_back(event.server_name);
    }
    // Both get their turn.
    EXPECT_THAT(servers, ElementsAre(server_name(), server_name("other"), server_name("other")));
}

TEST_F(StsEvents, ReachAChannelAlsoFromAnotherServerHandle) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    server = open_server();
    store("a", "");
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/a"));
    EXPECT_THAT(take(channel), IsEmpty());
}

TEST_F(StsEvents, DontNeedAServerThatIsOpen) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_KEPT);
    EXPECT_EQ(close(server), STS_OK);
    EXPECT_EQ(close(session), STS_OK);
    EXPECT_THAT(take(channel), ElementsAre("1 4 lsu/"));
    EXPECT_EQ(close(channel), STS_OK);
}

TEST_F(StsEvents, AreNumberedWithoutGapsByManyThreads) {
    set("STS:SYNC_AT_CLOSE", 0);
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < 10; ++round) {
                store(std::to_string(thread) + "." + std::to_string(round), "");
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    uint64_t expected = 1;
    sts_event_s event = {};
    while (api->get_event(channel, &event) == STS_OK) {
        EXPECT_EQ(event.number, ++expected);
    }
    EXPECT_EQ(expected, 41U);
}

TEST_F(StsEvents, ArentMissedByAChannelThatIsAskedWhileTheyAreWritten) {
    constexpr uint64_t count = 150;
    set("STS:SYNC_AT_CLOSE", 0);
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    std::thread writer([&] {
        for (uint64_t each = 0; each < count; ++each) {
            store(std::to_string(each), "");
        }
    });
    uint64_t expected = 1;
    sts_event_s event = {};
    while (expected <= count && !HasFailure()) {
        if (api->get_event(channel, &event) == STS_OK) {
            EXPECT_EQ(event.number, ++expected);
        }
    }
    writer.join();
}

TEST_F(StsEvents, WithoutASourceNeverCome) {
    sts_next_evchannel_s* channel = nullptr;
    ASSERT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
    EXPECT_THAT(take(channel), IsEmpty());
}

TEST_F(StsEvents, OfAServerThatIsntThereCantBeAskedFor) {
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_FROM_NOW);
    sts_event_source_s source = {};
    const auto add_status = [&](const std::string& name, uint64_t start) {
        return api->add_evsource(channel, 0, start, name.c_str(), &source, 0);
    };
    EXPECT_EQ(add_status(server_name("none"), 0), errno_status(ENOENT));
    EXPECT_EQ(add_status("other:x", 0), STS_ERR_NOT_CLAIMED);
    EXPECT_EQ(add_status(server_name(), 2), STS_ERR_INVALID);
    EXPECT_EQ(api->add_evsource(channel, 0, 0, server_name().c_str(), nullptr, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->add_evsource(channel, 0, 0, nullptr, &source, 0), STS_ERR_INVALID);
    EXPECT_FALSE(fs::exists(path("none")));
    store("a", "");
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/a")); // once: nothing was added
}

TEST_F(StsEvents, DontMindForeignFilesAmongThem) {
    const std::string foreign[] = {path("store/.server/events/mine"),
                                   path("store/.server/events/0"),
                                   path("store/.server/events/zzz")};
    for (const std::string& each : foreign) {
        std::ofstream(each) << "x";
    }
    fs::remove(path("store/.server/sequence"));
    store("a", "");
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), ElementsAre("1 4 lsu/", "2 1 lsu/a"));
    set("STS:EVENTS_KEPT", 0);
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), IsEmpty());
    for (const std::string& each : foreign) {
        EXPECT_TRUE(fs::exists(each)) << each;
    }
}

TEST_F(StsEvents, ThatAreGoneHaveNoPayload) {
    sts_event_s event = {};
    event.number = 77;
    sts_event_payload_s payload = {};
    EXPECT_EQ(api->get_event_payload(server, forward(&event), forward(&payload)),
              errno_status(ENOENT));
    EXPECT_EQ(api->get_event_payload(server, 0, forward(&payload)), STS_ERR_INVALID);
    EXPECT_EQ(api->get_event_payload(server, forward(&event), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->delete_event(server, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->get_event(open_channel(STS_EVENTS_KEPT), nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->open_evchannel(session, 0, 0, nullptr), STS_ERR_INVALID);
}

TEST_F(StsEvents, ThatAreDamagedAreToldAndTheChannelGoesOn) {
    const std::string file = path("store/.server/events/00000000000000000001");
    const auto bytes_of = [](const sts_event_s& event) {
        return std::string(reinterpret_cast<const char*>(&event), sizeof event);
    };
    sts_event_s bad_kind = {};
    bad_kind.kind = 64;
    sts_event_s bad_length = {};
    bad_length.payload_length = 1;
    sts_event_s bad_lsu = {};
    memset(bad_lsu.lsu, 'x', sizeof bad_lsu.lsu);
    sts_event_s bad_image = {};
    memset(bad_image.image, 'x', sizeof bad_image.image);
    store("a", "");
    for (const std::string& damage :
         {std::string(), std::string("damaged"), bytes_of(bad_kind), bytes_of(bad_length),
          bytes_of(bad_lsu), bytes_of(bad_image), std::string(1 << 20, '\0')}) {
        sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_KEPT);
        std::ofstream(file) << damage;
        sts_event_s event = {};
        EXPECT_EQ(api->get_event(channel, &event), errno_status(EBADMSG));
        EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/a"));
    }
    EXPECT_EQ(delete_event(1), STS_OK);
}

TEST_F(StsEvents, GoOnBehindTheLastOneWhenTheirCountIsLost) {
    store("a", "");
    fs::remove(path("store/.server/sequence"));
    store("b", "");
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)),
                ElementsAre("1 4 lsu/", "2 1 lsu/a", "3 1 lsu/b"));
    std::ofstream(path("store/.server/sequence")) << "nonsense";
    store("c", "");
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), SizeIs(4));
}

TEST_F(StsEvents, AreGivenWhateverTheirCountSays) {
    store("a", "");
    for (const char* const count : {"-1", "99999999999999999999", "9223372036854775808",
                                    "9223372036854775807", "1000000000000"}) {
        SCOPED_TRACE(count);
        std::ofstream(path("store/.server/sequence")) << count;
        EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), ElementsAre("1 4 lsu/", "2 1 lsu/a"));
    }
}

TEST_F(StsEvents, OfAWriterThatDidntLiveToCountItStays) {
    store("a", "");
    std::ofstream(path("store/.server/sequence")) << "1";
    sts_next_evchannel_s* const channel = open_channel(STS_EVENTS_KEPT);
    EXPECT_THAT(take(channel), ElementsAre("1 4 lsu/"));
    store("b", "");
    EXPECT_THAT(take(channel), ElementsAre("2 1 lsu/a", "3 1 lsu/b"));
    set("STS:EVENTS_KEPT", 2);
    std::ofstream(path("store/.server/sequence")) << "2";
    store("c", "");
    EXPECT_THAT(take(open_channel(STS_EVENTS_KEPT)), ElementsAre("3 1 lsu/b", "4 1 lsu/c"));
}

} // namespace
