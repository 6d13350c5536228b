#include "tools/run/streams/transfer.h"

#include "tools/host/engine_watch.h"
#include "tools/terminal/failure.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <fmt/format.h>
#include <system_error>
#include <thread>

// --- the job -----------------------------------------------------------------------------------

void transfer::say(const std::string& phase) {
    const std::lock_guard<std::mutex> lock(mutex_);
    phase_ = phase;
}

void transfer::add_stream(const std::string& name, uint64_t planned) {
    streams_.push_back(std::make_unique<stream>(name, planned));
}

void transfer::begin(const allowance& allowed) {
    allowed_ = allowed;
    began_at_ = time(nullptr);
    start_ = clock::now();
    add_sample(0);
    running_ = true;
}

void transfer::end() {
    if (running_) {
        seconds_ = seconds();
        running_ = false;
        say("finishing");
    }
}

void transfer::run_streams(const std::function<void(size_t, stream&)>& work) {
    std::vector<std::thread> threads;
    for (size_t index = 0; index < streams_.size(); ++index) {
        try {
            threads.emplace_back([this, index, &work] { run_stream(index, work); });
        } catch (const std::system_error&) {
            keep_failure(std::make_exception_ptr(failure("no more threads can be had")), false);
        }
    }
    for (std::thread& each : threads) {
        each.join();
    }
    if (failure_ != nullptr) {
        std::rethrow_exception(failure_);
    }
}

void transfer::run_stream(size_t index, const std::function<void(size_t, stream&)>& work) {
    const pokable me(*this);
    try {
        on_account(index, [&] { work(index, *streams_[index]); });
    } catch (const abandoned&) {
        keep_failure(std::current_exception(), true);
    } catch (...) {
        keep_failure(std::current_exception(), false);
    }
}

void transfer::on_account(size_t index, const std::function<void()>& work) {
    stream& each = *streams_[index];
    const slept_seconds account(each.slept);
    const clock::time_point start = clock::now();
    const auto stop_the_clock = [&] {
        each.seconds += std::chrono::duration<double>(clock::now() - start).count();
    };
    try {
        work();
    } catch (...) {
        stop_the_clock();
        throw;
    }
    stop_the_clock();
}

void transfer::keep_failure(const std::exception_ptr& thrown, bool is_abandoned) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (failure_ == nullptr || (only_abandoned_ && !is_abandoned)) {
        failure_ = thrown;
        only_abandoned_ = is_abandoned;
    }
    stopping_ = true;
}

void transfer::check_may_move() const {
    if (stopping_) {
        throw abandoned();
    }
    if (is_barred()) {
        throw failure(fmt::format(
            "the settings allow 0 bytes per second for {} now, and the plugin ends the process at "
            "that rate; see \"throttlectl preview --week\"",
            allowed_->direction() == OPERATION_READ ? "reads" : "writes"));
    }
}

// --- who looks on ------------------------------------------------------------------------------

std::string transfer::phase() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return phase_;
}

void transfer::tick() {
    const double now = seconds();
    if (running_ && now >= samples_.back().time + 1) {
        add_sample(now);
    }
}

void transfer::finish() {
    end();
    if (!samples_.empty() && seconds_ > samples_.back().time) {
        add_sample(seconds_);
    }
}

void transfer::add_sample(double now) {
    sample taken;
    taken.time = now;
    taken.allowed = allowed_now();
    for (const auto& each : streams_) {
        taken.bytes.push_back(each->bytes);
    }
    samples_.push_back(std::move(taken));
}

std::optional<uint64_t> transfer::allowed_now() const {
    return allowed_ ? allowed_->now() : std::nullopt;
}

double transfer::seconds() const {
    return running_ ? std::chrono::duration<double>(clock::now() - start_).count()
                    : seconds_.load();
}

void transfer::interrupt() {
    interrupted_ = true;
    stopping_ = true;
}

void transfer::poke_threads() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const pthread_t thread : threads_) {
        pthread_kill(thread, SIGUSR1);
    }
}

transfer::pokable::pokable(transfer& run) : run_(run) {
    const std::lock_guard<std::mutex> lock(run_.mutex_);
    run_.threads_.push_back(pthread_self());
}

transfer::pokable::~pokable() {
    const std::lock_guard<std::mutex> lock(run_.mutex_);
    const auto mine = std::find_if(run_.threads_.begin(), run_.threads_.end(), [](pthread_t each) {
        return pthread_equal(each, pthread_self()) != 0;
    });
    run_.threads_.erase(mine);
}
