#include "service/ledger.h"

#include "service/flow_key.h"
#include "service/in_quotes.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace {

constexpr const char* flow_names[] = {"reads", "writes"};
constexpr size_t longest_label = 63;
constexpr ptrdiff_t most_listed = 5;

/// Seconds of silence after which a flow ends.
int64_t silence_of_flow(const throttling_config_s& settings) {
    return std::max(int64_t{2} * settings.sample_interval, shortest_silence_of_flow);
}

/// What a flow reported holds until it is overdue by a whole interval.
int64_t life_of_rate(const throttling_config_s& settings) {
    return int64_t{2} * std::max(settings.sample_interval, 1);
}

uint64_t allowed_now(const throttling_config_s& settings, operation_type_t operation, moment now) {
    tm local = {};
    localtime_r(&now.wall, &local);
    return allowed_rate(settings, operation, local);
}

uint64_t add_up(uint64_t sum, uint64_t more) {
    return more > std::numeric_limits<uint64_t>::max() - sum ? std::numeric_limits<uint64_t>::max()
                                                             : sum + more;
}

uint64_t rate_of(const sample& reported) {
    const int64_t seconds = int64_t{reported.end} - int64_t{reported.start};
    return reported.bytes / static_cast<uint64_t>(std::max(seconds, int64_t{1}));
}

/// Seconds that a sample was early: what its bytes should have taken at its `share` of the rate,
/// less what they took. At most `longest`.
int64_t early_by(const sample& reported, uint64_t share, int64_t longest) {
    if (share == 0) {
        return 0; // nothing may be moved at all, so no wait would make up for it
    }
    constexpr auto endless = static_cast<uint64_t>(std::numeric_limits<int64_t>::max() / 2);
    const auto due = static_cast<int64_t>(std::min(reported.bytes / share, endless));
    const int64_t taken = int64_t{reported.end} - int64_t{reported.start};
    return std::clamp(due - taken, int64_t{0}, longest);
}

std::string row(const char* name, const char* description, uint64_t value) {
    return fmt::format("name={},description={},type=int,value={},fixed=y;", name, description,
                       value);
}

/// A part of a log line: the first few items, and how many more there are. Empty without any.
std::string part(const char* what, const std::vector<std::string>& items) {
    if (items.empty()) {
        return "";
    }
    const auto count = static_cast<ptrdiff_t>(items.size());
    const ptrdiff_t listed = std::min(count, most_listed);
    return fmt::format("; {}{}{}", what, fmt::join(items.begin(), items.begin() + listed, "; "),
                       listed < count ? fmt::format("; and {} more", count - listed) : "");
}

bool is_quiet(const storage_point& point) {
    return point.connections == 0 && point.read.flows == 0 && point.write.flows == 0;
}

} // namespace

ledger::ledger(int64_t lease, moment now, log_sink log)
    : lease_(lease), started_(now.uptime), log_(std::move(log)), last_point_(now.uptime) {}

// --- sessions ----------------------------------------------------------------------------------

bool ledger::open(session_number number, moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    if (sessions_.count(number) != 0) {
        return false;
    }
    session_entry* const who = enter(number, false, now);
    if (who == nullptr) {
        return false;
    }
    ++sessions_opened_;
    log(*who, "opened");
    return true;
}

void ledger::hear(session_number number, moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    heard(number, now);
}

void ledger::close(session_number number, moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    const auto which = sessions_.find(number);
    if (which != sessions_.end()) {
        end(which, "ended by its client");
    }
}

/// Null when the book is full.
ledger::session_entry* ledger::enter(session_number number, bool is_taken_up, moment now) {
    if (sessions_.size() >= most_sessions) {
        log_({fmt::format("session {:016x}: refused, {} sessions are open", number, most_sessions),
              log_kind::refusal});
        return nullptr;
    }
    const auto place = silent_longest_.insert(silent_longest_.end(), number);
    return &*sessions_.try_emplace(number, session{"", now.uptime, place, is_taken_up, {}}).first;
}

/// The session that spoke. Null when it isn't in the book and this is full.
ledger::session_entry* ledger::heard(session_number number, moment now) {
    const auto known = sessions_.find(number);
    if (known == sessions_.end()) {
        session_entry* const who = enter(number, true, now);
        if (who != nullptr) {
            log(*who, "taken up again");
        }
        return who;
    }
    known->second.heard = now.uptime;
    silent_longest_.splice(silent_longest_.end(), silent_longest_, known->second.place);
    return &*known;
}

void ledger::end(session_map::iterator which, const char* why) {
    session_entry& who = *which;
    log(who, why);
    while (!who.second.holds.empty()) {
        storage_entry& what = *who.second.holds.begin()->first;
        end_flow(who, what, OPERATION_READ, why);
        end_flow(who, what, OPERATION_WRITE, why);
        while (who.second.holds.count(&what) != 0) {
            disconnect(who, what);
        }
    }
    silent_longest_.erase(who.second.place);
    sessions_.erase(which);
}

