// A lock that peers take in turn: however many threads one peer has waiting, another peer's doesn't
// wait for all of them.
//
//   a a a a b   wait in this order, and are served   a b a a a
//
// While all that wait are of one peer it is as any other mutex: whoever runs takes it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <mutex>
#include <string>

class fair_mutex {
  public:
    fair_mutex() = default;
    fair_mutex(const fair_mutex&) = delete;
    fair_mutex& operator=(const fair_mutex&) = delete;

    void lock(const std::string& peer);
    void unlock();

  private:
    struct waiter {
        std::condition_variable turn;
        bool has_turn = false;
    };
    struct lane { ///< the threads of one peer, in the order in which they came; never empty
        std::string peer;
        std::deque<waiter*> waiting;
    };

    using lane_list = std::list<lane>;

    lane_list::iterator find_lane(const std::string& peer);
    void wait(std::unique_lock<std::mutex>& guard, const std::string& peer);

    std::mutex lock_; ///< of what is below; nobody waits for anything else with it
    bool is_taken_ = false;
    lane_list lanes_; ///< the first one's turn is next
};
