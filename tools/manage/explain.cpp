// "explain": what paces a server, link by link.

#include "config/settings.h"
#include "tools/host/plugin_host.h"
#include "tools/host/settings_findings.h"
#include "tools/host/sharing_notice.h"
#include "tools/manage/commands.h"
#include "tools/manage/explanation.h"
#include "tools/manage/preview_time.h"
#include "tools/terminal/failure.h"

#include <fmt/format.h>
#include <memory>

namespace {

struct explain_options {
    std::string at; ///< empty: now
    uint16_t http_port = usual_http_port;
    bool reads = false;
    bool as_json = false;
};

pacing_facts facts_of(const std::string& server, const explain_options& options) {
    const checked_settings found = told_settings();
    if (found.state == checked_settings::missing) {
        throw failure(missing_settings_text(plugin_config_path));
    }
    pacing_facts facts;
    facts.server = server;
    facts.direction = options.reads ? OPERATION_READ : OPERATION_WRITE;
    facts.file = plugin_config_path;
    facts.config = found.config;
    facts.when = time(nullptr);
    if (!options.at.empty()) {
        const std::optional<time_t> when = time_named(options.at, facts.when);
        if (!when) {
            throw usage_failure(no_time_text("--at", options.at));
        }
        facts.when = *when;
        return facts;
    }
    facts.places.emplace();
    if (!is_paced_by_defaults(server)) {
        facts.places = service_places();
        if (answering(*facts.places) != nullptr) {
            facts.status =
                service_status_of(storage_of(server), facts.direction, options.http_port);
        }
    }
    return facts;
}

int run_explain(const std::string& server, const explain_options& options) {
    if (server.compare(0, std::string(plugin_prefix).size(), plugin_prefix) != 0) {
        throw failure(fmt::format("\"{}\" isn't paced: the plugin's servers begin with \"{}\"",
                                  server, plugin_prefix));
    }
    const pacing_facts facts = facts_of(server, options);
    if (options.as_json) {
        fmt::print("{}\n", dumped(explanation_json(facts), 2));
        return EXIT_DONE;
    }
    for (const pacing_link& each : explanation(facts)) {
        fmt::print("{:<10} {}\n", each.name, each.text);
    }
    return EXIT_DONE;
}

} // namespace

void add_explain(CLI::App& app, request& asked) {
    const auto kept = std::make_shared<explain_options>();
    CLI::App* const explain = app.add_subcommand(
        "explain", "Say link by link what paces a server, and what changes next");
    add_server(*explain, asked.common.server)->required();
    add_named(*explain, "--at", kept->at, "At another time (default: now)", "WHEN");
    explain->add_flag("--read", kept->reads, "Of reads (default: of writes)");
    explain->add_option("--http-port", kept->http_port, "The port of the service's page")
        ->check(CLI::Range(1, 65535).description(""))
        ->type_name("PORT")
        ->capture_default_str();
    add_json(*explain, kept->as_json);
    const std::string to = " --server CS_throttle:nas:disk:/srv/store";
    explain->footer(
        std::string(when_help) +
        "Nothing is opened, moved or changed: the settings are read, the service is asked where "
        "the plugin would look for it, and its page is asked who shares. Of another time than now "
        "the service knows nothing. The fields of --json are in docs/json.md.\n\n" +
        examples({"explain" + to, "explain --read --at 'Sat 03:00'" + to}));
    chooses(*explain, asked, [&asked, kept] { return run_explain(asked.common.server, *kept); });
}
