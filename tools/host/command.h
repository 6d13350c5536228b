// What the commands have in common. Each stands in a file of its own in its room: its options, its
// help and what it does. What has to be done once the arguments are known is left in
// `request::action`.
#pragma once

#include "config/settings_check.h"
#include "tools/host/block.h"
#include "tools/host/connection.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What the arguments ask for.
struct request {
    std::string conf_dir;
    server_options common; ///< the server's name only of commands that have one server and no run
    bool shows_problems = false;
    bool is_verbose = false;
    std::function<int()> action; ///< returns what the program ends with
};

constexpr const char* name_help = "NAME is a full server name, CS_throttle:TYPE:disk:ROOT. ROOT is "
                                  "where the disk storage keeps its\n"
                                  "LSUs. TYPE is a name of your own; servers of the type "
                                  "\"global\" are paced by default settings.\n";

constexpr const char* common_help = "--conf-dir, --plugin, --log and -v may stand here too; "
                                    "\"throttlectl --help\" tells of them.\n";

constexpr const char* exit_help =
    "Ends with 0 when all is well, 1 when an operation failed or a comparison found differences,\n"
    "2 when the arguments are wrong, 130 when it was interrupted.\n";

constexpr const char* example_server = " --server CS_throttle:t1:disk:/srv/store";

/// Calls of the tool, without its name, one below the other.
inline std::string examples(const std::vector<std::string>& calls) {
    std::string text = "Examples:\n";
    for (const std::string& each : calls) {
        text += "  throttlectl " + each + "\n";
    }
    return text;
}

/// What stands below the options of a command on a server: `more`, and examples of it.
inline std::string command_help(const std::string& more, const std::vector<std::string>& calls) {
    return std::string(name_help) + more + common_help + "\n" + examples(calls);
}

/// An option or argument that names something, or several. An empty name, as of a variable that
/// isn't set, is refused: it would stand for everything, or for the default.
template <typename Names>
CLI::Option* add_named(CLI::App& app, const std::string& option, Names& names,
                       const std::string& help, const std::string& type = "") {
    const auto refused = [](const std::string& name) {
        return name.empty() ? std::string("the value is empty") : std::string();
    };
    return app.add_option(option, names, help)->type_name(type)->check(CLI::Validator(refused, ""));
}

inline CLI::Option* add_server(CLI::App& app, std::string& server) {
    return add_named(app, "--server", server, "The server's full name", "NAME");
}

inline void add_lsu_option(CLI::App& app, std::string& lsu) {
    add_named(app, "--lsu", lsu, "The LSU", "LSU")->required();
}

/// --block, the size of a transfer: bytes, or with k, M or G (factors of 1024) behind the number. `block`
/// keeps its value as the default.
inline CLI::Option* add_block_option(CLI::App& app, uint64_t& block) {
    return app.add_option("--block", block, "Bytes of a transfer, 512 to 1G, as in 64k or 1M")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(CLI::Range(smallest_block, largest_block).description(""))
        ->type_name("SIZE")
        ->capture_default_str();
}

/// A size of 1 byte at least, as size_in reads it: "2T", "12.5MB".
inline CLI::Option* add_size(CLI::App& app, const std::string& option, uint64_t& size,
                             const std::string& help) {
    const auto plain = [](std::string& text) {
        const uint64_t bytes = size_in(text);
        if (bytes == 0) {
            return "\"" + text + "\" is no size, as 100M, 1.5G or 2T are";
        }
        text = std::to_string(bytes);
        return std::string();
    };
    return app.add_option(option, size, help + ", as in 2T (factors of 1024)")
        ->transform(CLI::Validator(plain, ""))
        ->type_name("SIZE");
}

inline void add_json(CLI::App& app, bool& as_json) {
    app.add_flag("--json", as_json, "Print it for a program");
}

/// `action` is what the arguments ask for when `app` is the command that they name.
inline void chooses(CLI::App& app, request& asked, const std::function<int()>& action) {
    app.callback([&asked, action] { asked.action = action; });
}

/// A command of `group` on one server; `options` is what its own options are stored in.
template <typename Options>
CLI::App* add_command(CLI::App& group, request& asked, const char* name, const char* summary,
                      const std::shared_ptr<Options>& options,
                      int (*action)(const server_options&, const Options&)) {
    CLI::App* const app = group.add_subcommand(name, summary);
    add_server(*app, asked.common.server)->required();
    chooses(*app, asked, [&asked, options, action] { return action(asked.common, *options); });
    return app;
}
