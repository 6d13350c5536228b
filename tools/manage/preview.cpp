// "preview": shows what the settings allow.

#include "config/settings.h"
#include "tools/host/settings_findings.h"
#include "tools/manage/commands.h"
#include "tools/manage/preview_table.h"
#include "tools/terminal/failure.h"

#include <ctime>
#include <fmt/format.h>
#include <memory>
#include <optional>

namespace {

struct preview_options {
    std::optional<operation_type_t> direction; ///< none: both
    bool week = false;                         ///< all seven days; else today
};

throttling_config_s read_settings() {
    const checked_settings found = told_settings();
    if (found.state == checked_settings::missing) {
        throw failure(missing_settings_text(plugin_config_path));
    }
    return found.config;
}

/// Reads the settings file, names what is wrong with it on standard error, and prints the rates.
/// Returns what the program ends with.
int run_preview(const preview_options& options) {
    const throttling_config_s config = read_settings();
    const time_t seconds = time(nullptr);
    tm now = {};
    localtime_r(&seconds, &now);
    fmt::print("Settings: {}\n", plugin_config_path);
    if (config.sample_interval == 0) {
        fmt::print("Throttling is off (THR:SAMPLE_INTERVAL is 0): all moves as fast as it can. "
                   "Turned on, it would allow:\n");
    } else {
        fmt::print("Throttling is on; the service is told every {} s. Allowed to all connections "
                   "of a storage together, * is now:\n",
                   config.sample_interval);
    }
    for (const operation_type_t direction : {OPERATION_READ, OPERATION_WRITE}) {
        if (options.direction && *options.direction != direction) {
            continue;
        }
        fmt::print("\n{}", preview_table(config, direction, now, options.week));
        if (allows_nothing_somewhen(config, direction)) {
            fmt::print("At 0 B/s the plugin ends the process that transfers.\n");
        }
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
    preview->add_flag("--week", kept->preview.week, "The whole week (default: today)");
    preview->footer(examples({"preview --conf-dir /etc/throttling --direction write --week"}));
    chooses(*preview, asked, [kept] {
        if (!kept->direction.empty()) {
            kept->preview.direction = kept->direction == "read" ? OPERATION_READ : OPERATION_WRITE;
        }
        return run_preview(kept->preview);
    });
}
