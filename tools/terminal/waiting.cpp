#include "tools/terminal/waiting.h"

#include "tools/terminal/console.h"

#include <chrono>
#include <fmt/format.h>
#include <utility>

namespace {
constexpr auto interval = std::chrono::seconds(2);
} // namespace

waiting::waiting(std::string what) : what_(std::move(what)), teller_([this] { tell(); }) {}

waiting::~waiting() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        is_over_ = true;
    }
    over_.notify_one();
    teller_.join();
}

void waiting::tell() {
    std::unique_lock<std::mutex> lock(mutex_);
    std::chrono::seconds lasted(0);
    while (!over_.wait_for(lock, interval, [this] { return is_over_; })) {
        lasted += interval;
        console::get().line(fmt::format("{}: {} s", what_, lasted.count()));
    }
}
