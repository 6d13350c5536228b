// "doctor": whether all is there that throttling needs, a line each.

#include "tools/host/plugin_host.h"
#include "tools/manage/checkup.h"
#include "tools/manage/commands.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/tables.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fmt/format.h>
#include <gnu/libc-version.h>
#include <link.h>
#include <memory>

namespace {

/// The file of a loaded library, by the beginning of its name; empty: it isn't loaded.
std::string loaded_from(const std::string& library) {
    struct search {
        const std::string& name;
        std::string found;
    } asked = {"/" + library, ""};
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* context) {
            auto& searched = *static_cast<search*>(context);
            const std::string path = info->dlpi_name;
            const size_t at = path.rfind(searched.name);
            if (at == std::string::npos || path.find('/', at + 1) != std::string::npos) {
                return 0;
            }
            char whole[PATH_MAX];
            searched.found = realpath(path.c_str(), whole) != nullptr ? whole : path;
            return 1;
        },
        &asked);
    return asked.found;
}

/// The plugin is started only where that changes nothing.
void check_plugin(const std::string& path, std::vector<health_line>& all) {
    if (!may_start_plugin()) {
        all.push_back({health_line::note, "plugin",
                       "isn't started, since its settings can't be read as they are"});
        return;
    }
    try {
        const plugin_host host(path);
        all.push_back({health_line::good, "plugin",
                       fmt::format("{}: version {}", loaded_from("libstspithrottling"),
                                   printable(host.version()))});
        for (const char* const library : {"libsts.so", "libvlorbST.so", "libvlcommon.so"}) {
            all.push_back({health_line::good, "platform", fmt::format("{}", loaded_from(library))});
        }
    } catch (const failure& error) {
        all.push_back({health_line::bad, "plugin", error.what()});
    }
    all.push_back({health_line::good, "platform", fmt::format("glibc {}", gnu_get_libc_version())});
}

const char* state_name(health_line::state_t state) {
    switch (state) {
    case health_line::good:
        return "good";
    case health_line::note:
        return "note";
    default:
        return "bad";
    }
}

int run_doctor(const std::string& plugin, bool as_json) {
    std::vector<health_line> all = checkup();
    check_plugin(plugin, all);
    const auto bad = std::count_if(all.begin(), all.end(), [](const health_line& each) {
        return each.state == health_line::bad;
    });
    if (as_json) {
        ordered_json shown = ordered_json::array();
        for (const health_line& each : all) {
            shown.push_back(
                {{"state", state_name(each.state)}, {"what", each.what}, {"text", each.text}});
        }
        fmt::print("{}\n", dumped({{"bad", bad}, {"lines", shown}}, 2));
    } else {
        for (const health_line& each : all) {
            fmt::print("{:<4}  {:<10}  {}\n", state_name(each.state), each.what, each.text);
        }
    }
    return bad == 0 ? EXIT_DONE : EXIT_FAILED;
}

} // namespace

void add_doctor(CLI::App& app, request& asked) {
    const auto as_json = std::make_shared<bool>(false);
    CLI::App* const doctor =
        app.add_subcommand("doctor", "Say whether all is there that throttling needs");
    add_json(*doctor, *as_json);
    doctor->footer(
        "A line each, of the files and their rights, the log's directory, the service, the clock, "
        "the plugin and the platform: \"good\", \"note\" for what one may want to know, and "
        "\"bad\" "
        "for what somebody has to mend, with how. Ends with 1 when a line is bad. Nothing is "
        "changed. The fields of --json are in docs/json.md.\n\n" +
        examples({"doctor", "doctor --conf-dir /etc/throttling --json"}));
    chooses(*doctor, asked,
            [&asked, as_json] { return run_doctor(asked.common.plugin, *as_json); });
}
