#include "tests/common/sem_calls.h"

#include "tests/support/next_function.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

union semun {
    int val;
    void* pointer;
};

auto* const real_semget = next_function<int(key_t, int, int)>("semget");
auto* const real_semctl = next_function<int(int, int, int, ...)>("semctl");
auto* const real_semop = next_function<int(int, sembuf*, size_t)>("semop");
auto* const real_semtimedop =
    next_function<int(int, sembuf*, size_t, const timespec*)>("semtimedop");

/// What this process and all that are forked from it write.
struct census {
    std::atomic<int> interruptions;
    std::atomic<unsigned> count;
    std::atomic<int> sets[65536]; ///< each set made
};

census* const shared = static_cast<census*>(
    mmap(nullptr, sizeof(census), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

struct planned_failure {
    int error;
    int times;
};

std::mutex guard; // of the three below
std::vector<std::string> kept;
std::map<std::string, planned_failure> failures;
std::map<std::string, std::function<void()>> actions;

/// One call: keeps it, makes it or has it fail, and runs what is to follow it.
int made(const std::string& text, const std::function<int()>& call) {
    bool planned = false;
    int error = 0;
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(guard);
        kept.push_back(text);
        if (const auto found = failures.find(text); found != failures.end()) {
            planned = true;
            error = found->second.error;
            if (--found->second.times == 0) {
                failures.erase(found);
            }
        }
        if (const auto found = actions.find(text); found != actions.end()) {
            action = std::move(found->second);
            actions.erase(found);
        }
    }
    int result = error == 0 ? 0 : -1;
    if (!planned) {
        result = call();
        error = errno;
        if (result == -1 && error == EINTR) {
            ++shared->interruptions;
        }
    }
    if (action) {
        action();
    }
    errno = error;
    return result;
}

std::string step(const char* call, const sembuf* words, size_t count) {
    std::string text = call;
    for (const sembuf* word = words; word != words + count; ++word) {
        text += " " + std::to_string(word->sem_num) + " " + std::to_string(word->sem_op) +
                (word->sem_flg == SEM_UNDO ? " undo" : " flags " + std::to_string(word->sem_flg));
    }
    return text;
}

std::string command_name(int command) {
    switch (command) {
    case SETVAL:
        return "SETVAL";
    case GETVAL:
        return "GETVAL";
    case IPC_RMID:
        return "IPC_RMID";
    default:
        return std::to_string(command);
    }
}

/// At the program's end every set that it made is gone, whichever of its processes made it.
class no_set_left : public testing::Environment {
    void TearDown() override {
        const unsigned count = shared->count.exchange(0);
        ASSERT_LE(count, std::size(shared->sets)) << "more sets than are watched";
        for (unsigned i = 0; i < count; ++i) {
            const int set = shared->sets[i];
            if (sem_calls::exists(set)) {
                ADD_FAILURE() << "semaphore set " << set << " is left behind";
                sem_calls::remove(set);
            }
        }
    }
};

const testing::Environment* const watch = testing::AddGlobalTestEnvironment(new no_set_left);

} // namespace

namespace sem_calls {

std::vector<std::string> take() {
    const std::lock_guard<std::mutex> lock(guard);
    return std::exchange(kept, {});
}

void fail(const std::string& call, int error, int times) {
    const std::lock_guard<std::mutex> lock(guard);
    failures[call] = {error, times};
}

void after(const std::string& call, std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(guard);
    actions[call] = std::move(action);
}

void clear() {
    const std::lock_guard<std::mutex> lock(guard);
    kept.clear();
    failures.clear();
    actions.clear();
}

int interruptions() { return shared->interruptions; }

int value(const SemId& id) { return real_semctl(id.semid, id.semnum, GETVAL); }

int takers(const SemId& id) { return real_semctl(id.semid, id.semnum, GETNCNT); }

int waiters(const SemId& id) { return real_semctl(id.semid, id.semnum, GETZCNT); }

bool exists(int set) { return real_semctl(set, 0, GETVAL) != -1; }

void remove(int set) { real_semctl(set, 0, IPC_RMID); }

} // namespace sem_calls

bool comes_true(const std::function<bool()>& reached) {
    for (int milliseconds = 0; milliseconds < 60000; ++milliseconds) {
        if (reached()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return reached();
}

extern "C" {

__attribute__((visibility("default"))) int semget(key_t key, int count, int flags) noexcept {
    char text[64];
    snprintf(text, sizeof text, "semget %s %d %o", key == IPC_PRIVATE ? "private" : "key", count,
             static_cast<unsigned>(flags));
    const int set = made(text, [&] { return real_semget(key, count, flags); });
    if (set != -1) {
        if (const unsigned index = shared->count++; index < std::size(shared->sets)) {
            shared->sets[index] = set;
        }
    }
    return set;
}

__attribute__((visibility("default"))) int semctl(int set, int index, int command, ...) noexcept {
    va_list list;
    va_start(list, command);
    const semun argument = command == SETVAL ? va_arg(list, semun) : semun{};
    va_end(list);
    std::string text = "semctl " + std::to_string(index) + " " + command_name(command);
    if (command == SETVAL) {
        text += " " + std::to_string(argument.val);
    }
    return made(text, [&] { return real_semctl(set, index, command, argument); });
}

__attribute__((visibility("default"))) int semop(int set, sembuf* words, size_t count) noexcept {
    return made(step("semop", words, count), [&] { return real_semop(set, words, count); });
}

__attribute__((visibility("default"))) int semtimedop(int set, sembuf* words, size_t count,
                                                      const timespec* timeout) noexcept {
    char limit[64] = ", no limit";
    if (timeout != nullptr) {
        snprintf(limit, sizeof limit, ", %ld.%09ld s", static_cast<long>(timeout->tv_sec),
                 timeout->tv_nsec);
    }
    return made(step("semtimedop", words, count) + limit,
                [&] { return real_semtimedop(set, words, count, timeout); });
}

__attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    return made("usleep " + std::to_string(microseconds), [] { return 0; });
}

} // extern "C"
