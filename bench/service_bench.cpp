// What the service carries: exchanges a second from 1, 16 and 256 clients at once, each beside a
// bare _non_existent over the same connections in turns with it, and the memory that a session
// takes. Prints two Markdown tables.
//
//   service_bench VLSLD [SECONDS]    the program to measure, and how long each figure is taken

#include "bench/service_child.h"

#include "tests/service/wire_client.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;

/// Calls a second of `call` from all sessions at once, a thread each.
double rate_of(const std::list<remote_session>& sessions, double seconds,
               const std::function<void(const remote_session&)>& call) {
    std::atomic<bool> is_over = false;
    std::atomic<long> calls = 0;
    std::vector<std::thread> threads;
    const auto start = steady::now();
    for (const remote_session& each : sessions) {
        threads.emplace_back([&] {
            long own = 0;
            for (; !is_over; ++own) {
                call(each);
            }
            calls += own;
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    is_over = true;
    for (std::thread& each : threads) {
        each.join();
    }
    const std::chrono::duration<double> taken = steady::now() - start;
    return static_cast<double>(calls) / taken.count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Both in turns, so that what slows the machine for a while slows both.
void print_rates(int port, int clients, double seconds) {
    constexpr int turns = 5;
    std::list<remote_session> sessions;
    for (int each = 0; each < clients; ++each) {
        sessions.emplace_back(port);
    }
    std::vector<double> reports;
    std::vector<double> bare;
    for (int turn = 0; turn < turns; ++turn) {
        reports.push_back(rate_of(sessions, seconds / turns, [](const remote_session& each) {
            each.report("w:bench", 1'000'000, 30);
        }));
        bare.push_back(rate_of(sessions, seconds / turns,
                               [](const remote_session& each) { each.query->_non_existent(); }));
    }
    printf("| %d | %.0f | %.0f | %.2f |\n", clients, median(reports), median(bare),
           median(reports) / median(bare));
    fflush(stdout);
    for (const remote_session& each : sessions) {
        each.session->destroy();
    }
}

void print_memory(const service_child& service) {
    constexpr int count = 20'000;
    const auto open = [&](int number) {
        for (int each = 0; each < number; ++each) {
            const remote_session session(service.port());
            session.check_connections("a:bench", 1);
            session.report("w:bench", 1'000'000, 30);
        }
    };
    remote_session(service.port())
        .configure("name=THR:bench,description=d,type=int,value=1000000,fixed=n;");
    open(1000); // what is needed anyway is there by now
    const double before = service.resident_bytes();
    open(count);
    printf("| %d | %.0f |\n", count, (service.resident_bytes() - before) / count);
}

} // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 2 ? atof(argv[2]) : 10;
    if (argc < 2 || argc > 3 || seconds <= 0) {
        fprintf(stderr, "usage: service_bench VLSLD [SECONDS]\n");
        return 2;
    }
    try {
        const service_child service(argv[1]);
        printf("| Clients | Reports a second | `_non_existent` a second | Ratio |\n"
               "| ---: | ---: | ---: | ---: |\n");
        for (const int clients : {1, 16, 256}) {
            print_rates(service.port(), clients, seconds);
        }
        printf("\n| Sessions | Bytes of the service for each |\n| ---: | ---: |\n");
        print_memory(service);
        return EXIT_SUCCESS;
    } catch (const CORBA::Exception& error) {
        fprintf(stderr, "service_bench: CORBA::%s\n", error._name());
        return EXIT_FAILURE;
    }
}
