// A field that threads read and write at once: always a whole value, and nothing that is added is
// lost. It has the size and the place of a plain one, and no lock.
#pragma once

#include <atomic>

template <typename Value>
class shared_value {
  public:
    shared_value(Value value = Value()) : value_(value) {}
    shared_value(const shared_value& other) : value_(other) {}
    shared_value& operator=(const shared_value& other) { return *this = static_cast<Value>(other); }
    shared_value& operator=(Value value) {
        value_.store(value, std::memory_order_release);
        return *this;
    }
    operator Value() const { return value_.load(std::memory_order_acquire); }

    /// The sum, and the difference.
    Value operator+=(Value more) { return value_.fetch_add(more) + more; }
    Value operator-=(Value less) { return value_.fetch_sub(less) - less; }
    /// Puts `value` in the place of `expected`. False if that isn't there any more.
    bool replace(Value expected, Value value) {
        return value_.compare_exchange_strong(expected, value);
    }

  private:
    std::atomic<Value> value_;
    static_assert(sizeof(std::atomic<Value>) == sizeof(Value) &&
                  std::atomic<Value>::is_always_lock_free);
};
