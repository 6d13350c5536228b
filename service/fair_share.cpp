#include "service/fair_share.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double all_of_it = 0.99; // who used so much of what it might has been held back
constexpr double nearly = 0.95;

// How far a count goes from the level to pay a debt back, or for one that is owed something. No
// further: a client that is told very little is long about a single block.
constexpr double least_of_level = 1.0 / 8;
constexpr double most_of_level = 1.45;

constexpr double longest_debt = 4; // of a flow, in intervals at the level; more is forgiven
constexpr double longest_credit = 2;

constexpr double believed = 1.25;         // of what a flow might have moved, whatever it claims
constexpr int64_t shortest_look = 8;      // seconds until a need is known
constexpr double most_of_five = 5 * 1.05; // intervals, if only one flow wants more

constexpr double seconds_of(int64_t whole) { return static_cast<double>(whole); }

} // namespace

// --- who is there ------------------------------------------------------------------------------

fair_share::place fair_share::join(int64_t now) {
    pass(now);
    const place joined = all_.insert(all_.end(), sharer());
    joined->since_ = now_;
    excess_ = std::max(excess_, 0.0);
    find_level();
    joined->level_then_ = level_;
    return joined;
}

void fair_share::leave(place whose) {
    all_.erase(whose);
    find_level();
}

void fair_share::begin_anew(int64_t now) {
    pass(now);
    excess_ = 0;
    moved_ = {};
    for (sharer& each : all_) {
        each = {};
        each.since_ = now_;
    }
    find_level();
    for (sharer& each : all_) {
        each.level_then_ = level_;
    }
}

/// Lets time pass: dues grow, and what is nobody's due pays back what was too much.
void fair_share::pass(int64_t now) {
    const int64_t before = now_;
    now_ = std::max(now, now_);
    if (is_crowded()) {
        return;
    }
    const double passed = seconds_of(now_ - before);
    double all = 0;
    bool has_changed = false;
    for (sharer& each : all_) {
        const double part = std::min(each.part_at(each.level_then_), each.part_at(level_));
        const int64_t in_time = each.since_ + each.length_ - before;
        each.due_ += part * passed;
        each.due_in_time_ += part * std::clamp(seconds_of(in_time), 0.0, passed);
        all += part;
        // Whoever was told little may be long about a block.
        const double patience =
            each.told_ > 0 ? std::clamp(each.level_then_ / each.told_, 1.0, 1 / least_of_level) : 1;
        const bool is_overdue =
            seconds_of(now_ - each.since_) >= 2 * patience * seconds_of(each.length_);
        has_changed |= is_overdue != each.is_overdue_;
        each.is_overdue_ = is_overdue;
    }
    if (excess_ > 0) {
        excess_ = std::max(0.0, excess_ - std::max(0.0, 1 - all) * passed);
    }
    if (has_changed) {
        find_level();
    }
}

/// The level at which all parts together make the whole; the whole if they don't.
void fair_share::find_level() {
    if (is_crowded()) {
        return;
    }
    double left = 1;
    size_t sharing = 0;
    for (const sharer& each : all_) {
        sharing += each.is_overdue_ ? 0 : 1;
    }
    level_ = 1;
    // Who needs less than an even part leaves the rest of it to the others, whose part it makes
    // larger: until nobody more needs less.
    for (size_t before = 0; sharing != before && sharing > 0;) {
        before = sharing;
        level_ = left / seconds_of(static_cast<int64_t>(sharing));
        left = 1;
        sharing = 0;
        for (const sharer& each : all_) {
            left -= each.most_needed() <= level_ ? each.part_at(level_) : 0;
            sharing += each.most_needed() <= level_ || each.is_overdue_ ? 0 : 1;
        }
    }
    if (sharing == 0) {
        level_ = 1;
    }
    // Between a half and the whole, one sample of five more or less makes a tenth of the whole. What
    // is beyond a tenth by less than half is left alone: with one more the five would be too much.
    if (level_ > 0.5 && level_ < 1) {
        const double beyond = std::fmod(level_ * 10, 1.0);
        level_ -= beyond < 0.5 ? beyond / 10 : 0;
    }
    for (sharer& each : all_) {
        each.is_bound_ = each.bound_ < level_ * (1 - 1e-6);
    }
}

void fair_share::bind(place whose, double most) {
    if (whose->bound_ != most) {
        whose->bound_ = most;
        find_level();
    }
}

void fair_share::tell(place whose, double part) { whose->told_ = part; }

