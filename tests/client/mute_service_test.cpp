// A service that takes a request and never answers. These tests wait for real time: how long an
// exchange takes at most is what they are about.

#include "tests/client/client_fixture.h"
#include "tests/support/giop.h"
#include "tests/support/stopwatch.h"

#include <vlsl.hh>

using testing::ElementsAre;

namespace {

class MuteServiceRealTime : public Client {};

TEST_F(MuteServiceRealTime, HoldsAnExchangeUpForTheTimeOutAndNoLonger) {
    const auto client = make_connected(1);
    for (const exchange_shape& shape : exchange_shapes) {
        service.answer(shape.asked, stays_silent());
        int status = STS_OK;
        EXPECT_LT(seconds_of([&] { status = shape.run(*client); }), 1.9) << shape.name;
        EXPECT_EQ(status, shape.corba_status) << shape.name;
        EXPECT_THAT(take_log(), ElementsAre(shape.corba_line()));
        EXPECT_THAT(service.take(), ElementsAre(shape.request)); // once
    }
}

TEST_F(MuteServiceRealTime, AnswersThatComeBeforeTheTimeOutAreTaken) {
    const auto client = make_connected(5);
    scripted_answer late = returns(3, "late");
    late.delay = 300;
    service.answer("check_connections", late);
    std::string out;
    EXPECT_EQ(shape_of("check_connections").run(*client, out), 3);
    EXPECT_EQ(out, "late");
}

TEST_F(MuteServiceRealTime, IsHeardAgainAfterATimeOut) {
    const auto client = make_connected(1);
    scripted_answer late = returns(0, "late");
    late.delay = 1500;
    service.answer("check_connections", {late, returns(0, "prompt")});
    std::string out;
    EXPECT_EQ(shape_of("check_connections").run(*client, out), failed_exchange);
    EXPECT_EQ(shape_of("check_connections").run(*client, out), STS_OK);
    EXPECT_EQ(out, "prompt"); // never the answer to the request before
}

TEST_F(MuteServiceRealTime, HoldsTheFirstExchangeOfAClientUpForOneTimeOut) {
    const giop::listener listener(giop::saying_nothing);
    look_for_service_at(listener.port());
    for (const char* const name : {"check_connections", "set_config_params"}) {
        const auto client = make(2);
        int status = STS_OK;
        EXPECT_LT(seconds_of([&] { status = shape_of(name).run(*client); }), 3.9) << name;
        EXPECT_EQ(status, failed_exchange) << name;
    }
}

TEST_F(MuteServiceRealTime, WhereverItStopsAnsweringInTheChainTheFirstExchangeFailsInOneTimeOut) {
    for (const char* const operation :
         {"getHostSession", "getCloudManager", "aqueryFacet", "amodifyFacet"}) {
        service.answer(operation, stays_silent());
        const auto client = make(2);
        int status = STS_OK;
        EXPECT_LT(seconds_of([&] { status = shape_of("check_connections").run(*client); }), 3.9)
            << operation;
        EXPECT_EQ(status, failed_exchange) << operation;
        service.answer(operation, {});
    }
}

TEST_F(MuteServiceRealTime, DoesNotKeepAClientFromGoing) {
    auto client = make_connected(1);
    service.answer("destroy", stays_silent());
    EXPECT_LT(seconds_of([&] { client.reset(); }), 1.9);
    EXPECT_THAT(service.take(), ElementsAre("destroy()"));
}

} // namespace
