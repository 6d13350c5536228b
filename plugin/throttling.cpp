// Start and stop of the layer, and what the host gets of it: the entry table and the record that
// carries it.
//
//   start: configuration, log, service library, next layer     (first stspi_init)
//   stop:  service library, next layer, log                     (last throttling_terminate_v7)
//
// The host calls start and stop one at a time; nothing here locks.

#include "plugin/throttling.h"

#include "common/cloud_error_catalogue.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr uint64_t lowest_host_version = 11;
constexpr uint64_t next_layer_version = 12; // so only a host of version 12 starts the layer
constexpr uint64_t interface_version = 11;
constexpr int version_number = 910000;

/// Calls of stspi_init that got past the version check, less calls of throttling_terminate_v7.
int32_t gs_throttling_inits = 0;

/// Fills the record for the host.
int setapi(stspi_api_rec_t* api) {
    api->version = interface_version;
    api->ep = &ep;
    strncpy(api->prefix, server_prefix, sizeof api->prefix - 1);
    api->prefix[sizeof api->prefix - 1] = '\0';
    strncpy(api->label, "Throttling Plugin", sizeof api->label - 1);
    api->label[sizeof api->label - 1] = '\0';
    api->fixed_528 = 1;
    api->fixed_532 = 0;
    api->fixed_536 = 11;
    api->fixed_544 = 2;
    api->version_copy = api->version;
    api->version_text[0] = '\0';
    snprintf(api->version_text, sizeof api->version_text - 1, "%d %s", version_number,
             get_VL_binary_version2());
    api->version_text[sizeof api->version_text - 1] = '\0';
    return STS_OK;
}

/// The steps of the first stspi_init. What fails leaves the layer counted as started, apart from
/// the last step, which can be tried again.
int start(uint64_t version, const char* path, stspi_api_rec_t* api) {
    constexpr const char* who = "stspi_init";
    throttling_config_s config; // for its log level: each server reads its own
    config_set_path(path);
    if (const int status = config_init(&config)) {
        return status;
    }
    if (const int status = log_init(config.log_level)) {
        return status;
    }
    log_msg(nullptr, who, 1, STS_SEV_DEBUG, "log inited.");
    if (ServiceConnector::init() != STS_OK) {
        log_msg(nullptr, who, 1, STS_SEV_ERROR, "fail to init curl:%d.", 0);
        return STS_ERR_NOT_INIT;
    }
    if (const int status = sts_init(version, path)) {
        throttling_terminate_v7();
        log_msg(nullptr, who, 1, STS_SEV_ERROR, "fail to call sts_init.");
        return status;
    }
    return setapi(api);
}

} // namespace

const sts_api_t* sts_api = nullptr;
int32_t stspi_ismt = 0;

#define ENTRY_POINTER(name, arguments) throttling_##name,
#define UNSUPPORTED_POINTER(name) throttling_##name,
const stspi_ep_t ep = {STSPI_ENTRIES(ENTRY_POINTER, UNSUPPORTED_POINTER)};
#undef ENTRY_POINTER
#undef UNSUPPORTED_POINTER

#define DEFINE_NOTHING(name, arguments)
#define DEFINE_UNSUPPORTED(name)                                                                   \
    int throttling_##name() { return STS_ERR_NOT_SUPPORTED; }
STSPI_ENTRIES(DEFINE_NOTHING, DEFINE_UNSUPPORTED)
#undef DEFINE_NOTHING
#undef DEFINE_UNSUPPORTED

int stspi_init(uint64_t version, const char* path, stspi_api_rec_t* api) {
    if (version < lowest_host_version) {
        return STS_ERR_PLUGIN_VERSION;
    }
    if (gs_throttling_inits++ > 0) {
        return setapi(api);
    }
    return without_throwing([&] { return start(version, path, api); });
}

int stspi_init2(uint64_t version, stspi_api2_rec_t* out) {
    if (out == nullptr) {
        return STS_ERR_INVALID;
    }
    if (version < lowest_host_version) {
        return STS_ERR_PLUGIN_VERSION;
    }
    out->version = interface_version;
    out->entry_points = PluginEntryPoints2_v11;
    return STS_OK;
}

int throttling_terminate_v7() {
    log_msg(nullptr, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (--gs_throttling_inits > 0) {
        return STS_OK;
    }
    int result = STS_OK;
    if (gs_throttling_inits < 0) {
        gs_throttling_inits = 0;
        result = STS_ERR_NOT_INIT;
    }
    if (ServiceConnector::terminate() != STS_OK) {
        log_msg(nullptr, __func__, 1, STS_SEV_ERROR, "curl cleanup failed");
        result = STS_ERR_NOT_INIT;
    }
    sts_terminate();
    log_msg(nullptr, __func__, 1, STS_SEV_DEBUG, "leave.");
    log_shutdown();
    return result;
}

int sts_init(uint64_t version, const char* path) {
    if (version != next_layer_version) {
        return STS_ERR_VERSION;
    }
    if (path == nullptr) {
        return STS_ERR_INVALID;
    }
    return stsm_init(version, path, &sts_api);
}

int sts_terminate() {
    const int status = stsm_terminate();
    if (status == STS_OK) {
        sts_api = nullptr;
    }
    return status == STS_ERR_TERMINATE_IGNORED ? STS_OK : status;
}

int sts_notinit() { return STS_ERR_NOT_INIT; }
