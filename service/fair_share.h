// How the flows of a storage share its allowed rate in one direction: whom to tell which count, the
// number by which a client divides that rate until its next report.
//
//   level    who needs less than it gets what it needs, all others get the level, and together they
//            get the whole: max-min fair, and nothing is left that somebody wants
//   need     what a flow used of its last samples, if that was less than it might have used. One
//            that used all that it might wants more, and nobody knows how much
//   due      of a running sample: the level, second by second; what it needs, for one of a known
//            need. A level that rises counts from the next report on, as its client hears of it
//   excess   what all have moved above their dues, or less, since counts are whole numbers. Whoever
//            reports next evens it out, with what those that run now will have added by then: so a
//            level between two counts is met by one and the other in turn, and what was moved
//            before others heard of a newcomer is paid back, also when who moved it has left
//   debt     the same of one flow beside the others: who got more gets less next time
//   bound    what a flow may have at most as it shares something else, too; where that is less than
//            the level, it counts as its need, and who shares that with it steers it
//
// All is in parts of the allowed rate: a share of it, or seconds of the whole. The same calls give
// the same counts: no clock, no lock and no text in here. A call takes time for each flow, so of more
// than most_weighed each has an even part, whatever it needs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <list>

/// What a flow has moved.
struct moved_sample {
    double used;     ///< seconds of the whole that its bytes make
    int64_t seconds; ///< that it took, as its client says
};

class fair_share {
  public:
    static constexpr size_t most_weighed = 1024; ///< flows

    class sharer;
    using place = std::list<sharer>::iterator;

    /// One more flow from `now` on, in seconds. Nothing is known of it, so it may want all.
    place join(int64_t now);
    void leave(place whose);
    /// What is allowed has changed, by which all is measured: all begin anew, owing nothing.
    void begin_anew(int64_t now);

    /// Takes up what a flow has moved since its last report. `interval` is the usual time from one
    /// to the next, in seconds, above 0.
    void report(place whose, const moved_sample& sample, int64_t interval, int64_t now);

    /// The count to tell a flow, from 1 to `most`. `own` is the rate that its client divides, a
    /// share. A later answer takes the place of an earlier one for the whole running sample.
    uint64_t count(place whose, double own, uint64_t most, int64_t interval, int64_t now);

    /// What who wants more gets, a share.
    double level() const { return level_; }
    static constexpr double unbound = std::numeric_limits<double>::infinity();
    /// A flow may have `most` at most, a share, whatever it wants.
    void bind(place whose, double most);
    /// What a flow was told in the end, a share, where it isn't what its last count says.
    void tell(place whose, double part);

  private:
    bool is_crowded() const { return all_.size() > most_weighed; }
    void pass(int64_t now);
    void find_level();
    void take_up_need(sharer& flow, bool is_held, int64_t interval);
    void even_out_debts();
    void remember(double used, int64_t interval);
    double lately_unused(int64_t interval);
    double excess_without(const sharer& whose) const;
    double part_of_wanting(const sharer& flow, double own, int64_t interval);
    double least_part() const;
    bool would_be_too_much(const sharer& flow, double part) const;
    double most_at_once(double own) const;

    static constexpr size_t remembered = 10; ///< intervals

    std::list<sharer> all_;
    int64_t now_ = 0;
    double level_ = 1;  ///< a share
    double excess_ = 0; ///< seconds of the whole, without what runs now
    std::array<double, remembered> moved_ = {};
    int64_t latest_ = 0; ///< number of the interval that moved_ ends with
};

/// What is known of a flow.
class fair_share::sharer {
    friend class fair_share;

    static constexpr double unknown = std::numeric_limits<double>::infinity();

    double told_ = 0;                  ///< share that its count lets through; 0: none was told
    double need_ = unknown;            ///< a share
    double bound_ = unknown;           ///< a share
    bool is_bound_ = false;            ///< to less than the level
    double peak_ = 0;                  ///< the most that it needed lately
    double debt_ = 0;                  ///< seconds of the whole
    double due_ = 0;                   ///< since its last report
    double due_in_time_ = 0;           ///< the same, but none while the next report is late
    double level_then_ = 1;            ///< at its last report
    int64_t since_ = 0;                ///< when that was
    int64_t length_ = 1;               ///< seconds that its sample is to take
    bool is_overdue_ = false;          ///< so late that nobody waits for what it might use
    bool has_moved_ = false;           ///< a sample of it was taken up
    moved_sample seen_ = {};           ///< since its need was last looked at
    double seen_let_ = 0;              ///< what it might have used in that time
    std::array<double, 4> moved_ = {}; ///< by its last samples

    bool wants_all() const { return need_ == unknown; }
    bool wants_more() const { return wants_all() && !is_bound_; }
    /// What a flow of a known need is to be let use, so that it is seen to grow; where samples are
    /// short, whole seconds are a coarse measure.
    double let_need() const {
        return wants_all() ? bound_ : peak_ * 1.12 * (1 + 1 / static_cast<double>(length_));
    }
    /// The most that it may come to have.
    double most_needed() const { return need_ < bound_ ? need_ : bound_; }
    /// Its part of the whole at a level.
    double part_at(double level) const {
        return is_overdue_ ? 0 : most_needed() < level ? most_needed() : level;
    }
};
