// The service's book: who has a session, what each holds of which storage, and how fast data flows.
//
//   session --- hold --- storage     a hold is one session's use of one storage: the connections
//                                    that it was admitted to, and its flows, reading and writing
//
//   a:NAME +1 / -1      takes a connection while the storage has fewer than its limit; returns it
//   r:NAME, w:NAME      a report starts or renews the session's flow; -1 ends it, and so does
//                       silence for two sample intervals
//   settings            the last row text that named a storage sets its limit and its rates; of a
//                       session that sent one before, what differs from that. Where the service has
//                       settings of its own, those hold, and a text only tells what its client
//                       goes by
//
// The count that a flow is told is such that all get their fair share (fair_share.h): of what the
// settings of its storage allow, less where an operator limits it (live_limits.h), and of what all
// storages of the host may have together, where there is such a cap. Of two counts it is told the
// larger one.
//
// A session that says nothing for the lease ends and gives back what it held. One that isn't in the
// book is taken up again when it speaks: the service was started anew under it. So that its
// connections are counted again too, it is given one when it reports a flow.
//
// The book is bounded: there is a limit to the sessions and to the storages in it. A storage that
// nobody uses leaves its place to a new one; clients send their text at each open of an image, so
// its settings come back with its use. Where it is full, whoever has most of it makes room for
// those who have less: of its own, what has been silent longest leaves first. So however much one
// peer takes, another gets its part.
//
// What outlasts the service is taken out as a record and put back into the next one's book: the
// settings, the limits of operators, and how many flows there were: until these have been heard of
// again, or would have ended, each is told a count as if they were there.
//
// No CORBA and no clock in here. Every call may come from any thread.
#pragma once

#include "service/fair_share.h"
#include "service/limits.h"
#include "service/line_queue.h"
#include "service/live_limits.h"
#include "service/log_line.h"
#include "service/moment.h"

#include "config/allowed_rate.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

using session_number = uint64_t;

/// What a session is called where others see it. It leads to nothing.
std::string short_name(session_number number);

/// Who asks: the session, and the peer that speaks for it, by its name. What a session takes of the
/// book counts as the peer's that began it.
struct caller {
    caller(session_number number, std::string by = "") // NOLINT(google-explicit-constructor)
        : session(number), peer(std::move(by)) {}

    session_number session;
    std::string peer;
};

/// The session was ended by its client, so nobody can ask as it any more.
struct session_has_ended {};

constexpr size_t most_sessions = 65536;
constexpr size_t most_storages = 1024;
constexpr size_t longest_text = 65536;           ///< bytes of a row text
constexpr size_t most_texts = 64;                ///< that are remembered
constexpr int64_t history_step = 2;              ///< seconds
constexpr size_t history_points = 300;           ///< kept for each storage
constexpr int64_t shortest_silence_of_flow = 60; ///< seconds until a silent flow ends, at least

/// What a question is answered with.
struct answer {
    int32_t status;   ///< 0; 2060020: the limit is reached; other: the question can't be understood
    std::string text; ///< the rows of the reply, or why there is none
};

/// Bytes moved between two times, as a client reports them.
struct sample {
    uint32_t operation; ///< 0 read, 1 write
    uint32_t start;     ///< seconds since the epoch
    uint32_t end;
    uint64_t bytes;
};

/// How one direction of a storage is used.
struct direction_view {
    int64_t flows;     ///< sessions that read, or write
    uint64_t allowed;  ///< bytes per second for all of them together
    uint64_t measured; ///< bytes per second that they last reported
};

struct storage_point {
    time_t when; ///< seconds since the epoch
    int64_t connections;
    direction_view read;
    direction_view write;
};

struct storage_view {
    std::string name;
    int64_t limit;
    int64_t refused; ///< connections refused since the service started
    int32_t sample_interval;
    storage_point now;
    std::vector<storage_point> history; ///< oldest first
};

/// What an operator asks to be limited. What is none stays as it is.
struct limit_change {
    std::optional<uint64_t> rates[2]; ///< by operation, bytes per second; 0: a pause
    std::optional<int64_t> connections;
    std::optional<int64_t> seconds; ///< how long it holds; none: until it is taken back
};

