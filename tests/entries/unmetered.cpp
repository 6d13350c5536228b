#include "tests/entries/unmetered.h"

#include "tests/entries/memory_meter.h"
#include "tests/support/fake_next_layer.h"
#include "tests/support/host_session.h"
#include "tests/support/scripted_client.h"

#include <cstdio>

namespace {

/// The recording next layer, where the meter stands still.
template <auto slot>
struct unmetered;

template <typename... Arguments, int (*sts_api_t::*slot)(Arguments...)>
struct unmetered<slot> {
    static int call(Arguments... arguments) {
        const pause_metering paused;
        return (fake_next_layer::table()->*slot)(arguments...);
    }
};

/// The host's callback, where the meter stands still.
void log_unmetered(const char* session_id, const char* message, sts_severity_v7_t severity) {
    const pause_metering paused;
    static const auto keep = host_session().log;
    keep(session_id, message, severity);
}

} // namespace

const sts_api_t* unmetered_table() {
    static const sts_api_t the_table = [] {
        sts_api_t table = {};
#define UNMETERED(slot) table.slot = unmetered<&sts_api_t::slot>::call;
        UNMETERED(add_evsource)
        UNMETERED(async_cancel)
        UNMETERED(async_copy_image)
        UNMETERED(async_wait)
        UNMETERED(close_handle)
        UNMETERED(copy_extent)
        UNMETERED(create_image)
        UNMETERED(create_lsu)
        UNMETERED(delete_event)
        UNMETERED(delete_files)
        UNMETERED(delete_image)
        UNMETERED(delete_lsu)
        UNMETERED(find_lsu)
        UNMETERED(flush)
        UNMETERED(get_event)
        UNMETERED(get_event_payload)
        UNMETERED(get_image_group)
        UNMETERED(get_image_group_byname)
        UNMETERED(get_image_prop)
        UNMETERED(get_image_prop_byname)
        UNMETERED(get_lsu_prop_byname)
        UNMETERED(get_lsu_replication_prop)
        UNMETERED(get_server_config)
        UNMETERED(get_server_prop)
        UNMETERED(get_server_prop_byname)
        UNMETERED(include_in_image)
        UNMETERED(ioctl)
        UNMETERED(label_lsu)
        UNMETERED(list_image)
        UNMETERED(list_lsu)
        UNMETERED(open_evchannel)
        UNMETERED(open_image)
        UNMETERED(open_image_group_list)
        UNMETERED(open_image_list)
        UNMETERED(open_lsu_list)
        UNMETERED(open_server)
        UNMETERED(open_session)
        UNMETERED(open_target_server)
        UNMETERED(read_image)
        UNMETERED(read_image_meta)
        UNMETERED(set_server_config)
        UNMETERED(write_image)
        UNMETERED(write_image_meta)
#undef UNMETERED
        return table;
    }();
    return &the_table;
}

void leave_unmetered(sts_session_def_v7_t& session) { session.log = log_unmetered; }

void leave_client_unmetered() {
    service().on_aside = [was_running = false](bool aside) mutable {
        if (aside) {
            was_running = memory_meter::is_running();
        }
        memory_meter::set_running(!aside && was_running);
    };
}

// The linker sends the plugin's calls here (--wrap). What a file's name or owner takes beyond them
// is that of fault.cpp or of the platform.
extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    const pause_metering paused;
    return __real_fopen(path, mode);
}

int __real_onet_chown_service_user_if_root(const char* path, int flags);
int __wrap_onet_chown_service_user_if_root(const char* path, int flags) {
    const pause_metering paused;
    return __real_onet_chown_service_user_if_root(path, flags);
}

int __real_stsm_init(uint64_t version, const char* path, const sts_api_t** table);
int __wrap_stsm_init(uint64_t version, const char* path, const sts_api_t** table) {
    const pause_metering paused;
    return __real_stsm_init(version, path, table);
}

int __real_stsm_terminate();
int __wrap_stsm_terminate() {
    const pause_metering paused;
    return __real_stsm_terminate();
}

} // extern "C"
