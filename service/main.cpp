// vlsld: what it is asked to do, and how it starts, runs and stops.

#include "service/control/control_server.h"
#include "service/corba_server.h"
#include "service/in_quotes.h"
#include "service/kept_state.h"
#include "service/key_secret.h"
#include "service/ledger.h"
#include "service/listening.h"
#include "service/moment.h"
#include "service/object_key.h"
#include "service/service_log.h"
#include "service/signals.h"
#include "service/supervisor.h"
#include "service/web_server.h"

#include "common/control_path.h"
#include "config/settings_check.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#include <sys/resource.h>

namespace {

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;
constexpr int longest_end_ms = 4500;

constexpr const char* about =
    "Counts who uses each storage and shares its bandwidth: the management service that the "
    "throttling plugin asks, on this host.";

constexpr const char* more =
    "Clients find it at corbaloc:iiop:1.2@HOST:PORT/HSFactory; with TLS, at\n"
    "corbaloc:ssliop:1.2@HOST:PORT/HSFactory. Its limits are those of the settings that they "
    "send.\n"
    "The web page shows each storage, live; beside it are /status (JSON) and /metrics "
    "(Prometheus).\n"
    "It runs until SIGTERM or SIGINT; on SIGHUP it opens its log file and reads --settings anew. "
    "What it counts isn't kept, but\n"
    "sessions that are open go on with a service that is started anew on the same port with the "
    "same --state, under the same\nsettings and limits.\n\n"
    "Ends with 0 when it was stopped, 1 when it can't start, 2 when the arguments are wrong.\n\n"
    "Examples:\n"
    "  vlsld                              on port 5638 of this host\n"
    "  vlsld --port 0 --http-port 0 --port-file ports\n"
    "                                     on free ports, which stand in the file\n"
    "  vlsld --tls-ca ca.pem --tls-key service.pem --tls-port 5640\n"
    "                                     TLS too, on a port of its own\n";

struct request {
    int port = -1;
    corba_options corba = {"", 0, "", "", -1};
    std::string web_address; ///< empty: the loopback addresses
    std::string web_name;    ///< empty: no other than this host's
    int web_port = 5639;
    bool has_web = true;
    int64_t lease = 3600;
    std::string port_file;
    std::string log_file;
    std::string state;    ///< empty: the default
    std::string control;  ///< empty: the default
    std::string settings; ///< empty: those that clients send
};

void add_options(CLI::App& app, request& asked) {
    const auto is_port = CLI::Range(0, 65535).description("");
    const CLI::Validator is_named(
        [](const std::string& name) {
            return name.empty() ? std::string("the name is empty") : std::string();
        },
        "");
    app.add_option("--port", asked.port,
                   "Port to listen on; 0: a free one (default: VLSL_PORT of the environment, else "
                   "the service vlsl/tcp, else 5638)")
        ->check(is_port)
        ->type_name("PORT");
    app.add_option("--listen", asked.corba.address,
                   "Address to listen on; 0.0.0.0: all. Whoever reaches it is served (default: "
                   "127.0.0.1 and, where the host has it, ::1)")
        ->type_name("ADDRESS");
    CLI::Option* const web_port =
        app.add_option("--http-port", asked.web_port, "Port of the web page; 0: a free one")
            ->check(is_port)
            ->type_name("PORT")
            ->capture_default_str();
    CLI::Option* const web_address =
        app.add_option(
               "--http-listen", asked.web_address,
               "Address of the web page (default: 127.0.0.1 and, where the host has it, ::1)")
            ->type_name("ADDRESS");
    CLI::Option* const web_name =
        app.add_option("--http-host", asked.web_name,
                       "Name by which the page may be asked too, as that of a proxy (default: "
                       "addresses, localhost and this host's name alone)")
            ->check(is_named)
            ->type_name("NAME");
    app.add_flag_callback(
           "--no-http", [&] { asked.has_web = false; }, "No web page")
        ->excludes(web_port)
        ->excludes(web_address)
        ->excludes(web_name);
    app.add_option(
           "--lease", asked.lease,
           "Seconds after which a session that says nothing ends and gives back what it held")
        ->check(CLI::Range(int64_t{1}, int64_t{31536000}).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.add_option("--port-file", asked.port_file,
                   "Write the ports there, for a shell to read, once clients are answered: "
                   "VLSL_PORT=, VLSL_TLS_PORT=, VLSL_HTTP_PORT=")
        ->type_name("FILE");
    app.add_option("--log-file", asked.log_file, "Append the log there (default: standard error)")
        ->type_name("FILE");
    app.add_option("--state", asked.state,
                   "Keep settings, limits and the secret that sessions are proved with there, "
                   "below a directory that "
                   "nobody else may write to (default: STATE_DIRECTORY of the environment, else "
                   "for root /var/lib/vlsld, else $XDG_STATE_HOME/vlsld, else "
                   "~/.local/state/vlsld). One that is named has to work")
        ->check(is_named)
        ->type_name("DIR");
    app.add_option("--control", asked.control,
                   "Unix socket to be asked and steered by, of \"throttlectl service\" (default: "
                   "\"control\" in RUNTIME_DIRECTORY of the environment, else for root in "
                   "/run/vlsld, else in $XDG_RUNTIME_DIR/vlsld). One that is named has to work")
        ->check(is_named)
        ->type_name("PATH");
    app.add_option(
           "--settings", asked.settings,
           "Settings file of the plugin's form, whose limits and rates hold whatever clients "
           "send; read anew on SIGHUP (default: what clients send holds)")
        ->check(is_named)
        ->type_name("FILE");
    CLI::Option* const ca =
        app.add_option(
               "--tls-ca", asked.corba.tls_ca,
               "Speak TLS, with clients whose certificate this authority's PEM file vouches for")
            ->check(CLI::ExistingFile.description(""))
            ->type_name("FILE");
    CLI::Option* const key = app.add_option("--tls-key", asked.corba.tls_key,
                                            "PEM file of the service's private key and certificate")
                                 ->check(CLI::ExistingFile.description(""))
                                 ->type_name("FILE");
    ca->needs(key);
    key->needs(ca);
    app.add_option(
           "--tls-port", asked.corba.tls_port,
           "Port for TLS; 0: a free one (default: TLS takes --port, and nothing else is spoken)")
        ->check(is_port)
        ->needs(ca)
        ->type_name("PORT");
}

/// Thousands of clients have a connection each.
void raise_descriptor_limit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// The directory of what outlasts the service. Where none is named and the usual place won't do,
/// there is none, and `why` says so.
std::optional<state_directory> open_state(const std::string& named, std::string& why) {
    if (!named.empty()) {
        return state_directory(named);
    }
    why = "no directory for it (--state DIR)";
    try {
        const std::string usual = default_state_directory();
        if (!usual.empty()) {
            return state_directory(usual);
        }
    } catch (const state_error& error) {
        why = error.what();
    }
    return std::nullopt;
}

/// The secret of object keys: one for this run where it can't be kept, unless the directory was
/// named.
key_secret take_secret(const std::optional<state_directory>& state, bool is_named, std::string why,
                       service_log& log) {
    if (state) {
        try {
            return kept_secret(*state);
        } catch (const state_error& error) {
            if (is_named) {
                throw;
            }
            why = error.what();
        }
    }
    log.line("warning: the secret of object keys isn't kept: " + why +
             ". When the service is started anew, sessions that are open are refused, and their "
             "data flows uncounted until each backup opens its server again");
    return new_secret();
}

/// Settings of the service's own, with what is wrong with them told line by line. Throws
/// std::runtime_error when the file can't be read.
settings_ptr read_own_settings(const std::string& path, service_log& log) {
    const checked_settings found = check_settings(path.c_str());
    if (found.state != checked_settings::readable) {
        throw std::runtime_error(fmt::format(
            "--settings {}: {}", path,
            found.state == checked_settings::missing ? "there is no such file" : "can't be read"));
    }
    for (const settings_finding& each : found.findings) {
        log.line(printable(finding_text(path, each)));
    }
    return std::make_shared<throttling_config_s>(found.config);
}

/// Where none is named and the usual place won't do, the service runs without.
void start_control(std::optional<control_server>& control, const std::string& path, ledger& book,
                   service_log& log) {
    if (!path.empty()) {
        control.emplace(path, book);
        return;
    }
    std::string why = "no directory for it (--control PATH)";
    try {
        const std::string usual = own_control_path();
        if (!usual.empty()) {
            control.emplace(usual, book);
            return;
        }
    } catch (const control_socket_error& error) {
        why = error.what();
    }
    log.line("warning: \"throttlectl service\" can't ask or steer this service: " + why);
}

/// Where they can't be read, those that hold go on.
void reload_settings(const std::string& path, ledger& book, service_log& log) {
    if (path.empty()) {
        return;
    }
    try {
        book.rule(read_own_settings(path, log), this_moment());
        log.line("settings of " + path + " are read anew");
    } catch (const std::runtime_error& error) {
        log.line(fmt::format("warning: {}; what was read before goes on", error.what()));
    }
}

/// Ticks once a second until a stop signal comes; which one.
int tick_until_stopped(ledger& book, book_keeper* keeper, const std::string& settings,
                       service_log& log, const supervisor& above, const sigset_t& signals) {
    for (;;) {
        const timespec second = {1, 0};
        const int signal = sigtimedwait(&signals, nullptr, &second);
        if (signal == SIGHUP) {
            above.reloads();
            log.reopen();
            reload_settings(settings, book, log);
            above.is_ready();
        } else if (signal > 0) {
            return signal;
        }
        book.tick(this_moment());
        if (keeper != nullptr) {
            keeper->tick(this_moment());
        }
        log.tick();
        above.lives(); // behind all that could hang
    }
}

/// Whole or not at all, since somebody may be waiting for it.
void write_port_file(const std::string& path, const std::string& lines) {
    const std::string draft = path + ".new";
    std::ofstream file(draft);
    file << lines;
    file.close();
    if (!file || std::rename(draft.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("--port-file " + path + " can't be written");
    }
}

/// Where the web page is.
struct web_place {
    std::vector<std::string> addresses;
    int port = 0; ///< 0: there is none
};

/// Says where the service can be reached.
void announce(const request& asked, const corba_server& corba, const web_place& web,
              service_log& log) {
    struct place {
        const char* what;
        const char* variable;
        std::vector<std::string> addresses;
        int port; ///< 0: not there
    };
    const place places[] = {
        {"listening on", "VLSL_PORT", corba.addresses(), corba.port()},
        {"listening with TLS on", "VLSL_TLS_PORT", corba.addresses(), corba.tls_port()},
        {"web page at", "VLSL_HTTP_PORT", web.addresses, web.port}};
    std::string variables;
    for (const place& each : places) {
        if (each.port != 0) {
            std::vector<std::string> at;
            for (const std::string& address : each.addresses) {
                at.push_back(address_and_port(address, each.port));
            }
            const std::string line = fmt::format("{} {}", each.what, fmt::join(at, " and "));
            puts(line.c_str());
            log.line(line);
            variables += fmt::format("{}={}\n", each.variable, each.port);
        }
    }
    fflush(stdout);
    if (!asked.port_file.empty()) {
        write_port_file(asked.port_file, variables);
    }
    log.line("is ready");
}

void serve(request& asked) {
    const sigset_t signals = take_signals();
    const supervisor above;
    raise_descriptor_limit();
    asked.corba.port = choose_port(asked.port);
    service_log log(asked.log_file);
    std::string why_no_state;
    const std::optional<state_directory> state = open_state(asked.state, why_no_state);
    const object_keys keys(take_secret(state, !asked.state.empty(), why_no_state, log));
    const auto to_log = [&](const log_line& line) { log.line(line); };
    ledger book(asked.lease, this_moment(), to_log);
    if (!asked.settings.empty()) {
        book.rule(read_own_settings(asked.settings, log), this_moment());
    }
    std::optional<book_keeper> keeper;
    if (state) {
        keeper.emplace(*state, book, to_log, this_moment());
    }
    {
        std::optional<web_server> web;
        web_place page;
        if (asked.has_web) {
            page.addresses = addresses_to_listen_on(asked.web_address);
            const listening_sockets sockets(page.addresses, asked.web_port);
            page.port = sockets.port();
            web.emplace(sockets.descriptors(), book, asked.web_name);
        }
        const corba_server corba(asked.corba, book, keys, to_log);
        std::optional<control_server> control;
        start_control(control, asked.control, book, log);
        announce(asked, corba, page, log);
        above.is_ready();
        const int signal = tick_until_stopped(book, keeper ? &*keeper : nullptr, asked.settings,
                                              log, above, signals);
        above.stops();
        bound_the_end(signals, longest_end_ms);
        log.line(fmt::format("stopping: {}", strsignal(signal)));
    }
    if (keeper) {
        keeper->tick(this_moment());
    }
    log.line("stopped");
}

} // namespace

int main(int argc, char** argv) {
    try {
        request asked;
        CLI::App app(about, "vlsld");
        app.footer(more);
        app.set_version_flag("--version", "vlsld " PROGRAM_VERSION, "Print the version and exit");
        add_options(app, asked);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? EXIT_SUCCESS : exit_usage;
        }
        serve(asked);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        fprintf(stderr, "vlsld: %s\n", error.what());
    } catch (const CORBA::Exception& error) {
        fprintf(stderr, "vlsld: the ORB says CORBA::%s\n", error._name());
    }
    return exit_failed;
}
