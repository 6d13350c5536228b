// "lsu": the LSUs of a server: list, show, create, delete, label, find.

#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/manage/commands.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"
#include "tools/terminal/waiting.h"

#include <fmt/format.h>
#include <memory>

namespace {

struct lsu_options {
    std::string name;
    std::string label;
    bool as_json = false;
};

constexpr uint32_t first_peer_room = 16;
constexpr uint32_t most_peer_room = 1U << 16U;

sts_lsu_info_s info_of(const host_server& server, const std::string& lsu) {
    const sts_lsu_ref_s reference = server.ref(lsu);
    sts_lsu_info_s info = {};
    require_ok(server.entries().get_lsu_prop_byname_v11(&reference, &info),
               "reading the properties of the LSU", lsu, server.name());
    return info;
}

/// The LSUs that images were copied from and to; asked again with more room until they fit.
void add_peers(const host_server& server, const std::string& lsu, ordered_json& shown) {
    const sts_lsu_ref_s reference = server.ref(lsu);
    std::vector<sts_replication_peer_s> sources;
    std::vector<sts_replication_peer_s> targets;
    int status = STS_ERR_BUFFER_SPACE;
    for (uint32_t room = first_peer_room; status == STS_ERR_BUFFER_SPACE && room <= most_peer_room;
         room *= 4) {
        sources.assign(room, {});
        targets.assign(room, {});
        status = server.entries().get_lsu_replication_prop(&reference, room, sources.data(), room,
                                                           targets.data());
    }
    require_ok(status, "reading the replication properties of the LSU", lsu, server.name());
    shown["copied_from"] = fields_of(sources);
    shown["copied_to"] = fields_of(targets);
}

/// The fields for people: sizes with units, and a line for each peer.
std::string shown_text(const ordered_json& fields) {
    std::string text;
    ordered_json lines = ordered_json::object();
    for (const auto& [name, value] : fields.items()) {
        if (name == "used" || name == "capacity" || name == "free") {
            lines[name] = size_text(value.get<uint64_t>());
        } else if (!value.is_array()) {
            lines[name] = value;
        }
    }
    text = field_lines(lines);
    for (const char* const direction : {"copied_from", "copied_to"}) {
        for (const ordered_json& peer : fields.at(direction)) {
            text += fmt::format("{} the LSU \"{}\" of \"{}\"\n",
                                direction == std::string("copied_to") ? "copied to" : "copied from",
                                printable(peer.at("lsu").get<std::string>()),
                                printable(peer.at("server").get<std::string>()));
        }
    }
    return text;
}

// --- the commands ------------------------------------------------------------------------------

int list_lsus(const server_options& common, const lsu_options& options) {
    const waiting notice("listing the LSUs of \"" + common.server + "\"");
    connection to(common);
    ordered_json all = ordered_json::array();
    std::vector<std::vector<std::string>> lines;
    for (const std::string& lsu : to.server.lsus()) {
        try {
            const sts_lsu_info_s info = info_of(to.server, lsu);
            all.push_back(fields_of(info));
            lines.push_back({printable(lsu), std::to_string(info.image_count), size_text(info.used),
                             size_text(info.free), printable(text_of(info.label))});
        } catch (const status_failure& error) {
            to.server.pass_over(error.what());
        }
    }
    if (options.as_json) {
        fmt::print("{}\n", dumped(all, 2));
    } else if (lines.empty()) {
        fmt::print("The server \"{}\" has no LSUs.\n", common.server);
    } else {
        fmt::print("{}", columns_text({"LSU", "images", "used", "free", "label"}, lines));
    }
    return ended(to.server);
}

int show_lsu(const server_options& common, const lsu_options& options) {
    connection to(common);
    ordered_json fields = fields_of(info_of(to.server, options.name));
    add_peers(to.server, options.name, fields);
    fmt::print("{}", options.as_json ? dumped(fields, 2) + "\n" : shown_text(fields));
    return ended(to.server);
}

int create_lsu(const server_options& common, const lsu_options& options) {
    connection to(common);
    const sts_lsu_def_s definition = lsu_definition(options.name, options.label);
    require_ok(to.host.create_lsu(to.server.handle(), definition), "creating the LSU", options.name,
               to.server.name());
    fmt::print("The LSU \"{}\" is created.\n", printable(options.name));
    return ended(to.server);
}

int delete_lsu(const server_options& common, const lsu_options& options) {
    connection to(common);
    require_ok(to.host.delete_lsu(to.server.ref(options.name)), "deleting the LSU", options.name,
               to.server.name());
    fmt::print("The LSU \"{}\" is deleted.\n", printable(options.name));
    return ended(to.server);
}

int label_lsu(const server_options& common, const lsu_options& options) {
    connection to(common);
    const sts_lsu_ref_s reference = to.server.ref(options.name);
    const sts_lsu_def_s checked = lsu_definition(options.name, options.label);
    require_ok(to.server.entries().label_lsu(&reference, forwarded(checked.label)),
               "labelling the LSU", options.name, to.server.name());
    fmt::print("The LSU \"{}\" is labelled \"{}\".\n", printable(options.name),
               printable(options.label));
    return ended(to.server);
}

int find_lsu(const server_options& common, const lsu_options& options) {
    connection to(common);
    sts_lsu_entry_s found = {};
    require_ok(to.server.entries().find_lsu(to.server.handle(), forwarded(options.label.c_str()),
                                            forwarded(&found), 0, 0, 0),
               "finding an LSU with the label", options.label, to.server.name());
    fmt::print("{}\n", printable(text_of(found.name)));
    return ended(to.server);
}

// --- the options -------------------------------------------------------------------------------

void add_name(CLI::App& app, lsu_options& options) {
    add_named(app, "LSU", options.name, "The LSU's name")->required();
}

} // namespace

