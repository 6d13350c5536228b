#include "bench/plugin_host.h"

#include "platform/sts/sts_records.h"

#include <cstring>
#include <dlfcn.h>
#include <stdexcept>

namespace {

constexpr uint64_t host_version = 12;

template <typename Function>
void find(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(dlsym(library, name));
    if (function == nullptr) {
        throw std::runtime_error(dlerror());
    }
}

} // namespace

sts_session_def_v7_t quiet_session() {
    sts_session_def_v7_t session = {};
    session.session_id = "bench";
    session.log = [](const char*, const char*, sts_severity_v7_t) {};
    session.log_mask = STS_LOG_ERROR;
    return session;
}

void require_ok(int status, const char* call) {
    if (status != STS_OK) {
        throw std::runtime_error(std::string(call) + " answered " + std::to_string(status));
    }
}

std::string throttled(uint64_t bytes_per_second, int sample_interval) {
    return "THR:AVAIL_BANDWIDTH=" + std::to_string(bytes_per_second) +
           "\nTHR:SAMPLE_INTERVAL=" + std::to_string(sample_interval) + "\n";
}

plugin_host::plugin_host() {
    void* const library = dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    int (*init)(uint64_t, const char*, stspi_api_rec_t*) = nullptr;
    find(library, "stspi_init", init);
    find(library, "throttling_create_lsu", lsu_entries_.create_lsu);
    find(library, "throttling_delete_lsu", lsu_entries_.delete_lsu);
    configure(""); // so that a start doesn't write a file of its own
    require_ok(init(host_version, PLUGIN_FILE, &record_), "stspi_init");
}

plugin_host::~plugin_host() { ep().terminate_v7(); } // a host keeps a plugin loaded to its own end

const plugin_host& the_plugin_host() {
    static const plugin_host host;
    return host;
}

hosted_server::hosted_server(const plugin_host& host, const std::string& settings,
                             const sts_session_def_v7_t& session)
    : ep_(host.ep()) {
    host.configure(settings);
    require_ok(ep_.open_server_v7(&session, hosted_server_name, nullptr, 0, &handle_),
               "open_server");
}

hosted_server::~hosted_server() { ep_.close_server_v7(handle_); }

sts_lsu_ref_s hosted_server::lsu() const {
    sts_lsu_ref_s lsu = {};
    lsu.server = handle_;
    strcpy(lsu.name, "lsu");
    return lsu;
}

hosted_image::hosted_image(const hosted_server& server) : ep_(server.ep()) {
    const sts_lsu_ref_s lsu = server.lsu();
    sts_image_def_s definition = {};
    strcpy(definition.name, "image");
    require_ok(ep_.create_image_v10(&lsu, &definition, STS_IMAGE_WRITE, &handle_), "create_image");
}

hosted_image::~hosted_image() { ep_.close_image_v7(handle_, STS_CLOSE_COMPLETE, 0); }
