#include "tests/platform/sts/plugins/test_plugin.h"

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include <cstring>
#include <dlfcn.h>
#include <string>

/// Handles: those of the next layer.
struct throttling_server_s {
    sts_next_session_s* session;
    sts_next_server_s* server;
};
struct throttling_image_s {
    sts_next_image_s* image;
};

namespace {

const sts_api_t* next = nullptr;

/// The file's name without its end.
std::string own_file() {
    Dl_info found = {};
    dladdr(reinterpret_cast<void*>(&own_file), &found);
    std::string name = found.dli_fname;
    name.erase(0, name.rfind('/') + 1);
    return name.substr(0, name.rfind(".so"));
}

std::string own_name() { return own_file().substr(0, own_file().find('-')); }

bool is_kind(const std::string& kind) {
    const std::string file = own_file();
    return file.find('-') != std::string::npos && file.substr(file.find('-') + 1) == kind;
}

void say(const std::string& line) { test_plugin_says((own_name() + " " + line).c_str()); }

int claim(const char* name) {
    say(std::string("is asked for ") + name);
    const std::string prefix = own_name() + ":";
    return strncmp(name, prefix.c_str(), prefix.size()) == 0 ? STS_OK : STS_ERR_NOT_CLAIMED;
}

/// What it asks the next layer for.
std::string next_name(const char* name) {
    if (is_kind("circle")) {
        return name;
    }
    if (is_kind("growing")) {
        return own_name() + ":" + name;
    }
    return name + own_name().size() + 1;
}

int open_server(const sts_session_def_v7_t* session, const char* name,
                const sts_server_def_s* server_def, sts_forwarded_t forwarded,
                throttling_server_s** out) {
    say(std::string("opens ") + name);
    auto* const server = new throttling_server_s{};
    next->open_session(session, &server->session);
    const int status = next->open_server(server->session, next_name(name).c_str(), server_def,
                                         forwarded, &server->server);
    if (status != STS_OK) {
        next->close_handle(server->session, 0);
        delete server;
        return status;
    }
    *out = server;
    return STS_OK;
}

int close_server(throttling_server_s* server) {
    say("closes a server");
    next->close_handle(server->server, 0);
    const int status = next->close_handle(server->session, 0);
    delete server;
    return status;
}

int create_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags,
                 throttling_image_s** out) {
    sts_lsu_ref_s below = *lsu;
    below.server = static_cast<throttling_server_s*>(lsu->server)->server;
    *out = new throttling_image_s{};
    // As a layer may: it gives the handle whatever comes of it.
    return next->create_image(&below, image_def, flags, &(*out)->image);
}

int close_image(throttling_image_s* image, int32_t mode, int32_t /*second_mode*/) {
    say("closes an image with mode " + std::to_string(mode));
    const int status = image->image != nullptr ? next->close_handle(image->image, mode) : STS_OK;
    delete image;
    return status;
}

int copy_extent(throttling_image_s* to, sts_forwarded_t to_position, throttling_image_s* from,
                sts_forwarded_t from_position, sts_forwarded_t length, sts_forwarded_t copied,
                sts_forwarded_t unused) {
    return next->copy_extent(to->image, to_position, from->image, from_position, length, copied,
                             unused);
}

int write_image(throttling_image_s* image, sts_forwarded_t forwarded, const void* buffer,
                uint64_t length, uint64_t position, uint64_t* written) {
    return next->write_image(image->image, forwarded, buffer, length, position, written);
}

int get_server_prop(throttling_server_s*, sts_server_info_s*) { return 1234567; }

int terminate() {
    say("stops");
    say("is told " + std::to_string(stsm_terminate()));
    return STS_OK;
}

stspi_ep_t entries() {
    stspi_ep_t made = {};
    if (!is_kind("claimless")) {
        made.claim_v7 = claim;
    }
    made.open_server_v7 = open_server;
    made.close_server_v7 = close_server;
    made.create_image_v10 = create_image;
    made.close_image_v7 = close_image;
    made.copy_extent = copy_extent;
    made.write_image_v7 = write_image;
    made.get_server_prop_v8 = get_server_prop;
    made.terminate_v7 = terminate;
    return made;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int stspi_init(uint64_t version, const char* path,
                                                                 stspi_api_rec_t* api) {
    static const stspi_ep_t table = entries();
    say("starts with " + std::to_string(version) + " " + path);
    if (is_kind("staying")) {
        Dl_info found = {};
        dladdr(reinterpret_cast<void*>(&own_file), &found);
        dlopen(found.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
    if (is_kind("refusing")) {
        return 2061013;
    }
    api->version = is_kind("old") ? 10 : 11;
    api->ep = is_kind("empty") ? nullptr : &table;
    return stsm_init(version, path, &next);
}
