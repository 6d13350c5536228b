// Where all connections begin, and where those wait that nobody else waits for: one thread that
// watches them all. It keeps a connection to itself until a message of it is whole.
//
// Few requests are answered at a time. Whose is next goes by peer, in turn, not by connection:
//
//   a a a a b   have asked in this order, and are answered   a b a a a
//
// So it is with handshakes of TLS, a step of which takes as long as hundreds of requests: one step is
// made, then all others have their turn.
//
// Where descriptors, memory or threads run short, the peer that has most of them loses first.
#pragma once

#include "service/listening.h"
#include "service/transport/peer.h"

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <sys/epoll.h>
#include <unordered_map>
#include <vector>

namespace transport {

/// How many requests are answered at a time.
constexpr int most_answered = 16;
/// How many threads may wait for the next request of the client that they answered. Of a peer's
/// clients as many as are left for others, so one that is alone has half of them.
constexpr int most_lingering = 512;

class reception {
  public:
    struct guest;
    using guest_ptr = std::shared_ptr<guest>;
    using queue = std::list<guest_ptr>;
    struct party;

    /// A party's place in a rota, which it keeps while it isn't there.
    struct seat {
        explicit seat(party* whose) : unused{whose} {}

        std::list<party*> unused;                           ///< empty while it is in the rota
        std::list<party*>::iterator place = unused.begin(); ///< here or there
    };

    /// All connections of one peer.
    struct party {
        queue silent;   ///< never said anything, in the order of their arrival
        queue stalled;  ///< have begun something, in the order of that
        queue greeting; ///< have sent what their handshake goes on with, in the order of that
        queue idle;     ///< have been answered, in the order of that
        queue ready;    ///< have a message for their owners, in the order of that
        queue busy;     ///< in their owners' hands
        seat to_greet{this};
        seat to_answer{this};
        size_t connections = 0;
        size_t held = 0; ///< bytes
        int lingering = 0;

        party() = default;
        party(const party&) = delete;
        party& operator=(const party&) = delete;
        guest_ptr first_to_lose() const;
    };
    using party_entry =
        std::pair<const std::string, party>; ///< by the peer's name (service/peer.h)

    /// A connection, and what the reception knows of it.
    struct guest {
        guest(int descriptor, const tls_identity* identity, size_t longest_message)
            : connection(descriptor, identity, longest_message) {}

        peer connection;
        party_entry* whose = nullptr; ///< set once, before it has an owner

        // Held while `owner` is told, so that it is there as long as it has to be. The owner may
        // take its own locks then, so that it may hold none of them when it takes this one.
        std::mutex watch_mutex;
        void* owner = nullptr;                ///< null: nobody yet, or nobody any more
        std::atomic<bool> is_watched = false; ///< the owner wants to be told, or is being told

        bool has_been_owned = false; ///< set once, before it has an owner

        // The rest is guarded by the reception's mutex.
        uint64_t number = 0;
        queue party::*standing_in = nullptr; ///< null: not here yet, or not any more
        queue::iterator place;               ///< there
        clock::time_point queued_since;
        size_t held = 0; ///< bytes, while it isn't in its owner's hands
        bool is_being_answered = false;
    };

    struct entrance {
        listening_sockets sockets;
        std::shared_ptr<const tls_identity> identity; ///< null: TLS isn't spoken there
    };

    /// `idle_time`: how long one that never says anything may stay. Throws std::runtime_error.
    reception(std::vector<entrance> entrances, size_t longest_message,
              std::chrono::seconds idle_time);
    ~reception();
    reception(const reception&) = delete;
    reception& operator=(const reception&) = delete;

    using teller = std::function<void(void* owner)>;
    /// Watches, until there is a connection whose first message is whole: that one, which is the
    /// caller's from now on. Tells the owner of each that is watched and has a message, or is over.
    /// Null after `stop`. In one thread at a time.
    guest_ptr run(const teller& tell);
    /// Ends `run`, for ever.
    void stop();
    /// Closes all that is in nobody's hands, and listens no more. After `run` has ended.
    void close_all();

    /// From now on its owner is told once, when there is a message or it is over.
    void watch(const guest_ptr& one);
    /// Its owner isn't told from now on.
    void unwatch(guest& one);
    /// Its owner gives it up: it is closed.
    void forget(const guest_ptr& one);

    /// Its owner has answered it, and waits for its next message, if there are threads enough for
    /// that. Whether that one is there, and answered next: not before those that are ready.
    bool linger(guest& one);

    /// What all together may hold of messages that aren't being answered.
    static constexpr size_t most_held = 64 << 20;

  private:
    struct address_to_accept {
        int descriptor;
        const tls_identity* identity;
    };

    /// Who has somebody in one of their queues, in turn; the first one is next.
    struct rota {
        queue party::*waiting;
        seat party::*places;
        std::list<party*> parties;

        /// Puts it at the end, or takes it out, if its queue asks for that.
        void keep(party& whose);
        /// Whose turn it is, who is last from now on. Null: nobody's.
        guest_ptr next();
    };

    void wait_for_events();
    bool is_idle();
    void accept_from(const address_to_accept& at, const teller& tell);
    void admit(int descriptor, const tls_identity* identity);
    int replace(int descriptor, const teller& tell);
    void listen_again(bool is_on);
    bool is_to_be_greeted(const guest_ptr& one);
    guest_ptr take_next_greeting();
    bool serve(const guest_ptr& one, const teller& tell);
    void await(const guest_ptr& one, peer::condition is);
    void make_ready(const guest_ptr& one);
    void hand_out(const teller& tell);
    guest_ptr take_next_ready();
    bool tell_owner(guest& one, const teller& tell);
    void expire(const teller& tell);
    std::vector<guest_ptr> find_expired(clock::time_point now);
    bool drop_connection(const teller& tell);
    void drop_held(const teller& tell);
    void end_one(const guest_ptr& one, const teller& tell);
    void remove(const guest_ptr& one);
    guest_ptr find(uint64_t number);

    // For whoever has the mutex.
    void move_to(const guest_ptr& one, queue party::*where, size_t held = 0,
                 clock::time_point since = clock::now());
    void begin_answering(guest& one);
    void end_answering(guest& one);
    void wake() const;

    std::vector<entrance> entrances_;
    std::vector<address_to_accept> listening_;
    const size_t longest_message_;
    const std::chrono::seconds idle_time_;
    int epoll_ = -1;
    int waker_ = -1;
    int most_descriptors_ = 0;

    // Of the thread that runs.
    std::vector<epoll_event> events_;
    size_t next_event_ = 0;
    clock::time_point next_expiry_;
    std::optional<clock::time_point> deaf_until_; ///< descriptors or memory were short

    std::mutex mutex_; ///< of what follows; whoever has it takes no other
    bool is_stopped_ = false;
    uint64_t last_number_ = 0;
    std::unordered_map<uint64_t, guest_ptr> guests_;
    std::map<std::string, party> parties_; ///< none is without a connection
    rota to_greet_{&party::greeting, &party::to_greet, {}};
    rota to_answer_{&party::ready, &party::to_answer, {}};
    size_t held_ = 0;
    int being_answered_ = 0;
    int lingering_ = 0;
};

} // namespace transport
