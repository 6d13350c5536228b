// "run": moves data through the plugin.

#include "tools/run/command.h"
#include "tools/run/files/random_number.h"
#include "tools/run/operation.h"
#include "tools/terminal/output_file.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <memory>

namespace fs = std::filesystem;

namespace {

constexpr const char* json_help =
    "The file of --json holds one object: operation, server, lsu, backup, outcome, began, block;\n"
    "streams (a list) and total, each with bytes, seconds, rate, allowed_rate, ratio and\n"
    "slept_seconds; samples, about one a second, each with time, bytes (moved in it, one number a\n"
    "stream) and allowed_rate. Rates are bytes per second; null: not throttled. A file may be a\n"
    "FIFO. Where it is -, standard output holds nothing else: all that is said goes to standard\n"
    "error.\n";

constexpr const char* backup_help =
    "The LSU is created when it isn't there. Times are kept to the second, to the nanosecond of\n"
    "what needs an extended header anyway: a long name, extended attributes, an access control\n"
    "list, holes. --subsecond-times writes that header of 1 KiB for every file.\n";

constexpr const char* server_example = " --server CS_throttle:t1:disk:/srv/store --lsu daily";

/// What stands below the options of a command of "run".
std::string run_help(const std::string& more, const std::string& command,
                     const std::string& arguments) {
    return command_help(more, {"run " + command + server_example + arguments});
}

/// Other directories may become the current one later.
std::string absolute(const std::string& path) {
    return path.empty() || path == standard_output ? path : fs::absolute(path).string();
}

template <typename Options>
Options& with_common(Options& options, const request& asked) {
    options.plugin = asked.common.plugin;
    options.log = asked.common.log;
    options.plot = absolute(options.plot);
    options.json = absolute(options.json);
    return options;
}

/// Two that begin in the same second, wherever, have different names.
std::string default_name() {
    return fmt::format("{}-{:016x}", time_text(time(nullptr), "backup-%Y%m%d-%H%M%S"),
                       random_number());
}

// --- the options -------------------------------------------------------------------------------

void add_place(CLI::App& app, run_options& options, bool needs_lsu = true) {
    add_server(app, options.server)->required();
    add_named(app, "--lsu", options.lsu,
              needs_lsu ? "The LSU" : "The LSU (default: list the server's LSUs)", "LSU")
        ->required(needs_lsu);
}

void add_transfer(CLI::App& app, run_options& options) {
    add_block_option(app, options.block);
    add_named(app, "--plot", options.plot, "Draw the rates over time; - is standard output",
              "FILE.svg");
    add_named(app, "--json", options.json, "Write the figures for a program; - is standard output",
              "FILE");
}

void add_backup(CLI::App& run, request& asked) {
    const auto kept = std::make_shared<backup_options>();
    backup_options& options = *kept;
    CLI::App* const app = run.add_subcommand("backup", "Back up directory trees into images");
    add_named(*app, "DIR", options.directories, "The trees to back up")->required();
    add_place(*app, options);
    add_named(*app, "--name", options.backup,
              "The backup's name (default: backup-DATE-TIME-NUMBER)", "BACKUP");
    app->add_option("--streams", options.streams, "Streams that run at once, an image each")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N")
        ->capture_default_str();
    app->add_flag("--subsecond-times", options.subsecond_times,
                  "Keep fractions of a second of all files' times");
    add_transfer(*app, options);
    app->footer(
        run_help(backup_help, "backup /etc /home", " --name monday --streams 4 --plot monday.svg"));
    chooses(*app, asked, [&asked, kept] {
        if (kept->backup.empty()) {
            kept->backup = default_name();
        }
        return run_backup(with_common(*kept, asked));
    });
}

void add_restore(CLI::App& run, request& asked) {
    const auto kept = std::make_shared<restore_options>();
    restore_options& options = *kept;
    CLI::App* const app = run.add_subcommand("restore", "Restore a backup into a directory");
    add_place(*app, options);
    add_named(*app, "--name", options.backup, "The backup's name", "BACKUP")->required();
    add_named(*app, "--to", options.target, "The directory, made when it isn't there", "DIR")
        ->required();
    app->add_flag("--force", options.force, "Also into a directory that isn't empty");
    add_transfer(*app, options);
    app->footer(run_help("Nothing is written outside the directory, whatever the images hold.\n",
                         "restore", " --name monday --to /tmp/restored"));
    chooses(*app, asked, [&asked, kept] { return run_restore(with_common(*kept, asked)); });
}

void add_verify(CLI::App& run, request& asked) {
    const auto kept = std::make_shared<verify_options>();
    verify_options& options = *kept;
    CLI::App* const app =
        run.add_subcommand("verify", "Compare a backup with trees, byte for byte");
    CLI::Option* const directories =
        add_named(*app, "DIR", options.directories, "The trees, named as for the backup");
    add_place(*app, options);
    add_named(*app, "--name", options.backup, "The backup's name", "BACKUP")->required();
    add_named(*app, "--restored", options.restored,
              "Compare with what a restore has put into this directory", "DIR")
        ->excludes(directories);
    add_transfer(*app, options);
    app->footer(run_help("", "verify /etc /home", " --name monday"));
    app->callback([&asked, kept] {
        if (kept->directories.empty() && kept->restored.empty()) {
            throw CLI::RequiredError("DIR or --restored");
        }
        asked.action = [&asked, kept] { return run_verify(with_common(*kept, asked)); };
    });
}

/// Why a text is no label; empty: it is one.
std::string label_trouble(const std::string& text) {
    constexpr size_t longest = 64;
    const bool is_plain =
        std::all_of(text.begin(), text.end(), [](char each) { return each > ' ' && each <= '~'; });
    return !text.empty() && text.size() <= longest && is_plain
               ? ""
               : "a label has 1 to 64 printable characters of ASCII, and no blanks";
}

void add_list(CLI::App& run, request& asked) {
    const auto kept = std::make_shared<run_options>();
    run_options& options = *kept;
    CLI::App* const app = run.add_subcommand("list", "List the images of an LSU");
    add_place(*app, options, false);
    app->footer(run_help("", "list", ""));
    chooses(*app, asked, [&asked, kept] { return run_list(with_common(*kept, asked)); });
}

} // namespace

