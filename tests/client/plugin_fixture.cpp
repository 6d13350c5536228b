#include "tests/client/plugin_fixture.h"

#include "config/throttling_util.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

std::string shares(long readers, long writers, long wait_seconds, long free_flow) {
    const auto row = [](const std::string& name, long value) {
        return "name=" + name + ",description=x,type=int,value=" + std::to_string(value) +
               ",fixed=y;";
    };
    return row("THR_R_CONNECTION_COUNTS", readers) + row("THR_W_CONNECTION_COUNTS", writers) +
           row("THR_FREE_FLOW", free_flow) + row("THR_WAIT_SECONDS", wait_seconds);
}

lines join(std::initializer_list<lines> parts) {
    lines whole;
    for (const lines& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

Plugin::Plugin() : library_(dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(library_, nullptr) << dlerror();
    setenv("VL_STS_ROOT", files.path().c_str(), 1);
    settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
    entries_ = static_cast<const stspi_ep_t*>(dlsym(library_, "ep"));
    using init_t = int(uint64_t, const char*, stspi_api_rec_t*);
    stspi_api_rec_t record;
    EXPECT_EQ(reinterpret_cast<init_t*>(dlsym(library_, "stspi_init"))(12, "", &record), STS_OK);
    take_log();
}

Plugin::~Plugin() {
    while (!images_.empty()) {
        close(images_.back());
    }
    while (!servers_.empty()) {
        close_server(servers_.back());
    }
    EXPECT_EQ(entries_->terminate_v7(), STS_OK);
    dlclose(library_);
    unsetenv("VL_STS_ROOT");
}

throttling_server_s* Plugin::open_server(const std::string& name) {
    throttling_server_s* server = nullptr;
    status = entries_->open_server_v7(&session, name.c_str(), nullptr, 0, &server);
    EXPECT_EQ(status, STS_OK) << name;
    servers_.push_back(server);
    using create_lsu_t = int(throttling_server_s*, const sts_lsu_def_s*, void***);
    sts_lsu_def_s definition = {};
    strcpy(definition.name, "lsu");
    void** lsu = nullptr;
    reinterpret_cast<create_lsu_t*>(dlsym(library_, "throttling_create_lsu"))(server, &definition,
                                                                              &lsu);
    free(static_cast<void*>(lsu));
    return server;
}

int Plugin::close_server(throttling_server_s* server) {
    servers_.erase(std::remove(servers_.begin(), servers_.end(), server), servers_.end());
    return entries_->close_server_v7(server);
}

sts_lsu_ref_s Plugin::lsu_of(throttling_server_s* server) const {
    sts_lsu_ref_s lsu = {};
    lsu.server = server;
    strcpy(lsu.name, "lsu");
    return lsu;
}

throttling_image_s* Plugin::create(throttling_server_s* server, const std::string& name) {
    const sts_lsu_ref_s lsu = lsu_of(server);
    sts_image_def_s definition = {};
    strcpy(definition.name, name.c_str());
    throttling_image_s* image = nullptr;
    status = entries_->create_image_v10(&lsu, &definition, STS_IMAGE_WRITE, &image);
    if (image != nullptr) {
        images_.push_back(image);
    }
    return image;
}

throttling_image_s* Plugin::open(throttling_server_s* server, const std::string& name) {
    const sts_lsu_ref_s lsu = lsu_of(server);
    sts_image_def_s definition = {};
    strcpy(definition.name, name.c_str());
    throttling_image_s* image = nullptr;
    status = entries_->open_image_v10(&lsu, &definition, STS_IMAGE_READ, &image);
    if (image != nullptr) {
        images_.push_back(image);
    }
    return image;
}

void Plugin::write(throttling_image_s* image, uint64_t length) {
    const std::string data(length, 'x');
    uint64_t written = 0;
    EXPECT_EQ(entries_->write_image_v7(image, 0, data.data(), length, 0, &written), STS_OK);
    EXPECT_EQ(written, length);
}

void Plugin::read(throttling_image_s* image, uint64_t length) {
    std::string data(length, '\0');
    uint64_t moved = 0;
    EXPECT_EQ(entries_->read_image_v7(image, data.data(), length, 0, &moved), STS_OK);
    EXPECT_EQ(moved, length);
}

void Plugin::close(throttling_image_s* image) {
    images_.erase(std::remove(images_.begin(), images_.end(), image), images_.end());
    EXPECT_EQ(entries_->close_image_v7(image, 0, 0), STS_OK);
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

lines Plugin::errors() {
    lines all = take_log();
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const std::string& line) { return line[0] != '4'; }),
              all.end());
    return all;
}

std::string Plugin::report(const std::string& key, time_t start, time_t end, uint64_t bytes) {
    return "check_bandwidth(\"" + key + "\", \"a_b\", {" + (key[0] == 'r' ? "0" : "1") + ", " +
           std::to_string(start) + ", " + std::to_string(end) + ", " + std::to_string(bytes) + "})";
}
