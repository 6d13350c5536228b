#include "service/views.h"

#include "common/latin1.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <unistd.h>
#include <utility>

using json = nlohmann::ordered_json;

namespace {

/// The value of a label. The escapes of JSON are those of the text form too, since a storage's name
/// has no control characters.
std::string label(const std::string& name) { return json(utf8(name)).dump(); }

json direction_json(const direction_view& seen) {
    return {{"flows", seen.flows}, {"allowed", seen.allowed}, {"measured", seen.measured}};
}

/// Appends `"name":[value,...],`.
template <typename Value>
void add_column(std::string& text, const char* name, const std::vector<storage_point>& history,
                Value value) {
    fmt::format_to(std::back_inserter(text), "\"{}\":[", name);
    for (const storage_point& each : history) {
        const fmt::format_int number(value(each));
        text.append(number.data(), number.size());
        text += ',';
    }
    if (!history.empty()) {
        text.pop_back();
    }
    text += "],";
}

/// The history by columns, which is a third of it by points.
std::string history_json(const std::vector<storage_point>& history) {
    using point = const storage_point&;
    std::string text = "{";
    add_column(text, "time", history, [](point each) { return each.when; });
    add_column(text, "connections", history, [](point each) { return each.connections; });
    add_column(text, "readers", history, [](point each) { return each.read.flows; });
    add_column(text, "writers", history, [](point each) { return each.write.flows; });
    add_column(text, "read_allowed", history, [](point each) { return each.read.allowed; });
    add_column(text, "read_measured", history, [](point each) { return each.read.measured; });
    add_column(text, "write_allowed", history, [](point each) { return each.write.allowed; });
    add_column(text, "write_measured", history, [](point each) { return each.write.measured; });
    text.back() = '}';
    return text;
}

std::string storage_json(const storage_view& seen) {
    const json figures = {{"name", utf8(seen.name)},
                          {"limit", seen.limit},
                          {"connections", seen.now.connections},
                          {"refused", seen.refused},
                          {"sample_interval", seen.sample_interval},
                          {"read", direction_json(seen.now.read)},
                          {"write", direction_json(seen.now.write)}};
    std::string text = figures.dump();
    text.pop_back();
    return text + ",\"history\":" + history_json(seen.history) + "}";
}

/// The book's storages one after the other. Only a few are held at a time, and only for so long is
/// the book locked.
class storage_reader {
  public:
    storage_reader(ledger& book, moment now, view_part wanted)
        : book_(&book), now_(now), wanted_(std::move(wanted)) {}

    /// Null behind the last one. Good until the next call.
    const storage_view* next() {
        if (place_ == read_.size()) {
            read_ = book_->view(now_, wanted_).storages;
            place_ = 0;
            if (read_.empty()) {
                return nullptr;
            }
            wanted_.after = read_.back().name;
        }
        return &read_[place_++];
    }

  private:
    ledger* book_;
    moment now_;
    view_part wanted_;
    std::vector<storage_view> read_;
    size_t place_ = 0;
};

class status_pieces {
  public:
    status_pieces(std::string head, storage_reader storages)
        : head_(std::move(head)), storages_(std::move(storages)) {}

    std::string operator()() {
        if (!head_.empty()) {
            return std::exchange(head_, "");
        }
        if (const storage_view* const each = storages_.next()) {
            return std::exchange(separator_, ",") + storage_json(*each);
        }
        return std::exchange(tail_, "");
    }

  private:
    std::string head_;
    storage_reader storages_;
    std::string separator_;
    std::string tail_ = "]}";
};

double resident_memory() {
    std::ifstream file("/proc/self/statm");
    double size = 0;
    double resident = 0;
    file >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double open_descriptors() {
    std::error_code error;
    const std::filesystem::directory_iterator entries("/proc/self/fd", error);
    return static_cast<double>(std::distance(begin(entries), end(entries)));
}

std::string metric_head(const char* name, const char* type, const char* help) {
    return fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type);
}

struct plain_metric {
    const char* name;
    const char* type;
    const char* help;
    double value;
};

/// A line for each storage, or for each direction of each.
struct storage_metric {
    const char* name;
    const char* type;
    const char* help;
    int64_t (*of_storage)(const storage_view&);      ///< null: there is the other one
    uint64_t (*of_direction)(const direction_view&); ///< null: there is the other one

