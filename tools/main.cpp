// throttlectl: what it is asked to do, and what it ends with.

#include "tools/block_option.h"
#include "tools/console.h"
#include "tools/failure.h"
#include "tools/operation.h"
#include "tools/preview.h"
#include "tools/status_names.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <new>

namespace fs = std::filesystem;

namespace {

constexpr const char* name_help = "NAME is a full server name, CS_throttle:TYPE:disk:ROOT. ROOT is "
                                  "where the disk storage keeps its\n"
                                  "LSUs. TYPE is a name of your own; servers of the type "
                                  "\"global\" are paced by default settings.\n";

constexpr const char* common_help = "--conf-dir, --plugin, --log and -v may stand here too; "
                                    "\"throttlectl --help\" tells of them.\n";

constexpr const char* json_help =
    "The file of --json holds one object: operation, server, lsu, backup, outcome, began, block;\n"
    "streams (a list) and total, each with bytes, seconds, rate, allowed_rate, ratio and\n"
    "slept_seconds; samples, about one a second, each with time, bytes (moved in it, one number a\n"
    "stream) and allowed_rate. Rates are bytes per second; null: not throttled.\n";

constexpr const char* exit_help =
    "Ends with 0 when all is well, 1 when an operation failed or a comparison found differences,\n"
    "2 when the arguments are wrong, 130 when it was interrupted.\n";

constexpr const char* server_example = " --server CS_throttle:t1:disk:/srv/store --lsu daily";

std::string example(const std::string& text) { return "\nExample:\n  throttlectl " + text + "\n"; }

/// What stands below the options of a command of "run".
std::string run_help(const std::string& more, const std::string& command,
                     const std::string& arguments) {
    return std::string(name_help) + more + common_help +
           example("run " + command + server_example + arguments);
}

/// What the arguments ask for.
struct request {
    std::string conf_dir;
    run_options common;
    bool shows_problems = false;
    bool is_verbose = false;
    backup_options backup;
    restore_options restore;
    verify_options verify;
    run_options list;
    preview_options preview;
    std::string direction;
};

void add_common(CLI::App& app, request& asked) {
    app.add_option("--conf-dir", asked.conf_dir,
                   "Directory of the settings files, in place of VL_CONF_DIR")
        ->type_name("DIR");
    app.add_option("--plugin", asked.common.plugin,
                   "The plugin (default: libstspithrottling.so of ../lib beside this program, then "
                   "as the loader finds it)")
        ->type_name("PATH");
    app.add_flag("--log", asked.shows_problems, "Show the plugin's warnings and errors");
    app.add_flag("-v,--verbose", asked.is_verbose, "Show the plugin's debug messages too");
}

void add_place(CLI::App& app, run_options& options, bool needs_lsu = true) {
    app.add_option("--server", options.server, "The server's full name")
        ->required()
        ->type_name("NAME");
    app.add_option("--lsu", options.lsu,
                   needs_lsu ? "The LSU" : "The LSU (default: list the server's LSUs)")
        ->required(needs_lsu)
        ->type_name("LSU");
}

void add_transfer(CLI::App& app, run_options& options) {
    add_block_option(app, options.block);
    app.add_option("--plot", options.plot, "Draw the rates over time")->type_name("FILE.svg");
    app.add_option("--json", options.json, "Write the figures for a program")->type_name("FILE");
}

void add_backup(CLI::App& run, backup_options& options) {
    CLI::App* const app = run.add_subcommand("backup", "Back up directory trees into images");
    app->add_option("DIR", options.directories, "The trees to back up")->required()->type_name("");
    add_place(*app, options);
    app->add_option("--name", options.backup, "The backup's name (default: backup-DATE-TIME)")
        ->type_name("BACKUP");
    app->add_option("--streams", options.streams, "Streams that run at once, an image each")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N")
        ->capture_default_str();
    add_transfer(*app, options);
    app->footer(run_help("The LSU is created when it isn't there.\n", "backup /etc /home",
                         " --name monday --streams 4 --plot monday.svg"));
}

void add_restore(CLI::App& run, restore_options& options) {
    CLI::App* const app = run.add_subcommand("restore", "Restore a backup into a directory");
    add_place(*app, options);
    app->add_option("--name", options.backup, "The backup's name")->required()->type_name("BACKUP");
    app->add_option("--to", options.target, "The directory, made when it isn't there")
        ->required()
        ->type_name("DIR");
    app->add_flag("--force", options.force, "Also into a directory that isn't empty");
    add_transfer(*app, options);
    app->footer(run_help("Nothing is written outside the directory, whatever the images hold.\n",
                         "restore", " --name monday --to /tmp/restored"));
}

void add_verify(CLI::App& run, verify_options& options) {
    CLI::App* const app =
        run.add_subcommand("verify", "Compare a backup with trees, byte for byte");
    CLI::Option* const directories =
        app->add_option("DIR", options.directories, "The trees, named as for the backup")
            ->type_name("");
    add_place(*app, options);
    app->add_option("--name", options.backup, "The backup's name")->required()->type_name("BACKUP");
    app->add_option("--restored", options.restored,
                    "Compare with what a restore has put into this directory")
        ->type_name("DIR")
        ->excludes(directories);
    add_transfer(*app, options);
    app->footer(run_help("", "verify /etc /home", " --name monday"));
}

void add_list(CLI::App& run, run_options& options) {
    CLI::App* const app = run.add_subcommand("list", "List the images of an LSU");
    add_place(*app, options, false);
    app->footer(run_help("", "list", ""));
}

void add_preview(CLI::App& app, request& asked) {
    CLI::App* const preview =
        app.add_subcommand("preview", "Show the rate that the settings allow, hour by hour");
    preview->add_option("--direction", asked.direction, "Only one direction")
        ->check(CLI::IsMember({"read", "write"}).description(""))
        ->type_name("read|write");
    preview->add_flag("--week", asked.preview.week, "The whole week (default: today)");
    preview->footer(example("preview --conf-dir /etc/throttling --direction write --week"));
}

void print_error(const std::string& text) { console::get().line("throttlectl: " + text); }

log_choice chosen_log(const request& asked) {
    if (asked.is_verbose) {
        return log_choice::everything;
    }
    return asked.shows_problems ? log_choice::problems : log_choice::nothing;
}

/// Other directories may become the current one later.
std::string absolute(const std::string& path) {
    return path.empty() ? path : fs::absolute(path).string();
}

/// The same for the directories that the libraries below read from the environment.
void set_environment(const char* name, const char* value) {
    if (value != nullptr && value[0] != '\0') {
        setenv(name, absolute(value).c_str(), 1);
    }
}

template <typename Options>
Options& with_common(Options& options, const request& asked) {
    options.plugin = asked.common.plugin;
    options.log = chosen_log(asked);
    options.plot = absolute(options.plot);
    options.json = absolute(options.json);
    return options;
}

std::string default_name() {
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    char text[32];
    strftime(text, sizeof text, "backup-%Y%m%d-%H%M%S", &local);
    return text;
}

int do_run(const CLI::App& run, request& asked) {
    if (run.got_subcommand("backup")) {
        if (asked.backup.backup.empty()) {
            asked.backup.backup = default_name();
        }
        return run_backup(with_common(asked.backup, asked));
    }
    if (run.got_subcommand("restore")) {
        return run_restore(with_common(asked.restore, asked));
    }
    if (run.got_subcommand("verify")) {
        return run_verify(with_common(asked.verify, asked));
    }
    return run_list(with_common(asked.list, asked));
}

int do_preview(request& asked) {
    if (!asked.direction.empty()) {
        asked.preview.direction = asked.direction == "read" ? OPERATION_READ : OPERATION_WRITE;
    }
    return run_preview(asked.preview);
}

void require_something_to_compare(const CLI::App& run, const request& asked) {
    if (run.got_subcommand("verify") && asked.verify.directories.empty() &&
        asked.verify.restored.empty()) {
        throw CLI::RequiredError("DIR or --restored");
    }
}

int run_program(int argc, char** argv) {
    request asked;
    CLI::App app("Watches and tries bandwidth throttling: moves real data through the plugin, as a "
                 "host does, and shows what it allows.",
                 "throttlectl");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(exit_help + example(std::string("run backup /etc") + server_example) +
               example("preview --week"));
    add_common(app, asked);

    CLI::App* const run = app.add_subcommand("run", "Move data through the plugin");
    run->require_subcommand(1);
    run->fallthrough();
    run->footer(std::string(name_help) + json_help + exit_help +
                example(std::string("run list") + server_example));
    add_backup(*run, asked.backup);
    add_restore(*run, asked.restore);
    add_verify(*run, asked.verify);
    add_list(*run, asked.list);
    add_preview(app, asked);
    try {
        app.parse(argc, argv);
        require_something_to_compare(*run, asked);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    set_environment("VL_CONF_DIR",
                    asked.conf_dir.empty() ? getenv("VL_CONF_DIR") : asked.conf_dir.c_str());
    set_environment("VL_STS_ROOT", getenv("VL_STS_ROOT"));
    try {
        return app.got_subcommand("preview") ? do_preview(asked) : do_run(*run, asked);
    } catch (const status_failure& error) {
        const bool is_all_told = chosen_log(asked) != log_choice::nothing;
        print_error(std::string(error.what()) +
                    (is_all_told ? "" : "\nWith --log the plugin's own messages are shown too."));
        return EXIT_FAILED;
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run_program(argc, argv);
    } catch (const std::bad_alloc&) {
        print_error("out of memory");
    } catch (const std::exception& error) {
        print_error(error.what());
    }
    return EXIT_FAILED;
}
