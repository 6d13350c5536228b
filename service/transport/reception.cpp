#include "service/transport/reception.h"

#include "service/peer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace transport {

namespace {

using std::chrono::milliseconds;

constexpr uint64_t waker_number = 0;
constexpr uint64_t first_guest = 100; ///< between are the listening sockets
constexpr size_t most_events = 256;   ///< at a time
constexpr int most_accepted = 64;     ///< at a time
constexpr int reserve = 32;           ///< descriptors, for all but connections
constexpr rlim_t enough_descriptors = 65536;
constexpr milliseconds expiry_interval{250};
constexpr milliseconds recovery{100}; ///< after descriptors or memory were short

int descriptor_limit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(std::min(limit.rlim_cur, enough_descriptors));
}

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

/// Of the first queue with anybody in it. Null: there is none.
reception::guest_ptr first_of(std::initializer_list<const reception::queue*> queues) {
    for (const reception::queue* each : queues) {
        if (!each->empty()) {
            return each->front();
        }
    }
    return nullptr;
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
    for (;;) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (is_stopped_) {
                return nullptr;
            }
        }
        hand_out(tell);
        if (next_event_ == events_.size()) {
            expire(tell);
            wait_for_events();
            const guest_ptr one = take_next_greeting();
            if (one && serve(one, tell)) {
                return one;
            }
            continue;
        }
        const uint64_t number = events_[next_event_++].data.u64;
        if (number > waker_number && number <= listening_.size()) {
            accept_from(listening_[number - 1], tell);
            continue;
        }
        const guest_ptr one = find(number);
        if (one && !is_to_be_greeted(one) && serve(one, tell)) {
            return one;
        }
    }
}

void reception::wait_for_events() {
    const clock::time_point now = clock::now();
    if (deaf_until_ && *deaf_until_ <= now) {
        deaf_until_.reset();
        listen_again(true);
    }
    const milliseconds longest = !is_idle()    ? milliseconds(0)
                                 : deaf_until_ ? recovery
                                               : expiry_interval;
    events_.resize(most_events);
    next_event_ = 0;
    const int count = epoll_wait(epoll_, events_.data(), static_cast<int>(most_events),
                                 static_cast<int>(longest.count()));
    events_.resize(static_cast<size_t>(std::max(count, 0)));
    uint64_t calls = 0;
    [[maybe_unused]] const ssize_t read_bytes = read(waker_, &calls, sizeof calls);
}

/// Whether no handshake waits for its turn.
bool reception::is_idle() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return to_greet_.parties.empty();
}

// --- connections come ---------------------------------------------------------------------------

void reception::accept_from(const address_to_accept& at, const teller& tell) {
    for (int accepted = 0; accepted < most_accepted; ++accepted) {
        const int descriptor = accept4(at.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor >= 0) {
            admit(descriptor < most_descriptors_ ? descriptor : replace(descriptor, tell),
                  at.identity);
        } else if (is_shortage(errno)) {
            if (!drop_connection(tell)) {
                deaf_until_ = clock::now() + recovery;
                listen_again(false);
                return;
            }
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return;
        } // else it was that connection's own error
    }
}

