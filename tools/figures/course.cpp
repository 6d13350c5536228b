#include "tools/figures/course.h"

#include <ctime>

// --- the job -----------------------------------------------------------------------------------

void run_course::say(const std::string& phase) {
    const std::lock_guard<std::mutex> lock(mutex_);
    phase_ = phase;
}

void run_course::add_stream(const std::string& name, uint64_t planned) {
    streams_.push_back(std::make_unique<stream>(name, planned));
}

void run_course::begin(const allowance& allowed) {
    allowed_ = allowed;
    began_at_ = time(nullptr);
    start_ = clock::now();
    add_sample(0);
    running_ = true;
}

void run_course::end() {
    if (running_) {
        seconds_ = seconds();
        running_ = false;
        say("finishing");
    }
}

// --- who looks on ------------------------------------------------------------------------------

std::string run_course::phase() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return phase_;
}

void run_course::tick() {
    const double now = seconds();
    if (running_ && now >= samples_.back().time + 1) {
        add_sample(now);
    }
}

void run_course::finish() {
    end();
    if (!samples_.empty() && seconds_ > samples_.back().time) {
        add_sample(seconds_);
    }
}

void run_course::add_sample(double now) {
    sample taken;
    taken.time = now;
    taken.allowed = allowed_now();
    for (const auto& each : streams_) {
        taken.bytes.push_back(each->bytes);
    }
    samples_.push_back(std::move(taken));
}

std::optional<uint64_t> run_course::allowed_now() const {
    return allowed_ ? allowed_->now() : std::nullopt;
}

double run_course::seconds() const {
    return running_ ? std::chrono::duration<double>(clock::now() - start_).count()
                    : seconds_.load();
}
