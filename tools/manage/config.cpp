// "config": the settings of a server as all its layers tell them: read them, and change some of
// them while all the others stay; and the plugin's file, checked.

#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/manage/commands.h"
#include "tools/manage/config_check.h"
#include "tools/manage/settings.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <memory>

namespace {

constexpr uint32_t usual_room = 64 * 1024;
constexpr uint32_t most_room = 16 * 1024 * 1024;

struct config_options {
    std::string file;
    std::string key;
    std::vector<std::string> assignments;
    bool as_text = false;
    bool as_json = false;
    bool is_forced = false; ///< sets also what the check calls an error
};

/// The text as the layers give it, asked again with the room that they say they need.
std::string read_text(const host_server& server) {
    std::string text;
    uint32_t room = usual_room;
    int status = STS_ERR_BUFFER_SPACE;
    while (status == STS_ERR_BUFFER_SPACE && room <= most_room) {
        uint32_t used = 0;
        text.assign(room, '\0');
        status = server.entries().get_server_config_v11(server.handle(), text.data(), room, &used);
        room = std::max(used, room * 4);
    }
    if (status != STS_OK) {
        throw failed("reading the configuration of the server", server.name(), status);
    }
    text.resize(strlen(text.c_str()));
    return text;
}

server_settings read_config(const host_server& server) {
    return {read_text(server), server.name()};
}

/// The status, and in `reason` what the layers say of it.
int write_text(const host_server& server, const std::string& text, std::string& reason) {
    char error[STS_NAME_SIZE] = {};
    const int status =
        server.entries().set_server_config_v11(server.handle(), text.c_str(), error, sizeof error);
    reason = text_of(error);
    return status;
}

// --- get ---------------------------------------------------------------------------------------

ordered_json fields_of(const setting_row& row) {
    return {{"name", row.name},
            {"value", row.value},
            {"type", row.type},
            {"fixed", row.fixed},
            {"description", row.description}};
}

void print_rows(const std::vector<setting_row>& rows) {
    std::vector<std::vector<std::string>> lines;
    lines.reserve(rows.size());
    for (const setting_row& row : rows) {
        lines.push_back({printable(row.name), printable(row.value), row.fixed ? "no" : "yes",
                         printable(row.description)});
    }
    fmt::print("{}", columns_text({"key", "value", "can be set", "description"}, lines));
}

const setting_row& require_key(const server_settings& config, const std::string& key,
                               const std::string& server) {
    const setting_row* const row = config.find(key);
    if (row == nullptr) {
        throw failure(fmt::format("the server \"{}\" has no key \"{}\"; \"throttlectl config get\" "
                                  "without a key shows all",
                                  server, key));
    }
    return *row;
}

void print_one(const setting_row& row, bool as_json) {
    fmt::print("{}\n", as_json ? dumped(fields_of(row), 2) : row.value);
}

int run_get(const server_options& common, const config_options& options) {
    connection to(common);
    if (options.as_text) {
        fmt::print("{}\n", read_text(to.server));
    } else {
        const server_settings config = read_config(to.server);
        if (!options.key.empty()) {
            print_one(require_key(config, options.key, common.server), options.as_json);
        } else if (options.as_json) {
            ordered_json all = ordered_json::array();
            for (const setting_row& row : config.rows()) {
                all.push_back(fields_of(row));
            }
            fmt::print("{}\n", dumped(all, 2));
        } else {
            print_rows(config.rows());
        }
    }
    to.server.close();
    return EXIT_DONE;
}

// --- set ---------------------------------------------------------------------------------------

std::string wanted_text(const assignments& wanted) {
    std::string text;
    for (const auto& [key, value] : wanted) {
        text += fmt::format("{}{}={}", text.empty() ? "" : " ", key, value);
    }
    return text;
}

/// Writes the old text back, and says how that went.
std::string undo(const host_server& server, const server_settings& before) {
    std::string ignored;
    (void)write_text(server, before.text(), ignored);
    try {
        if (read_text(server) == before.text()) {
            return "nothing is changed";
        }
    } catch (const failure&) { // why the set failed is what is to be said
    }
    return "what was there before can't be put back whole: see \"throttlectl config get\"";
}

/// What isn't as it was asked for, in words; empty when all is.
std::string refused_text(const server_settings& after, const assignments& wanted) {
    std::string text;
    for (const auto& [key, value] : wanted) {
        const setting_row* const row = after.find(key);
        const std::string now = row != nullptr ? row->value : "gone";
        if (!is_same_value(now, value)) {
            text += refusal(key, value, now);
        }
    }
    return text;
}

std::string failed_text(const host_server& server, const assignments& wanted,
                        const std::string& why) {
    return fmt::format("setting {} of the server \"{}\" failed: {}", wanted_text(wanted),
                       server.name(), why);
}

/// Names every row that has another value now, asked for or adjusted by the layer that owns it.
void print_changes(const server_settings& before, const server_settings& after) {
    bool is_changed = false;
    for (const setting_row& row : after.rows()) {
        const setting_row* const old = before.find(row.name);
        const bool is_first = &row == after.find(row.name); // several layers may have it
        if (is_first && (old == nullptr || old->value != row.value)) {
            fmt::print("{}: {} -> {}\n", row.name, old != nullptr ? old->value : "none", row.value);
            is_changed = true;
        }
    }
    if (!is_changed) {
        fmt::print("All is as it was: these are the values that it had.\n");
        return;
    }
    console::get().line("The plugin goes by that for every server that is opened from now on; one "
                        "that is\nopen goes on with what it has read.");
}

int run_set(const server_options& common, const config_options& options) {
    assignments wanted;
    for (const std::string& each : options.assignments) {
        wanted.push_back(assignment_of(each));
    }
    connection to(common);
    const server_settings before = read_config(to.server);
    wanted = with_plain_sizes(before, std::move(wanted));
    const std::string text = changed_text(before, wanted, common.server);
    if (const std::string refused = refused_by_plugin(text, wanted); !refused.empty()) {
        throw failure(failed_text(to.server, wanted, refused + "nothing is changed"));
    }
    if (const std::string errors = new_errors(before, wanted);
        !errors.empty() && !options.is_forced) {
        throw failure(failed_text(to.server, wanted,
                                  "nothing is changed; --force sets it all the same\n" +
                                      errors.substr(0, errors.size() - 1)));
    }
    std::string reason;
    if (const int status = write_text(to.server, text, reason)) {
        throw status_failure(
            failed_text(to.server, wanted,
                        fmt::format("{}{}{}; {}", reason, reason.empty() ? "" : ": ",
                                    status_text(status), undo(to.server, before))));
    }
    const server_settings after = read_config(to.server);
    if (const std::string refused = refused_text(after, wanted); !refused.empty()) {
        throw status_failure(failed_text(to.server, wanted, refused + undo(to.server, before)));
    }
    print_changes(before, after);
    to.server.close();
    return EXIT_DONE;
}

} // namespace