/// The same at the place of a connection that is dropped for it, so that what is kept for all else
/// stays free. -1: there is none.
int reception::replace(int descriptor, const teller& tell) {
    const int replaced = drop_connection(tell) ? fcntl(descriptor, F_DUPFD_CLOEXEC, 0) : -1;
    close(descriptor);
    return replaced;
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
    if (descriptor < 0) {
        return;
    }
    guest_ptr one;
    try {
        one = std::make_shared<guest>(descriptor, identity, longest_message_);
        const std::string name =
            find_peer(one->connection.peer_address(), one->connection.own_address()).name();
        const std::lock_guard<std::mutex> lock(mutex_);
        one->whose = &*parties_.try_emplace(name).first;
        party& whose = one->whose->second;
        ++whose.connections;
        one->place = whose.busy.insert(whose.busy.end(), one);
        one->standing_in = &party::busy;
        one->number = ++last_number_;
        guests_.emplace(one->number, one);
        move_to(one, identity != nullptr ? &party::stalled : &party::silent);
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

/// Whether its handshake goes on when it is its turn.
bool reception::is_to_be_greeted(const guest_ptr& one) {
    const std::optional<clock::time_point> last = one->connection.handshake_deadline();
    if (!last) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    move_to(one, &party::greeting, one->held, *last - patience);
    return true;
}

/// Null: there is none.
reception::guest_ptr reception::take_next_greeting() {
    const std::lock_guard<std::mutex> lock(mutex_);
    guest_ptr one = to_greet_.next();
    if (one) {
        move_to(one, &party::busy);
    }
    return one;
}

/// Whether it has a message and no owner.
bool reception::serve(const guest_ptr& one, const teller& tell) {
    peer::condition is = peer::condition::over;
    try {
        is = one->connection.advance();
    } catch (const std::bad_alloc&) {
        // Memory is short: it goes.
    }
    bool is_new = false;
    switch (is) {
    case peer::condition::waiting:
    case peer::condition::flushing:
        await(one, is);
        break;
    case peer::condition::over:
        end_one(one, tell);
        break;
    case peer::condition::whole:
        is_new = !std::exchange(one->has_been_owned, true);
        make_ready(one);
        break;
    }
    drop_held(tell);
    return is_new;
}

/// Watches it for what comes next, and until when that has to.
void reception::await(const guest_ptr& one, peer::condition is) {
    const std::optional<clock::time_point> last = one->connection.deadline();
    const size_t held = last ? one->connection.held() : 0;
    epoll_event event = {};
    event.events = (is == peer::condition::flushing ? EPOLLOUT : EPOLLIN) | EPOLLONESHOT;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (last) {
        move_to(one, &party::stalled, held, *last - patience);
    } else {
        move_to(one, one->has_been_owned ? &party::idle : &party::silent);
    }
    event.data.u64 = one->number;
    // From now on it may be closed, and its descriptor be another's.
    epoll_ctl(epoll_, EPOLL_CTL_MOD, one->connection.descriptor(), &event);
}

void reception::make_ready(const guest_ptr& one) {
    const size_t held = one->connection.held();
    const std::lock_guard<std::mutex> lock(mutex_);
    move_to(one, &party::ready, held);
}

void reception::hand_out(const teller& tell) {
    while (const guest_ptr one = take_next_ready()) {
        const auto take_back = [&] {
            const std::lock_guard<std::mutex> lock(mutex_);
            end_answering(*one);
        };
        try {
            if (!tell_owner(*one, tell)) {
                take_back();
            }
        } catch (const std::bad_alloc&) {
            take_back();
            make_ready(one);
            throw;
        }
    }
}

/// Null: there is none, or enough are being answered.
reception::guest_ptr reception::take_next_ready() {
    const std::lock_guard<std::mutex> lock(mutex_);
    guest_ptr one = being_answered_ < most_answered ? to_answer_.next() : nullptr;
    if (one) {
        move_to(one, &party::busy);
        begin_answering(*one);
    }
    return one;
}

/// Whether it wanted to be told.
bool reception::tell_owner(guest& one, const teller& tell) {
    const std::lock_guard<std::mutex> lock(one.watch_mutex);
    if (!one.is_watched || one.owner == nullptr) {
        return false;
    }
    tell(one.owner);
    one.is_watched = false; // not before, since there may be no memory to tell it
    return true;
}

void reception::watch(const guest_ptr& one) {
    {
        const std::lock_guard<std::mutex> lock(one->watch_mutex);
        one->is_watched = true;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        end_answering(*one);
    }
    const peer::condition is = one->connection.now();
    if (is == peer::condition::waiting || is == peer::condition::flushing) {
        await(one, is);
        return;
    }
    make_ready(one);
    wake();
}

void reception::unwatch(guest& one) {
    const std::lock_guard<std::mutex> lock(one.watch_mutex);
    one.is_watched = false;
}

void reception::forget(const guest_ptr& one) {
    // The ORB has a lock of its own here, and has mostly unwatched it before.
    if (one->is_watched) {
        const std::lock_guard<std::mutex> lock(one->watch_mutex);
        one->is_watched = false;
        one->owner = nullptr;
    }
    remove(one);
}

bool reception::linger(guest& one) {
    party& whose = one.whose->second;
    bool may_wait = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        end_answering(one);
        may_wait = whose.lingering < most_lingering - lingering_;
        whose.lingering += may_wait;
        lingering_ += may_wait;
    }
    peer::condition is = peer::condition::over;
    try {
        is = may_wait ? one.connection.linger() : one.connection.advance();
    } catch (const std::bad_alloc&) {
        one.connection.end();
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    whose.lingering -= may_wait;
    lingering_ -= may_wait;
    const bool is_next = to_answer_.parties.empty() && being_answered_ < most_answered;
    if (is == peer::condition::over || (is == peer::condition::whole && is_next)) {
        begin_answering(one);
        return true;
    }
    return false;
}

// --- and go -------------------------------------------------------------------------------------

void reception::expire(const teller& tell) {
    const clock::time_point now = clock::now();
    if (now < next_expiry_) {
        return;
    }
    next_expiry_ = now + expiry_interval;
    for (const guest_ptr& one : find_expired(now)) {
        // What it stalls in now it may have begun later than what it was put there for.
        const std::optional<clock::time_point> last = one->connection.deadline();
        const size_t held = one->connection.held();
        if (last && *last > now) {
            const std::lock_guard<std::mutex> lock(mutex_);
            move_to(one, &party::busy);
            move_to(one, &party::stalled, held, *last - patience);
        } else {
            end_one(one, tell);
        }
    }
}

std::vector<reception::guest_ptr> reception::find_expired(clock::time_point now) {
    std::vector<guest_ptr> expired;
    const auto look_through = [&](const queue& which, std::chrono::seconds longest) {
        for (const guest_ptr& each : which) {
            if (each->queued_since + longest > now) {
                return;
            }
            expired.push_back(each);
        }
    };
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [name, each] : parties_) {
        look_through(each.silent, idle_time_);
        look_through(each.stalled, patience);
        look_through(each.greeting, patience);
    }
    return expired;
}

/// The peer that has most connections loses one. Whether there is room now.
bool reception::drop_connection(const teller& tell) {
    guest_ptr one;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto most = std::max_element(
            parties_.begin(), parties_.end(), [](const auto& each, const auto& other) {
                return each.second.connections < other.second.connections;
            });
        one = most == parties_.end() ? nullptr : most->second.first_to_lose();
    }
    if (one) {
        end_one(one, tell);
    }
    return one != nullptr;
}

