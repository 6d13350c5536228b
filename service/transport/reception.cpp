#include "service/transport/reception.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace transport {

namespace {

using std::chrono::milliseconds;

constexpr uint64_t waker_number = 0;
constexpr uint64_t first_guest = 100; ///< between are the listening sockets
constexpr size_t most_events = 256;   ///< at a time
constexpr int most_accepted = 64;     ///< at a time
constexpr int reserve = 32;           ///< descriptors, for all but connections
/// Deadlines that other threads have set are seen within that.
constexpr milliseconds longest_wait{500};
constexpr milliseconds recovery{100}; ///< after descriptors or memory were short

int descriptor_limit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 1 << 30));
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

} // namespace

reception::reception(std::vector<entrance> entrances, size_t longest_message,
                     std::chrono::seconds idle_time)
    : entrances_(std::move(entrances)), longest_message_(longest_message), idle_time_(idle_time),
      epoll_(epoll_create1(EPOLL_CLOEXEC)), waker_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      most_descriptors_(std::max(descriptor_limit() - reserve, 2 * reserve)),
      last_number_(first_guest) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = waker_number;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, waker_, &event) != 0) {
        throw std::runtime_error(std::string("can't watch connections: ") + strerror(errno));
    }
    for (const entrance& each : entrances_) {
        for (const int descriptor : each.sockets.descriptors()) {
            listening_.push_back({descriptor, each.identity.get()});
            event.data.u64 = waker_number + listening_.size();
            epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event);
        }
    }
}

reception::~reception() {
    close_all();
    close(waker_);
    close(epoll_);
}

reception::guest_ptr reception::run(const teller& tell) {
    for (size_t ready_turns = 0;;) {
        guest_ptr one;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (is_stopped_) {
                return nullptr;
            }
            if (ready_turns != 0 && !ready_.empty()) {
                one = ready_.front();
                --ready_turns;
            }
        }
        if (!one && next_event_ == events_.size()) {
            expire(tell);
            wait_for_events();
            const std::lock_guard<std::mutex> lock(mutex_);
            ready_turns = ready_.size();
            continue;
        }
        if (!one) {
            const uint64_t number = events_[next_event_++].data.u64;
            if (number > waker_number && number <= listening_.size()) {
                accept_from(listening_[number - 1], tell);
            }
            one = find(number);
        }
        if (one && serve(one, tell)) {
            return one;
        }
    }
}

void reception::wait_for_events() {
    milliseconds longest = longest_wait;
    const clock::time_point now = clock::now();
    if (deaf_until_ && *deaf_until_ <= now) {
        deaf_until_.reset();
        listen_again(true);
    }
    if (deaf_until_) {
        longest = recovery;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!ready_.empty()) {
            longest = milliseconds(0);
        } else if (!stalled_.empty()) {
            const auto left = stalled_.front()->queued_since + patience - now;
            longest = std::clamp(std::chrono::ceil<milliseconds>(left), milliseconds(1), longest);
        }
    }
    events_.resize(most_events);
    next_event_ = 0;
    const int count = epoll_wait(epoll_, events_.data(), static_cast<int>(most_events),
                                 static_cast<int>(longest.count()));
    events_.resize(static_cast<size_t>(std::max(count, 0)));
    uint64_t calls = 0;
    [[maybe_unused]] const ssize_t read_bytes = read(waker_, &calls, sizeof calls);
}

// --- connections come ---------------------------------------------------------------------------

void reception::accept_from(const address_to_accept& at, const teller& tell) {
    for (int accepted = 0; accepted < most_accepted; ++accepted) {
        const int descriptor = accept4(at.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor >= 0) {
            // Whoever has begun nothing, or not gone on, for the longest makes room.
            if (descriptor < most_descriptors_ || drop_longest_stalled(tell)) {
                admit(descriptor, at.identity);
            } else {
                close(descriptor);
            }
        } else if (is_shortage(errno)) {
            if (!drop_longest_stalled(tell)) {
                deaf_until_ = clock::now() + recovery;
                listen_again(false);
                return;
            }
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return;
        } // else it was that connection's own error
    }
}

void reception::listen_again(bool is_on) {
    for (size_t each = 0; each < listening_.size(); ++each) {
        epoll_event event = {};
        event.events = is_on ? uint32_t{EPOLLIN} : 0;
        event.data.u64 = waker_number + 1 + each;
        epoll_ctl(epoll_, EPOLL_CTL_MOD, listening_[each].descriptor, &event);
    }
}

void reception::admit(int descriptor, const tls_identity* identity) {
    guest_ptr one;
    try {
        one = std::make_shared<guest>(descriptor, identity, longest_message_);
        const std::lock_guard<std::mutex> lock(mutex_);
        one->number = ++last_number_;
        guests_.emplace(one->number, one);
        move_to(one, identity != nullptr ? &stalled_ : &silent_);
    } catch (const std::bad_alloc&) {
        if (one) {
            remove(one);
        } else {
            close(descriptor);
        }
        return;
    }
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = one->number;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0) {
        remove(one);
    }
}

// --- and are served -----------------------------------------------------------------------------

