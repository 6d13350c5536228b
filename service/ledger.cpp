#include "service/ledger.h"

#include "service/flow_key.h"
#include "service/in_quotes.h"

#include <algorithm>
#include <cmath>
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

/// Seconds from one report to the next; without throttling none are due.
int64_t interval_of(const throttling_config_s& settings) {
    return settings.sample_interval > 0 ? settings.sample_interval : shortest_silence_of_flow / 2;
}

uint64_t settings_allow(const throttling_config_s& settings, operation_type_t operation,
                        moment now) {
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

/// `part` of `whole`; where nothing is allowed, all.
double ratio(uint64_t part, uint64_t whole) {
    return whole == 0 ? 1 : static_cast<double>(part) / static_cast<double>(whole);
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

/// Whom a limit is for.
std::string limited_text(const std::optional<std::string>& storage) {
    return storage ? "storage " + in_quotes(*storage) : "all storages of the host";
}

bool is_quiet(const storage_point& point) {
    return point.connections == 0 && point.read.flows == 0 && point.write.flows == 0;
}

} // namespace

std::string short_name(session_number number) {
    number = (number ^ number >> 33) * 0xff51afd7ed558ccd; // as many hashes end
    number = (number ^ number >> 33) * 0xc4ceb9fe1a85ec53;
    return fmt::format("{:08x}", number >> 32);
}

ledger::ledger(int64_t lease, moment now, log_sink log)
    : lease_(lease), started_(now.uptime), lines_(std::move(log)), last_point_(now.uptime) {}

/// The time that the book is locked. Lines that were made in it are handed over after it.
class ledger::turn {
  public:
    explicit turn(ledger& book) : book_(book) { book_.lock_.lock(); }
    ~turn() {
        book_.lock_.unlock();
        book_.lines_.hand_over();
    }
    turn(const turn&) = delete;
    turn& operator=(const turn&) = delete;

  private:
    ledger& book_;
};

// --- peers -------------------------------------------------------------------------------------

ledger::account_entry& ledger::account_of(const std::string& peer) {
    return *accounts_.try_emplace(peer).first;
}

void ledger::drop_if_empty(account_entry& whose) {
    if (whose.second.sessions.empty() && whose.second.storages == 0) {
        accounts_.erase(whose.first);
    }
}

/// Whether there is room for one more session of a peer. In a full book, whoever has most makes it.
bool ledger::make_room_for_session(const account_entry& whose) {
    if (sessions_.size() < most_sessions) {
        return true;
    }
    const auto count = [](const account_entry& each) { return each.second.sessions.size(); };
    const auto most = std::max_element(
        accounts_.begin(), accounts_.end(),
        [&](const auto& one, const auto& other) { return count(one) < count(other); });
    if (count(*most) <= count(whose)) {
        return false;
    }
    end(sessions_.find(most->second.sessions.front()), "ended, its peer has more than its part");
    return true;
}

// --- sessions ----------------------------------------------------------------------------------

bool ledger::open(const caller& who, moment now) {
    const turn mine(*this);
    expire(now);
    if (sessions_.count(who.session) != 0) {
        return false;
    }
    session_entry* const entered = enter(who, false, now);
    if (entered == nullptr) {
        return false;
    }
    ++sessions_opened_;
    log(*entered, "opened");
    return true;
}

void ledger::hear(const caller& who, moment now) {
    const turn mine(*this);
    expire(now);
    heard(who, now);
}

void ledger::close(const caller& who, moment now) {
    const turn mine(*this);
    expire(now);
    const auto which = sessions_.find(who.session);
    if (which != sessions_.end()) {
        end(which, "ended by its client");
    } else if (ended_.count(who.session) != 0) {
        throw session_has_ended();
    }
    remember_end(who.session);
}

/// Null when the book is full.
ledger::session_entry* ledger::enter(const caller& who, bool is_taken_up, moment now) {
    account_entry& owner = account_of(who.peer);
    if (!make_room_for_session(owner)) {
        lines_.put({fmt::format("session {}: refused, {} sessions are open",
                                short_name(who.session), most_sessions),
                    log_kind::refusal});
        drop_if_empty(owner);
        return nullptr;
    }
    std::list<session_number>& own = owner.second.sessions;
    const auto place = silent_longest_.insert(silent_longest_.end(), who.session);
    const auto place_with_owner = own.insert(own.end(), who.session);
    return &*sessions_
                 .try_emplace(who.session, session{"",
                                                   now.uptime,
                                                   place,
                                                   &owner,
                                                   place_with_owner,
                                                   is_taken_up,
                                                   nullptr,
                                                   {},
                                                   {}})
                 .first;
}

/// The session that spoke. Null when it isn't in the book and this is full.
ledger::session_entry* ledger::heard(const caller& who, moment now) {
    const auto known = sessions_.find(who.session);
    if (known == sessions_.end()) {
        if (ended_.count(who.session) != 0) {
            throw session_has_ended();
        }
        session_entry* const entered = enter(who, true, now);
        if (entered != nullptr) {
            log(*entered, "taken up again");
        }
        return entered;
    }
    session& found = known->second;
    std::list<session_number>& of_owner = found.owner->second.sessions;
    found.heard = now.uptime;
    silent_longest_.splice(silent_longest_.end(), silent_longest_, found.place);
    of_owner.splice(of_owner.end(), of_owner, found.place_with_owner);
    return &*known;
}

void ledger::end(session_map::iterator which, const char* why) {
    session_entry& who = *which;
    log(who, why);
    while (!who.second.holds.empty()) {
        give_back(who, *who.second.holds.begin()->first, why);
    }
    account_entry& owner = *who.second.owner;
    owner.second.sessions.erase(who.second.place_with_owner);
    drop_if_empty(owner);
    silent_longest_.erase(who.second.place);
    sessions_.erase(which);
}

/// Its key stays true, so what tells that nobody may use it any more is this. One that is so old
/// that it is forgotten would be taken up again, as after a new start.
void ledger::remember_end(session_number number) {
    if (ended_longest_ago_.size() >= most_sessions) {
        ended_.erase(ended_longest_ago_.front());
        ended_longest_ago_.pop_front();
    }
    ended_.insert(number);
    ended_longest_ago_.push_back(number);
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
ledger::storage_entry* ledger::find_or_add(const std::string& name, account_entry& whose,
                                           moment now) {
    auto known = storages_.find(name);
    if (known == storages_.end()) {
        if (storages_.size() >= most_storages) {
            return nullptr;
        }
        known = storages_.try_emplace(name).first;
        known->second.owner = &whose;
        ++whose.second.storages;
        if (latest_->connections.count(name) != 0) {
            known->second.settings = latest_;
        }
    }
    known->second.asked = now.uptime;
    return &*known;
}

/// The storage of a question. Null when there is no room for it.
ledger::storage_entry* ledger::asked_for(const std::string& name, account_entry& whose,
                                         moment now) {
    if (storages_.count(name) == 0) {
        make_room(1, whose, {});
    }
    return find_or_add(name, whose, now);
}

/// The storages that peers could do without, those that should leave first at each one's front.
struct ledger::offers {
    std::map<const account_entry*, std::deque<storage_map::iterator>> of;
};

/// What `whose` peer may be given for a storage of its own: its own that nobody uses, and of others
/// besides those that they alone use. First those that nobody uses, and of them the one that nobody
/// named for longest.
ledger::offers ledger::offered_to(const account_entry& whose, const connection_limits& spared) {
    offers all;
    for (auto each = storages_.begin(); each != storages_.end(); ++each) {
        const storage& store = each->second;
        if (spared.count(each->first) == 0 &&
            (store.is_unused() || (store.owner != &whose && store.strangers == 0))) {
            all.of[store.owner].push_back(each);
        }
    }
    for (auto& [owner, offered] : all.of) {
        std::stable_sort(offered.begin(), offered.end(), [](const auto& one, const auto& other) {
            return std::pair(!one->second.is_unused(), one->second.asked) <
                   std::pair(!other->second.is_unused(), other->second.asked);
        });
    }
    return all;
}

/// Drops storages until there is room for as many as are wanted, or nobody has any to give but the
/// `spared` ones: those of whoever has most, while that is more than the asker has, else its own.
void ledger::make_room(size_t wanted, const account_entry& whose, const connection_limits& spared) {
    size_t room = most_storages - storages_.size();
    if (wanted <= room) {
        return;
    }
    offers all = offered_to(whose, spared);
    size_t own = whose.second.storages + room;
    for (; room < wanted; ++room) {
        auto from = all.of.find(&whose);
        size_t most = own;
        for (auto each = all.of.begin(); each != all.of.end(); ++each) {
            if (each->first != &whose && each->first->second.storages > most) {
                from = each;
                most = each->first->second.storages;
            }
        }
        if (from == all.of.end()) {
            return;
        }
        own += from->first != &whose ? 1 : 0;
        drop(from->second.front());
        from->second.pop_front();
        if (from->second.empty()) {
            all.of.erase(from);
        }
    }
}

/// Drops a storage; those who use it give back what they hold.
void ledger::drop(storage_map::iterator which) {
    account_entry& owner = *which->second.owner;
    if (!which->second.is_unused()) { // by sessions of its owner alone
        lines_.put(fmt::format("storage {}: dropped, its peer has more than its part",
                               in_quotes(which->first)));
        for (const session_number each : owner.second.sessions) {
            give_back(*sessions_.find(each), *which, "no room");
        }
    }
    --owner.second.storages;
    storages_.erase(which);
    drop_if_empty(owner);
}

const throttling_config_s& ledger::settings_of(const storage_entry& which) const {
    if (own_ != nullptr) {
        return *own_;
    }
    return which.second.settings != nullptr ? *which.second.settings : *latest_;
}

/// What a session's client goes by, but for limits.
const throttling_config_s& ledger::settings_for(const session_entry& who,
                                                const storage_entry& what) const {
    return who.second.settings != nullptr ? *who.second.settings : settings_of(what);
}

/// Null: nobody sent it lately.
ledger::text_ptr ledger::find_text(const std::string& text) const {
    const auto found = std::find_if(texts_.begin(), texts_.end(),
                                    [&](const text_ptr& each) { return each->text == text; });
    return found != texts_.end() ? *found : nullptr;
}

/// What a text that was cut is read on top of.
settings_ptr ledger::base_for(session_number who) const {
    const auto known = sessions_.find(who);
    if (known != sessions_.end() && known->second.settings != nullptr) {
        return known->second.settings;
    }
    return own_ != nullptr ? own_ : latest_;
}

ledger::text_ptr ledger::remember_text(const std::string& text, const settings_ptr& read) {
    const auto rates = std::make_shared<throttling_config_s>(*read);
    rates->connections.clear(); // so that a session keeps no more than it needs
    texts_.push_front(std::make_shared<known_text>(known_text{text, read, rates}));
    if (texts_.size() > most_texts) {
        texts_.pop_back();
    }
    return texts_.front();
}

int32_t ledger::configure(const caller& who, const std::string& text, moment now) {
    const bool is_too_long = text.size() > longest_text;
    std::optional<settings_text> read;
    if (!is_too_long) {
        std::unique_lock<std::mutex> guard(lock_);
        if (find_text(text) == nullptr) {
            const settings_ptr base = base_for(who.session);
            guard.unlock();
            read = read_settings(text, base); // not in its turn: it takes as long as many questions
        }
    }
    const turn mine(*this);
    expire(now);
    if (is_too_long) {
        return malformed(who.session, STS_ERR_INVALID,
                         fmt::format("settings of {} bytes, at most {} are read", text.size(),
                                     longest_text))
            .status;
    }
    session_entry* const known = heard(who, now);
    if (known == nullptr) {
        return STS_ERR_NOMEM;
    }
    const text_ptr earlier = known->second.sent.lock();
    text_ptr sent = find_text(text);
    const bool is_new = sent == nullptr;
    std::string no_names;
    if (is_new) {
        const settings_text incoming =
            read ? *std::move(read) : read_settings(text, base_for(who.session));
        if (incoming.settings == nullptr) {
            return malformed(who.session, STS_ERR_INVALID,
                             "settings without a readable row: " + in_quotes(text))
                .status;
        }
        no_names = part("not taken, no name: ", incoming.no_names);
        sent = remember_text(text, incoming.settings);
    }
    known->second.sent = sent;
    known->second.settings = sent->rates;
    if (sent == earlier) {
        return STS_OK; // as each image sends them at its open
    }
    const std::string by = who.peer.empty() ? "" : " of " + who.peer;
    if (own_ != nullptr) {
        const std::string differences = is_new ? differences_from_own(*sent->whole) : "";
        if (!differences.empty()) {
            log(*known, "other settings" + by + ", which don't hold here" + differences);
        }
        return STS_OK;
    }
    const std::string news =
        take_up(sent->whole, earlier != nullptr ? earlier->whole.get() : nullptr,
                *known->second.owner, now) +
        no_names;
    if (!news.empty()) {
        log(*known, "new settings" + by + news); // one line, however many storages the text names
    }
    return STS_OK;
}

/// What changes by it, for the log. A client that sent `earlier` ones changes what differs from
/// those; null: all is new.
std::string ledger::take_up(const settings_ptr& incoming, const throttling_config_s* earlier,
                            account_entry& whose, moment now) {
    std::map<const throttling_config_s*, settings_ptr> changed_from; // so that they stay shared
    const auto changed_by_it = [&](const throttling_config_s& current) {
        if (earlier == nullptr) {
            return incoming;
        }
        settings_ptr& changed = changed_from[&current];
        return changed != nullptr ? changed : changed = with_changes(current, *earlier, *incoming);
    };
    const connection_limits& named = incoming->connections;
    make_room(static_cast<size_t>(std::count_if(
                  named.begin(), named.end(),
                  [&](const auto& each) { return storages_.count(each.first) == 0; })),
              whose, named);
    std::vector<std::string> changed;
    std::vector<std::string> left_out;
    const settings_ptr before = latest_; // which others may refer to
    for (const auto& [name, limit] : named) {
        storage_entry* const what = find_or_add(name, whose, now);
        if (what == nullptr) {
            left_out.push_back(in_quotes(name));
            continue;
        }
        const settings_ptr current =
            what->second.settings != nullptr ? what->second.settings : before;
        const settings_ptr then = changed_by_it(*current);
        const std::string change = ::changes(*current, *then, name);
        if (!change.empty()) {
            changed.push_back(fmt::format("storage {}: {}", in_quotes(name), change));
        }
        what->second.settings = then;
    }
    latest_ = changed_by_it(*before);
    ++changes_;
    return part("", changed) + part("not taken, no room: ", left_out);
}

/// In what a client's settings differ from the service's own, for the log.
std::string ledger::differences_from_own(const throttling_config_s& incoming) const {
    std::vector<std::string> all;
    if (const std::string rates = ::changes(*own_, incoming, ""); !rates.empty()) {
        all.push_back(rates);
    }
    for (const auto& [name, limit] : incoming.connections) {
        const int64_t own = limit_of(*own_, name);
        if (own != limit) {
            all.push_back(fmt::format("storage {}: limit {} -> {}", in_quotes(name), own, limit));
        }
    }
    return part("", all);
}

void ledger::rule(settings_ptr own, moment now) {
    const turn mine(*this);
    own_ = std::move(own);
    for (storage_entry& each : storages_) {
        for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
            each.second.shares[operation].begin_anew(now.uptime);
        }
    }
}

bool ledger::can_be_dropped(const storage_entry& which) const {
    return which.second.settings == nullptr && which.second.is_unused() &&
           std::all_of(which.second.history.begin(), which.second.history.end(), is_quiet);
}

// --- questions ---------------------------------------------------------------------------------

/// Answers a session's question about the storage of its key. `objection` tells, of the key once it
/// is parsed, why the question itself can't be answered; empty: it can. `reply` answers it then.
template <typename Objection, typename Reply>
answer ledger::ask(const caller& who, const std::string& key, const std::string& session_text,
                   moment now, Objection objection, Reply reply) {
    const turn mine(*this);
    expire(now);
    const auto parsed = parse_key(key);
    if (const std::string why = objection(parsed); !why.empty()) {
        return malformed(who.session, STS_ERR_INVALID, why);
    }
    if (!is_session_text(session_text)) {
        return malformed(who.session, STS_ERR_INVALID,
                         "no session's text: " + in_quotes(session_text));
    }
    session_entry* const asker = heard(who, now);
    storage_entry* const what =
        asker != nullptr ? asked_for(parsed->storage, *asker->second.owner, now) : nullptr;
    if (what == nullptr) {
        return malformed(who.session, STS_ERR_NOMEM, in_quotes(key) + ": no room for one more");
    }
    asker->second.label = session_text.substr(0, longest_label);
    expire_flows(*what, now);
    return reply(*asker, *what, parsed->operation);
}

answer ledger::check_connections(const caller& who, const std::string& key,
                                 const std::string& session_text, int32_t delta, moment now) {
    const auto objection = [&](const std::optional<flow_key>& parsed) -> std::string {
        if (!parsed) {
            return "no key: " + in_quotes(key);
        }
        return delta == 1 || delta == -1
                   ? ""
                   : fmt::format("{}: a change by {}, not by 1 or -1", in_quotes(key), delta);
    };
    return ask(who, key, session_text, now, objection,
               [&](session_entry& asker, storage_entry& what, operation_type_t operation) {
                   if (operation == OPERATION_READ_WRITE) {
                       asker.second.is_taken_up = false; // from now on it says what it holds
                       if (delta > 0) {
                           return connect(asker, what, now);
                       }
                       disconnect(asker, what);
                   } else if (delta > 0) {
                       report(asker, what, {operation, 0, 0, 0}, now);
                   } else {
                       end_flow(asker, what, operation, "no longer");
                   }
                   return reply(asker, what, operation, 0, now);
               });
}

answer ledger::check_bandwidth(const caller& who, const std::string& key,
                               const std::string& session_text, const sample& reported,
                               moment now) {
    const auto objection = [&](const std::optional<flow_key>& parsed) -> std::string {
        return parsed && parsed->operation == reported.operation
                   ? ""
                   : fmt::format("no key of operation {}: {}", reported.operation, in_quotes(key));
    };
    return ask(who, key, session_text, now, objection,
               [&](session_entry& asker, storage_entry& what, operation_type_t operation) {
                   ++reports_;
                   const int64_t wait = report(asker, what, reported, now);
                   return reply(asker, what, operation, wait, now);
               });
}

answer ledger::refuse(const caller& who, const std::string& why, moment now) {
    const turn mine(*this);
    expire(now);
    return malformed(who.session, STS_ERR_INVALID, why);
}

answer ledger::malformed(session_number number, int32_t status, const std::string& why) {
    ++malformed_;
    lines_.put(
        {fmt::format("session {}: refused, {}", short_name(number), why), log_kind::refusal});
    return {status, why};
}

// --- holds -------------------------------------------------------------------------------------

answer ledger::connect(session_entry& who, storage_entry& what, moment now) {
    storage& store = what.second;
    const int64_t limit = connection_limit_of(what, now);
    if (store.connections >= limit) {
        ++store.refused;
        const std::string why = fmt::format("storage {} has all {} connections of its limit",
                                            in_quotes(what.first), limit);
        log(who, "connection refused: " + why);
        return {STS_ERR_MAX_CONNECTIONS, why};
    }
    ++store.connections;
    ++hold_of(who, what).connections;
    log(who,
        fmt::format("connects to {}, {} of {}", in_quotes(what.first), store.connections, limit));
    return reply(who, what, OPERATION_READ_WRITE, 0, now);
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

/// Starts or renews a flow. What its sample was early, in seconds.
int64_t ledger::report(session_entry& who, storage_entry& what, const sample& reported,
                       moment now) {
    const auto operation = static_cast<operation_type_t>(reported.operation);
    const throttling_config_s& settings = settings_of(what);
    hold& held = hold_of(who, what);
    flow_list& flows = what.second.flows[operation];
    fair_share& shares = what.second.shares[operation];
    if (who.second.is_taken_up && held.connections == 0) {
        ++held.connections;
        ++what.second.connections;
        log(who, fmt::format("is still connected to {}, {} of {}", in_quotes(what.first),
                             what.second.connections, connection_limit_of(what, now)));
    }
    auto& place = held.flows[operation];
    if (!place) {
        ++changes_;
        place = flows.insert(flows.end(), flow{who.first, now.uptime, 0, shares.join(now.uptime)});
        join_host(**place, operation, now);
        log(who, fmt::format("{} {}, one of {}", flow_names[operation], in_quotes(what.first),
                             flows.size()));
    }
    flow& own = **place;
    flows.splice(flows.end(), flows, *place);
    own.reported = now.uptime;
    own.rate = rate_of(reported);
    follow_limits(what, now);
    if (is_paused(what, operation, now)) {
        return 0; // what else it has to wait is told where the reply is made
    }
    const auto of = [&](uint64_t whole) {
        return moved_sample{static_cast<double>(reported.bytes) /
                                static_cast<double>(std::max(whole, uint64_t{1})),
                            int64_t{reported.end} - int64_t{reported.start}};
    };
    const uint64_t most = allowed(what, operation, now);
    shares.report(own.share, of(most), interval_of(settings), now.uptime);
    if (own.host_share) {
        host_shares_[operation].report(*own.host_share, of(*host_caps_[operation]),
                                       interval_of(settings), now.uptime);
    }
    const uint64_t part = own.count != 0
                              ? settings_allow(settings_for(who, what), operation, now) / own.count
                              : most / flows.size();
    return early_by(reported, part, settings.sample_interval);
}

void ledger::end_flow(session_entry& who, storage_entry& what, operation_type_t operation,
                      const char* why) {
    const auto held = who.second.holds.find(&what);
    if (held == who.second.holds.end() || !held->second.flows[operation]) {
        return;
    }
    flow_list& flows = what.second.flows[operation];
    what.second.shares[operation].leave((*held->second.flows[operation])->share);
    leave_host(**held->second.flows[operation], operation);
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

/// Gives back all that a session holds of a storage.
void ledger::give_back(session_entry& who, storage_entry& what, const char* why) {
    end_flow(who, what, OPERATION_READ, why);
    end_flow(who, what, OPERATION_WRITE, why);
    while (who.second.holds.count(&what) != 0) {
        disconnect(who, what);
    }
}

/// What a session holds of a storage, nothing yet if it is new; whoever asks adds to it.
ledger::hold& ledger::hold_of(session_entry& who, storage_entry& what) {
    const auto [held, is_new] = who.second.holds.try_emplace(&what);
    if (is_new && who.second.owner != what.second.owner) {
        ++what.second.strangers;
    }
    return held->second;
}

void ledger::drop_if_empty(session_entry& who, storage_entry& what) {
    const auto held = who.second.holds.find(&what);
    if (held->second.is_empty()) {
        who.second.holds.erase(held);
        what.second.strangers -= who.second.owner != what.second.owner ? 1 : 0;
    }
}

// --- what outlasts the service -----------------------------------------------------------------

uint64_t ledger::changes() {
    const turn mine(*this);
    return changes_;
}

kept_book ledger::keep(moment now) {
    const turn mine(*this);
    kept_book kept;
    std::map<const throttling_config_s*, size_t> numbers;
    const auto number_of = [&](const throttling_config_s& config) {
        const auto [found, is_new] = numbers.try_emplace(&config, kept.settings.size());
        if (is_new) {
            kept.settings.push_back(rows_of(config));
        }
        return found->second;
    };
    number_of(*latest_);
    for (const storage_entry& each : storages_) {
        const storage& what = each.second;
        const auto flows = [&](operation_type_t operation) -> uint64_t {
            return awaits_flows(each, operation, now) ? what.flows_before[operation]
                                                      : what.flows[operation].size();
        };
        kept_book::kept_storage one = {
            each.first, std::nullopt, 0, {flows(OPERATION_READ), flows(OPERATION_WRITE)}};
        if (what.settings != nullptr) {
            one.settings = number_of(*what.settings);
            one.limit = limit_of(*what.settings, each.first);
        }
        kept.storages.push_back(std::move(one));
    }
    const auto keep_limits = [&](const std::optional<std::string>& name, live_limits limits) {
        const auto by_the_wall = [&](auto& limit) {
            if (limit && limit->until != timed<int64_t>::never) {
                limit->until += now.wall - now.uptime;
            }
        };
        by_the_wall(limits.rates[0]);
        by_the_wall(limits.rates[1]);
        by_the_wall(limits.connections);
        kept.limits.push_back({name, limits, {}, true, std::nullopt});
    };
    if (!host_limits_.is_empty()) {
        keep_limits(std::nullopt, host_limits_);
    }
    for (const auto& [name, limits] : limits_) {
        keep_limits(name, limits);
    }
    return kept;
}

void ledger::restore(const kept_book& kept, moment now) {
    const turn mine(*this);
    std::vector<std::shared_ptr<throttling_config_s>> all;
    for (const std::string& rows : kept.settings) {
        const settings_text read = read_settings(rows);
        all.push_back(read.settings != nullptr
                          ? std::make_shared<throttling_config_s>(*read.settings)
                          : nullptr);
    }
    if (!all.empty() && all.front() != nullptr) {
        latest_ = all.front();
    }
    for (const kept_book::kept_storage& each : kept.storages) {
        const std::shared_ptr<throttling_config_s> settings =
            each.settings && *each.settings < all.size() ? all[*each.settings] : nullptr;
        storage_entry* const what =
            is_storage_name(each.name) ? find_or_add(each.name, account_of(""), now) : nullptr;
        if (what == nullptr) {
            continue;
        }
        std::copy(std::begin(each.flows), std::end(each.flows), what->second.flows_before);
        if (settings != nullptr && each.limit >= 1 &&
            each.limit <= std::numeric_limits<int32_t>::max()) {
            settings->connections[each.name] = static_cast<uint32_t>(each.limit);
            what->second.settings = settings;
        }
    }
    for (const limits_view& each : kept.limits) {
        if (each.storage && (!is_storage_name(*each.storage) || limits_.size() >= most_storages)) {
            continue;
        }
        live_limits limits = each.limits;
        const auto by_uptime = [&](auto& limit) {
            if (limit && limit->until != timed<int64_t>::never) {
                limit->until = now.uptime + std::max(limit->until - now.wall, int64_t{0});
            }
        };
        by_uptime(limits.rates[0]);
        by_uptime(limits.rates[1]);
        by_uptime(limits.connections);
        (each.storage ? limits_[*each.storage] : host_limits_) = limits;
    }
    restored_ = now.uptime;
    drop_if_empty(account_of(""));
}

/// Whether there were more flows before the service was started anew than have been heard of, and
/// those could still be there.
bool ledger::awaits_flows(const storage_entry& what, operation_type_t operation, moment now) const {
    return restored_ && now.uptime - *restored_ < silence_of_flow(settings_of(what)) &&
           what.second.flows[operation].size() < what.second.flows_before[operation];
}

/// The count that leaves those their parts who haven't been heard of yet; 1 where there are none.
uint64_t ledger::count_before(const storage_entry& what, operation_type_t operation,
                              uint64_t own_rate, moment now) const {
    constexpr double most = 1e15;
    double count = 1;
    if (awaits_flows(what, operation, now)) {
        count = static_cast<double>(what.second.flows_before[operation]) *
                ratio(own_rate, allowed(what, operation, now));
    }
    const std::optional<uint64_t>& cap = host_caps_[operation];
    if (cap && restored_ && now.uptime - *restored_ < silence_of_flow(settings_of(what))) {
        uint64_t all = 0;
        for (const storage_entry& each : storages_) {
            all += std::max<uint64_t>(each.second.flows_before[operation],
                                      each.second.flows[operation].size());
        }
        count = std::max(count, static_cast<double>(all) * ratio(own_rate, *cap));
    }
    return static_cast<uint64_t>(std::clamp(std::round(count), 1.0, most));
}

// --- limits of operators -----------------------------------------------------------------------

const live_limits& ledger::limits_of(const std::string& name) const {
    static const live_limits none;
    const auto own = limits_.find(name);
    return own != limits_.end() ? own->second : none;
}

int64_t ledger::connection_limit_of(const storage_entry& what, moment now) const {
    return in_force(limits_of(what.first).connections, now.uptime)
        .value_or(limit_of(settings_of(what), what.first));
}

/// Bytes per second for all flows of a storage together, but for the host's cap.
uint64_t ledger::allowed(const storage_entry& what, operation_type_t operation, moment now) const {
    return limited(settings_allow(settings_of(what), operation, now),
                   in_force(limits_of(what.first).rates[operation], now.uptime));
}

/// Where the limits have changed, the shares of the flows are to be found anew.
void ledger::follow_limits(storage_entry& what, moment now) {
    const live_limits& limits = limits_of(what.first);
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        const auto limit = in_force(limits.rates[operation], now.uptime);
        if (limit != what.second.limits[operation]) {
            what.second.limits[operation] = limit;
            what.second.shares[operation].begin_anew(now.uptime);
        }
        follow_cap(operation, now);
    }
}

void ledger::follow_cap(operation_type_t operation, moment now) {
    const auto cap = in_force(host_limits_.rates[operation], now.uptime);
    if (cap == host_caps_[operation]) {
        return;
    }
    host_caps_[operation] = cap;
    host_shares_[operation] = {};
    for (storage_entry& each : storages_) {
        for (flow& one : each.second.flows[operation]) {
            one.host_share.reset();
            join_host(one, operation, now);
        }
    }
}

void ledger::join_host(flow& one, operation_type_t operation, moment now) {
    if (host_caps_[operation]) {
        one.host_share = host_shares_[operation].join(now.uptime);
    }
}

void ledger::leave_host(flow& one, operation_type_t operation) {
    if (one.host_share) {
        host_shares_[operation].leave(*one.host_share);
    }
}

bool ledger::is_paused(const storage_entry& what, operation_type_t operation, moment now) const {
    return in_force(limits_of(what.first).rates[operation], now.uptime) == 0U ||
           in_force(host_limits_.rates[operation], now.uptime) == 0U;
}

/// Seconds that a session has to wait as what it does with a storage is paused. One wait holds for
/// both of its directions, and each reply says it anew.
int64_t ledger::pause(session_entry& who, storage_entry& what, moment now) const {
    const auto held = who.second.holds.find(&what);
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        if (held != who.second.holds.end() && held->second.flows[operation] &&
            is_paused(what, operation, now)) {
            return pause_of(settings_for(who, what).sample_interval);
        }
    }
    return 0;
}

limits_view ledger::limit(const std::optional<std::string>& name, const limit_change& change,
                          const std::string& by, moment now) {
    const turn mine(*this);
    if (name && !is_storage_name(*name)) {
        throw limit_refused("no storage can be called " + in_quotes(*name));
    }
    if (!name && change.connections) {
        throw limit_refused("connections are limited by storage");
    }
    if (!change.rates[0] && !change.rates[1] && !change.connections) {
        throw limit_refused("no limit is named");
    }
    end_limits(now);
    if (name && limits_.count(*name) == 0 && limits_.size() >= most_storages) {
        throw limit_refused(fmt::format("{} storages are limited already", most_storages));
    }
    live_limits& limits = name ? limits_[*name] : host_limits_;
    const int64_t until = change.seconds ? now.uptime + *change.seconds : timed<uint64_t>::never;
    std::vector<std::string> said;
    limits_view view = {name, {}, {}, true, std::nullopt};
    if (name) {
        const auto known = storages_.find(*name);
        view.is_known = known != storages_.end();
        if (view.is_known) {
            view.sample_interval = settings_of(*known).sample_interval;
        }
    }
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        if (const auto rate = change.rates[operation]) {
            limits.rates[operation] = {*rate, until};
            said.push_back(fmt::format("{} {} bytes/s", flow_names[operation], *rate));
            view.allowed[operation] = allowed_by_settings(name, operation, now);
        }
    }
    if (change.connections) {
        limits.connections = {*change.connections, until};
        said.push_back(fmt::format("connections {}", *change.connections));
    }
    ++changes_;
    lines_.put(fmt::format("{}: limited by {}: {}{}", limited_text(name), by, fmt::join(said, ", "),
                           change.seconds ? fmt::format(", for {} s", *change.seconds) : ""));
    for (storage_entry& each : storages_) {
        follow_limits(each, now);
    }
    view.limits = limits;
    return view;
}