/// Whoever has begun nothing, or not gone on, for the longest; then whoever has asked for nothing
/// for the longest. Null: all are in their owners' hands.
reception::guest_ptr reception::party::first_to_lose() const {
    const auto begin_of = [](const queue* each) {
        return each->empty() ? clock::time_point::max() : each->front()->queued_since;
    };
    const queue* const unfinished =
        std::min({&silent, &stalled, &greeting},
                 [&](auto one, auto other) { return begin_of(one) < begin_of(other); });
    return first_of({unfinished, &idle, &ready});
}

/// While too much is held, the peer that holds most loses.
void reception::drop_held(const teller& tell) {
    for (;;) {
        guest_ptr one;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (held_ <= most_held) {
                return;
            }
            const party& most = std::max_element(parties_.begin(), parties_.end(),
                                                 [](const auto& each, const auto& other) {
                                                     return each.second.held < other.second.held;
                                                 })
                                    ->second;
            one = first_of({&most.stalled, &most.greeting, &most.ready});
        }
        end_one(one, tell);
    }
}

/// For those that are in no owner's hands.
void reception::end_one(const guest_ptr& one, const teller& tell) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        move_to(one, &party::busy);
    }
    if (one->has_been_owned) {
        one->connection.close();
        tell_owner(*one, tell);
    } else {
        remove(one);
    }
}

void reception::remove(const guest_ptr& one) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (one->whose != nullptr) {
            end_answering(*one);
            if (one->standing_in != nullptr) {
                move_to(one, &party::busy);
                one->whose->second.busy.erase(one->place);
                one->standing_in = nullptr;
            }
            if (--one->whose->second.connections == 0) {
                parties_.erase(parties_.find(one->whose->first));
            }
            one->whose = nullptr;
            guests_.erase(one->number);
        }
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

void reception::rota::keep(party& whose) {
    seat& its = whose.*places;
    const bool is_here = its.unused.empty();
    const bool belongs_here = !(whose.*waiting).empty();
    if (belongs_here && !is_here) {
        parties.splice(parties.end(), its.unused);
    } else if (!belongs_here && is_here) {
        its.unused.splice(its.unused.end(), parties, its.place);
    }
}

reception::guest_ptr reception::rota::next() {
    if (parties.empty()) {
        return nullptr;
    }
    party& first = *parties.front();
    parties.splice(parties.end(), parties, (first.*places).place);
    return (first.*waiting).front();
}

/// Whoever stands there keeps its place.
void reception::move_to(const guest_ptr& one, queue party::*where, size_t held,
                        clock::time_point since) {
    if (one->standing_in == nullptr) {
        return;
    }
    party& whose = one->whose->second;
    held_ += held - one->held;
    whose.held += held - one->held;
    one->held = held;
    if (one->standing_in == where) {
        return;
    }
    queue& to = whose.*where;
    auto before = to.end(); // mostly: a handshake may be older than what others have begun
    while (before != to.begin() && (*std::prev(before))->queued_since > since) {
        --before;
    }
    to.splice(before, whose.*one->standing_in, one->place);
    one->standing_in = where;
    one->queued_since = since;
    to_greet_.keep(whose);
    to_answer_.keep(whose);
}

void reception::begin_answering(guest& one) {
    being_answered_ += !std::exchange(one.is_being_answered, true);
}

void reception::end_answering(guest& one) {
    if (std::exchange(one.is_being_answered, false)) {
        --being_answered_;
        if (!to_answer_.parties.empty()) {
            wake();
        }
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