/// Whether it has a message and no owner.
bool reception::serve(const guest_ptr& one, const teller& tell) {
    peer::condition is = peer::condition::over;
    try {
        is = one->connection.advance();
    } catch (const std::bad_alloc&) {
        // Memory is short: it goes.
    }
    switch (is) {
    case peer::condition::waiting:
    case peer::condition::flushing:
        await(one, is);
        break;
    case peer::condition::over:
        end_one(one, tell);
        break;
    case peer::condition::whole: {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            move_to(one, nullptr);
        }
        if (!one->has_been_owned) {
            one->has_been_owned = true;
            return true;
        }
        tell_owner(*one, tell);
        break;
    }
    }
    return false;
}

/// Watches it for what comes next, and until when that has to.
void reception::await(const guest_ptr& one, peer::condition is) {
    const std::optional<clock::time_point> last = one->connection.deadline();
    const size_t held = last ? one->connection.held() : 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (last) {
            move_to(one, &stalled_, *last - patience);
            held_ += held - one->held;
            one->held = held;
        } else {
            move_to(one, one->has_been_owned ? nullptr : &silent_);
        }
    }
    epoll_event event = {};
    event.events = (is == peer::condition::flushing ? EPOLLOUT : EPOLLIN) | EPOLLONESHOT;
    event.data.u64 = one->number;
    epoll_ctl(epoll_, EPOLL_CTL_MOD, one->connection.descriptor(), &event);
}

void reception::tell_owner(guest& one, const teller& tell) {
    const std::lock_guard<std::mutex> lock(one.watch_mutex);
    if (one.is_watched && one.owner != nullptr) {
        one.is_watched = false;
        tell(one.owner);
    }
}

void reception::watch(const guest_ptr& one) {
    {
        const std::lock_guard<std::mutex> lock(one->watch_mutex);
        one->is_watched = true;
    }
    const peer::condition is = one->connection.now();
    if (is == peer::condition::waiting || is == peer::condition::flushing) {
        await(one, is);
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        move_to(one, &ready_);
    }
    wake();
}

void reception::unwatch(guest& one) {
    const std::lock_guard<std::mutex> lock(one.watch_mutex);
    one.is_watched = false;
}

void reception::forget(const guest_ptr& one) {
    {
        const std::lock_guard<std::mutex> lock(one->watch_mutex);
        one->is_watched = false;
        one->owner = nullptr;
    }
    remove(one);
}

// --- and go -------------------------------------------------------------------------------------

void reception::expire(const teller& tell) {
    const clock::time_point now = clock::now();
    for (;;) {
        guest_ptr one;
        bool is_too_much = false;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            is_too_much = held_ > most_held;
            if (!stalled_.empty() &&
                (is_too_much || stalled_.front()->queued_since + patience <= now)) {
                one = stalled_.front();
            } else if (!silent_.empty() && silent_.front()->queued_since + idle_time_ <= now) {
                one = silent_.front();
            }
        }
        if (!one) {
            return;
        }
        // What it stalls in now it may have begun later than what it was put there for.
        const std::optional<clock::time_point> last = one->connection.deadline();
        if (last && *last > now && !is_too_much) {
            const std::lock_guard<std::mutex> lock(mutex_);
            move_to(one, nullptr);
            move_to(one, &stalled_, *last - patience);
        } else {
            end_one(one, tell);
        }
    }
}

/// Whether there is room now.
bool reception::drop_longest_stalled(const teller& tell) {
    guest_ptr one;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto begin_of = [](const queue& each) {
            return each.empty() ? clock::time_point::max() : each.front()->queued_since;
        };
        if (stalled_.empty() && silent_.empty()) {
            return false;
        }
        one = begin_of(silent_) < begin_of(stalled_) ? silent_.front() : stalled_.front();
    }
    const bool is_closed_at_once = !one->has_been_owned;
    end_one(one, tell);
    return is_closed_at_once;
}

void reception::end_one(const guest_ptr& one, const teller& tell) {
    one->connection.end();
    if (one->has_been_owned) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            move_to(one, nullptr);
        }
        tell_owner(*one, tell);
    } else {
        remove(one);
    }
}

void reception::remove(const guest_ptr& one) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        move_to(one, nullptr);
        guests_.erase(one->number);
    }
    one->connection.close();
}

void reception::stop() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        is_stopped_ = true;
    }
    wake();
}

void reception::close_all() {
    entrances_.clear();
    listening_.clear();
    std::vector<guest_ptr> left;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [number, one] : guests_) {
            if (!one->has_been_owned) {
                left.push_back(one);
            }
        }
    }
    for (const guest_ptr& each : left) {
        remove(each);
    }
}

// --- what the queues are about ------------------------------------------------------------------

/// Whoever stands there keeps its place. Where it doesn't stall, it holds nothing that counts.
void reception::move_to(const guest_ptr& one, queue* where, clock::time_point since) {
    if (one->standing_in == where) {
        return;
    }
    queue single;
    if (one->standing_in != nullptr) {
        single.splice(single.end(), *one->standing_in, one->place);
    } else {
        single.push_back(one);
    }
    one->standing_in = where;
    if (where != nullptr) {
        one->place = single.begin();
        one->queued_since = since;
        where->splice(where->end(), single);
    }
    if (where != &stalled_) {
        held_ -= one->held;
        one->held = 0;
    }
}

reception::guest_ptr reception::find(uint64_t number) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = guests_.find(number);
    return found == guests_.end() ? nullptr : found->second;
}

void reception::wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(waker_, &one, sizeof one);
}

} // namespace transport