bool ledger::unlimit(const std::optional<std::string>& name, const std::string& by, moment now) {
    const turn mine(*this);
    end_limits(now);
    live_limits taken;
    if (!name) {
        taken = std::exchange(host_limits_, {});
    } else if (const auto found = limits_.find(*name); found != limits_.end()) {
        taken = found->second;
        limits_.erase(found);
    }
    if (taken.is_empty()) {
        return false;
    }
    ++changes_;
    lines_.put(fmt::format("{}: its limits are taken back by {}", limited_text(name), by));
    for (storage_entry& each : storages_) {
        follow_limits(each, now);
    }
    return true;
}

std::vector<limits_view> ledger::limits(moment now) {
    const turn mine(*this);
    end_limits(now);
    std::vector<limits_view> all;
    if (!host_limits_.is_empty()) {
        all.push_back({std::nullopt, host_limits_, {}, true, std::nullopt});
    }
    for (const auto& [name, limits] : limits_) {
        all.push_back({name, limits, {}, true, std::nullopt});
    }
    return all;
}

/// What the settings allow for a storage now; for the host, for all of them together.
/// None: it isn't known, as no text has come yet.
std::optional<uint64_t> ledger::allowed_by_settings(const std::optional<std::string>& name,
                                                    operation_type_t operation, moment now) const {
    if (name) {
        const auto known = storages_.find(*name);
        return known != storages_.end()
                   ? std::optional(settings_allow(settings_of(*known), operation, now))
                   : std::nullopt;
    }
    std::optional<uint64_t> most;
    for (const storage_entry& each : storages_) {
        most = add_up(most.value_or(0), settings_allow(settings_of(each), operation, now));
    }
    return most;
}

