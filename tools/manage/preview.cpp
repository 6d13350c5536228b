// "preview": shows what the settings allow.

#include "config/settings.h"
#include "tools/host/settings_findings.h"
#include "tools/manage/commands.h"
#include "tools/manage/preview_table.h"
#include "tools/manage/preview_time.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/sizes.h"

#include <ctime>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

struct preview_options {
    std::vector<operation_type_t> directions = {OPERATION_READ, OPERATION_WRITE};
    bool week = false; ///< all seven days; else today
    bool as_json = false;
    std::string at; ///< empty: no time of its own
};

checked_settings read_settings() {
    checked_settings found = told_settings();
    if (found.state == checked_settings::missing) {
        throw failure(missing_settings_text(plugin_config_path));
    }
    return found;
}

time_t time_asked(const preview_options& options) {
    const time_t now = time(nullptr);
    if (options.at.empty()) {
        return now;
    }
    const std::optional<time_t> when = time_named(options.at, now);
    if (!when) {
        throw usage_failure(no_time_text("--at", options.at));
    }
    return *when;
}

/// "50.0 MiB/s for reads and 25.0 MiB/s for writes (work time)".
std::string rates_text(const throttling_config_s& config, const preview_options& options,
                       const tm& when) {
    std::string text;
    for (const operation_type_t direction : options.directions) {
        text += fmt::format("{}{} for {}", text.empty() ? "" : " and ",
                            rate_text(static_cast<double>(allowed_rate(config, direction, when))),
                            direction == OPERATION_READ ? "reads" : "writes");
    }
    return fmt::format("{} ({})", text, window_name(window_at(config, when)));
}

void print_at(const throttling_config_s& config, const preview_options& options, time_t when) {
    const std::optional<time_t> change = next_change(config, options.directions, when);
    fmt::print("{}:\n  {}\n", day_and_time(when), rates_text(config, options, local_time(when)));
    if (change) {
        fmt::print("until {}, then\n  {}\n", day_and_time(*change),
                   rates_text(config, options, local_time(*change)));
    } else {
        fmt::print("and nothing else within a week\n");
    }
}

void print_tables(const throttling_config_s& config, const preview_options& options,
                  const tm& now) {
    for (const operation_type_t direction : options.directions) {
        fmt::print("\n{}", preview_table(config, direction, now, options.week));
        if (allows_nothing_somewhen(config, direction)) {
            fmt::print("At 0 B/s the plugin ends the process that transfers.\n");
        }
    }
}

void print_json(const checked_settings& found, const preview_options& options, time_t when) {
    const throttling_config_s& config = found.config;
    ordered_json all = {{"file", plugin_config_path},
                        {"sample_interval", config.sample_interval},
                        {"findings", findings_json(found.findings)},
                        {"at", day_and_time(when)}};
    if (options.at.empty()) {
        all["hours"] = preview_json(config, local_time(when), options.week);
    } else {
        const std::optional<time_t> change = next_change(config, options.directions, when);
        all["window"] = window_name(window_at(config, local_time(when)));
        all["read"] = allowed_rate(config, OPERATION_READ, local_time(when));
        all["write"] = allowed_rate(config, OPERATION_WRITE, local_time(when));
        all["until"] = change ? ordered_json(day_and_time(*change)) : ordered_json();
    }
    fmt::print("{}\n", dumped(all, 2));
}

/// Reads the settings file, names what is wrong with it on standard error, and prints the rates.
/// Returns what the program ends with.
int run_preview(const preview_options& options) {
    const time_t when = time_asked(options);
    const checked_settings found = read_settings();
    if (options.as_json) {
        print_json(found, options, when);
        return EXIT_DONE;
    }
    fmt::print("Settings: {}\n", plugin_config_path);
    if (found.config.sample_interval == 0) {
        fmt::print("Throttling is off (THR:SAMPLE_INTERVAL is 0): all moves as fast as it can.\n"
                   "Turned on, it would allow:\n");
    } else {
        fmt::print("Throttling is on; the service is told every {} s. Allowed to all "
                   "connections\nof a storage together{}:\n",
                   found.config.sample_interval, options.at.empty() ? ", * is now" : "");
    }
    if (options.at.empty()) {
        print_tables(found.config, options, local_time(when));
    } else {
        print_at(found.config, options, when);
    }
    return EXIT_DONE;
}

} // namespace

void add_preview(CLI::App& app, request& asked) {
    struct options {
        preview_options preview;
        std::string direction;
    };
    const auto kept = std::make_shared<options>();
    CLI::App* const preview =
        app.add_subcommand("preview", "Show the rate that the settings allow, hour by hour");
    preview->add_option("--direction", kept->direction, "Only one direction")
        ->check(CLI::IsMember({"read", "write"}).description(""))
        ->type_name("read|write");
    CLI::Option* const week =
        preview->add_flag("--week", kept->preview.week,
                          "The whole week, each hour (default: today, equal hours in one line)");
    add_named(*preview, "--at", kept->preview.at, "What applies then, and until when", "WHEN")
        ->excludes(week);
    add_json(*preview, kept->preview.as_json);
    preview->footer(
        std::string(when_help) +
        "The object of --json holds file, sample_interval,\n"
        "findings (as \"config check\" tells them), at, and hours: a list, each with\n"
        "day, from, to, window, read and write (bytes per second); with --at, in place\n"
        "of hours, window, read, write and until, which may be null. What is wrong with\n"
        "the file is said on standard error.\n\n" +
        examples({"preview --conf-dir /etc/throttling --direction write --week",
                  "preview --at 'Sat 03:00'"}));
    chooses(*preview, asked, [kept] {
        if (!kept->direction.empty()) {
            kept->preview.directions = {kept->direction == "read" ? OPERATION_READ
                                                                  : OPERATION_WRITE};
        }
        return run_preview(kept->preview);
    });
}
