#include "tools/run/streams/transfer.h"

#include "tools/host/engine_watch.h"
#include "tools/terminal/failure.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fmt/format.h>
#include <system_error>
#include <thread>

// --- the job -----------------------------------------------------------------------------------

void transfer::run_streams(const std::function<void(size_t, stream&)>& work) {
    std::vector<std::thread> threads;
    for (size_t index = 0; index < streams().size(); ++index) {
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
        on_account(index, [&] { work(index, *streams()[index]); });
    } catch (const abandoned&) {
        keep_failure(std::current_exception(), true);
    } catch (...) {
        keep_failure(std::current_exception(), false);
    }
}

void transfer::on_account(size_t index, const std::function<void()>& work) {
    stream& each = *streams()[index];
    const slept_seconds account(each.slept);
    const auto start = std::chrono::steady_clock::now();
    const auto stop_the_clock = [&] {
        each.seconds +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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
            allowed()->direction() == OPERATION_READ ? "reads" : "writes"));
    }
}

// --- who looks on ------------------------------------------------------------------------------

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
