#include "tools/service/command.h"

#include "common/latin1.h"
#include "tools/service/control_client.h"
#include "tools/service/limit_text.h"
#include "tools/service/status_text.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/tables.h"

#include <fmt/format.h>
#include <memory>
#include <optional>

namespace {

constexpr const char* not_history = "?since=9999999999"; // which nobody reads here

struct service_options {
    std::string control; ///< empty: the usual place
    bool as_json = false;

    std::string storage;
    bool is_host = false; ///< in place of a storage
    std::string read;     ///< empty: not named; so are the three below
    std::string write;
    std::optional<int64_t> connections;
    std::string lasts;
};

int run_status(const service_options& options) {
    const control_client service(options.control);
    if (options.as_json) {
        fmt::print("{}\n", dumped(service.get("/status"), 2));
    } else {
        const std::string limits = limits_table(service.get("/limits"));
        fmt::print("{}{}{}", status_text(service.get(std::string("/status") + not_history)),
                   limits.empty() ? "" : "\n", limits);
    }
    return EXIT_DONE;
}

/// What is to be limited, as the service is told.
ordered_json whom_asked(const service_options& options) {
    if (options.is_host == !options.storage.empty()) {
        throw usage_failure("either NAME, a storage, or --host says what is limited");
    }
    return options.is_host ? ordered_json{{"host", true}}
                           : ordered_json{{"storage", utf8(options.storage)}};
}

int run_limit(const service_options& options) {
    ordered_json asked = whom_asked(options);
    if (options.read.empty() && options.write.empty() && !options.connections) {
        throw usage_failure("--read, --write or --connections says what the limit is");
    }
    if (options.is_host && options.connections) {
        throw usage_failure("--connections is a storage's alone, not the host's");
    }
    if (!options.read.empty()) {
        asked["read"] = rate_in("--read", options.read);
    }
    if (!options.write.empty()) {
        asked["write"] = rate_in("--write", options.write);
    }
    if (options.connections) {
        asked["connections"] = *options.connections;
    }
    if (!options.lasts.empty()) {
        asked["seconds"] = duration_in("--for", options.lasts);
    }
    const ordered_json answer = control_client(options.control).post("/limit", asked);
    fmt::print("{}", options.as_json ? dumped(answer, 2) + "\n" : limit_text(answer, asked));
    return EXIT_DONE;
}

int run_unlimit(const service_options& options) {
    const ordered_json answer =
        control_client(options.control).post("/unlimit", whom_asked(options));
    const bool was_limited = answer.value("was_limited", false);
    fmt::print("{}\n", was_limited ? "Its limits are taken back." : "It had no limits.");
    return EXIT_DONE;
}

void add_whom(CLI::App& app, service_options& options) {
    CLI::Option* const name =
        add_named(app, "NAME", options.storage, "The storage, as the settings name it");
    app.add_flag("--host", options.is_host, "All storages of this host together, in place of NAME")
        ->excludes(name);
}

void add_limit(CLI::App& service, request& asked, const std::shared_ptr<service_options>& options) {
    CLI::App* const limit =
        service.add_subcommand("limit", "Limit a storage, or the host, while data flows");
    add_whom(*limit, *options);
    add_named(*limit, "--read", options->read, "Rate for reads, as in 50M or 1.5G/s; 0 pauses them",
              "RATE");
    add_named(*limit, "--write", options->write, "Rate for writes; 0 pauses them", "RATE");
    limit
        ->add_option("--connections", options->connections,
                     "Connections that a storage may have at once; 0: nobody new")
        ->check(CLI::Range(int64_t{0}, int64_t{1'000'000'000}).description(""))
        ->type_name("N");
    add_named(*limit, "--for", options->lasts,
              "How long it holds, as in 90 (seconds), 30m, 2h or 1d (default: until it is taken "
              "back)",
              "DURATION");
    add_json(*limit, options->as_json);
    limit->footer(
        "A limit holds for sessions that run from their next report on, beside what is limited\n"
        "already. It can't give a client more than its own settings do. The rate is for all "
        "flows\nof the storage (or the host) together, each of which has its fair share. Paused "
        "data waits\nan interval at a time; nothing is closed. A very low rate is no pause: "
        "a client that is long\nabout a block hears of another limit behind that block alone.\n"
        "Root and the service's own user may do this.\n\n" +
        examples({"service limit s3 --write 20M --for 8h", "service limit s3 --write 0",
                  "service limit --host --read 100M --write 50M"}));
    chooses(*limit, asked, [options] { return run_limit(*options); });
}

void add_unlimit(CLI::App& service, request& asked,
                 const std::shared_ptr<service_options>& options) {
    CLI::App* const unlimit =
        service.add_subcommand("unlimit", "Take back all limits of a storage, or of the host");
    add_whom(*unlimit, *options);
    unlimit->footer("Root and the service's own user may do this.\n\n" +
                    examples({"service unlimit s3", "service unlimit --host"}));
    chooses(*unlimit, asked, [options] { return run_unlimit(*options); });
}

} // namespace

void add_service(CLI::App& app, request& asked) {
    const auto options = std::make_shared<service_options>();
    CLI::App* const service = app.add_subcommand(
        "service", "Ask the management service of this host, vlsld, and steer it");
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
    add_limit(*service, asked, options);
    add_unlimit(*service, asked, options);
}
