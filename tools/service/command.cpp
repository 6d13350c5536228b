#include "tools/service/command.h"

#include "tools/service/control_client.h"
#include "tools/service/status_text.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/tables.h"

#include <fmt/format.h>
#include <memory>

namespace {

constexpr const char* not_history = "?since=9999999999"; // which nobody reads here

struct service_options {
    std::string control; ///< empty: the usual place
    bool as_json = false;
};

int run_status(const service_options& options) {
    const control_client service(options.control);
    if (options.as_json) {
        fmt::print("{}\n", dumped(service.get("/status"), 2));
    } else {
        fmt::print("{}", status_text(service.get(std::string("/status") + not_history)));
    }
    return EXIT_DONE;
}

} // namespace

void add_service(CLI::App& app, request& asked) {
    const auto options = std::make_shared<service_options>();
    CLI::App* const service =
        app.add_subcommand("service", "Ask the management service of this host, vlsld");
    service->require_subcommand(1);
    service->fallthrough();
    add_named(*service, "--control", options->control,
              "The service's control socket (default: that of one's own service, else "
              "/run/vlsld/control)",
              "PATH");
    CLI::App* const status =
        service->add_subcommand("status", "Show who uses which storage, and how fast");
    add_json(*status, options->as_json);
    status->footer("The object of --json is that of the service's /status; docs/service.md tells "
                   "its fields.\nWhoever is in the socket's group may ask.\n\n" +
                   examples({"service status", "service status --control /run/vlsld/control"}));
    chooses(*status, asked, [options] { return run_status(*options); });
}