/// Forgets what has run out.
void ledger::end_limits(moment now) {
    const auto end_one = [&](auto& limit, const std::optional<std::string>& name,
                             const char* what) {
        if (limit && now.uptime >= limit->until) {
            limit.reset();
            ++changes_;
            lines_.put(fmt::format("{}: its limit of {} has run out", limited_text(name), what));
        }
    };
    const auto end_of = [&](live_limits& limits, const std::optional<std::string>& name) {
        end_one(limits.rates[OPERATION_READ], name, flow_names[OPERATION_READ]);
        end_one(limits.rates[OPERATION_WRITE], name, flow_names[OPERATION_WRITE]);
        end_one(limits.connections, name, "connections");
    };
    end_of(host_limits_, std::nullopt);
    for (auto each = limits_.begin(); each != limits_.end();) {
        end_of(each->second, each->first);
        each = each->second.is_empty() ? limits_.erase(each) : std::next(each);
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
                              allowed(what, operation, now), measured(what, operation, now)};
    };
    return {now.wall, what.second.connections, direction(OPERATION_READ),
            direction(OPERATION_WRITE)};
}

/// By which a session is to divide its rate; as long as it moves nothing, as many as do. Never so
/// many that nothing would be left of it, at any time of the week.
uint64_t ledger::count_for(session_entry& who, storage_entry& what, operation_type_t operation,
                           moment now) {
    const throttling_config_s& settings = settings_of(what);
    const throttling_config_s& own = settings_for(who, what);
    uint64_t most = std::numeric_limits<uint64_t>::max();
    for (const throttling_config_s* each : {&settings, &own}) {
        const uint64_t least = least_allowed_rate(*each, operation);
        most =
            least != 0 ? std::min(most, least) : most; // where nothing is ever left no count helps
    }
    const auto held = who.second.holds.find(&what);
    if (held == who.second.holds.end() || !held->second.flows[operation] ||
        is_paused(what, operation, now)) {
        return std::clamp<uint64_t>(what.second.flows[operation].size(), 1, most);
    }
    const uint64_t own_rate = settings_allow(own, operation, now);
    const uint64_t whole = allowed(what, operation, now);
    const int64_t interval = interval_of(settings);
    flow& asking = **held->second.flows[operation];
    fair_share& shares = what.second.shares[operation];
    const auto count_of = [&](fair_share& sharing, fair_share::place place, uint64_t all) {
        return sharing.count(place, ratio(own_rate, all), most, interval, now.uptime);
    };
    if (asking.host_share) {
        fair_share& all_shares = host_shares_[operation];
        const uint64_t cap = *host_caps_[operation];
        shares.bind(asking.share, all_shares.level() * ratio(cap, whole));
        all_shares.bind(*asking.host_share, shares.level() * ratio(whole, cap));
        asking.count = std::max(count_of(shares, asking.share, whole),
                                count_of(all_shares, *asking.host_share, cap));
    } else {
        shares.bind(asking.share, fair_share::unbound);
        asking.count = count_of(shares, asking.share, whole);
    }
    const uint64_t least = count_before(what, operation, own_rate, now);
    const bool is_raised = least > asking.count;
    asking.count = std::clamp(least, asking.count, most);
    const uint64_t told = own_rate / asking.count;
    if (asking.host_share || is_raised) {
        shares.tell(asking.share, ratio(told, whole));
    }
    if (asking.host_share) {
        host_shares_[operation].tell(*asking.host_share, ratio(told, *host_caps_[operation]));
    }
    return asking.count;
}

