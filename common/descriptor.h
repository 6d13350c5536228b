// An open file that is closed with its owner.
#pragma once

#include <unistd.h>
#include <utility>

class descriptor {
  public:
    descriptor() = default;
    explicit descriptor(int opened) : opened_(opened) {}
    ~descriptor() {
        if (is_open()) {
            ::close(opened_);
        }
    }
    descriptor(descriptor&& other) noexcept : opened_(std::exchange(other.opened_, -1)) {}
    descriptor& operator=(descriptor&& other) noexcept {
        std::swap(opened_, other.opened_);
        return *this;
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    bool is_open() const { return opened_ >= 0; }
    int get() const { return opened_; } ///< -1: not open
    /// Closes it now; false, with the reason in errno, when the system says that what was written
    /// is lost.
    bool close() { return ::close(std::exchange(opened_, -1)) == 0; }

  private:
    int opened_ = -1;
};
