#include "service/control/control_server.h"

#include "common/latin1.h"
#include "common/whole_number.h"
#include "service/in_quotes.h"
#include "service/web_server.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <unistd.h>

using json = nlohmann::ordered_json;

namespace {

constexpr int64_t longest_limit = 10 * 366 * int64_t{86400}; // seconds
constexpr int64_t most_connections = 1'000'000'000;

/// What was asked can't be: for whoever asked.
struct bad_request : std::runtime_error {
    using runtime_error::runtime_error;
};

std::optional<http_answer> refuse_strangers(const http_request& request) {
    if (!request.is_change || may_change(request.user, geteuid())) {
        return std::nullopt;
    }
    return short_answer(403, fmt::format("Only root and the service's own user ({}) may change "
                                         "anything; you are user {}.",
                                         geteuid(), request.user.value_or(uid_t(-1))));
}

const char* const rate_names[] = {"read", "write"};

/// Reads a body, which is of the fields named alone.
json read_body(const http_request& request, const std::vector<const char*>& fields) {
    json body = json::parse(request.body, nullptr, false);
    if (!body.is_object()) {
        throw bad_request("The body is no JSON object.");
    }
    for (const auto& [name, value] : body.items()) {
        if (std::find(fields.begin(), fields.end(), name) == fields.end()) {
            throw bad_request(fmt::format("There is no field {}.", in_quotes(name)));
        }
    }
    return body;
}

/// A whole number of a body; none: it isn't there, or null.
std::optional<int64_t> number_in(const json& body, const char* name, int64_t least, int64_t most) {
    const auto found = body.find(name);
    if (found == body.end() || found->is_null()) {
        return std::nullopt;
    }
    try {
        const auto number = whole_number<int64_t>(*found);
        if (least <= number && number <= most) {
            return number;
        }
    } catch (const std::range_error&) { // it is none
    }
    throw bad_request(
        fmt::format("\"{}\" has to be a whole number from {} to {}.", name, least, most));
}

/// The storage that a body names; none: it is for the host.
std::optional<std::string> storage_in(const json& body) {
    const auto named = body.find("storage");
    const auto host = body.find("host");
    if (host != body.end() && *host != true) {
        throw bad_request("\"host\" can be true alone.");
    }
    if ((named != body.end()) == (host != body.end())) {
        throw bad_request("Either \"storage\" or \"host\" says what is limited.");
    }
    if (named == body.end()) {
        return std::nullopt;
    }
    const std::optional<std::string> name =
        named->is_string() ? latin1(named->get<std::string>()) : std::nullopt;
    if (!name) {
        throw bad_request("\"storage\" has to be a name, of characters of ISO 8859-1.");
    }
    return name;
}

template <typename Value>
json limit_json(const std::optional<timed<Value>>& limit, moment now) {
    if (!limit) {
        return nullptr;
    }
    return {{"value", limit->value},
            {"seconds_left",
             limit->until == timed<Value>::never ? json() : json(limit->until - now.uptime)}};
}

json limits_json(const limits_view& view, moment now) {
    json all = view.storage ? json{{"storage", utf8(*view.storage)}} : json{{"host", true}};
    for (const operation_type_t each : {OPERATION_READ, OPERATION_WRITE}) {
        all[rate_names[each]] = limit_json(view.limits.rates[each], now);
    }
    all["connections"] = limit_json(view.limits.connections, now);
    return all;
}

http_answer json_answer(const json& value) {
    return {200, "application/json", in_one_piece(value.dump() + "\n")};
}

std::string name_of(const http_request& request) {
    return fmt::format("user {}", request.user.value_or(uid_t(-1)));
}

http_answer limit(ledger& book, const http_request& request) {
    const json body =
        read_body(request, {"storage", "host", "read", "write", "connections", "seconds"});
    limit_change change;
    for (const operation_type_t each : {OPERATION_READ, OPERATION_WRITE}) {
        change.rates[each] =
            number_in(body, rate_names[each], 0, std::numeric_limits<int64_t>::max());
    }
    change.connections = number_in(body, "connections", 0, most_connections);
    change.seconds = number_in(body, "seconds", 1, longest_limit);
    const moment now = this_moment();
    const limits_view view = book.limit(storage_in(body), change, name_of(request), now);
    json said = limits_json(view, now);
    said["settings_allow"] = json::object();
    for (const operation_type_t each : {OPERATION_READ, OPERATION_WRITE}) {
        if (view.allowed[each]) {
            said["settings_allow"][rate_names[each]] = *view.allowed[each];
        }
    }
    said["is_known"] = view.is_known;
    said["sample_interval"] = view.sample_interval ? json(*view.sample_interval) : json();
    return json_answer(said);
}

http_answer unlimit(ledger& book, const http_request& request) {
    const json body = read_body(request, {"storage", "host"});
    return json_answer(
        {{"was_limited", book.unlimit(storage_in(body), name_of(request), this_moment())}});
}

http_answer limits(ledger& book) {
    const moment now = this_moment();
    json all = json::array();
    for (const limits_view& each : book.limits(now)) {
        all.push_back(limits_json(each, now));
    }
    return json_answer({{"limits", all}});
}

/// A change of the book, with what is wrong with the request as its answer.
http_handler change(ledger& book, http_answer (*handler)(ledger&, const http_request&)) {
    return [&book, handler](const http_request& request) {
        try {
            return handler(book, request);
        } catch (const bad_request& error) {
            return short_answer(400, error.what());
        } catch (const limit_refused& error) {
            return short_answer(409, fmt::format("Nothing is changed: {}.", error.what()));
        }
    };
}

http_site site(ledger& book) {
    return {{},
            refuse_strangers,
            {{"/status", status_page(book)},
             {"/limits", [&](const http_request&) { return limits(book); }}},
            {{"/limit", change(book, limit)}, {"/unlimit", change(book, unlimit)}}};
}

} // namespace

bool may_change(std::optional<uid_t> user, uid_t own) {
    return user && (*user == 0 || *user == own);
}

control_server::control_server(const std::string& path, ledger& book)
    : socket_(path), server_({socket_.get()}, site(book)) {}
