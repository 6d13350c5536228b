// "events": what has happened on a server, and with --follow what happens.

#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/manage/commands.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/signals.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <optional>

namespace {

constexpr auto look_interval = std::chrono::milliseconds(200);

struct events_options {
    std::string lsu;
    std::vector<std::string> kinds;
    bool follows = false;
    bool with_kept = false;
    bool with_payload = false;
    bool deletes = false;
    bool as_json = false;
};

/// A channel that receives a server's events.
class event_channel {
  public:
    event_channel(const host_server& server, sts_event_source_s source, sts_event_start_t start)
        : server_(server) {
        const int status = server_.entries().open_evchannel(
            &server_.session(), server_.name().c_str(), &source, 0, 0, 0, 0, start, &handle_);
        if (status != STS_OK) {
            close();
            throw failed("opening an event channel of the server", server_.name(), status);
        }
    }
    ~event_channel() { close(); }
    event_channel(const event_channel&) = delete;
    event_channel& operator=(const event_channel&) = delete;

    /// The next event; nothing when none is waiting.
    std::optional<sts_event_s> next() {
        sts_event_s event = {};
        const int status = server_.entries().get_event(handle_, &event);
        if (status == STS_ERR_NO_EVENT) {
            return {};
        }
        if (status != STS_OK) {
            throw failed("reading an event of the server", server_.name(), status);
        }
        if (event.number == 0) { // a channel with nothing below it says so in no other way
            throw failure(fmt::format("the server \"{}\" has no events: there is no layer below it",
                                      server_.name()));
        }
        return event;
    }

  private:
    /// One that couldn't be opened is to be closed all the same.
    void close() {
        if (handle_ != nullptr) {
            server_.entries().close_evchannel(handle_);
        }
    }

    const host_server& server_;
    throttling_evchannel_s* handle_ = nullptr;
};

/// The payload's text; nothing when the event has gone meanwhile.
std::optional<std::string> payload_of(const host_server& server, const sts_event_s& event) {
    const auto payload = std::make_unique<sts_event_payload_s>();
    const int status = server.entries().get_event_payload(server.handle(), forwarded(&event),
                                                          forwarded(payload.get()));
    if (sts_errno_of_status(status) == ENOENT) {
        return {};
    }
    if (status != STS_OK) {
        throw failed("reading the payload of the event", std::to_string(event.number),
                     server.name(), status);
    }
    return fields_of(*payload).at("text").get<std::string>();
}

void delete_event(const host_server& server, sts_event_s event) {
    const int status = server.entries().delete_event(server.handle(), &event);
    if (status != STS_OK && sts_errno_of_status(status) != ENOENT) { // somebody else was first
        throw failed("deleting the event", std::to_string(event.number), server.name(), status);
    }
}

/// One line, and one for each of the payload's.
std::string event_text(const ordered_json& fields) {
    std::string object = fields.at("lsu").get<std::string>();
    if (const auto image = fields.at("image").get<std::string>(); !image.empty()) {
        object += "/" + image;
    }
    std::string text = fmt::format("{:>8}  {}  {:<13}  {}\n", fields.at("number").get<uint64_t>(),
                                   time_text(fields.at("time").get<int64_t>()),
                                   fields.at("kind").get<std::string>(), printable(object));
    if (!fields.contains("payload") || fields.at("payload").is_null()) {
        return text;
    }
    const auto payload = fields.at("payload").get<std::string>();
    for (size_t start = 0; start < payload.size();) {
        const size_t end = std::min(payload.find('\n', start), payload.size());
        text += "          " + printable(payload.substr(start, end - start)) + "\n";
        start = end + 1;
    }
    return text;
}

sts_event_source_s source_of(const events_options& options) {
    sts_event_source_s source = {};
    copy_text(source.lsu, options.lsu, "the LSU name");
    const std::vector<std::string>& names = event_kinds();
    for (const std::string& kind : options.kinds) {
        const auto found = std::find(names.begin(), names.end(), kind);
        source.kinds |= uint64_t{2} << static_cast<unsigned>(found - names.begin());
    }
    return source;
}

/// Prints an event at once, since somebody may be reading along.
void take(const host_server& server, const events_options& options, const sts_event_s& event) {
    ordered_json fields = fields_of(event);
    if (options.with_payload) {
        const std::optional<std::string> payload = payload_of(server, event);
        fields["payload"] = payload ? ordered_json(*payload) : ordered_json();
    }
    fmt::print("{}", options.as_json ? dumped(fields) + "\n" : event_text(fields));
    if (fflush(stdout) != 0) {
        throw failure("the events can't be written to standard output");
    }
    if (options.deletes) {
        delete_event(server, event);
    }
}

void take_all(const host_server& server, const events_options& options, const signals& caught) {
    const bool from_now = options.follows && !options.with_kept;
    event_channel channel(server, source_of(options),
                          from_now ? STS_EVENTS_FROM_NOW : STS_EVENTS_KEPT);
    if (options.follows) {
        console::get().line(fmt::format(
            "Following the events of the server \"{}\". Ctrl-C ends it.", server.name()));
    }
    bool is_over = false;
    while (!is_over) {
        if (const std::optional<sts_event_s> event = channel.next()) {
            take(server, options, *event);
            is_over = caught.next(std::chrono::milliseconds(0));
        } else {
            is_over = !options.follows || caught.next(look_interval);
        }
    }
}

int run_events(const server_options& common, const events_options& options) {
    const signals caught;
    connection to(common);
    take_all(to.server, options, caught);
    to.server.close();
    return EXIT_DONE;
}

} // namespace

void add_events(CLI::App& app, request& asked) {
    const auto options = std::make_shared<events_options>();
    CLI::App* const events =
        app.add_subcommand("events", "Show the events of a server, those kept or as they come");
    add_server(*events, asked.common.server)->required();
    add_named(*events, "--lsu", options->lsu, "Only those of one LSU", "LSU");
    events->add_option("--kind", options->kinds, "Only those of a kind; may stand more than once")
        ->check(CLI::IsMember(event_kinds()).description(""))
        ->allow_extra_args(false)
        ->type_name("KIND");
    CLI::Option* const follow = events->add_flag("-f,--follow", options->follows,
                                                 "Go on with those that come, until Ctrl-C");
    events->add_flag("--kept", options->with_kept, "With --follow: first those that are there")
        ->needs(follow);
    events->add_flag("--payload", options->with_payload, "With what else there is about each");
    events->add_flag("--delete", options->deletes,
                     "Delete each from the server once it is printed");
    events->add_flag("--json", options->as_json, "Print an object a line for a program");
    const std::string to = example_server;
    events->footer(command_help(
        "KIND is image-created, image-changed, image-deleted, lsu-created, lsu-deleted or\n"
        "lsu-labelled. A line of --json holds number, time (seconds since the epoch), kind, "
        "server,\n"
        "lsu, image and, where asked for, payload (null: the event is gone by now).\n"
        "SIGINT and SIGTERM end --follow with 0.\n",
        {"events" + to, "events --follow --payload" + to,
         "events -f --json --lsu daily --kind image-created --kind image-deleted" + to}));
    chooses(*events, asked, [&asked, options] { return run_events(asked.common, *options); });
}
