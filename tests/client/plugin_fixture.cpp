#include "tests/client/plugin_fixture.h"

#include "config/throttling_util.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

lines join(std::initializer_list<lines> parts) {
    lines whole;
    for (const lines& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

Plugin::Plugin() {
    setenv("VL_STS_ROOT", files.path().c_str(), 1);
    settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
    plugin_.emplace(PLUGIN_FILE, "");
    take_log();
}

Plugin::~Plugin() {
    while (!images_.empty()) {
        close(images_.back());
    }
    while (!servers_.empty()) {
        close_server(servers_.back());
    }
    plugin_.reset();
    unsetenv("VL_STS_ROOT");
}

throttling_server_s* Plugin::open_server(const std::string& name) {
    throttling_server_s* server = nullptr;
    status = entries().open_server_v7(&session, name.c_str(), nullptr, 0, &server);
    EXPECT_EQ(status, STS_OK) << name;
    servers_.push_back(server);
    using create_lsu_t = int(throttling_server_s*, const sts_lsu_def_s*, void***);
    sts_lsu_def_s definition = {};
    strcpy(definition.name, "lsu");
    void** lsu = nullptr;
    plugin_->find<create_lsu_t>("throttling_create_lsu")(server, &definition, &lsu);
    free(static_cast<void*>(lsu));
    return server;
}

int Plugin::close_server(throttling_server_s* server) {
    servers_.erase(std::remove(servers_.begin(), servers_.end(), server), servers_.end());
    return entries().close_server_v7(server);
}

throttling_image_s* Plugin::open_by(open_slot slot, uint32_t flags, throttling_server_s* server,
                                    const std::string& name) {
    sts_lsu_ref_s lsu = {};
    lsu.server = server;
    strcpy(lsu.name, "lsu");
    sts_image_def_s definition = {};
    strcpy(definition.name, name.c_str());
    throttling_image_s* image = nullptr;
    status = slot(&lsu, &definition, flags, &image);
    if (image != nullptr) {
        images_.push_back(image);
    }
    return image;
}

throttling_image_s* Plugin::create(throttling_server_s* server, const std::string& name) {
    return open_by(entries().create_image_v10, STS_IMAGE_WRITE, server, name);
}

throttling_image_s* Plugin::open(throttling_server_s* server, const std::string& name) {
    return open_by(entries().open_image_v10, STS_IMAGE_READ, server, name);
}

void Plugin::write(throttling_image_s* image, uint64_t length) {
    const std::string data(length, 'x');
    uint64_t written = 0;
    EXPECT_EQ(entries().write_image_v7(image, 0, data.data(), length, 0, &written), STS_OK);
    EXPECT_EQ(written, length);
}

void Plugin::read(throttling_image_s* image, uint64_t length) {
    std::string data(length, '\0');
    uint64_t moved = 0;
    EXPECT_EQ(entries().read_image_v7(image, data.data(), length, 0, &moved), STS_OK);
    EXPECT_EQ(moved, length);
}

void Plugin::close(throttling_image_s* image) {
    images_.erase(std::remove(images_.begin(), images_.end(), image), images_.end());
    EXPECT_EQ(entries().close_image_v7(image, 0, 0), STS_OK);
}

lines Plugin::asked(const std::string& type, const std::string& name) {
    config_set_path(nullptr);
    std::string its_type = type;
    std::string its_name = name;
    char text[STS_CONFIG_SIZE];
    read_config_file_to_buf(nullptr, text, its_type.data(), its_name.data());
    lines requests = service.take();
    std::replace(requests.begin(), requests.end(),
                 "update_ThrottleConfigParams(\"" + std::string(text) + "\")",
                 "settings(" + type + ", " + name + ")");
    return requests;
}

lines Plugin::told_by(const std::string& who) {
    const std::string start = "3 [" + who + "]";
    lines told;
    for (const std::string& line : take_log()) {
        if (line.compare(0, start.size(), start) == 0) {
            told.push_back(line.substr(start.size()));
        }
    }
    return told;
}

std::string Plugin::report(const std::string& key, time_t start, time_t end, uint64_t bytes) {
    return "check_bandwidth(\"" + key + "\", \"a_b\", {" + (key[0] == 'r' ? "0" : "1") + ", " +
           std::to_string(start) + ", " + std::to_string(end) + ", " + std::to_string(bytes) + "})";
}
