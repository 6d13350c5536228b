// Whole days and weeks of transfers on virtual time: what they achieve is the allowed rate. Above
// it the bound is hard, one sample that began at another rate and one block; below it is soft.

#include "tests/engine/engine_fixture.h"

#include <algorithm>
#include <array>

using testing::AllOf;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

namespace {

constexpr time_t hour = 3600;
constexpr uint64_t megabyte = 1'000'000; // also microseconds of a second

/// A stream that moves blocks through a connector as fast as its device and its pacing let it.
struct stream {
    uint64_t block; ///< bytes
    uint64_t speed; ///< bytes per second of the device
    operation_type_t operation = OPERATION_WRITE;
};

class Simulation : public engine_test {
  protected:
    Simulation() {
        session.log_mask = 0;
        clock.on_sleep = nullptr;
        service().on_exchange = nullptr;
        config.avail_bandwidth = megabyte;
        config.sample_interval = 60;
    }

    /// Runs a stream through the connector for some hours from the clock's time on: the bytes that
    /// it moves in each of them.
    std::vector<uint64_t> run(const stream& transfer, int hours) {
        const time_t began = clock.now();
        std::vector<uint64_t> moved(static_cast<size_t>(hours));
        bandwidth_s current = sample(transfer.operation, 0, 0);
        uint64_t microseconds = 0; // within the clock's second
        int force = 1;
        while (clock.now() < began + hours * hour) {
            connector.check_bandwidth(&current, 0, force);
            force = 0;
            microseconds += transfer.block * megabyte / transfer.speed;
            clock.advance(static_cast<time_t>(microseconds / megabyte));
            microseconds %= megabyte;
            current.data_length += transfer.block;
            const auto which = static_cast<size_t>((clock.now() - began) / hour);
            if (which < moved.size()) {
                moved[which] += transfer.block;
            }
        }
        return moved;
    }