// --- what is reported --------------------------------------------------------------------------

void fair_share::report(place whose, const moved_sample& sample, int64_t interval, int64_t now) {
    pass(now);
    sharer& flow = *whose;
    if (is_crowded()) {
        flow = {};
        flow.since_ = now_;
        return;
    }
    const double whole = seconds_of(interval);
    const int64_t passed = now_ - flow.since_;
    const int64_t seconds = std::clamp(sample.seconds, int64_t{0}, passed);
    const bool was_told = flow.told_ > 0;
    const double used =
        std::min(sample.used, was_told ? flow.told_ * seconds_of(passed + 1) * believed : whole);
    remember(used, interval);
    if (was_told && seconds > 0) {
        const double let = flow.told_ * seconds_of(seconds);
        double more = used - flow.due_;
        // Times are in whole seconds, so a sample may be half of one short. If it lacks more it
        // wasn't the count that held the flow back, and what it didn't use isn't saved up.
        if (flow.wants_more() && used < let * nearly * (1 - 0.5 / seconds_of(seconds))) {
            more = std::max(used, std::min(let, flow.due_)) - flow.due_;
        }
        flow.has_moved_ = true;
        excess_ = std::max(excess_ + more, -whole / 2);
        flow.debt_ += more;
        std::rotate(flow.moved_.begin(), flow.moved_.begin() + 1, flow.moved_.end());
        flow.moved_.back() = used;
        flow.seen_.used += used;
        flow.seen_.seconds += seconds;
        flow.seen_let_ += let;
        take_up_need(flow, used >= all_of_it * let, interval);
    }
    flow.since_ = now_;
    flow.length_ = std::clamp(passed, interval, 4 * interval);
    flow.due_ = flow.due_in_time_ = 0;
    flow.is_overdue_ = false;
    find_level();
    flow.level_then_ = level_;
    flow.debt_ = std::clamp(flow.debt_, flow.wants_more() ? -longest_credit * level_ * whole : 0,
                            longest_debt * level_ * whole);
    even_out_debts();
}

/// Whether a flow wants more, or what it needs, as soon as that can be told.
void fair_share::take_up_need(sharer& flow, bool is_held, int64_t interval) {
    const double seconds = seconds_of(flow.seen_.seconds);
    if (!is_held && flow.seen_.seconds < std::max(interval * 3 / 4, shortest_look)) {
        return;
    }
    const double need = flow.seen_.used / seconds;
    const bool is_far_from_held = flow.seen_.used < nearly * flow.seen_let_ * (1 - 1 / seconds);
    if (is_held || need >= level_ * 0.98) {
        if (!flow.wants_all()) {
            excess_ = std::max(excess_, 0.0);
        }
        flow.need_ = sharer::unknown;
    } else if (!flow.wants_all()) {
        flow.need_ = (flow.need_ + need) / 2;
        flow.peak_ = std::max(need, flow.peak_ * 0.95);
    } else if (is_far_from_held) {
        flow.need_ = flow.peak_ = need;
    }
    flow.seen_ = {};
    flow.seen_let_ = 0;
}

/// Debts are by comparison: those of all who want more make 0.
void fair_share::even_out_debts() {
    double sum = 0;
    double count = 0;
    for (const sharer& each : all_) {
        const bool counts = each.wants_more() && !each.is_overdue_;
        sum += counts ? each.debt_ : 0;
        count += counts ? 1 : 0;
    }
    for (sharer& each : all_) {
        each.debt_ -= each.wants_more() && !each.is_overdue_ ? sum / count : 0;
    }
}

void fair_share::remember(double used, int64_t interval) {
    const int64_t number = now_ / interval;
    if (number < latest_ || number - latest_ >= static_cast<int64_t>(remembered)) {
        moved_ = {};
        latest_ = number;
    }
    while (latest_ < number) {
        moved_[static_cast<size_t>(++latest_) % remembered] = 0;
    }
    moved_[static_cast<size_t>(number) % remembered] += used;
}

/// What nobody has used of the last intervals, seconds of the whole.
double fair_share::lately_unused(int64_t interval) {
    remember(0, interval);
    double left = seconds_of(interval) * (remembered - 1);
    for (const double each : moved_) {
        left -= each;
    }
    for (const sharer& each : all_) {
        left -= std::min(each.told_, each.need_) *
                seconds_of(std::min(now_ - each.since_, each.length_));
    }
    return std::max(left, 0.0);
}

