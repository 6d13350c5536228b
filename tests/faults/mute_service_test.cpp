// A service that takes connections and requests, and says nothing. These tests wait for real time:
// how long a step takes at most is what they are about.

#include "tests/faults/faulty_host.h"
#include "tests/support/giop.h"
#include "tests/support/scripted_service.h"

#include <array>
#include <optional>
#include <thread>
#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

namespace {

/// The longest that a step of so many exchanges may take, seconds.
constexpr double bound(int exchanges) { return exchanges * time_out + slack; }

// --- never a word ------------------------------------------------------------------------------

class MuteServiceFaultRealTime : public FaultyHost {
  protected:
    void look_for_mute_service() const { look_for_service_at(service.port()); }

    giop::listener service{giop::saying_nothing};
};

TEST_F(MuteServiceFaultRealTime, EachExchangeOfABackupHoldsItUpForOneTimeOut) {
    look_for_mute_service();
    open_server();
    EXPECT_LT(delay_of("an open: settings and a connection", [this] { open(); }), bound(2));
    EXPECT_LT(delay_of("a transfer: a report", [this] { image->write(); }), bound(1));
    EXPECT_LT(delay_of("a close: a report and a connection", [this] { image.reset(); }), bound(2));
    EXPECT_LT(delay_of("a server's close: a connection", [this] { server.reset(); }), bound(1));
    EXPECT_EQ(service.requests().size(), 6U); // each asks for a session once
}

/// Several images of one server that is connected already, each used on a thread of its own.
class MuteServiceOnThreadsRealTime : public MuteServiceFaultRealTime {
  protected:
    static constexpr size_t count = 4;

    MuteServiceOnThreadsRealTime() {
        look_for_service_at(free_port());
        open_server();
        open(); // refused at once
        look_for_mute_service();
    }

    void TearDown() override {
        look_for_service_at(free_port()); // the ends are told at once
        for (auto& each : images) {
            each.reset();
        }
        MuteServiceFaultRealTime::TearDown();
    }

    template <typename Step>
    void on_each_thread(Step step) {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < count; ++i) {
            threads.emplace_back([this, i, step] { step(images[i]); });
        }
        for (std::thread& each : threads) {
            each.join();
        }
    }

    std::array<std::optional<open_image>, count> images;
};

TEST_F(MuteServiceOnThreadsRealTime, TransfersThatBeginAtOnceWaitTogetherForOneTimeOut) {
    look_for_service_at(free_port());
    for (auto& each : images) {
        each.emplace(*server);
    }
    look_for_mute_service();
    const double seconds = delay_of("4 transfers at once, of one exchange each",
                                    [this] { on_each_thread([](auto& each) { each->write(); }); });
    EXPECT_LT(seconds, 2 * time_out - 1);
}

// --- mute after the first words ----------------------------------------------------------------

class MuteSessionRealTime : public FaultyHost {
  protected:
    remote_service service;
};

TEST_F(MuteSessionRealTime, ASessionThatSaysNothingHoldsEachExchangeUpForOneTimeOut) {
    service.answer("getCloudManager", stays_silent());
    open_server();
    EXPECT_LT(delay_of("an open with a mute session", [this] { open(); }), bound(2));
    EXPECT_THAT(service.take(),
                ElementsAre(new_session[0], "getCloudManager()", "getCloudManager()"));

    service.answer("getCloudManager", {});
    image->write();
    const lines asked = service.take();
    EXPECT_THAT(asked, Not(Contains(new_session[0]))); // the session that stands is gone on with
    EXPECT_THAT(asked, Contains(StartsWith("check_bandwidth(\"w:s3\"")));
}

TEST_F(MuteSessionRealTime, FacetsThatSayNothingHoldEachExchangeUpForOneTimeOut) {
    open_server();
    open();
    image->write();
    service.take();
    service.answer("check_bandwidth", {stays_silent(), {}});
    take_errors();
    EXPECT_LT(delay_of("a transfer with a mute facet", [this] { image->write(); }), bound(1));
    EXPECT_THAT(take_errors(),
                Contains("4 [throttling_write_image_v7]fail to check bandwidth from service."));
    EXPECT_LT(delay_of("the transfer after it", [this] { image->write(); }), slack);
    EXPECT_THAT(service.take(),
                ElementsAre(StartsWith("check_bandwidth"), StartsWith("check_bandwidth")));

    service.answer("destroy", stays_silent());
    image.reset();
    EXPECT_LT(delay_of("a server's close with a mute session", [this] { server.reset(); }),
              bound(1));
}

} // namespace
