// Connections that somebody closes while a backup runs. No report is lost that the service can't
// have begun, and none is counted twice.

#include "tests/faults/faulty_host.h"
#include "tests/support/closing_proxy.h"
#include "tests/support/scripted_service.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int reports = 200;

struct closed_way {
    const char* name;
    closing way;
    bool waits = true; ///< closes before the next transfer begins, else when it likes
    int delay = 0;     ///< milliseconds
    int count = reports;
};

void PrintTo(const closed_way& way, std::ostream* out) { *out << way.name; }

class ClosedConnectionRealTime : public FaultyHost {
  protected:
    ClosedConnectionRealTime() {
        open_server();
        open();
        image->write();
        service.take();
        take_errors();
    }

    /// As the service sees that of the transfer `number` seconds after the first.
    std::string report(int number) const {
        return "check_bandwidth(\"w:s3\", \"a_b\", {1, " + std::to_string(start + number) + ", " +
               std::to_string(start + number + 1) + ", 1000})";
    }
    lines all_reports(int count) const {
        lines all;
        for (int number = 1; number <= count; ++number) {
            all.push_back(report(number));
        }
        return all;
    }

    remote_service service;
    closing_proxy proxy{service.port()};
    const time_t start = clock.now();
};

class ClosedBetweenReportsRealTime : public ClosedConnectionRealTime,
                                     public testing::WithParamInterface<closed_way> {};

INSTANTIATE_TEST_SUITE_P(
    By, ClosedBetweenReportsRealTime,
    testing::Values(closed_way{"AMessageAtOnce", closing::message, false},
                    closed_way{"AMessageAndAnEndAtOnce", closing::message_and_end, false},
                    closed_way{"AMessageBehindTheAnswer", closing::message_and_end_at_once, false},
                    closed_way{"AMessage", closing::message},
                    closed_way{"AMessageAndAnEnd", closing::message_and_end},
                    closed_way{"AMessageThatWasBehindTheAnswer", closing::message_and_end_at_once},
                    closed_way{"AnEnd", closing::end}, closed_way{"HalfAnEnd", closing::half},
                    closed_way{"AReset", closing::reset},
                    closed_way{"AMessageLater", closing::message_and_end, false, 100, 3},
                    closed_way{"AnEndLater", closing::end, false, 100, 3}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(ClosedBetweenReportsRealTime, LosesNoReportAndCountsNoneTwice) {
    const closed_way& closed = GetParam();
    closed.waits ? proxy.close_when_told(closed.way) : proxy.close(closed.way, closed.delay);
    for (int number = 1; number <= closed.count; ++number) {
        image->write();
        if (closed.waits || closed.delay != 0) {
            proxy.wait_for_closings(number);
        }
    }
    proxy.close(closing::none);
    EXPECT_EQ(service.take(), all_reports(closed.count));
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(ClosedConnectionRealTime, InGoodOrderForAnAnswerHasTheReportSentOnceMore) {
    proxy.close(closing::message_for_an_answer, 0, true);
    for (int number = 1; number <= reports; ++number) {
        image->write();
    }
    EXPECT_EQ(service.take(), all_reports(reports));
    EXPECT_EQ(proxy.requests(), 2 * reports);
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(ClosedConnectionRealTime, InGoodOrderForEachAnswerFailsTheReportOnTheSecondOne) {
    proxy.close(closing::message_for_an_answer);
    for (int number = 1; number <= reports; ++number) {
        image->write();
    }
    EXPECT_THAT(service.take(), IsEmpty());
    EXPECT_EQ(proxy.requests(), 2 * reports);
    EXPECT_THAT(take_errors(), SizeIs(2 * reports));
}

class ClosedForAnAnswerRealTime : public ClosedConnectionRealTime,
                                  public testing::WithParamInterface<closed_way> {};

INSTANTIATE_TEST_SUITE_P(By, ClosedForAnAnswerRealTime,
                         testing::Values(closed_way{"AnEnd", closing::end_for_an_answer},
                                         closed_way{"AReset", closing::reset_for_an_answer}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(ClosedForAnAnswerRealTime, FailsTheReportWhichIsCountedOnce) {
    proxy.close(GetParam().way);
    for (int number = 1; number <= reports; ++number) {
        image->write();
    }
    EXPECT_EQ(service.take(), all_reports(reports));
    EXPECT_EQ(proxy.requests(), reports);
    EXPECT_THAT(take_errors(), SizeIs(2 * reports));
}

} // namespace