void ledger::expire(moment now) {
    while (!silent_longest_.empty()) {
        const auto which = sessions_.find(silent_longest_.front());
        if (now.uptime - which->second.heard < lease_) {
            return;
        }
        ++sessions_expired_;
        end(which, "ended, its lease has run out");
    }
}

// --- storages ----------------------------------------------------------------------------------

/// Null when it would be one too many.
ledger::storage_entry* ledger::find_or_add(const std::string& name, moment now) {
    auto known = storages_.find(name);
    if (known == storages_.end()) {
        if (storages_.size() >= most_storages) {
            return nullptr;
        }
        known = storages_.try_emplace(name).first;
        if (latest_->connections.count(name) != 0) {
            known->second.settings = latest_;
        }
    }
    known->second.asked = now.uptime;
    return &*known;
}

/// The storage of a question. Null when there is no room, all others being used.
ledger::storage_entry* ledger::asked_for(const std::string& name, moment now) {
    if (storages_.count(name) == 0) {
        make_room(1, {});
    }
    return find_or_add(name, now);
}

/// Drops storages that nobody uses, first those that nobody named for longest, until there is room
/// for as many as are wanted, or none is left but the `spared` ones.
void ledger::make_room(size_t wanted, const connection_limits& spared) {
    const size_t room = most_storages - storages_.size();
    if (wanted <= room) {
        return;
    }
    std::vector<storage_map::iterator> unused;
    for (auto each = storages_.begin(); each != storages_.end(); ++each) {
        if (each->second.is_unused() && spared.count(each->first) == 0) {
            unused.push_back(each);
        }
    }
    std::stable_sort(unused.begin(), unused.end(), [](const auto& one, const auto& other) {
        return one->second.asked < other->second.asked;
    });
    unused.resize(std::min(unused.size(), wanted - room));
    for (const auto& each : unused) {
        storages_.erase(each);
    }
}

const throttling_config_s& ledger::settings_of(const storage_entry& which) const {
    return which.second.settings != nullptr ? *which.second.settings : *latest_;
}

int32_t ledger::configure(session_number number, const std::string& text, moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    if (text.size() > longest_text) {
        return malformed(number, STS_ERR_INVALID,
                         fmt::format("settings of {} bytes, at most {} are read", text.size(),
                                     longest_text))
            .status;
    }
    const session_entry* const who = heard(number, now);
    if (who == nullptr) {
        return STS_ERR_NOMEM;
    }
    if (text == latest_text_) {
        return STS_OK; // as each image sends them at its open
    }
    const settings_text incoming = read_settings(text);
    if (incoming.settings == nullptr) {
        return malformed(number, STS_ERR_INVALID,
                         "settings without a readable row: " + in_quotes(text))
            .status;
    }
    const std::string news =
        take_up(incoming.settings, now) + part("not taken, no name: ", incoming.no_names);
    if (!news.empty()) {
        log(*who, "new settings" + news); // one line, however many storages the text names
    }
    latest_text_ = text;
    return STS_OK;
}

/// What changes by it, for the log.
std::string ledger::take_up(const settings_ptr& incoming, moment now) {
    const connection_limits& named = incoming->connections;
    make_room(static_cast<size_t>(std::count_if(
                  named.begin(), named.end(),
                  [&](const auto& each) { return storages_.count(each.first) == 0; })),
              named);
    std::vector<std::string> changed;
    std::vector<std::string> left_out;
    for (const auto& [name, limit] : named) {
        storage_entry* const what = find_or_add(name, now);
        if (what == nullptr) {
            left_out.push_back(in_quotes(name));
            continue;
        }
        const std::string change = changes(settings_of(*what), *incoming, name);
        if (!change.empty()) {
            changed.push_back(fmt::format("storage {}: {}", in_quotes(name), change));
        }
        what->second.settings = incoming;
    }
    latest_ = incoming;
    return part("", changed) + part("not taken, no room: ", left_out);
}

bool ledger::can_be_dropped(const storage_entry& which) const {
    return which.second.settings == nullptr && which.second.is_unused() &&
           std::all_of(which.second.history.begin(), which.second.history.end(), is_quiet);
}

// --- questions ---------------------------------------------------------------------------------