    std::string lines(const storage_view& seen) const {
        const std::string storage = label(seen.name);
        if (of_storage != nullptr) {
            return fmt::format("{}{{storage={}}} {}\n", name, storage, of_storage(seen));
        }
        return fmt::format("{0}{{storage={1},direction=\"read\"}} {2}\n"
                           "{0}{{storage={1},direction=\"write\"}} {3}\n",
                           name, storage, of_direction(seen.now.read),
                           of_direction(seen.now.write));
    }
};

const storage_metric storage_metrics[] = {
    {"vlsld_storage_connections", "gauge", "Connections admitted to a storage now.",
     [](const storage_view& each) { return each.now.connections; }, nullptr},
    {"vlsld_storage_connection_limit", "gauge", "Connections that a storage may have.",
     [](const storage_view& each) { return each.limit; }, nullptr},
    {"vlsld_storage_refused_total", "counter", "Connections refused at the limit.",
     [](const storage_view& each) { return each.refused; }, nullptr},
    {"vlsld_storage_flows", "gauge", "Sessions that read or write a storage now.", nullptr,
     [](const direction_view& each) { return static_cast<uint64_t>(each.flows); }},
    {"vlsld_storage_allowed_bytes_per_second", "gauge",
     "Rate that the settings, and limits set since, allow now.", nullptr,
     [](const direction_view& each) { return each.allowed; }},
    {"vlsld_storage_measured_bytes_per_second", "gauge", "Rate that was last reported.", nullptr,
     [](const direction_view& each) { return each.measured; }}};

/// The storages are read once for each metric, whose lines have to stand together.
class metrics_pieces {
  public:
    metrics_pieces(std::string head, storage_reader storages)
        : head_(std::move(head)), all_(storages), storages_(std::move(storages)) {}

    std::string operator()() {
        if (!head_.empty()) {
            return std::exchange(head_, "");
        }
        while (which_ != std::end(storage_metrics)) {
            if (const storage_view* const each = storages_.next()) {
                return std::exchange(title_, "") + which_->lines(*each);
            }
            const std::string alone = std::exchange(title_, ""); // there is no storage
            storages_ = all_;
            ++which_;
            title_ = title();
            if (!alone.empty()) {
                return alone;
            }
        }
        return "";
    }

  private:
    std::string title() const {
        return which_ == std::end(storage_metrics)
                   ? ""
                   : metric_head(which_->name, which_->type, which_->help);
    }

    std::string head_;
    const storage_reader all_;
    storage_reader storages_;
    const storage_metric* which_ = std::begin(storage_metrics);
    std::string title_ = title();
};

/// Parts in which storages are read, with all of their history and without any.
constexpr size_t with_history = 8;
constexpr size_t without_history = 32;

ledger_view totals(ledger& book, moment now) {
    view_part none;
    none.most = 0;
    return book.view(now, none);
}

} // namespace

text_source status_json(ledger& book, moment now, time_t since) {
    const ledger_view seen = totals(book, now);
    const json status = {{"service", "vlsld"},
                         {"time", now.wall},
                         {"uptime", seen.uptime},
                         {"lease", seen.lease},
                         {"sessions", seen.sessions},
                         {"sessions_opened", seen.sessions_opened},
                         {"sessions_expired", seen.sessions_expired},
                         {"reports", seen.reports},
                         {"malformed", seen.malformed},
                         {"false_keys", seen.false_keys},
                         {"history_step", history_step},
                         {"history_points", history_points}};
    std::string head = status.dump();
    head.pop_back();
    view_part wanted;
    wanted.since = since;
    wanted.most = with_history;
    wanted.points = seen.points;
    return status_pieces(head + ",\"storages\":[", storage_reader(book, now, wanted));
}

text_source metrics_text(ledger& book, moment now) {
    const ledger_view seen = totals(book, now);
    const auto number = [](auto value) { return static_cast<double>(value); };
    const plain_metric metrics[] = {
        {"vlsld_uptime_seconds", "gauge", "Time since the service started.", number(seen.uptime)},
        {"vlsld_sessions", "gauge", "Sessions that are open.", number(seen.sessions)},
        {"vlsld_sessions_opened_total", "counter", "Sessions opened since the start.",
         number(seen.sessions_opened)},
        {"vlsld_sessions_expired_total", "counter", "Sessions whose lease ran out.",
         number(seen.sessions_expired)},
        {"vlsld_reports_total", "counter", "Bandwidth reports taken.", number(seen.reports)},
        {"vlsld_malformed_total", "counter", "Questions that could not be understood.",
         number(seen.malformed)},
        {"vlsld_false_keys_total", "counter",
         "Requests for objects that the service didn't hand out.", number(seen.false_keys)},
        {"process_resident_memory_bytes", "gauge", "Resident memory of the service.",
         resident_memory()},
        {"process_open_fds", "gauge", "Open file descriptors of the service.", open_descriptors()}};
    std::string head;
    for (const plain_metric& each : metrics) {
        head += metric_head(each.name, each.type, each.help) +
                fmt::format("{} {}\n", each.name, each.value);
    }
    view_part wanted;
    wanted.since = std::numeric_limits<time_t>::max();
    wanted.most = without_history;
    return metrics_pieces(head, storage_reader(book, now, wanted));
}
