// How a stop signal ends the service, whatever holds it up.

#include "service/signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(SignalsDeathTest, AnEndThatTakesTooLongIsCutShortAndSaysSo) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto hang = [] {
        bound_the_end(take_signals(), 100);
        for (;;) {
            pause();
        }
    };
    EXPECT_EXIT(hang(), testing::ExitedWithCode(1), "stopping took too long");
}

TEST(SignalsDeathTest, ASecondStopSignalEndsItAtOnce) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto stop_twice = [&] {
            const sigset_t signals = take_signals();
            raise(signal);
            sigwaitinfo(&signals, nullptr);
            bound_the_end(signals, 10000);
            raise(SIGHUP); // which doesn't
            raise(signal);
            exit(3);
        };
        EXPECT_EXIT(stop_twice(), testing::KilledBySignal(signal), "");
    }
}

} // namespace
