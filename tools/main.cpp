// throttlectl: the commands there are, what all of them take, and what the program ends with.

#include "tools/call/command.h"
#include "tools/complete/command.h"
#include "tools/figures/command.h"
#include "tools/host/status_names.h"
#include "tools/manage/commands.h"
#include "tools/run/command.h"
#include "tools/service/command.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/wrapped.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>

namespace fs = std::filesystem;

namespace {

/// Helps as the library forms them, within a page's width.
struct page_formatter : CLI::Formatter {
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        return wrapped_help(CLI::Formatter::make_help(app, std::move(name), mode));
    }
};

void add_common(CLI::App& app, request& asked) {
    add_named(app, "--conf-dir", asked.conf_dir,
              "Directory of the settings files, in place of VL_CONF_DIR", "DIR");
    add_named(app, "--plugin", asked.common.plugin,
              "The plugin (default: libstspithrottling.so of ../lib beside this program, then as "
              "the loader finds it)",
              "PATH");
    app.add_flag("--log", asked.shows_problems, "Show the plugin's warnings and errors");
    app.add_flag("-v,--verbose", asked.is_verbose, "Show the plugin's debug messages too");
}

/// What is missing is said before what is too much: a command misspelt is both.
std::string usage_text(const CLI::App* app, const CLI::Error& error) {
    std::string text = console::named(error.what()) + "\n";
    const std::vector<std::string> unknown = app->remaining(true);
    if (error.get_name() == "RequiredError" && !unknown.empty()) {
        text += "Not known here: " + unknown.front() + "\n";
    }
    return text + "Run with --help for more information.\n";
}

log_choice chosen_log(const request& asked) {
    if (asked.is_verbose) {
        return log_choice::everything;
    }
    return asked.shows_problems ? log_choice::problems : log_choice::nothing;
}

/// The directories that the libraries below read from the environment: other directories may become
/// the current one later.
void set_environment(const char* name, const char* value) {
    if (value != nullptr && value[0] != '\0') {
        setenv(name, fs::absolute(value).c_str(), 1);
    }
}

/// The code to end with: a command whose output is lost hasn't gone well.
int printed(int code) {
    const bool is_flushed = fflush(stdout) == 0;
    if (is_flushed && ferror(stdout) == 0) {
        return code;
    }
    console::get().problem(std::string("standard output can't be written") +
                           (is_flushed ? "" : std::string(": ") + strerror(errno)));
    return code == EXIT_DONE ? EXIT_FAILED : code;
}

int act(const request& asked) {
    try {
        return asked.action();
    } catch (const usage_failure& error) {
        console::get().problem(error.what());
        return EXIT_USAGE;
    } catch (const status_failure& error) {
        const bool is_all_told = asked.common.log != log_choice::nothing;
        console::get().problem(
            std::string(error.what()) +
            (is_all_told ? "" : "\nWith --log the plugin's own messages are shown too."));
        return EXIT_FAILED;
    }
}

int run_program(int argc, char** argv) {
    request asked;
    CLI::App app("Watches and tries bandwidth throttling: moves real data through the plugin, as a "
                 "host does, and shows what it allows.",
                 "throttlectl");
    app.set_version_flag("--version", "throttlectl " PROGRAM_VERSION, "Print the version and exit");
    app.formatter(
        std::make_shared<page_formatter>()); // before there are commands, which take it on
    app.require_subcommand(1);
    app.fallthrough();
    app.failure_message(usage_text);
    app.footer(std::string(exit_help) + "\n" +
               examples({std::string("run backup /etc") + example_server + " --lsu daily",
                         "preview --week"}));
    add_common(app, asked);
    for (const auto& add :
         {add_run, add_pipe, add_plot, add_preview, add_explain, add_doctor, add_simulate, add_lsu,
          add_image, add_events, add_config, add_service, add_call, add_complete}) {
        add(app, asked);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    asked.common.log = chosen_log(asked);
    set_environment("VL_CONF_DIR",
                    asked.conf_dir.empty() ? getenv("VL_CONF_DIR") : asked.conf_dir.c_str());
    set_environment("VL_STS_ROOT", getenv("VL_STS_ROOT"));
    return act(asked);
}

} // namespace

int main(int argc, char** argv) {
    int code = EXIT_FAILED;
    try {
        code = run_program(argc, argv);
    } catch (const std::bad_alloc&) {
        console::get().problem("out of memory");
    } catch (const std::exception& error) {
        console::get().problem(error.what());
    }
    return printed(code);
}
