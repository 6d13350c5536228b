// No memory in the client of the service: an allocation fails while an exchange runs. Each one has
// its turn, from the first to the last; the exchange gets over it or fails, data flows, and the
// next exchange is as good as ever.
//
// What makes or ends the connection is another matter: out of there only the exceptions of the
// service and of the ORB may come, and any other ends the process; and the ORB itself isn't clean
// when it runs out of memory over a new connection. So these allocations fail in children only, in
// the last tests.

#include "tests/faults/faulty_host.h"
#include "tests/support/fault.h"
#include "tests/support/process_state.h"
#include "tests/support/reply_text.h"
#include "tests/support/scripted_service.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <map>
#include <numeric>
#include <sys/wait.h>
#include <unistd.h>

using testing::Contains;
using testing::StartsWith;

namespace {

using step = std::function<void()>;

constexpr int limit = 2000; ///< allocations, far more than any step makes

/// The host's log: it takes no memory, so that it is the plugin's that fails.
void drop_line(const char*, const char*, sts_severity_v7_t) {}

class NoMemory : public FaultyHost {
  protected:
    NoMemory() { session.log = drop_line; }
    void TearDown() override {
        fault::clear();
        if (longest_delay_ > 0) {
            std::cout << "delay of a step with a failing allocation: at most " << longest_delay_
                      << " s\n";
            EXPECT_LT(longest_delay_, time_out + slack);
        }
        FaultyHost::TearDown();
    }

    /// Runs the step with that allocation of it failing, 0 for the first. Whether it has so many.
    static bool with_one_failing(int allocation, const step& run) {
        fault::take_allocations();
        fault::fail_new_after(allocation);
        run();
        fault::fail_new_after(-1);
        return fault::take_allocations() > allocation;
    }

    /// Runs `run` between `before` and `after` with its first allocation failing, its second, ...
    /// How many it has.
    int with_each_failing(const step& before, const step& run, const step& after) {
        int allocation = -1;
        bool failed = true;
        while (failed && allocation < limit) {
            before();
            const double delay = seconds_of([&] { failed = with_one_failing(++allocation, run); });
            longest_delay_ = std::max(longest_delay_, delay);
            after();
        }
        EXPECT_LT(allocation, limit) << "there is no end to it";
        return allocation;
    }

    /// The same over and over, which must leave nothing behind.
    void expect_no_leak(const step& before, const step& run, const step& after) {
        constexpr int rounds = 10;
        const int allocations = with_each_failing(before, run, after); // what stays, stays
        EXPECT_GT(allocations, 0);
        long growth = std::numeric_limits<long>::max();
        for (int span = 0; span < 3;
             ++span) { // what a thread of the ORB's takes once is in one alone
            const auto early = static_cast<long>(allocated());
            for (int round = 0; round < rounds; ++round) {
                with_each_failing(before, run, after);
            }
            growth = std::min(growth, static_cast<long>(allocated()) - early);
        }
        EXPECT_LT(growth / rounds, 16) << "bytes in " << allocations << " failed allocations";
        std::cout << allocations << " allocations fail in turn, and leave " << growth
                  << " bytes after " << rounds << " rounds\n";
    }

    /// The service is asked, and what it answers is taken.
    void expect_next_transfer_is_counted() {
        service.take();
        image->write();
        EXPECT_THAT(service.take(), Contains(StartsWith("check_bandwidth(\"w:s3\"")));
    }

    remote_service service;

  private:
    double longest_delay_ = 0; ///< seconds
};

const step nothing = [] {};

class NoMemoryOverAConnectionRealTime : public NoMemory {
  protected:
    NoMemoryOverAConnectionRealTime() {
        open_server();
        open();
        image->write();
    }