void add_lsu(CLI::App& app, request& asked) {
    const auto options = std::make_shared<lsu_options>();
    const std::string to = example_server;
    CLI::App* const lsu =
        app.add_subcommand("lsu", "The LSUs of a server: list, create, label ...");
    lsu->require_subcommand(1);
    lsu->fallthrough();
    lsu->footer(command_help("", {"lsu list" + to, "lsu create weekly" + to}));

    CLI::App* const list =
        add_command(*lsu, asked, "list", "List a server's LSUs", options, list_lsus);
    add_json(*list, options->as_json);
    list->footer(command_help(
        "With --json it is one list of objects: lsu, label, server, images, used, capacity, free\n"
        "(sizes in bytes).\n",
        {"lsu list" + to, "lsu list --json" + to}));

    CLI::App* const show =
        add_command(*lsu, asked, "show",
                    "Show an LSU: its properties, and which LSUs its images were "
                    "copied from and to",
                    options, show_lsu);
    add_name(*show, *options);
    add_json(*show, options->as_json);
    show->footer(command_help("", {"lsu show daily" + to, "lsu show daily --json" + to}));

    CLI::App* const create =
        add_command(*lsu, asked, "create", "Create an LSU", options, create_lsu);
    add_name(*create, *options);
    create->add_option("--label", options->label, "Its label")->type_name("TEXT");
    create->footer(
        command_help("", {"lsu create weekly" + to, "lsu create weekly --label tape3" + to}));

    CLI::App* const remove =
        add_command(*lsu, asked, "delete", "Delete an LSU that has no images", options, delete_lsu);
    add_name(*remove, *options);
    remove->footer(command_help("", {"lsu delete weekly" + to}));

    CLI::App* const label =
        add_command(*lsu, asked, "label", "Give an LSU another label", options, label_lsu);
    add_name(*label, *options);
    label->add_option("TEXT", options->label, "The label; \"\" takes it away")
        ->required()
        ->type_name("");
    label->footer(command_help("", {"lsu label weekly tape4" + to}));

    CLI::App* const find =
        add_command(*lsu, asked, "find", "Print the LSU with a label", options, find_lsu);
    add_named(*find, "TEXT", options->label, "The label")->required();
    find->footer(command_help("", {"lsu find tape4" + to}));
}
