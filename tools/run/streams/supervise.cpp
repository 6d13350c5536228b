#include "tools/run/streams/supervise.h"

#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/signals.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <unistd.h>

namespace {

constexpr auto look_interval = std::chrono::milliseconds(50);

/// SIGUSR1 ends a sleep and does nothing else.
void let_sleeps_be_cut_short() {
    struct sigaction nudge = {};
    nudge.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nudge, nullptr);
}

void take_signal(transfer& run) {
    if (run.is_interrupted()) {
        console::get().clear_bars();
        _exit(EXIT_INTERRUPTED);
    }
    run.interrupt();
    console::get().line("Stopping. Once more ends at once.");
}

} // namespace

std::exception_ptr supervise(transfer& run, progress_view& view, const std::function<void()>& job,
                             const std::function<void()>& look) {
    const signals caught;
    let_sleeps_be_cut_short();
    std::exception_ptr thrown;
    std::atomic<bool> done{false};
    const pthread_t waiting = pthread_self();
    std::thread worker([&] {
        {
            const transfer::pokable me(run);
            try {
                job();
            } catch (...) {
                thrown = std::current_exception();
            }
        }
        done = true;
        pthread_kill(waiting, SIGUSR1); // ends its wait for a signal
    });
    while (!done) {
        if (caught.next(look_interval)) {
            take_signal(run);
        }
        if (run.is_stopping()) {
            run.poke_threads();
        }
        run.tick();
        look();
        view.show();
    }
    worker.join();
    run.finish();
    view.clear();
    look();
    return thrown;
}
