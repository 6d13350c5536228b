#include "tools/supervise.h"

#include "tools/console.h"
#include "tools/failure.h"
#include "tools/progress.h"

#include <atomic>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr long look_interval = 50'000'000; // nanoseconds

/// While one lives, SIGINT and SIGTERM are only taken by `next`. Threads made meanwhile don't see
/// them either.
class signals {
  public:
    signals() {
        sigemptyset(&waited_for_);
        sigaddset(&waited_for_, SIGINT);
        sigaddset(&waited_for_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &waited_for_, &before_);

        // Cuts a sleep short and does nothing else.
        struct sigaction nudge = {};
        nudge.sa_handler = [](int) {};
        sigaction(SIGUSR1, &nudge, nullptr);
    }
    ~signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    signals(const signals&) = delete;
    signals& operator=(const signals&) = delete;

    /// Waits a moment. True when a signal came.
    bool next() const {
        const timespec moment = {0, look_interval};
        return sigtimedwait(&waited_for_, nullptr, &moment) > 0;
    }

  private:
    sigset_t waited_for_ = {};
    sigset_t before_ = {};
};

void take_signal(transfer& run) {
    if (run.is_interrupted()) {
        console::get().clear_bars();
        _exit(EXIT_INTERRUPTED);
    }
    run.interrupt();
    console::get().line("Stopping. Once more ends at once.");
}

} // namespace

std::exception_ptr supervise(transfer& run, const std::function<void()>& job) {
    const signals caught;
    std::exception_ptr thrown;
    std::atomic<bool> done{false};
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
    });
    progress_view view(run);
    while (!done) {
        if (caught.next()) {
            take_signal(run);
        }
        if (run.is_stopping()) {
            run.poke_threads();
        }
        run.tick();
        view.show();
    }
    worker.join();
    run.finish();
    view.clear();
    return thrown;
}