answer ledger::check_connections(session_number number, const std::string& key,
                                 const std::string& session_text, int32_t delta, moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    const auto parsed = parse_key(key);
    if (!parsed) {
        return malformed(number, STS_ERR_INVALID, "no key: " + in_quotes(key));
    }
    if (!is_session_text(session_text)) {
        return malformed(number, STS_ERR_INVALID, "no session's text: " + in_quotes(session_text));
    }
    if (delta != 1 && delta != -1) {
        return malformed(number, STS_ERR_INVALID,
                         fmt::format("{}: a change by {}, not by 1 or -1", in_quotes(key), delta));
    }
    session_entry* const who = heard(number, now);
    storage_entry* const what = asked_for(parsed->storage, now);
    if (who == nullptr || what == nullptr) {
        return malformed(number, STS_ERR_NOMEM, in_quotes(key) + ": no room for one more");
    }
    who->second.label = session_text.substr(0, longest_label);
    expire_flows(*what, now);
    if (parsed->operation == OPERATION_READ_WRITE) {
        who->second.is_taken_up = false; // from now on it says what it holds
        if (delta > 0) {
            return connect(*who, *what, now);
        }
        disconnect(*who, *what);
    } else if (delta > 0) {
        report(*who, *what, parsed->operation, 0, now);
    } else {
        end_flow(*who, *what, parsed->operation, "no longer");
    }
    return reply(*what, parsed->operation, 0, now);
}

answer ledger::check_bandwidth(session_number number, const std::string& key,
                               const std::string& session_text, const sample& reported,
                               moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    const auto parsed = parse_key(key);
    if (!parsed || parsed->operation != reported.operation) {
        return malformed(
            number, STS_ERR_INVALID,
            fmt::format("no key of operation {}: {}", reported.operation, in_quotes(key)));
    }
    if (!is_session_text(session_text)) {
        return malformed(number, STS_ERR_INVALID, "no session's text: " + in_quotes(session_text));
    }
    session_entry* const who = heard(number, now);
    storage_entry* const what = asked_for(parsed->storage, now);
    if (who == nullptr || what == nullptr) {
        return malformed(number, STS_ERR_NOMEM, in_quotes(key) + ": no room for one more");
    }
    who->second.label = session_text.substr(0, longest_label);
    ++reports_;
    expire_flows(*what, now);
    report(*who, *what, parsed->operation, rate_of(reported), now);
    const throttling_config_s& settings = settings_of(*what);
    const uint64_t share = allowed_now(settings, parsed->operation, now) /
                           what->second.flows[parsed->operation].size();
    return reply(*what, parsed->operation, early_by(reported, share, settings.sample_interval),
                 now);
}

answer ledger::refuse(session_number number, const std::string& why, moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    return malformed(number, STS_ERR_INVALID, why);
}

answer ledger::malformed(session_number number, int32_t status, const std::string& why) {
    ++malformed_;
    log_({fmt::format("session {:016x}: refused, {}", number, why), log_kind::refusal});
    return {status, why};
}

// --- holds -------------------------------------------------------------------------------------

answer ledger::connect(session_entry& who, storage_entry& what, moment now) {
    storage& store = what.second;
    const int64_t limit = limit_of(settings_of(what), what.first);
    if (store.connections >= limit) {
        ++store.refused;
        const std::string why = fmt::format("storage {} has all {} connections of its limit",
                                            in_quotes(what.first), limit);
        log(who, "connection refused: " + why);
        return {STS_ERR_MAX_CONNECTIONS, why};
    }
    ++store.connections;
    ++who.second.holds[&what].connections;
    log(who,
        fmt::format("connects to {}, {} of {}", in_quotes(what.first), store.connections, limit));
    return reply(what, OPERATION_READ_WRITE, 0, now);
}

/// Gives one connection back, if it has any.
void ledger::disconnect(session_entry& who, storage_entry& what) {
    const auto held = who.second.holds.find(&what);
    if (held == who.second.holds.end() || held->second.connections == 0) {
        return;
    }
    --held->second.connections;
    --what.second.connections;
    log(who, fmt::format("disconnects from {}, {} left", in_quotes(what.first),
                         what.second.connections));
    drop_if_empty(who, what);
}

void ledger::report(session_entry& who, storage_entry& what, operation_type_t operation,
                    uint64_t rate, moment now) {
    hold& held = who.second.holds[&what];
    flow_list& flows = what.second.flows[operation];
    if (who.second.is_taken_up && held.connections == 0) {
        ++held.connections;
        ++what.second.connections;
        log(who, fmt::format("is still connected to {}, {} of {}", in_quotes(what.first),
                             what.second.connections, limit_of(settings_of(what), what.first)));
    }
    auto& place = held.flows[operation];
    if (!place) {
        place = flows.insert(flows.end(), flow{who.first, now.uptime, rate});
        log(who, fmt::format("{} {}, one of {}", flow_names[operation], in_quotes(what.first),
                             flows.size()));
        return;
    }
    flows.splice(flows.end(), flows, *place);
    **place = flow{who.first, now.uptime, rate};
}