// --- what is told ------------------------------------------------------------------------------

/// What all but one will have moved above their dues when their running samples end.
double fair_share::excess_without(const sharer& whose) const {
    double sum = excess_;
    for (const sharer& each : all_) {
        if (&each != &whose && !each.is_overdue_) {
            const int64_t rest = std::max(each.since_ + each.length_ - now_, int64_t{0});
            sum += std::min(each.told_, each.need_) * seconds_of(each.length_) - each.due_in_time_ -
                   each.part_at(level_) * seconds_of(rest);
        }
    }
    return sum;
}

/// The most that a flow may be let have for a while, to be paid back: the whole, and more where its
/// own rate is above the whole and no count meets that.
double fair_share::most_at_once(double own) const {
    const double more = level_ * most_of_level;
    return level_ > 0.5 ? std::clamp(own, 1.0, std::max(more, 1.0)) : more;
}

/// The share for a flow that wants more: its due, less what it owes and what is too much in all.
double fair_share::part_of_wanting(const sharer& flow, double own, int64_t interval) {
    double excess = excess_without(flow);
    if (!flow.has_moved_) { // it owes nothing yet: where there was room lately, it has its part
        excess = std::max(excess - lately_unused(interval), 0.0);
    }
    const int64_t length = std::max(flow.length_, now_ - flow.since_);
    const int64_t rest = flow.since_ + length - now_;
    const double due = flow.due_ + std::min(flow.level_then_, level_) * seconds_of(rest);
    return std::clamp((due - flow.debt_ / 2 - excess) / seconds_of(length), level_ * least_of_level,
                      most_at_once(own));
}

/// The least share for a flow of a known need: little where others want more, since these would
/// hear too late if it used much at once, else what makes the whole together.
double fair_share::least_part() const {
    const double even = 1 / seconds_of(static_cast<int64_t>(all_.size()));
    for (const sharer& each : all_) {
        if (each.wants_more() && !each.is_overdue_) {
            return even / 4;
        }
    }
    double part = even;
    for (int round = 0; round < 4; ++round) {
        double left = 1;
        double sharing = 0;
        for (const sharer& each : all_) {
            const double need = each.is_overdue_ ? 0 : each.let_need();
            left -= need > part ? need : 0;
            sharing += need > part ? 0 : 1;
        }
        part = sharing > 0 ? std::max(left / sharing, even / 4) : part;
    }
    return part;
}

/// Whether five samples of the only flow that wants more would be above what is allowed, with what
/// the others need.
bool fair_share::would_be_too_much(const sharer& flow, double part) const {
    const double length = seconds_of(flow.length_);
    double sum = part * length + 5 * (1 - level_) * length;
    for (const double each : flow.moved_) {
        sum += each;
    }
    return sum > most_of_five * length;
}

uint64_t fair_share::count(place whose, double own, uint64_t most, int64_t interval, int64_t now) {
    pass(now);
    sharer& flow = *whose;
    const double largest = std::max(static_cast<double>(most), 1.0);
    if (is_crowded()) {
        const double even = own * seconds_of(static_cast<int64_t>(all_.size()));
        return static_cast<uint64_t>(std::clamp(even, 1.0, largest));
    }
    flow.length_ = std::max(flow.length_, interval);
    const bool is_small = !flow.wants_more() && flow.let_need() <= level_;
    const bool is_bound = flow.is_bound_ && flow.wants_all(); // others steer it, this does no harm
    const double part = flow.wants_more() ? part_of_wanting(flow, own, interval)
                        : is_bound        ? flow.bound_ * most_of_level
                        : is_small        ? std::max(flow.let_need(), least_part())
                                          : level_;
    // Of the two counts on either side: the one that is nearer, where that holds back nobody who
    // needs less.
    constexpr double rounding = 1 + 1e-9;
    double count = std::max(std::floor(own / part * rounding), 1.0);
    const bool is_next_nearer = own / count - part > part - own / (count + 1);
    if (flow.wants_more()) {
        const bool is_alone = level_ > 0.5 && (count == 1 || own > 1);
        count += is_next_nearer || (is_alone && would_be_too_much(flow, own / count)) ? 1 : 0;
    } else if (!is_small && is_next_nearer && own / (count + 1) >= flow.need_ * 1.02) {
        ++count;
    }
    count = std::clamp(count, 1.0, largest);
    flow.told_ = own / count;
    return static_cast<uint64_t>(count);
}
