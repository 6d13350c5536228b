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

// --- never a word --------------------------------------------------------------------------------

/// Reads what comes and answers nothing. Clients find it from `listen` on.
class mute_service {
  public:
    mute_service() : listener_([](giop::connection&, const giop::message&) {}) {}

    void listen() const { setenv("VLSL_PORT", std::to_string(listener_.port()).c_str(), 1); }
    size_t requests() const { return listener_.requests().size(); }

  private:
    giop::listener listener_;
};

class MuteServiceFaultRealTime : public FaultyHost {
  protected:
    mute_service service;
};

TEST_F(MuteServiceFaultRealTime, EachExchangeOfABackupHoldsItUpForOneTimeOut) {
    service.listen();
    open_server();
    EXPECT_LT(seconds_of("an open: settings and a connection", [this] { open(); }), bound(2));
    EXPECT_LT(seconds_of("a transfer: a report", [this] { image->write(); }), bound(1));
    EXPECT_LT(seconds_of("a close: a report and a connection", [this] { image.reset(); }),
              bound(2));
    EXPECT_LT(seconds_of("a server's close: a connection", [this] { server.reset(); }), bound(1));
    EXPECT_EQ(service.requests(), 6U); // each asks for a session once
}

/// Several images of one server that is connected already, each used on a thread of its own.
class MuteServiceOnThreadsRealTime : public MuteServiceFaultRealTime {
  protected:
    static constexpr size_t count = 4;

    MuteServiceOnThreadsRealTime() {
        setenv("VLSL_PORT", std::to_string(free_port()).c_str(), 1);
        open_server();
        open(); // refused at once
        service.listen();
    }

    void TearDown() override {
        setenv("VLSL_PORT", std::to_string(free_port()).c_str(), 1); // the ends are told at once
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
    setenv("VLSL_PORT", std::to_string(free_port()).c_str(), 1);
    for (auto& each : images) {
        each.emplace(*server);
    }
    service.listen();
    const double seconds = seconds_of("4 transfers at once, of one exchange each", [this] {
        on_each_thread([](auto& each) { each->write(); });
    });
    EXPECT_LT(seconds, 2 * time_out - 1);
}

// --- mute after the first words ------------------------------------------------------------------

class MuteSessionRealTime : public FaultyHost {
  protected:
    remote_service service;
};

TEST_F(MuteSessionRealTime, ASessionThatSaysNothingHoldsEachExchangeUpForOneTimeOut) {
    service.answer("getCloudManager", stays_silent());
    open_server();
    EXPECT_LT(seconds_of("an open with a mute session", [this] { open(); }), bound(2));
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
    EXPECT_LT(seconds_of("a transfer with a mute facet", [this] { image->write(); }), bound(1));
    EXPECT_LT(seconds_of("the transfer after it", [this] { image->write(); }), slack);
    EXPECT_THAT(service.take(),
                ElementsAre(StartsWith("check_bandwidth"), StartsWith("check_bandwidth")));

    service.answer("destroy", stays_silent());
    image.reset();
    EXPECT_LT(seconds_of("a server's close with a mute session", [this] { server.reset(); }),
              bound(1));
}

} // namespace
