#include "service/signals.h"

#include <cstdlib>
#include <initializer_list>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

void end_now(int) {
    constexpr char text[] = "vlsld: stopping took too long, so it ends with something undone\n";
    pollfd error = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&error, 1, 0) > 0 && write(STDERR_FILENO, text, sizeof text - 1) < 0) {
        // Nobody reads it.
    }
    _exit(EXIT_FAILURE);
}

} // namespace

sigset_t take_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&signals, each);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return signals;
}

void bound_the_end(const sigset_t& signals, int milliseconds) {
    signal(SIGALRM, end_now);
    const itimerval once = {{0, 0}, {milliseconds / 1000, milliseconds % 1000 * 1000}};
    setitimer(ITIMER_REAL, &once, nullptr);
    signal(SIGHUP, SIG_IGN);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}
