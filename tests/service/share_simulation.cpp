#include "tests/service/share_simulation.h"

#include "service/ledger.h"

#include "engine/service_connector.h"

#include "tests/service/reply_values.h"
#include "tests/support/host_session.h"
#include "tests/support/scripted_client.h"
#include "tests/support/virtual_clock.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <queue>
#include <string>
#include <ucontext.h>

namespace {

constexpr double second = 1e6; // the fibers' time is in microseconds
constexpr time_t midnight = 1'704'067'200;
constexpr int64_t long_lease = 100'000;

/// Fibers that wait for times, one at a time.
class fibers {
  public:
    /// Runs `body` from `when` on.
    template <typename Body>
    void start(double when, Body body) {
        all_.emplace_back(new fiber{std::move(body), {}, std::vector<char>(stack_size)});
        fiber& made = *all_.back();
        getcontext(&made.context);
        made.context.uc_stack.ss_sp = made.stack.data();
        made.context.uc_stack.ss_size = made.stack.size();
        made.context.uc_link = &main_;
        makecontext(&made.context, reinterpret_cast<void (*)()>(&fibers::enter), 0);
        due_.push({when, ++order_, &made});
    }
    void wait_until(double when) {
        fiber* const me = running_;
        due_.push({std::max(when, now_), ++order_, me});
        swapcontext(&me->context, &main_);
    }
    double now() const { return now_; }
    /// Until nobody waits any more.
    void run(virtual_clock& clock) {
        current = this;
        while (!due_.empty()) {
            const turn next = due_.top();
            due_.pop();
            now_ = next.when;
            clock.set(midnight + static_cast<time_t>(now_ / second));
            running_ = next.whose;
            swapcontext(&main_, &next.whose->context);
        }
    }

  private:
    static constexpr size_t stack_size = 128 * 1024;
    struct fiber {
        std::function<void()> body;
        ucontext_t context;
        std::vector<char> stack;
    };
    struct turn {
        double when;
        uint64_t order;
        fiber* whose;
        bool operator<(const turn& other) const {
            return when != other.when ? when > other.when : order > other.order;
        }
    };
    static void enter() { current->running_->body(); }

    static fibers* current;
    std::deque<std::unique_ptr<fiber>> all_;
    std::priority_queue<turn> due_;
    ucontext_t main_ = {};
    fiber* running_ = nullptr;
    uint64_t order_ = 0;
    double now_ = 0;
};
fibers* fibers::current = nullptr;

std::string row(const char* key, uint64_t value) {
    return std::string("name=THR:") + key +
           ",description=d,type=int,value=" + std::to_string(value) + ",fixed=n;";
}

class simulation {
  public:
    explicit simulation(const simulated_mix& mix)
        : mix_(mix), course_(mix.hosts.size(), mix.lasts),
          whole_(static_cast<double>(mix.allowed) * mix.interval) {}

    simulated_course run() {
        service() = {};
        service().on_exchange = [this](const exchange& asked) {
            service().exchanges.clear();
            if (asked.call != "set_config_params") {
                service().usual = answer_to(asked);
            }
        };
        clock_.interrupt_sleep_after = 0; // the fiber's wait has moved the clock already
        clock_.on_sleep = [this](unsigned seconds) {
            clock_.take_sleeps();
            all_.wait_until(all_.now() + seconds * second);
        };
        for (size_t which = 0; which < mix_.hosts.size(); ++which) {
            all_.start(mix_.hosts[which].demands.front().since * second,
                       [this, which] { be(which); });
        }
        for (const simulated_limit& each : mix_.limits) {
            all_.start(each.when * second, [this, each] { take_up(each); });
        }
        all_.run(clock_);
        service() = {};
        return std::move(course_);
    }

  private:
    moment now() const { return {1000 + static_cast<int64_t>(all_.now() / second), clock_.now()}; }
    double in_intervals(double when) const { return when / second / mix_.interval; }

    std::string storage_of(size_t host) const { return "s" + std::to_string(host % mix_.storages); }

    void take_up(const simulated_limit& asked) {
        const size_t storages = asked.is_of_host ? 1 : mix_.storages;
        for (size_t each = 0; each < storages; ++each) {
            const auto whom = asked.is_of_host ? std::nullopt : std::optional(storage_of(each));
            limit_change change;
            if (asked.part) {
                change.rates[OPERATION_WRITE] =
                    static_cast<uint64_t>(*asked.part * static_cast<double>(mix_.allowed));
                book_.limit(whom, change, "a test", now());
            } else {
                book_.unlimit(whom, "a test", now());
            }
        }
    }

