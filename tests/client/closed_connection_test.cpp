// Connections that somebody closes: each exchange goes once to the service, which can't have begun
// it twice.

#include "tests/client/client_fixture.h"
#include "tests/support/closing_proxy.h"
#include "tests/support/stopwatch.h"

#include <vlsl.hh>

using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

class ClosedConnection : public EachExchange {
  protected:
    /// Makes the exchange 34 times, 204 in all of them, and waits for the close after each.
    void expect_each_once(closing way, int status, bool waits) {
        waits ? proxy.close_when_told(way) : proxy.close(way);
        for (int number = 1; number <= times; ++number) {
            EXPECT_EQ(shape.run(*client), status);
            if (waits) {
                proxy.wait_for_closings(number);
            }
        }
        proxy.close(closing::none);
        EXPECT_THAT(service.take(), ElementsAreArray(lines(times, shape.request)));
    }

    static constexpr int times = 34;
    closing_proxy proxy{service.port()};
    std::unique_ptr<CCloudVLSLClient> client = make_connected();
};

INSTANTIATE_TEST_SUITE_P(Each, ClosedConnection, each_exchange(), exchange_name);

TEST_P(ClosedConnection, WhileIdleLosesNothing) {
    for (const closing way :
         {closing::message, closing::message_and_end, closing::message_and_end_at_once,
          closing::end, closing::half, closing::reset}) {
        SCOPED_TRACE(static_cast<int>(way));
        expect_each_once(way, STS_OK, true);
    }
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_P(ClosedConnection, InGoodOrderLosesNothingHoweverCloseItIs) {
    for (const closing way :
         {closing::message, closing::message_and_end, closing::message_and_end_at_once}) {
        SCOPED_TRACE(static_cast<int>(way));
        expect_each_once(way, STS_OK, false);
    }
}

TEST_P(ClosedConnection, InGoodOrderForAnAnswerHasItSentOnceMore) {
    proxy.close(closing::message_for_an_answer, 0, true);
    for (int number = 1; number <= times; ++number) {
        EXPECT_EQ(shape.run(*client), STS_OK);
    }
    EXPECT_THAT(service.take(), ElementsAreArray(lines(times, shape.request)));
    EXPECT_EQ(proxy.requests(), 2 * times);
    proxy.close(closing::message_for_an_answer);
    EXPECT_EQ(shape.run(*client), shape.corba_status);
    EXPECT_THAT(service.take(), IsEmpty());
    EXPECT_EQ(proxy.requests(), 2);
}

TEST_P(ClosedConnection, WithoutAWordForAnAnswerFailsIt) {
    for (const closing way : {closing::end_for_an_answer, closing::reset_for_an_answer}) {
        SCOPED_TRACE(static_cast<int>(way));
        expect_each_once(way, shape.corba_status, false);
    }
}

class ClosedConnectionRealTime : public Client {
  protected:
    closing_proxy proxy{service.port()};
};

TEST_F(ClosedConnectionRealTime, TheSecondSendingHasTheTimeThatTheFirstLeft) {
    const auto client = make_connected(2);
    const exchange_shape& shape = shape_of("check_connections");
    service.answer(shape.asked, stays_silent());
    proxy.close(closing::message_for_an_answer, 1200, true);
    int status = STS_OK;
    EXPECT_LT(seconds_of([&] { status = shape.run(*client); }), 2.9);
    EXPECT_EQ(status, shape.corba_status);
    EXPECT_EQ(proxy.requests(), 2);
    service.stop(); // so that the proxy waits for its answer no longer
}

} // namespace
