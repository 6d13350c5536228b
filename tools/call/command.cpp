// "call": makes one call of one entry, for a look at what it answers.

#include "tools/call/command.h"
#include "tools/call/scene.h"
#include "tools/call/table.h"
#include "tools/host/status_names.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <memory>

namespace {

struct call_options {
    std::string entry;
    std::vector<std::string> arguments;
    bool lists = false;
    bool as_json = false;
};

const entry& require_entry(const std::string& name) {
    const entry* const found = find_entry(name);
    if (found == nullptr) {
        throw usage_failure(
            fmt::format("there is no entry \"{}\"; \"throttlectl call --list\" shows all", name));
    }
    return *found;
}

given_values given_in(const std::vector<std::string>& arguments) {
    given_values given;
    for (const std::string& each : arguments) {
        const size_t sign = each.find('=');
        if (sign == std::string::npos || sign == 0) {
            throw usage_failure(fmt::format("\"{}\" isn't ARGUMENT=VALUE", each));
        }
        const std::string name = each.substr(0, sign);
        if (!given.emplace(name, each.substr(sign + 1)).second) {
            throw usage_failure(fmt::format("\"{}\" is given twice", name));
        }
    }
    return given;
}

// --- the list ----------------------------------------------------------------------------------

std::string shown_name(const argument& which) {
    return takes_value(which.kind) || !fields_of(which.kind).empty() ? which.name
                                                                     : "(" + which.name + ")";
}

void print_entry(const entry& which) {
    const entry_description description = description_of(which);
    fmt::print("{}: {}\n", which.name, description.summary);
    for (const argument& each : description.arguments) {
        fmt::print("    {:<18} {}\n", shown_name(each), each.text);
    }
}

ordered_json json_of(const entry& which) {
    const entry_description description = description_of(which);
    ordered_json arguments = ordered_json::array();
    for (const argument& each : description.arguments) {
        arguments.push_back({{"name", each.name},
                             {"type", each.type},
                             {"text", each.text},
                             {"given", takes_value(each.kind)},
                             {"fields", fields_of(each.kind)}});
    }
    return {{"entry", which.name}, {"summary", description.summary}, {"arguments", arguments}};
}

int run_list(const call_options& options) {
    std::vector<entry> listed;
    if (!options.entry.empty()) {
        listed.push_back(require_entry(options.entry));
    } else {
        listed = all_entries();
    }
    if (options.as_json) {
        ordered_json all = ordered_json::array();
        for (const entry& each : listed) {
            all.push_back(json_of(each));
        }
        fmt::print("{}\n", dumped(all, 2));
    } else {
        for (const entry& each : listed) {
            print_entry(each);
        }
    }
    return EXIT_DONE;
}

// --- a call ------------------------------------------------------------------------------------

/// "out.name  value", with a line for each value that there is in it.
void add_lines(const std::string& name, const ordered_json& value, ordered_json& lines) {
    if (!value.is_structured() || value.empty()) {
        lines[name] = value;
        return;
    }
    for (const auto& [key, inner] : value.items()) {
        add_lines(fmt::format(value.is_array() ? "{}[{}]" : "{}.{}", name, key), inner, lines);
    }
}

void print_result(const entry& which, int status, const call_scene& scene) {
    ordered_json lines = ordered_json::object();
    lines["status"] = status_text(status);
    for (const auto& [name, value] : scene.out().items()) {
        add_lines(name, value, lines);
    }
    fmt::print("{}\n{}", which.name, field_lines(lines));
    for (const call_message& message : scene.messages()) {
        fmt::print("log {}: {}\n", message.severity, printable(message.text));
    }
}

void print_json(const entry& which, int status, const call_scene& scene) {
    ordered_json log = ordered_json::array();
    for (const call_message& message : scene.messages()) {
        log.push_back({{"severity", message.severity}, {"text", message.text}});
    }
    const ordered_json whole = {{"entry", which.name},
                                {"status", status},
                                {"status_text", status_text(status)},
                                {"out", scene.out()},
                                {"log", log}};
    fmt::print("{}\n", dumped(whole, 2));
}

int run_call(const server_options& common, const call_options& options) {
    const entry& which = require_entry(options.entry);
    call_scene scene(common, which, given_in(options.arguments));
    const int status = scene.call();
    (options.as_json ? print_json : print_result)(which, status, scene);
    const bool is_closed_well = scene.close();
    return status == STS_OK && is_closed_well ? EXIT_DONE : EXIT_FAILED;
}

} // namespace

void add_call(CLI::App& app, request& asked) {
    const auto options = std::make_shared<call_options>();
    CLI::App* const call =
        app.add_subcommand("call", "Call one entry of the plugin and show what it answers");
    call->add_option("ENTRY", options->entry, "The entry, without \"throttling_\"")->type_name("");
    call->add_option("ARGUMENT", options->arguments, "Its arguments, each as ARGUMENT=VALUE")
        ->type_name("");
    add_server(*call, asked.common.server);
    call->add_flag("--list", options->lists,
                   "Show all entries, or that one, with what each does and takes");
    add_json(*call, options->as_json);
    const std::string to = example_server;
    call->footer(command_help(
        "What the entry works on is opened before the call and closed behind it; an image that it\n"
        "writes is complete if it answers 0, else given up. Numbers are 0 unless given, decimal "
        "or\n"
        "with 0x. Arguments in parentheses in the list can't be given: they are made, or what the\n"
        "entry hands out. Shown are the status, what was handed out, and the messages that the "
        "host\n"
        "received during the call; with --json one object: entry, status, status_text, out, log.\n"
        "With --list, --json prints a list of entries, each with entry, summary and arguments.\n"
        "Ends with 0 if the status is 0 and all could be closed again, else with 1.\n",
        {"call --list", "call --list read_image_v7", "call list_lsu_v7" + to,
         "call read_image_v7 image=daily/monday.1of1 length=100 position=512" + to,
         "call async_wait operation=daily/monday.1of1 operation.to=weekly/copy forwarded=-1" +
             to}));
    call->callback([&asked, options] {
        if (options->entry.empty() && !options->lists) {
            throw CLI::RequiredError("ENTRY or --list");
        }
        asked.action = [&asked, options] {
            return options->lists ? run_list(*options) : run_call(asked.common, *options);
        };
    });
}
