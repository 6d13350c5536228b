// Says that something lasts, where nothing tells how far it is.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

/// While one lives, a line every two seconds names what is being done and for how long by now.
class waiting {
  public:
    explicit waiting(std::string what);
    ~waiting();
    waiting(const waiting&) = delete;
    waiting& operator=(const waiting&) = delete;

  private:
    void tell();

    const std::string what_;
    std::mutex mutex_;
    std::condition_variable over_;
    bool is_over_ = false;
    std::thread teller_; ///< last: it uses the others
};
