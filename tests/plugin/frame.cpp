#include "tests/plugin/frame.h"

#include <algorithm>
#include <cstring>

namespace {

/// Puts something that isn't a log line between the log lines.
void tell(const std::string& what) { host_log().push_back({0, what, ""}); }

/// An exchange as the story shows it; of a configuration text only that it was sent.
std::string line_of(const exchange& call) {
    if (call.call == "set_config_params") {
        return "set_config_params";
    }
    const std::string last = call.call == "check_connections"
                                 ? std::to_string(call.delta)
                                 : std::to_string(call.data_length) + " bytes";
    return call.call + "(" + call.key + ", " + call.session_text + ", " + last + ")";
}

} // namespace

void close_at_end::operator()(throttling_server_s* server) const {
    server->open_handles = 0;
    throttling_close_server_v7(server);
}

void close_at_end::operator()(throttling_image_s* image) const {
    throttling_close_image_v7(image, 0, 0);
}

Frame::Frame() {
    fault::clear();
    service() = {};
    service().usual.out = reply_text(1, 1, 0, 0);
    next_layer() = {};
    next_layer().name(&sts_api, "sts_api");
    next_layer().name(image_def, "image_def");
    next_layer().observer = [](const next_call& call) { tell("-> " + call.line()); };
    service().on_exchange = [](const exchange& call) { tell("=> " + line_of(call)); };
    clock.on_sleep = [](unsigned seconds) { tell("sleep(" + std::to_string(seconds) + ")"); };
    config_set_path(nullptr);
    sts_api = fake_next_layer::table();
    forget();
}

Frame::~Frame() {
    fault::clear();
    sts_api = nullptr;
}

void Frame::TearDown() {
    next_layer().answers.clear();
    next_layer().effects.clear();
}

void Frame::turn_throttling_on() {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
}

server_ptr Frame::open(const std::string& name) {
    throttling_server_s* server = nullptr;
    EXPECT_EQ(throttling_open_server_v7(&session, name.c_str(), nullptr, 7, &server), 0);
    forget();
    return server_ptr(server);
}

sts_lsu_ref_s Frame::lsu_of(throttling_server_s* server) {
    sts_lsu_ref_s lsu = {};
    lsu.server = server;
    strcpy(lsu.name, "lsu1");
    return lsu;
}

image_ptr Frame::open_image(const server_ptr& server) {
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* image = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &image), 0);
    forget();
    return image_ptr(image);
}

lines Frame::take_whole_story() {
    lines story = take_log();
    for (std::string& each : story) {
        if (each[0] == '0') {
            each.erase(0, 2);
        }
    }
    next_layer().calls.clear();
    return story;
}

lines Frame::take_story() {
    const lines of_settings = {"[get_cssc_security]",       "[read_config_file_to_var]",
                               "[read_config_file_to_buf]", "[write_config_file_from_var]",
                               "[parse_oneline_to_var]",    "[check_time]"};
    lines story = take_whole_story();
    story.erase(std::remove_if(story.begin(), story.end(),
                               [&](const std::string& line) {
                                   return std::any_of(
                                       of_settings.begin(), of_settings.end(),
                                       [&](const std::string& who) { return line.find(who) == 2; });
                               }),
                story.end());
    return story;
}

void Frame::forget() {
    take_whole_story();
    service().take();
}

std::string error_line(const std::string& who, const std::string& message) {
    return "4 [" + who + "]" + message;
}
