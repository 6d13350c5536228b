// Where all connections begin, and where those wait that nobody else waits for: one thread that
// watches them all. It keeps a connection to itself until a message of it is whole.
#pragma once

#include "service/listening.h"
#include "service/transport/peer.h"

#include <functional>
#include <list>
#include <memory>
#include <sys/epoll.h>
#include <unordered_map>
#include <vector>

namespace transport {

class reception {
  public:
    /// A connection, and what the reception knows of it.
    struct guest {
        guest(int descriptor, const tls_identity* identity, size_t longest_message)
            : connection(descriptor, identity, longest_message) {}

        peer connection;

        // Held while `owner` is told, so that it is there as long as it has to be. The owner may
        // take its own locks then, so that it may hold none of them when it takes this one.
        std::mutex watch_mutex;
        void* owner = nullptr;   ///< null: nobody yet, or nobody any more
        bool is_watched = false; ///< the owner wants to be told

        bool has_been_owned = false; ///< set once, before it has an owner

        // The rest is guarded by the reception's mutex.
        uint64_t number = 0;
        std::list<std::shared_ptr<guest>>* standing_in = nullptr; ///< a queue
        std::list<std::shared_ptr<guest>>::iterator place;        ///< there
        clock::time_point queued_since;
        size_t held = 0; ///< bytes of what isn't whole, while it stalls
    };
    using guest_ptr = std::shared_ptr<guest>;

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

    /// What all together may hold of messages that aren't whole.
    static constexpr size_t most_held = 64 << 20;

  private:
    struct address_to_accept {
        int descriptor;
        const tls_identity* identity;
    };
    using queue = std::list<guest_ptr>;

    void wait_for_events();
    void accept_from(const address_to_accept& at, const teller& tell);
    void admit(int descriptor, const tls_identity* identity);
    void listen_again(bool is_on);
    bool serve(const guest_ptr& one, const teller& tell);
    void await(const guest_ptr& one, peer::condition is);
    void tell_owner(guest& one, const teller& tell);
    void expire(const teller& tell);
    bool drop_longest_stalled(const teller& tell);
    void end_one(const guest_ptr& one, const teller& tell);
    void remove(const guest_ptr& one);
    guest_ptr find(uint64_t number);

    /// For whoever has the mutex. Null: to none.
    void move_to(const guest_ptr& one, queue* where, clock::time_point since = clock::now());
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
    std::optional<clock::time_point> deaf_until_; ///< descriptors or memory were short

    std::mutex mutex_; ///< of what follows; whoever has it takes no other
    bool is_stopped_ = false;
    uint64_t last_number_ = 0;
    std::unordered_map<uint64_t, guest_ptr> guests_;
    queue silent_;  ///< never said anything, in the order of their arrival
    queue stalled_; ///< have begun something, in the order of that
    queue ready_;   ///< to be served without waiting
    size_t held_ = 0;
};

} // namespace transport
