#include "platform/vlorb/threads.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <omniORB4/CORBA.h>
#include <omniORB4/omniInterceptors.h>

namespace {

using omni::omniInterceptors;

/// The ORB's threads by the kernel's number for each. Never destroyed: a thread may outlive all that is.
struct known_threads {
    std::mutex guard;
    std::vector<pid_t> all;
};
known_threads& known() {
    static known_threads& threads = *new known_threads;
    return threads;
}

bool is_gone(pid_t thread) {
    return access(("/proc/self/task/" + std::to_string(thread)).c_str(), F_OK) != 0;
}

/// Whether any is there yet; forgets those that aren't.
bool are_there(known_threads& threads) {
    const std::lock_guard lock(threads.guard);
    threads.all.erase(std::remove_if(threads.all.begin(), threads.all.end(), is_gone),
                      threads.all.end());
    return !threads.all.empty();
}

/// Called on each thread that the ORB makes.
void runs(omniInterceptors::createThread_T::info_T& thread) {
    are_there(known()); // else they would grow in number
    {
        const std::lock_guard lock(known().guard);
        known().all.push_back(static_cast<pid_t>(syscall(SYS_gettid)));
    }
    thread.run();
}

} // namespace

void watch_orb_threads() { omniORB::getInterceptors()->createThread.add(runs); }

void await_orb_threads() {
    constexpr auto moment = std::chrono::milliseconds(1);
    for (int moments = 0; moments < 1000 && are_there(known()); ++moments) {
        std::this_thread::sleep_for(moment);
    }
}