void ledger::end_flow(session_entry& who, storage_entry& what, operation_type_t operation,
                      const char* why) {
    const auto held = who.second.holds.find(&what);
    if (held == who.second.holds.end() || !held->second.flows[operation]) {
        return;
    }
    flow_list& flows = what.second.flows[operation];
    flows.erase(*held->second.flows[operation]);
    held->second.flows[operation].reset();
    log(who, fmt::format("{}: {} {}, {} left", why, flow_names[operation], in_quotes(what.first),
                         flows.size()));
    drop_if_empty(who, what);
}

void ledger::expire_flows(storage_entry& what, moment now) {
    const int64_t silence = silence_of_flow(settings_of(what));
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        flow_list& flows = what.second.flows[operation];
        while (!flows.empty() && now.uptime - flows.front().reported >= silence) {
            end_flow(*sessions_.find(flows.front().session), what, operation, "silent, no longer");
        }
    }
}

void ledger::drop_if_empty(session_entry& who, storage_entry& what) {
    const auto held = who.second.holds.find(&what);
    if (held->second.is_empty()) {
        who.second.holds.erase(held);
    }
}

// --- what is seen of it ------------------------------------------------------------------------

uint64_t ledger::measured(const storage_entry& what, operation_type_t operation, moment now) const {
    const int64_t life = life_of_rate(settings_of(what));
    uint64_t sum = 0;
    for (const flow& each : what.second.flows[operation]) {
        sum = now.uptime - each.reported < life ? add_up(sum, each.rate) : sum;
    }
    return sum;
}

storage_point ledger::point_of(const storage_entry& what, moment now) const {
    const auto direction = [&](operation_type_t operation) {
        return direction_view{static_cast<int64_t>(what.second.flows[operation].size()),
                              allowed_now(settings_of(what), operation, now),
                              measured(what, operation, now)};
    };
    return {now.wall, what.second.connections, direction(OPERATION_READ),
            direction(OPERATION_WRITE)};
}

answer ledger::reply(const storage_entry& what, operation_type_t operation, int64_t wait,
                     moment now) const {
    const auto free_flow = [&](operation_type_t each) {
        const uint64_t allowed = allowed_now(settings_of(what), each, now);
        return allowed - std::min(allowed, measured(what, each, now));
    };
    const auto sharing = [&](operation_type_t each) {
        return std::max<uint64_t>(what.second.flows[each].size(), 1);
    };
    // Of both directions there is no one figure: the lesser one is free either way.
    const uint64_t free = operation == OPERATION_READ_WRITE
                              ? std::min(free_flow(OPERATION_READ), free_flow(OPERATION_WRITE))
                              : free_flow(operation);
    return {STS_OK,
            row("THR_R_CONNECTION_COUNTS", "sessions reading", sharing(OPERATION_READ)) +
                row("THR_W_CONNECTION_COUNTS", "sessions writing", sharing(OPERATION_WRITE)) +
                row("THR_FREE_FLOW", "bandwidth left[bytes/second]", free) +
                row("THR_WAIT_SECONDS", "time to wait[seconds]", static_cast<uint64_t>(wait))};
}

void ledger::tick(moment now) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    for (storage_entry& each : storages_) {
        expire_flows(each, now);
    }
    if (now.uptime - last_point_ < history_step) {
        return;
    }
    last_point_ = now.uptime;
    ++points_;
    for (auto each = storages_.begin(); each != storages_.end();) {
        std::deque<storage_point>& history = each->second.history;
        if (history.size() >= history_points) {
            history.pop_front();
        }
        history.push_back(point_of(*each, now));
        each = can_be_dropped(*each) ? storages_.erase(each) : std::next(each);
    }
}

ledger_view ledger::view(moment now, const view_part& wanted) {
    const std::lock_guard<std::mutex> guard(lock_);
    expire(now);
    ledger_view seen = {now.uptime - started_,
                        lease_,
                        sessions_.size(),
                        sessions_opened_,
                        sessions_expired_,
                        reports_,
                        malformed_,
                        points_,
                        {}};
    for (auto each = storages_.upper_bound(wanted.after);
         each != storages_.end() && seen.storages.size() < wanted.most; ++each) {
        expire_flows(*each, now);
        const auto& history = each->second.history;
        const int64_t unwanted =
            std::clamp(points_ - wanted.points, int64_t{0}, static_cast<int64_t>(history.size()));
        const auto last = history.end() - unwanted;
        auto first = last;
        while (first != history.begin() && std::prev(first)->when > wanted.since) {
            --first; // from the end, since little is wanted mostly
        }
        seen.storages.push_back({each->first,
                                 limit_of(settings_of(*each), each->first),
                                 each->second.refused,
                                 settings_of(*each).sample_interval,
                                 point_of(*each, now),
                                 {first, last}});
    }
    return seen;
}

void ledger::log(const session_entry& who, const std::string& what) const {
    log_(fmt::format("session {:016x} {}: {}", who.first, in_quotes(who.second.label), what));
}