void add_config(CLI::App& app, request& asked) {
    const auto options = std::make_shared<config_options>();
    const std::string shared = " --server CS_throttle:global:disk:/srv/store";
    CLI::App* const config = app.add_subcommand("config", "Read, change and check settings");
    config->require_subcommand(1);
    config->fallthrough();
    config->footer(
        command_help("", {"config get" + shared, "config set THR:SAMPLE_INTERVAL=30" + shared}));

    CLI::App* const get = config->add_subcommand(
        "get", "Print the settings of all layers, the next layer's before the plugin's");
    add_named(*get, "KEY", options->key, "Print the value of this one alone");
    add_server(*get, asked.common.server)->required();
    CLI::Option* const as_json = get->add_flag("--json", options->as_json,
                                               "Print objects for a program: name, value, type, "
                                               "fixed, description");
    get->add_flag("--text", options->as_text, "Print the text as the layers give it")
        ->excludes(as_json)
        ->excludes("KEY");
    get->footer(command_help("A setting that can't be set through this server is marked.\n",
                             {"config get" + shared, "config get THR:SAMPLE_INTERVAL" + shared,
                              "config get --json" + std::string(example_server)}));
    chooses(*get, asked, [&asked, options] { return run_get(asked.common, *options); });

    CLI::App* const set =
        config->add_subcommand("set", "Change settings: all that are named or none");
    set->add_option("SETTING", options->assignments, "What to set, each as KEY=VALUE")
        ->required()
        ->type_name("");
    add_server(*set, asked.common.server)->required();
    set->add_flag("--force", options->is_forced,
                  "Set also what \"config check\" calls an error, where the plugin takes it");
    set->footer(command_help(
        "A server of the type \"global\" sets what all storages share, any other its own "
        "storage's\n"
        "limit of connections; the next layer's settings can be set through both. Every setting\n"
        "that isn't named stays. Setting through a global server rewrites the plugin's file: its\n"
        "comments go, and THR:CSSC_HOST_NAME becomes localhost.\n"
        "Where bytes are asked for, 100M, 1.5G or 12.5MB/s will do; all factors are 1024.\n",
        {"config set THR:SAMPLE_INTERVAL=5 THR:AVAIL_BANDWIDTH=50M" + shared,
         "config set THR:/srv/store=4 STS:EVENTS_KEPT=500" + std::string(example_server)}));
    chooses(*set, asked, [&asked, options] { return run_set(asked.common, *options); });

    CLI::App* const check =
        config->add_subcommand("check", "Say what is wrong with a settings file");
    add_named(*check, "FILE", options->file, "The file (default: the plugin's)");
    add_json(*check, options->as_json);
    check->footer(
        "A line for each: FILE:LINE: error|warning: KEY: what is wrong; what the plugin makes of\n"
        "it. Ends with 1 when there is an error. The object of --json holds file, errors,\n"
        "warnings (both numbers) and findings, each with line, severity, key, wrong and effect;\n"
        "line and key may be null.\n\n" +
        examples({"config check", "config check --conf-dir /etc/throttling",
                  "config check --json draft.conf"}));
    chooses(*check, asked, [options] { return run_check(options->file, options->as_json); });
}