    const step write = [this] { image->write(); };
    /// An exchange that fails may close its connection; this one, with all the memory it needs,
    /// makes another.
    const step reconnect = write;
};

TEST_F(NoMemoryOverAConnectionRealTime, InATransferLetsItsDataThrough) {
    expect_no_leak(reconnect, write, nothing);
    image->read_back();
    expect_next_transfer_is_counted();
}

TEST_F(NoMemoryOverAConnectionRealTime, InATransferWithSomethingToHearLetsItsDataThrough) {
    service.answer("check_bandwidth", returns(0, reply_text(2, 3)));
    expect_no_leak(reconnect, write, nothing);
    expect_next_transfer_is_counted();
}

TEST_F(NoMemoryOverAConnectionRealTime,
       InATransferWhoseReportIsAnsweredByAnExceptionLetsItsDataThrough) {
    service.answer("check_bandwidth", raises_operation_failed({1, 2, 3}));
    expect_no_leak(reconnect, write, nothing);
    service.answer("check_bandwidth", {});
    expect_next_transfer_is_counted();
}

TEST_F(NoMemoryOverAConnectionRealTime, InAnImagesCloseLetsItClose) {
    image.reset(); // its connection is given back by the last one's close
    const auto begin = [this] {
        open();
        image->write();
    };
    expect_no_leak(
        begin, [this] { image.reset(); }, nothing);
    begin();
    expect_next_transfer_is_counted();
}

TEST_F(NoMemoryOverAConnectionRealTime, InAnotherImagesOpenFailsItForWantOfItsOwnHandleOnly) {
    sts_lsu_ref_s lsu = {};
    lsu.server = server->handle;
    const auto* const definition = reinterpret_cast<const sts_image_def_s*>(&lsu);
    throttling_image_s* second = nullptr;
    int status = STS_OK;
    std::map<int, int> seen; // how often each status
    const auto open_second = [&] {
        status = server->entries.create_image_v10(&lsu, definition, 1, &second);
    };
    const auto close_second = [&] {
        ++seen[status];
        if (status == STS_OK) {
            EXPECT_EQ(server->entries.close_image_v7(second, 0, 0), STS_OK);
        }
    };
    const int allocations = with_each_failing(reconnect, open_second, close_second);
    EXPECT_EQ(seen[STS_ERR_NOMEM], 1);
    EXPECT_EQ(seen[STS_OK], allocations); // the last time, nothing failed
    expect_no_leak(reconnect, open_second, close_second);
    expect_next_transfer_is_counted();
}

// --- while the connection is made or ends ------------------------------------------------------

/// How children end.
enum ending { survived, nothing_failed, data_stopped };
constexpr int aborted = -SIGABRT;

class NoMemoryOfTheConnection : public NoMemory {
  protected:
    /// How a child ends in which that allocation of `run` fails: an ending, or the signal,
    /// negative.
    int end_of_child(int allocation, const step& before, const step& run, const step& after) {
        const pid_t child = fork();
        if (child == 0) {
            dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO); // what an abort says
            alarm(30);
            before();
            const bool failed = with_one_failing(allocation, run);
            after();
            _exit(HasFailure() ? data_stopped : failed ? survived : nothing_failed);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    /// How often each end comes when each allocation of `run` in turn fails in a child of its own.
    std::map<int, int> ends_of(const step& before, const step& run, const step& after) {
        std::map<int, int> ends;
        int allocation = 0;
        for (int end = survived; end != nothing_failed && allocation < limit; ++allocation) {
            ++ends[end = end_of_child(allocation, before, run, after)];
        }
        EXPECT_LT(allocation, limit) << "there is no end to it";
        std::cout << ends[aborted] << " allocations end the process, " << ends[survived]
                  << " don't\n";
        return ends;
    }

    /// Data flows or the process aborts: there is no other end. The first comes to some.
    static void expect_flow_or_abort(std::map<int, int> ends) {
        EXPECT_GT(ends[survived], 0);
        EXPECT_EQ(ends[survived] + ends[aborted] + ends[nothing_failed], total(ends));
    }

    static int total(const std::map<int, int>& ends) {
        return std::accumulate(ends.begin(), ends.end(), 0,
                               [](int sum, const auto& each) { return sum + each.second; });
    }
};

TEST_F(NoMemoryOfTheConnection, WhileItIsMadeEndsTheProcessOrLetsDataThrough) {
    open_server();
    sts_lsu_ref_s lsu = {};
    lsu.server = server->handle;
    const auto* const definition = reinterpret_cast<const sts_image_def_s*>(&lsu);
    throttling_image_s* first = nullptr;
    int status = STS_OK;
    const auto open_first = [&] {
        status = server->entries.create_image_v10(&lsu, definition, 1, &first);
    };
    const auto go_on = [&] {
        EXPECT_TRUE(status == STS_OK || status == STS_ERR_NOMEM) << status;
        open();
        image->write();
    };
    const std::map<int, int> ends = ends_of(nothing, open_first, go_on);
    expect_flow_or_abort(ends);
    EXPECT_GT(ends.at(aborted), 0);
}

TEST_F(NoMemoryOfTheConnection, WhileItEndsEndsTheProcessOrLetsTheServerClose) {
    const auto begin = [this] {
        open_server();
        open();
        image->write();
        image.reset();
    };
    const std::map<int, int> ends = ends_of(
        begin, [this] { server.reset(); }, nothing);
    expect_flow_or_abort(ends);
    EXPECT_GT(ends.at(aborted), 0);
}

/// The ORB's own destructors may let such an exception out of them, too.
TEST_F(NoMemoryOfTheConnection, WhileTheOrbReplacesALostOneEndsTheProcessOrLetsDataThrough) {
    const auto lose_connection = [this] {
        open_server();
        open();
        service.answer("check_bandwidth", {drops_connections(), {}});
        image->write();
    };
    const auto write = [this] { image->write(); };
    expect_flow_or_abort(ends_of(lose_connection, write, write));
}

} // namespace