    scripted_reply answer_to(const exchange& asked) {
        const size_t host = std::stoul(asked.session_text);
        const auto number = static_cast<session_number>(host + 1);
        if (asked.call == "check_connections") {
            const answer reply =
                book_.check_connections(number, asked.key, asked.session_text, asked.delta, now());
            return {reply.status, reply.text};
        }
        sample reported{asked.operation_type, asked.start_time, asked.end_time, asked.data_length};
        if (mix_.hosts[host].is == simulated_host::claims_nothing) {
            reported.bytes = 0;
        } else if (mix_.hosts[host].is == simulated_host::claims_much) {
            reported.bytes = std::numeric_limits<uint64_t>::max() / 2;
        }
        answer reply =
            book_.check_bandwidth(number, asked.key, asked.session_text, reported, now());
        if (mix_.evenly) {
            reply.text = evenly(reported);
        }
        const long count = value_of(reply.text, "THR_W_CONNECTION_COUNTS");
        course_.replies.push_back(
            {in_intervals(all_.now()), host, count, value_of(reply.text, "THR_WAIT_SECONDS")});
        return {reply.status, reply.text};
    }

    std::string evenly(const sample& reported) {
        const auto flows = book_.view(now()).storages.at(0).now.write.flows;
        const auto due =
            static_cast<long>(reported.bytes * static_cast<uint64_t>(flows) / mix_.allowed);
        const long taken = static_cast<long>(reported.end) - static_cast<long>(reported.start);
        return reply_text(1, flows, 0, std::clamp(due - taken, 0L, long{mix_.interval}));
    }

    double speed_of(const simulated_host& host) const {
        double speed = 0;
        for (const demand& each : host.demands) {
            speed = each.since * second <= all_.now() ? each.speed : speed;
        }
        return speed * static_cast<double>(mix_.allowed);
    }
    double next_change(const simulated_host& host) const {
        for (const demand& each : host.demands) {
            if (each.since * second > all_.now()) {
                return each.since * second;
            }
        }
        return host.leaves * second;
    }

    /// The life of one host.
    void be(size_t which) {
        const simulated_host& host = mix_.hosts[which];
        const double end = std::min(host.leaves, mix_.lasts * mix_.interval) * second;
        std::string id = std::to_string(which);
        sts_session_def_v7_t session = host_session(id.c_str(), 0);
        throttling_config_s config;
        config.avail_bandwidth = mix_.allowed;
        config.sample_interval = mix_.interval;
        char type[] = "cloud";
        std::string name = storage_of(which);
        ServiceConnector connector;
        connector.set_throttling_enabled(1);
        connector.connect_service(&session, type, name.data());
        book_.configure(static_cast<session_number>(which + 1), settings_, now());
        connector.set_config_params(&config, 0);
        connector.check_connections(OPERATION_READ_WRITE, 1, 0);
        connector.check_connections(OPERATION_WRITE, 1, 0);
        bandwidth_s current = {OPERATION_WRITE, clock_.now(), clock_.now(), 0};

        const double usual = std::max(
            1.0, whole_ / mix_.blocks / std::max(1.0, static_cast<double>(mix_.hosts.size()) / 8));
        double credited = all_.now(); // up to here its source has delivered what it moved
        double reported = all_.now();
        double moved = 0; // since
        size_t replies = 0;
        int force = 1;
        while (all_.now() < end) {
            const double speed = speed_of(host);
            if (speed <= 0) {
                all_.wait_until(std::min(next_change(host), end));
                credited = all_.now();
                continue;
            }
            replies = course_.replies.size();
            connector.check_bandwidth(&current, 0, force);
            force = 0;
            if (course_.replies.size() != replies && course_.replies.back().host == which) {
                course_.add(which, in_intervals(reported), in_intervals(all_.now()),
                            moved / whole_);
                reported = all_.now();
                moved = 0;
            }
            const double block =
                std::max(1.0, std::min(usual, std::floor(speed * mix_.interval / 20)));
            if (host.catches_up) {
                credited += block / speed * second;
                credited = std::max(credited, all_.now() - mix_.interval * second);
                all_.wait_until(std::max(
                    credited, all_.now() + block / as_much_as_it_may /
                                               static_cast<double>(mix_.allowed) * second));
            } else {
                all_.wait_until(all_.now() + block / speed * second);
            }
            current.data_length += static_cast<unsigned long>(block);
            ++course_.blocks[which];
            moved += std::floor(block);
        }
        if (host.is != simulated_host::falls_silent && host.leaves < mix_.lasts * mix_.interval) {
            connector.check_bandwidth(&current, 0, 1);
            course_.add(which, in_intervals(reported), in_intervals(all_.now()), moved / whole_);
            connector.check_connections(OPERATION_WRITE, -1, 0);
            connector.check_connections(OPERATION_READ_WRITE, -1, 0);
        } else {
            course_.add(which, in_intervals(reported), in_intervals(all_.now()), moved / whole_);
        }
        connector.disconnect_service();
    }