/// The limits that hold for a storage, or for the host.
struct limits_view {
    std::optional<std::string> storage; ///< none: all storages of the host together
    live_limits limits;
    /// For whoever set them, of each rate: what the settings allow of it now, at least.
    std::optional<uint64_t> allowed[2];
    bool is_known = true;                   ///< somebody has named the storage
    std::optional<int32_t> sample_interval; ///< of a storage's settings, seconds
};

/// What of the book outlasts the service.
struct kept_book {
    struct kept_storage {
        std::string name;
        std::optional<size_t> settings; ///< number of those in `settings`; none: no text named it
        int64_t limit;                  ///< connections that they allow
        uint64_t flows[2];
    };
    std::vector<std::string> settings; ///< rows without limits of storages; first: the last text's
    std::vector<kept_storage> storages;
    std::vector<limits_view> limits; ///< their ends in seconds since the epoch
};

/// Why a limit isn't set.
struct limit_refused : std::runtime_error {
    using runtime_error::runtime_error;
};

/// Everything that can be seen of the book.
struct ledger_view {
    int64_t uptime; ///< seconds since the service started
    int64_t lease;
    size_t sessions;
    int64_t sessions_opened; ///< since the start; so are the five below
    int64_t sessions_expired;
    int64_t reports;
    int64_t malformed;
    int64_t false_keys;
    int64_t points;                     ///< of history, written since the start
    std::vector<storage_view> storages; ///< by name
};

/// What is wanted of a book that may be too large to be taken out at once: while a part is copied,
/// clients wait.
struct view_part {
    std::string after; ///< storages whose names are behind it alone
    time_t since = 0;  ///< history behind it alone, seconds since the epoch
    size_t most = most_storages;
    /// History up to this many points: what an earlier part couldn't tell, the next one doesn't.
    int64_t points = std::numeric_limits<int64_t>::max();
};

class ledger {
  public:
    /// Takes a line of what changed; called by one thread at a time, in order, with nothing locked.
    using log_sink = line_queue::sink;

    /// `lease` in seconds.
    ledger(int64_t lease, moment now, log_sink log);
    ledger(const ledger&) = delete;
    ledger& operator=(const ledger&) = delete;

    int64_t lease() const { return lease_; }

    // What outlasts the service.

    /// Puts back what an earlier one kept, into a book that nobody has used. What can't be is left
    /// out: settings that aren't readable, names that no storage can have, more than there may be.
    void restore(const kept_book& kept, moment now);
    kept_book keep(moment now);
    /// Goes up whenever keep() would say something else, but for the ends of flows and time.
    uint64_t changes();

    /// The service's own settings, which hold whatever clients send; from now on.
    void rule(settings_ptr own, moment now);

    // What clients ask.

    /// Enters a session. False when the number is taken, or the book is full and the peer has as
    /// much of it as any other.
    bool open(const caller& who, moment now);
    /// Ends a session, which gives back what it held; no matter if it isn't in the book. Nobody is
    /// heard as it from then on. Throws session_has_ended when it was ended before.
    void close(const caller& who, moment now);

    // What a session says. It is entered when it isn't in the book. All throw session_has_ended.

    /// The session spoke.
    void hear(const caller& who, moment now);
    /// Takes up the settings of a row text. 0, or STS_ERR_INVALID: no row of it can be read, and
    /// nothing has changed. Storages that there is no room for are left out.
    int32_t configure(const caller& who, const std::string& text, moment now);
    /// `delta` is 1 or -1.
    answer check_connections(const caller& who, const std::string& key,
                             const std::string& session_text, int32_t delta, moment now);
    answer check_bandwidth(const caller& who, const std::string& key,
                           const std::string& session_text, const sample& reported, moment now);
    /// A question that can't even be put as one of the two above.
    answer refuse(const caller& who, const std::string& why, moment now);

    /// A request came with a key that nobody was handed. Costs next to nothing.
    void count_false_key() { ++false_keys_.count; }

    // What operators ask.