void add_run(CLI::App& app, request& asked) {
    CLI::App* const run = app.add_subcommand("run", "Move data through the plugin");
    run->require_subcommand(1);
    run->fallthrough();
    run->footer(std::string(name_help) + json_help + exit_help + "\n" +
                examples({std::string("run list") + server_example}));
    add_backup(*run, asked);
    add_restore(*run, asked);
    add_verify(*run, asked);
    add_list(*run, asked);
}

void add_pipe(CLI::App& app, request& asked) {
    const auto kept = std::make_shared<pipe_options>();
    CLI::App* const pipe =
        app.add_subcommand("pipe", "Pace what flows from standard input to standard output");
    add_server(*pipe, kept->server)->required();
    pipe->add_flag("--read", kept->reads, "Paced as reads (default: as writes)");
    pipe->add_option("--label", kept->label,
                     "Names its session, in the plugin's log and to the service")
        ->check(CLI::Validator(label_trouble, ""))
        ->type_name("TEXT");
    add_size(*pipe, "--size", kept->size, "What is expected, for a bar and an ETA");
    add_block_option(*pipe, kept->block);
    pipe->add_flag("-q,--quiet", kept->is_quiet, "Show no progress");
    pipe->footer(
        "NAME is CS_throttle:TYPE:pipe:STORAGE: what flows is paced and counted as all else that "
        "moves to or from that STORAGE, by the settings and by the service. Nothing of it is "
        "kept.\n"
        "What arrives goes on at once, in blocks of a second's worth at most. Progress is on "
        "standard error. It ends with 0 at the end of its input, and like any filter by SIGPIPE "
        "when nobody reads on.\n\n" +
        examples({"pipe --server CS_throttle:nas:pipe:nas1 < disk.img | ssh host 'cat > disk.img'",
                  "pipe --read --size 40G --server CS_throttle:nas:pipe:nas1 < big > copy"}));
    chooses(*pipe, asked, [&asked, kept] {
        kept->plugin = asked.common.plugin;
        kept->log = asked.common.log;
        return run_pipe(*kept);
    });
}
