#include "service/views.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unistd.h>

using json = nlohmann::ordered_json;

namespace {

/// A name as it is shown. Narrow text on the wire is ISO 8859-1, whose bytes are the first 256 code
/// points: different names look different.
std::string utf8(const std::string& name) {
    std::string result;
    for (const char each : name) {
        const auto point = static_cast<unsigned char>(each);
        if (point < 0x80) {
            result += each;
        } else {
            result += static_cast<char>(0xc0 | point >> 6);
            result += static_cast<char>(0x80 | (point & 0x3f));
        }
    }
    return result;
}

/// The value of a label. The escapes of JSON are those of the text form too, since a storage's name
/// has no control characters.
std::string label(const std::string& name) { return json(utf8(name)).dump(); }

json direction_json(const direction_view& seen) {
    return {{"flows", seen.flows}, {"allowed", seen.allowed}, {"measured", seen.measured}};
}

/// The history by columns, which is a third of it by points.
json history_json(const std::vector<storage_point>& history) {
    const auto column = [&](auto value) {
        json values = json::array();
        for (const storage_point& each : history) {
            values.push_back(value(each));
        }
        return values;
    };
    using point = const storage_point&;
    return {{"time", column([](point each) { return each.when; })},
            {"connections", column([](point each) { return each.connections; })},
            {"readers", column([](point each) { return each.read.flows; })},
            {"writers", column([](point each) { return each.write.flows; })},
            {"read_allowed", column([](point each) { return each.read.allowed; })},
            {"read_measured", column([](point each) { return each.read.measured; })},
            {"write_allowed", column([](point each) { return each.write.allowed; })},
            {"write_measured", column([](point each) { return each.write.measured; })}};
}

json storage_json(const storage_view& seen) {
    return {{"name", utf8(seen.name)},
            {"limit", seen.limit},
            {"connections", seen.now.connections},
            {"refused", seen.refused},
            {"sample_interval", seen.sample_interval},
            {"read", direction_json(seen.now.read)},
            {"write", direction_json(seen.now.write)},
            {"history", history_json(seen.history)}};
}

/// Adds the metrics, each with its lines of help and type.
class exposition {
  public:
    void add(const char* name, const char* type, const char* help, double value) {
        head(name, type, help);
        line(name, "", value);
    }

    /// One line for each storage.
    void add(const char* name, const char* type, const char* help,
             const std::vector<storage_view>& storages,
             const std::function<double(const storage_view&)>& value) {
        head(name, type, help);
        for (const storage_view& each : storages) {
            line(name, "{storage=" + label(each.name) + "}", value(each));
        }
    }

    /// One line for each direction of each storage.
    void add(const char* name, const char* help, const std::vector<storage_view>& storages,
             const std::function<double(const direction_view&)>& value) {
        head(name, "gauge", help);
        for (const storage_view& each : storages) {
            const std::string storage = "{storage=" + label(each.name);
            line(name, storage + ",direction=\"read\"}", value(each.now.read));
            line(name, storage + ",direction=\"write\"}", value(each.now.write));
        }
    }

    std::string text() const { return text_; }

  private:
    void head(const char* name, const char* type, const char* help) {
        text_ += fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type);
    }
    void line(const char* name, const std::string& labels, double value) {
        text_ += fmt::format("{}{} {}\n", name, labels, value);
    }

    std::string text_;
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

} // namespace

std::string status_json(const ledger_view& seen, moment now) {
    json storages = json::array();
    for (const storage_view& each : seen.storages) {
        storages.push_back(storage_json(each));
    }
    const json status = {{"service", "vlsld"},
                         {"time", now.wall},
                         {"uptime", seen.uptime},
                         {"lease", seen.lease},
                         {"sessions", seen.sessions},
                         {"sessions_opened", seen.sessions_opened},
                         {"sessions_expired", seen.sessions_expired},
                         {"reports", seen.reports},
                         {"malformed", seen.malformed},
                         {"history_step", history_step},
                         {"history_points", history_points},
                         {"storages", std::move(storages)}};
    return status.dump();
}

std::string metrics_text(const ledger_view& seen) {
    const auto number = [](auto value) { return static_cast<double>(value); };
    using storage = const storage_view&;
    using direction = const direction_view&;
    exposition text;
    text.add("vlsld_uptime_seconds", "gauge", "Time since the service started.",
             number(seen.uptime));
    text.add("vlsld_sessions", "gauge", "Sessions that are open.", number(seen.sessions));
    text.add("vlsld_sessions_opened_total", "counter", "Sessions opened since the start.",
             number(seen.sessions_opened));
    text.add("vlsld_sessions_expired_total", "counter", "Sessions whose lease ran out.",
             number(seen.sessions_expired));
    text.add("vlsld_reports_total", "counter", "Bandwidth reports taken.", number(seen.reports));
    text.add("vlsld_malformed_total", "counter", "Questions that could not be understood.",
             number(seen.malformed));
    text.add("vlsld_storage_connections", "gauge", "Connections admitted to a storage now.",
             seen.storages, [&](storage each) { return number(each.now.connections); });
    text.add("vlsld_storage_connection_limit", "gauge", "Connections that a storage may have.",
             seen.storages, [&](storage each) { return number(each.limit); });
    text.add("vlsld_storage_refused_total", "counter", "Connections refused at the limit.",
             seen.storages, [&](storage each) { return number(each.refused); });
    text.add("vlsld_storage_flows", "Sessions that read or write a storage now.", seen.storages,
             [&](direction each) { return number(each.flows); });
    text.add("vlsld_storage_allowed_bytes_per_second", "Rate that the settings allow now.",
             seen.storages, [&](direction each) { return number(each.allowed); });
    text.add("vlsld_storage_measured_bytes_per_second", "Rate that was last reported.",
             seen.storages, [&](direction each) { return number(each.measured); });
    text.add("process_resident_memory_bytes", "gauge", "Resident memory of the service.",
             resident_memory());
    text.add("process_open_fds", "gauge", "Open file descriptors of the service.",
             open_descriptors());
    return text.text();
}