    /// Limits a storage, which may be one that nobody has used yet; none: all storages of the host
    /// together. It holds for each session from its next report on. `by` is who asks, for the log.
    /// Throws limit_refused, where nothing has changed.
    limits_view limit(const std::optional<std::string>& storage, const limit_change& change,
                      const std::string& by, moment now);
    /// Takes all limits of a storage, or of the host, back. Whether there were any.
    bool unlimit(const std::optional<std::string>& storage, const std::string& by, moment now);
    /// Those that hold, the host's first, then by name.
    std::vector<limits_view> limits(moment now);

    /// Ends what has run out, and writes history. To be called about once a second.
    void tick(moment now);
    ledger_view view(moment now, const view_part& wanted = {});

  private:
    struct flow {
        session_number session;
        int64_t reported; ///< uptime of the last report
        uint64_t rate;    ///< bytes per second of the last report
        fair_share::place share;
        std::optional<fair_share::place> host_share = std::nullopt; ///< while the host has a cap
        uint64_t count = 0; ///< that it was last told; 0: none yet
    };
    using flow_list = std::list<flow>; ///< whoever has been silent longest first

    /// What a peer has of the book.
    struct account {
        std::list<session_number> sessions; ///< whoever has been silent longest first
        size_t storages = 0;                ///< that it was the first to name
    };
    using account_map = std::map<std::string, account>; ///< by the peer's name
    using account_entry = account_map::value_type;

    struct storage {
        account_entry* owner;  ///< who named it first
        settings_ptr settings; ///< of the last text that named it; null: none did
        size_t strangers = 0;  ///< sessions of other peers than its owner that use it
        int64_t connections = 0;
        int64_t refused = 0;
        int64_t asked = 0; ///< uptime when a client last named it
        flow_list flows[2];
        fair_share shares[2];              ///< of the flows
        std::optional<uint64_t> limits[2]; ///< that the shares are of
        uint64_t flows_before[2] = {};     ///< that there were at the end of an earlier service
        std::deque<storage_point> history;
        bool is_unused() const { return connections == 0 && flows[0].empty() && flows[1].empty(); }
    };
    using storage_map = std::map<std::string, storage>;
    using storage_entry = storage_map::value_type;

    struct hold {
        int64_t connections = 0;
        std::optional<flow_list::iterator> flows[2];
        bool is_empty() const { return connections == 0 && !flows[0] && !flows[1]; }
    };

    /// A text that a client sent lately.
    struct known_text {
        std::string text;
        settings_ptr whole;
        settings_ptr rates; ///< the same without limits
    };
    using text_ptr = std::shared_ptr<const known_text>;

    struct session {
        std::string label; ///< the client's own text for it, once known
        int64_t heard;     ///< uptime
        std::list<session_number>::iterator place;
        account_entry* owner;
        std::list<session_number>::iterator place_with_owner;
        bool is_taken_up;      ///< what it held before isn't known
        settings_ptr settings; ///< what its client goes by, but for limits; null: it sent none
        std::weak_ptr<const known_text> sent; ///< its last text, while that is known
        std::map<storage_entry*, hold> holds;
    };
    using session_map = std::unordered_map<session_number, session>;
    using session_entry = session_map::value_type;

    class turn;

    account_entry& account_of(const std::string& peer);
    void drop_if_empty(account_entry& whose);
    bool make_room_for_session(const account_entry& whose);

    session_entry* enter(const caller& who, bool is_taken_up, moment now);
    session_entry* heard(const caller& who, moment now);
    void end(session_map::iterator which, const char* why);
    void remember_end(session_number number);
    void expire(moment now);

