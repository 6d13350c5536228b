// At a rate of 0 no byte can ever be moved: the process ends by the arithmetic fault, whatever it
// does about that signal.

#include "tests/engine/engine_fixture.h"

#include <csignal>
#include <cstdlib>
#include <unistd.h>

using testing::KilledBySignal;

namespace {

/// Settings under which nothing may be read, and 1000 bytes per second written.
class ZeroRateDeathTest : public engine_test {
  protected:
    void SetUp() override {
        std::signal(SIGFPE, SIG_DFL); // a sanitizer has a handler of its own
        config.read_bandwidth_percent = 0;
        start();
    }

    void check(operation_type_t operation, unsigned long bytes, int force) {
        bandwidth_s moved = sample(operation, 1, bytes);
        connector.check_bandwidth(&moved, 0, force);
    }

    /// Takes over counts from the service and moves a byte. A process that outlives it leaves with
    /// 0.
    void move_after(long readers, long writers, operation_type_t operation) {
        tell_counts(readers, writers);
        check(operation, 1, 0);
        exit(0);
    }

    void tell_counts(long readers, long writers) {
        service().replies.push_back({STS_OK, reply_text(readers, writers, 0, 0)});
        connector.check_connections(OPERATION_WRITE, -1, 0);
    }
};

TEST_F(ZeroRateDeathTest, EndsTheProcessByTheArithmeticFault) {
    EXPECT_EXIT(check(OPERATION_READ, 1, 0), KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, EndsItAtAFirstForcedTransferToo) {
    EXPECT_EXIT(check(OPERATION_READ, 0, 1), KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, EndsItAlsoWhereTheSignalIsIgnored) {
    EXPECT_EXIT(
        {
            std::signal(SIGFPE, SIG_IGN);
            check(OPERATION_READ, 1, 0);
        },
        KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, EndsItAlsoWhereTheSignalIsBlocked) {
    EXPECT_EXIT(
        {
            sigset_t faults;
            sigemptyset(&faults);
            sigaddset(&faults, SIGFPE);
            sigprocmask(SIG_BLOCK, &faults, nullptr);
            check(OPERATION_READ, 1, 0);
        },
        KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, LetsTheHostsHandlerHaveItsTurnFirst) {
    EXPECT_EXIT(
        {
            std::signal(SIGFPE, [](int) { _exit(42); });
            check(OPERATION_READ, 1, 0);
        },
        testing::ExitedWithCode(42), "");
}

TEST_F(ZeroRateDeathTest, EndsItAlsoWhereTheHostsHandlerReturns) {
    EXPECT_EXIT(
        {
            std::signal(SIGFPE, [](int) {});
            check(OPERATION_READ, 1, 0);
        },
        KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, EndsItAlsoWithoutAService) {
    connector.disconnect_service();
    EXPECT_EXIT(check(OPERATION_READ, 1, 0), KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, LeavesAnIdleSampleAlone) { check(OPERATION_READ, 0, 0); }

TEST_F(ZeroRateDeathTest, OfOneDirectionLeavesTheOtherAlone) { check(OPERATION_WRITE, 1, 0); }

TEST_F(ZeroRateDeathTest, IsAlsoLeftByMoreConnectionsThanBytesPerSecond) {
    tell_counts(1, 1000);
    check(OPERATION_WRITE, 1, 0); // one byte per second for each
    EXPECT_EXIT(move_after(1, 1001, OPERATION_WRITE), KilledBySignal(SIGFPE), "");
}

TEST_F(ZeroRateDeathTest, IsAlsoLeftByANegativeOrVeryLargeConnectionCount) {
    config.read_bandwidth_percent = 100;
    start();
    for (const long count : {-1L, INT64_MIN, INT64_MAX}) {
        EXPECT_EXIT(move_after(1, count, OPERATION_WRITE), KilledBySignal(SIGFPE), "") << count;
        EXPECT_EXIT(move_after(count, 1, OPERATION_READ), KilledBySignal(SIGFPE), "") << count;
    }
}

TEST_F(ZeroRateDeathTest, IsAlsoLeftByAPercentThatTruncatesTo0) {
    config.avail_bandwidth = 99;
    config.read_bandwidth_percent = 1;
    start();
    EXPECT_EXIT(check(OPERATION_READ, 1, 0), KilledBySignal(SIGFPE), "");
}

} // namespace
