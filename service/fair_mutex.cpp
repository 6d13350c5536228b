#include "service/fair_mutex.h"

#include <algorithm>

void fair_mutex::lock(const std::string& peer) {
    std::unique_lock<std::mutex> guard(lock_);
    if (is_taken_) {
        wait(guard, peer);
    }
    is_taken_ = true;
}

fair_mutex::lane_list::iterator fair_mutex::find_lane(const std::string& peer) {
    return std::find_if(lanes_.begin(), lanes_.end(),
                        [&](const lane& each) { return each.peer == peer; });
}

void fair_mutex::wait(std::unique_lock<std::mutex>& guard, const std::string& peer) {
    auto own = find_lane(peer);
    if (own == lanes_.end()) {
        own = lanes_.insert(lanes_.end(), lane{peer, {}});
    }
    waiter self;
    own->waiting.push_back(&self);
    self.turn.wait(guard, [&] { return self.has_turn || !is_taken_; });
    if (self.has_turn) {
        return; // whoever gave it has taken us out
    }
    own->waiting.erase(std::find(own->waiting.begin(), own->waiting.end(), &self));
    if (own->waiting.empty()) {
        lanes_.erase(own);
    }
}

void fair_mutex::unlock() {
    const std::lock_guard<std::mutex> guard(lock_);
    if (lanes_.size() < 2) {
        is_taken_ = false;
        if (!lanes_.empty()) {
            lanes_.front().waiting.front()->turn.notify_one();
        }
        return;
    }
    const auto next = lanes_.begin();
    waiter& chosen = *next->waiting.front();
    next->waiting.pop_front();
    if (next->waiting.empty()) {
        lanes_.erase(next);
    } else {
        lanes_.splice(lanes_.end(), lanes_, next);
    }
    chosen.has_turn = true; // and nobody takes it meanwhile
    chosen.turn.notify_one();
}