    std::string rows() const {
        std::string text;
        for (size_t each = 0; each < mix_.storages; ++each) {
            text += row(storage_of(each).c_str(), 100'000);
        }
        return text;
    }

    const simulated_mix& mix_;
    simulated_course course_;
    const double whole_; ///< bytes of an interval
    virtual_clock clock_{midnight};
    fibers all_;
    const std::string settings_ = rows() + row("AVAIL_BANDWIDTH", mix_.allowed) +
                                  row("SAMPLE_INTERVAL", static_cast<uint64_t>(mix_.interval));
    ledger book_{long_lease, {1000, midnight}, [](const std::string&) {}};
};

} // namespace

simulated_course::simulated_course(size_t hosts, double intervals)
    : blocks(hosts),
      moved_(hosts, std::vector<double>(static_cast<size_t>(std::ceil(intervals)) * steps)) {}

/// An amount is spread evenly over the time that it took.
void simulated_course::add(size_t host, double from, double to, double amount) {
    std::vector<double>& own = moved_[host];
    const double length = to - from;
    for (auto at = static_cast<size_t>(from * steps); at < own.size(); ++at) {
        const double begin = std::max(from, static_cast<double>(at) / steps);
        const double end = std::min(to, static_cast<double>(at + 1) / steps);
        if (length <= 0) {
            own[at] += amount * steps;
            return;
        }
        if (end <= begin) {
            return;
        }
        own[at] += amount * (end - begin) / length * steps;
    }
}

double simulated_course::use_of(size_t host, double from, double to) const {
    const auto first = static_cast<size_t>(std::lround(from * steps));
    const auto last = static_cast<size_t>(std::lround(to * steps));
    double sum = 0;
    for (size_t at = first; at < last; ++at) {
        sum += moved_[host][at];
    }
    return sum / static_cast<double>(last - first);
}

double simulated_course::use(double from, double to) const {
    double sum = 0;
    for (size_t host = 0; host < moved_.size(); ++host) {
        sum += use_of(host, from, to);
    }
    return sum;
}

double simulated_course::extreme(double intervals, double from, double to, bool is_most) const {
    double found = is_most ? 0 : 1e9;
    const auto first = static_cast<size_t>(std::lround(from * steps));
    const auto last = static_cast<size_t>(std::lround(to * steps));
    const auto length = static_cast<size_t>(std::lround(intervals * steps));
    std::vector<double> sums(last + 1);
    for (size_t at = first; at < last; ++at) {
        double sum = 0;
        for (const auto& own : moved_) {
            sum += own[at];
        }
        sums[at + 1] = sums[at] + sum;
    }
    for (size_t at = first; at + length <= last; ++at) {
        const double use = (sums[at + length] - sums[at]) / static_cast<double>(length);
        found = is_most ? std::max(found, use) : std::min(found, use);
    }
    return found;
}

double simulated_course::most(double intervals, double from, double to) const {
    return extreme(intervals, from, to, true);
}

double simulated_course::least(double intervals, double from, double to) const {
    return extreme(intervals, from, to, false);
}

std::string simulated_course::text() const {
    std::string out;
    char buffer[64];
    for (size_t at = 0; at + 1 <= moved_[0].size() / steps; ++at) {
        const auto when = static_cast<double>(at);
        snprintf(buffer, sizeof buffer, "%3zu %.3f |", at, use(when, when + 1));
        out += buffer;
        for (size_t host = 0; host < moved_.size() && host < 10; ++host) {
            snprintf(buffer, sizeof buffer, " %.3f", use_of(host, when, when + 1));
            out += buffer;
        }
        out += " |";
        for (const reply& each : replies) {
            if (each.when >= when && each.when < when + 1 && each.host < 10) {
                out += " " + std::to_string(each.host) + ":" + std::to_string(each.count);
            }
        }
        out += "\n";
    }
    return out;
}

simulated_course simulate(const simulated_mix& mix) { return simulation(mix).run(); }