    /// An hour's bytes at that rate.
    auto keeps_to(uint64_t rate, uint64_t block) {
        const auto interval = static_cast<uint64_t>(config.sample_interval);
        return AllOf(Le(rate * (hour + interval) + block), Ge(rate * hour / 100 * 95));
    }
};

TEST_F(Simulation, ADayOfOneRateAchievesItAndDoesNotDrift) {
    start();
    const stream fast = {64 * 1024, 50 * megabyte};
    uint64_t all = 0;
    for (const uint64_t moved : run(fast, 24)) {
        EXPECT_THAT(moved, keeps_to(megabyte, fast.block));
        all += moved;
    }
    const uint64_t reports = service().take().size();
    EXPECT_LE(all, 24 * hour * megabyte + reports * fast.block); // each may be one block late
}

TEST_F(Simulation, ADayOfLongIntervalsAchievesTheRateToo) {
    config.sample_interval = 600;
    start();
    const stream fast = {256 * 1024, 50 * megabyte};
    for (const uint64_t moved : run(fast, 24)) {
        EXPECT_THAT(moved, keeps_to(megabyte, fast.block));
    }
}

TEST_F(Simulation, ADayWithoutAServiceAchievesTheRateToo) {
    start();
    connector.disconnect_service();
    const stream fast = {128 * 1024, 50 * megabyte};
    for (const uint64_t moved : run(fast, 24)) {
        EXPECT_THAT(moved, keeps_to(megabyte, fast.block));
    }
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Simulation, ADayOfAServiceThatIsDownAchievesTheRateToo) {
    service().usual = {STS_ERR_FILE, "", false};
    start();
    const stream fast = {128 * 1024, 50 * megabyte};
    for (const uint64_t moved : run(fast, 24)) {
        EXPECT_THAT(moved, keeps_to(megabyte, fast.block));
    }
}

TEST_F(Simulation, AStreamSlowerThanItsRateIsNeverDelayed) {
    start();
    const stream slow = {128 * 1024, megabyte * 9 / 10};
    for (const uint64_t moved : run(slow, 24)) {
        EXPECT_THAT(moved,
                    AllOf(Ge(slow.speed * hour - slow.block), Le(slow.speed * hour + slow.block)));
    }
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(Simulation, AWeekOfWorkOffAndWeekendPercentsAchievesEachHoursRate) {
    config.work_time_start = 8;
    config.work_time_end = 16;
    config.work_time_bandwidth_percent = 40;
    config.off_time_start = 20;
    config.off_time_end = 6;
    config.off_time_bandwidth_percent = 80;
    config.weekend_bandwidth_percent = 30;
    config.write_bandwidth_percent = 50;
    start();
    const auto percent_at = [](int weekday, int hour_of_day) {
        if (weekday == 6) {
            return 30;
        }
        if (hour_of_day >= 20 || hour_of_day < 6) {
            return 80;
        }
        return hour_of_day >= 8 && hour_of_day < 16 ? 40 : 100;
    };

    clock.set(local_time(2024, 3, 3)); // a Sunday
    const stream fast = {128 * 1024, 50 * megabyte};
    const std::vector<uint64_t> week = run(fast, 7 * 24);
    for (int at = 0; at < 7 * 24; ++at) {
        const auto percent = static_cast<uint64_t>(percent_at(at / 24, at % 24));
        EXPECT_THAT(week[static_cast<size_t>(at)],
                    keeps_to(megabyte / 2 * percent / 100, fast.block))
            << "hour " << at % 24 << " of day " << at / 24;
    }
}

TEST_F(Simulation, ReadsAndWritesKeepToRatesOfTheirOwn) {
    config.read_bandwidth_percent = 70;
    config.write_bandwidth_percent = 30;
    start();
    const stream reads = {128 * 1024, 50 * megabyte, OPERATION_READ};
    for (const uint64_t moved : run(reads, 4)) {
        EXPECT_THAT(moved, keeps_to(megabyte * 7 / 10, reads.block));
    }
    const stream writes = {128 * 1024, 50 * megabyte, OPERATION_WRITE};
    for (const uint64_t moved : run(writes, 4)) {
        EXPECT_THAT(moved, keeps_to(megabyte * 3 / 10, writes.block));
    }
}

TEST_F(Simulation, ConnectionsShareTheRateEvenlyHoweverTheyMoveTheirData) {
    const std::array<stream, 3> different = {
        {{64 * 1024, 50 * megabyte}, {16 * 1024, 3 * megabyte}, {100'000, 700'000}}};
    for (const uint64_t connections : {2U, 3U}) {
        service().usual.out = reply_text(1, static_cast<long>(connections), 0, 0);
        const time_t began = local_time(2024, 3, 4, 10);
        std::vector<uint64_t> together(5);
        for (size_t which = 0; which < connections; ++which) {
            clock.set(began); // each in a process of its own, at the same time
            start();
            const std::vector<uint64_t> moved = run(different[which], 5);
            for (size_t at = 0; at < moved.size(); ++at) {
                EXPECT_THAT(moved[at], keeps_to(megabyte / connections, different[which].block));
                together[at] += moved[at];
            }
            connector.disconnect_service();
        }
        for (const uint64_t moved : together) {
            EXPECT_THAT(moved, keeps_to(megabyte, 200'000));
        }
    }
}

TEST_F(Simulation, AShareFollowsTheConnectionsThatComeAndGo) {
    const time_t began = clock.now();
    const std::array<long, 5> connections = {1, 2, 3, 2, 1};
    service().on_exchange = [&](const exchange&) {
        const auto which = static_cast<size_t>((clock.now() - began) / hour);
        service().usual.out = reply_text(1, connections[std::min<size_t>(which, 4)], 0, 0);
    };
    start();
    const stream fast = {128 * 1024, 50 * megabyte};
    const std::vector<uint64_t> moved = run(fast, 5);
    for (size_t at = 0; at < moved.size(); ++at) {
        EXPECT_THAT(moved[at],
                    keeps_to(megabyte / static_cast<uint64_t>(connections[at]), fast.block))
            << at;
    }
}

TEST_F(Simulation, AWaitOfTheServiceIsWaitedInFull) {
    config.sample_interval = 600;
    service().usual.out = reply_text(1, 1, 0, 60);
    start();
    const stream slow = {64 * 1024, megabyte / 2}; // by itself it would never be delayed
    const time_t began = clock.now();
    run(slow, 10);
    unsigned slept = 0;
    for (const unsigned seconds : clock.take_sleeps()) {
        slept += seconds;
    }
    const size_t reports = service().take().size();
    EXPECT_GE(reports, 50U);
    EXPECT_LE(slept, 60 * reports);
    EXPECT_GE(slept, 60 * (reports - 1)); // what the last one asked for is under way
    EXPECT_GE(clock.now(), began + 10 * hour);
}

} // namespace