answer ledger::reply(session_entry& who, storage_entry& what, operation_type_t operation,
                     int64_t wait, moment now) {
    const auto free_flow = [&](operation_type_t each) {
        const uint64_t most = allowed(what, each, now);
        return most - std::min(most, measured(what, each, now));
    };
    // Of both directions there is no one figure: the lesser one is free either way.
    const uint64_t free = operation == OPERATION_READ_WRITE
                              ? std::min(free_flow(OPERATION_READ), free_flow(OPERATION_WRITE))
                              : free_flow(operation);
    return {STS_OK, row("THR_R_CONNECTION_COUNTS", "sessions reading",
                        count_for(who, what, OPERATION_READ, now)) +
                        row("THR_W_CONNECTION_COUNTS", "sessions writing",
                            count_for(who, what, OPERATION_WRITE, now)) +
                        row("THR_FREE_FLOW", "bandwidth left[bytes/second]", free) +
                        row("THR_WAIT_SECONDS", "time to wait[seconds]",
                            static_cast<uint64_t>(std::max(wait, pause(who, what, now))))};
}

void ledger::tick(moment now) {
    const turn mine(*this);
    expire(now);
    tell(false_keys_, now);
    end_limits(now);
    for (storage_entry& each : storages_) {
        expire_flows(each, now);
        follow_limits(each, now);
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
        const auto past = each++;
        if (can_be_dropped(*past)) {
            drop(past);
        }
    }
}

ledger_view ledger::view(moment now, const view_part& wanted) {
    const turn mine(*this);
    expire(now);
    ledger_view seen = {now.uptime - started_,
                        lease_,
                        sessions_.size(),
                        sessions_opened_,
                        sessions_expired_,
                        reports_,
                        malformed_,
                        false_keys_.count,
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
                                 connection_limit_of(*each, now),
                                 each->second.refused,
                                 settings_of(*each).sample_interval,
                                 point_of(*each, now),
                                 {first, last}});
    }
    return seen;
}

void ledger::tell(tally& which, moment now) {
    const int64_t news = which.count - which.told;
    if (news > 0 && (which.told == 0 || now.uptime - which.when_told >= 60)) {
        lines_.put(fmt::format("refused {} {}", news, which.what));
        which.told += news;
        which.when_told = now.uptime;
    }
}

void ledger::log(const session_entry& who, const std::string& what) {
    lines_.put(
        fmt::format("session {} {}: {}", short_name(who.first), in_quotes(who.second.label), what));
}
