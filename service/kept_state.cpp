#include "service/kept_state.h"

#include "common/latin1.h"
#include "common/whole_number.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <stdexcept>

using json = nlohmann::ordered_json;

namespace {

constexpr const char* book_name = "book";
constexpr const char* refused_name = "book.refused";
constexpr size_t largest_book = size_t{8} << 20; // bytes
constexpr int format = 1;

template <typename Value>
json limit_json(const std::optional<timed<Value>>& limit) {
    if (!limit) {
        return nullptr;
    }
    const bool is_forever = limit->until == timed<Value>::never;
    return {{"value", limit->value}, {"until", is_forever ? json() : json(limit->until)}};
}

template <typename Value>
std::optional<timed<Value>> limit_of(const json& kept) {
    if (kept.is_null()) {
        return std::nullopt;
    }
    const int64_t value = whole_number<int64_t>(kept.at("value"));
    const json& until = kept.at("until");
    const int64_t end = until.is_null() ? timed<Value>::never : whole_number<int64_t>(until);
    constexpr int64_t far = int64_t{1} << 40; // seconds since the epoch
    if (value < 0 || (!until.is_null() && (end < 0 || end > far))) {
        throw std::runtime_error("a limit that can't be");
    }
    return timed<Value>{static_cast<Value>(value), end};
}

std::string name_of(const json& text) {
    const std::optional<std::string> name = latin1(text.get<std::string>());
    if (!name) {
        throw std::runtime_error("a name that no storage can have");
    }
    return *name;
}

uint64_t flows_of(const json& number) {
    const auto flows = whole_number<uint64_t>(number);
    if (flows > most_sessions) {
        throw std::runtime_error("a number of flows that can't be");
    }
    return flows;
}

kept_book::kept_storage storage_of(const json& kept) {
    kept_book::kept_storage read = {name_of(kept.at("name")),
                                    std::nullopt,
                                    whole_number<int64_t>(kept.at("limit")),
                                    {flows_of(kept.at("readers")), flows_of(kept.at("writers"))}};
    if (!kept.at("settings").is_null()) {
        read.settings = whole_number<uint32_t>(kept.at("settings"));
    }
    return read;
}

limits_view limits_of(const json& kept) {
    limits_view read = {};
    if (!kept.at("storage").is_null()) {
        read.storage = name_of(kept.at("storage"));
    }
    read.limits.rates[OPERATION_READ] = limit_of<uint64_t>(kept.at("read"));
    read.limits.rates[OPERATION_WRITE] = limit_of<uint64_t>(kept.at("write"));
    read.limits.connections = limit_of<int64_t>(kept.at("connections"));
    return read;
}

} // namespace

std::string text_of(const kept_book& kept) {
    json all = {{"format", format},
                {"settings", kept.settings},
                {"storages", json::array()},
                {"limits", json::array()}};
    for (const kept_book::kept_storage& each : kept.storages) {
        all["storages"].push_back({{"name", utf8(each.name)},
                                   {"settings", each.settings ? json(*each.settings) : json()},
                                   {"limit", each.limit},
                                   {"readers", each.flows[OPERATION_READ]},
                                   {"writers", each.flows[OPERATION_WRITE]}});
    }
    for (const limits_view& each : kept.limits) {
        all["limits"].push_back({{"storage", each.storage ? json(utf8(*each.storage)) : json()},
                                 {"read", limit_json(each.limits.rates[OPERATION_READ])},
                                 {"write", limit_json(each.limits.rates[OPERATION_WRITE])},
                                 {"connections", limit_json(each.limits.connections)}});
    }
    return all.dump() + "\n";
}

kept_book parse_kept_book(const std::string& text) {
    const json all = json::parse(text, nullptr, false);
    if (!all.is_object() || all.value("format", json()) != format) {
        throw std::runtime_error("no JSON object of this format");
    }
    try {
        kept_book read;
        for (const json& each : all.at("settings")) {
            read.settings.push_back(each.get<std::string>());
        }
        for (const json& each : all.at("storages")) {
            read.storages.push_back(storage_of(each));
        }
        for (const json& each : all.at("limits")) {
            read.limits.push_back(limits_of(each));
        }
        if (read.settings.size() > most_storages + 1 || read.storages.size() > most_storages ||
            read.limits.size() > most_storages + 1) {
            throw std::runtime_error("more than there may be");
        }
        return read;
    } catch (const json::exception& error) {
        throw std::runtime_error(error.what());
    }
}

book_keeper::book_keeper(const state_directory& directory, ledger& book, log_sink log, moment now)
    : directory_(directory), book_(book), log_(std::move(log)) {
    try {
        const std::optional<std::string> text = directory.read(book_name, largest_book + 1);
        if (!text) {
            return;
        }
        if (text->size() > largest_book) {
            throw std::runtime_error(fmt::format("larger than {} bytes", largest_book));
        }
        book.restore(parse_kept_book(*text), now);
    } catch (const std::exception& error) {
        directory.rename(book_name, refused_name);
        log_(fmt::format("warning: {}: {}; it is put aside as {}, and settings and limits begin "
                         "anew",
                         directory.path_of(book_name), error.what(), refused_name));
    }
    written_ = book.changes();
}

void book_keeper::tick(moment now) {
    const uint64_t changes = book_.changes();
    if (changes == written_) {
        return;
    }
    try {
        directory_.write(book_name, text_of(book_.keep(now)));
        written_ = changes;
        is_failing_ = false;
    } catch (const state_error& error) {
        if (!is_failing_) { // and it is tried again
            log_(fmt::format("warning: settings and limits aren't kept: {}", error.what()));
        }
        is_failing_ = true;
    }
}
