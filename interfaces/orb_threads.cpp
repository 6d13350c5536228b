#include "interfaces/orb_threads.h"

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

OMNI_USING_NAMESPACE(omni)

namespace {

/// The ORB's threads, by the kernel's number for each.
class known_threads {
  public:
    void add(pid_t one) {
        const std::lock_guard lock(guard_);
        forget_those_gone(); // else they would grow in number
        all_.push_back(one);
    }
    bool are_there() {
        const std::lock_guard lock(guard_);
        forget_those_gone();
        return !all_.empty();
    }

  private:
    void forget_those_gone() {
        const auto is_gone = [](pid_t one) {
            return access(("/proc/self/task/" + std::to_string(one)).c_str(), F_OK) != 0;
        };
        all_.erase(std::remove_if(all_.begin(), all_.end(), is_gone), all_.end());
    }

    std::mutex guard_;
    std::vector<pid_t> all_;
};

/// Never destroyed: a thread may outlive all that is.
known_threads& known() {
    static known_threads& threads = *new known_threads;
    return threads;
}

/// Called on each thread that the ORB makes.
void runs(omniInterceptors::createThread_T::info_T& thread) {
    known().add(static_cast<pid_t>(syscall(SYS_gettid)));
    thread.run();
}

} // namespace

void watch_orb_threads() { omniORB::getInterceptors()->createThread.add(runs); }

void await_orb_threads() {
    for (int moments = 0; moments < 1000 && known().are_there(); ++moments) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