    storage_entry* find_or_add(const std::string& name, account_entry& whose, moment now);
    storage_entry* asked_for(const std::string& name, account_entry& whose, moment now);
    struct offers;
    offers offered_to(const account_entry& whose, const connection_limits& spared);
    void make_room(size_t wanted, const account_entry& whose, const connection_limits& spared);
    void drop(storage_map::iterator which);
    std::string take_up(const settings_ptr& incoming, const throttling_config_s* earlier,
                        account_entry& whose, moment now);
    std::string differences_from_own(const throttling_config_s& incoming) const;
    const throttling_config_s& settings_of(const storage_entry& which) const;
    const throttling_config_s& settings_for(const session_entry& who,
                                            const storage_entry& what) const;
    bool can_be_dropped(const storage_entry& which) const;
    text_ptr find_text(const std::string& text) const;
    settings_ptr base_for(session_number who) const;
    text_ptr remember_text(const std::string& text, const settings_ptr& read);
    uint64_t count_before(const storage_entry& what, operation_type_t operation, uint64_t own_rate,
                          moment now) const;
    bool awaits_flows(const storage_entry& what, operation_type_t operation, moment now) const;

    template <typename Objection, typename Reply>
    answer ask(const caller& who, const std::string& key, const std::string& session_text,
               moment now, Objection objection, Reply reply);
    answer connect(session_entry& who, storage_entry& what, moment now);
    void disconnect(session_entry& who, storage_entry& what);
    int64_t report(session_entry& who, storage_entry& what, const sample& reported, moment now);
    void end_flow(session_entry& who, storage_entry& what, operation_type_t operation,
                  const char* why);
    void expire_flows(storage_entry& what, moment now);
    void give_back(session_entry& who, storage_entry& what, const char* why);
    hold& hold_of(session_entry& who, storage_entry& what);
    void drop_if_empty(session_entry& who, storage_entry& what);

    const live_limits& limits_of(const std::string& storage) const;
    int64_t connection_limit_of(const storage_entry& what, moment now) const;
    uint64_t allowed(const storage_entry& what, operation_type_t operation, moment now) const;
    void follow_limits(storage_entry& what, moment now);
    void follow_cap(operation_type_t operation, moment now);
    void join_host(flow& one, operation_type_t operation, moment now);
    void leave_host(flow& one, operation_type_t operation);
    std::optional<uint64_t> allowed_by_settings(const std::optional<std::string>& storage,
                                                operation_type_t operation, moment now) const;
    void end_limits(moment now);
    bool is_paused(const storage_entry& what, operation_type_t operation, moment now) const;
    int64_t pause(session_entry& who, storage_entry& what, moment now) const;

    uint64_t measured(const storage_entry& what, operation_type_t operation, moment now) const;
    storage_point point_of(const storage_entry& what, moment now) const;
    uint64_t count_for(session_entry& who, storage_entry& what, operation_type_t operation,
                       moment now);
    answer reply(session_entry& who, storage_entry& what, operation_type_t operation, int64_t wait,
                 moment now);
    answer malformed(session_number number, int32_t status, const std::string& why);
    /// Something that is counted, and told once a minute at most, however often it happens.
    struct tally {
        const char* what;
        std::atomic<int64_t> count{0};
        int64_t told = 0;
        int64_t when_told = 0; ///< uptime
    };
    void tell(tally& which, moment now);
    void log(const session_entry& who, const std::string& what);

    const int64_t lease_;
    const int64_t started_;
    line_queue lines_;
    tally false_keys_{"requests for objects that don't exist"};

    std::mutex lock_;
    account_map accounts_;
    session_map sessions_;
    std::list<session_number> silent_longest_;     ///< the sessions, whoever spoke last at the end
    std::unordered_set<session_number> ended_;     ///< by their clients, as many as may be open
    std::deque<session_number> ended_longest_ago_; ///< the same, in order
    storage_map storages_;
    std::map<std::string, live_limits> limits_; ///< by storage
    live_limits host_limits_;
    fair_share host_shares_[2];            ///< of all flows, while there is a cap
    std::optional<uint64_t> host_caps_[2]; ///< that they are of
    settings_ptr latest_ = std::make_shared<throttling_config_s>(); ///< of the last text
    settings_ptr own_;           ///< the service's; null: it goes by what clients send
    std::deque<text_ptr> texts_; ///< the last one first
    uint64_t changes_ = 0;
    std::optional<int64_t> restored_; ///< uptime
    int64_t last_point_;
    int64_t points_ = 0;
    int64_t sessions_opened_ = 0;
    int64_t sessions_expired_ = 0;
    int64_t reports_ = 0;
    int64_t malformed_ = 0;
};
