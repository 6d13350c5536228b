#include "tools/terminal/signals.h"

#include <ctime>
#include <pthread.h>

signals::signals() {
    sigemptyset(&waited_for_);
    sigaddset(&waited_for_, SIGINT);
    sigaddset(&waited_for_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &waited_for_, &before_);
}

signals::~signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

bool signals::next(std::chrono::milliseconds moment) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(moment);
    const timespec limit = {seconds.count(), std::chrono::nanoseconds(moment - seconds).count()};
    return sigtimedwait(&waited_for_, nullptr, &limit) > 0;
}
