// Memory: none is taken on the common path, and a connector that finds none is usable afterwards.

#include "tests/engine/engine_fixture.h"

#include "tests/support/fault.h"

#include <new>

using testing::IsEmpty;

namespace {

/// A connector whose host wants no messages, so that only its own memory counts.
class Memory : public engine_test {
  protected:
    Memory() {
        session.log_mask = 0;
        service().on_exchange = nullptr;
        clock.on_sleep = nullptr;
    }
    ~Memory() override { fault::clear(); }

    /// Runs `action` with its first allocation failing, then its second, until one run has all it
    /// wants. Every failure must leave as the exception; `check` is run after each.
    template <typename Action, typename Check>
    static void fail_each_allocation(Action action, Check check) {
        for (int before = 0; before < 1000; ++before) {
            bool failed = false;
            fault::fail_new_after(before);
            try {
                action();
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            fault::fail_new_after(-1);
            check();
            if (!failed) {
                EXPECT_GT(before, 0) << "nothing was allocated";
                return;
            }
        }
        FAIL() << "allocates without an end";
    }

    /// The connector paces, with counts that are at least 1: a sample ahead of its rate sleeps.
    void expect_usable() {
        for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
            clock.take_sleeps();
            bandwidth_s moved = sample(operation, 0, 5000);
            EXPECT_EQ(connector.check_bandwidth(&moved, 0, 0), STS_OK);
            EXPECT_EQ(clock.take_sleeps().size(), 1U);
        }
        EXPECT_EQ(connector.check_connections(OPERATION_READ, 1, 0), STS_OK);
    }
};

// --- paths that take none

TEST_F(Memory, TheIdlePathAndTheCommonPathTakeNone) {
    start();
    bandwidth_s idle = sample(OPERATION_READ, 10, 0);
    bandwidth_s moved = sample(OPERATION_WRITE, 10, 5000);
    fault::take_allocations();
    for (int call = 0; call < 1000; ++call) {
        connector.check_bandwidth(&idle, 0, 0);
        connector.check_bandwidth(&moved, 0, 0);
    }
    EXPECT_EQ(fault::take_allocations(), 0);
    connector.check_bandwidth(&moved, 0, 1); // an exchange takes some: they are counted
    EXPECT_GT(fault::take_allocations(), 0);
}

TEST_F(Memory, CallsThatTheCountsAbsorbTakeNone) {
    start();
    connector.check_connections(OPERATION_READ_WRITE, 1, 0);
    fault::take_allocations();
    connector.check_connections(OPERATION_READ_WRITE, 1, 0);
    connector.check_connections(OPERATION_READ, 1, 0);
    connector.check_connections(OPERATION_READ, 1, 0);
    connector.check_connections(OPERATION_READ, -1, 0);
    EXPECT_EQ(fault::take_allocations(), 0);
}

TEST_F(Memory, RestartingASampleWithoutAServiceTakesNone) {
    start();
    connector.disconnect_service();
    bandwidth_s due = sample(OPERATION_READ, 30, 5000);
    fault::take_allocations();
    connector.check_bandwidth(&due, 0, 0);
    EXPECT_EQ(due.data_length, 0U);
    EXPECT_EQ(fault::take_allocations(), 0);
}

// --- memory that can't be had

TEST_F(Memory, WithoutItForTheClientTheStatusStaysAndAnotherTryConnects) {
    fault::fail_new_after(0);
    char type[] = "cloud";
    char name[] = "s3";
    EXPECT_EQ(connector.connect_service(&session, type, name), STS_ERR_NOT_INIT);
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(connector.connect_service(&session, type, name), STS_OK);
}

TEST_F(Memory, DisconnectOfOneThatNeededNoServiceLeavesThatStatus) {
    ASSERT_EQ(connect(connector, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
    char type[] = "cloud";
    char name[] = "s3";
    fault::fail_new_after(0); // a connect that gets no client answers the status as it was
    EXPECT_EQ(connector.connect_service(&session, type, name), STS_ERR_NO_SERVICE);
}

TEST_F(Memory, DisconnectOfOneThatWasConnectedMakesItNotConnected) {
    start();
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
    char type[] = "cloud";
    char name[] = "s3";
    fault::fail_new_after(0);
    EXPECT_EQ(connector.connect_service(&session, type, name), STS_ERR_NOT_INIT);
}

TEST_F(Memory, AReportWithoutItThrowsAndLeavesTheConnectorUsable) {
    start();
    service().usual.out = reply_text(2, 3, 4, 0);
    fail_each_allocation(
        [&] {
            bandwidth_s due = sample(OPERATION_READ, 30, 1);
            connector.check_bandwidth(&due, 0, 0);
        },
        [&] { expect_usable(); });
    EXPECT_FALSE(service().take().empty());
}

TEST_F(Memory, AnAdmissionWithoutItThrowsAndLeavesTheConnectorUsable) {
    start();
    service().usual.out = reply_text(2, 3, 4, 0);
    fail_each_allocation([&] { connector.check_connections(OPERATION_READ_WRITE, -1, 0); },
                         [&] { expect_usable(); });
    EXPECT_FALSE(service().take().empty());
}

TEST_F(Memory, AReplyOfCount0ThatRunsOutOfItLeavesNoCountAt0) {
    start();
    service().usual.out = reply_text(0, 0, 0, 0);
    fail_each_allocation([&] { connector.check_connections(OPERATION_READ_WRITE, -1, 0); },
                         [&] { expect_usable(); });
}

TEST_F(Memory, TakingSettingsWithoutItThrowsAndLeavesTheConnectorUsable) {
    config.connections = {{"a storage with a longer name", 1}, {"another one with a long name", 2}};
    start();
    fail_each_allocation([&] { connector.set_config_params(&config, 0); },
                         [&] { expect_usable(); });
    EXPECT_FALSE(service().take().empty());
}

TEST_F(Memory, AnExchangeThatRunsOutOfItLeavesTheReferenceCounted) {
    start();
    service().replies.push_back({STS_OK, "", true, true});
    EXPECT_THROW(connector.check_connections(OPERATION_READ_WRITE, 1, 0), std::bad_alloc);
    service().take();
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty()); // the second
}

TEST_F(Memory, AReportThatRunsOutOfItIsTriedAgainByTheNextCall) {
    start();
    service().replies.push_back({STS_OK, "", true, true});
    bandwidth_s due = sample(OPERATION_READ, 30, 7);
    EXPECT_THROW(connector.check_bandwidth(&due, 0, 0), std::bad_alloc);
    EXPECT_EQ(due.data_length, 7U);
    service().take();
    EXPECT_EQ(connector.check_bandwidth(&due, 0, 0), STS_OK);
    EXPECT_EQ(only_exchange().data_length, 7U);
}

} // namespace
