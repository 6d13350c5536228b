// The library's two doors and its table: `stsm_init` hands out the one table there is, and counts
// its users: the hosts, and apart from them the plugins that it loads for them
// (plugins/manager.h) and that call it in turn.
//
//   sts.cpp      the table, start and stop
//   operations/  what stands behind its slots
//   plugins/     plugins, who claims what, and the calls that are passed to them
//   events/      what has happened in a store, and what a channel receives of it
//   store/       where all of it is, how its files are reached and how they are locked
//   caller/      what the caller holds, how we fail, and what a host is told

#include "platform/sts/caller/library.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/plugins/manager.h"
#include "platform/sts/plugins/routed.h"

#include <atomic>
#include <mutex>

namespace disk {

namespace {

/// Starts and stops come one at a time. One that is found to lie within another is that of a plugin
/// which the outer one is starting or stopping: it is on the same thread.
std::recursive_mutex life_guard;
bool is_within = false;    // of a start or stop; behind life_guard
int plugin_users = 0;      // behind life_guard
std::atomic<int> hosts{0}; // written behind life_guard

/// Runs what calls plugins.
template <typename Body>
int with_plugins(Body body) {
    is_within = true;
    const int status = status_of(body);
    is_within = false;
    return status;
}

/// Gives up what is still open, images that are being written and copies too, then the plugins.
void stop() {
    (void)with_plugins(retire_all);
    (void)with_plugins(unload_plugins);
    (void)with_plugins(retire_all); // what a plugin has left of ours
    plugin_users = 0;
}

constexpr sts_api_t make_table() {
    sts_api_t made = {};
// Ours alone, or one that finds out for itself whose call it is.
#define OWN(name) made.name = guarded<name>::slot
// Ours, or the plugin's entry.
#define ROUTED(name, entry) made.name = routed<name, &stspi_ep_t::entry>::slot
    OWN(add_evsource);
    OWN(async_cancel);
    OWN(async_copy_image);
    OWN(async_wait);
    OWN(close_handle);
    ROUTED(copy_extent, copy_extent);
    ROUTED(create_image, create_image_v10);
    OWN(create_lsu);
    ROUTED(delete_event, delete_event);
    ROUTED(delete_files, delete_files);
    ROUTED(delete_image, delete_image_v10);
    OWN(delete_lsu);
    ROUTED(find_lsu, find_lsu);
    ROUTED(flush, async_flush);
    ROUTED(get_event_payload, get_event_payload);
    OWN(get_event);
    ROUTED(get_image_group_byname, get_image_group_byname);
    ROUTED(get_image_group, get_image_group);
    ROUTED(get_image_prop_byname, get_image_prop_byname_v10);
    OWN(get_image_prop);
    ROUTED(get_lsu_prop_byname, get_lsu_prop_byname_v11);
    ROUTED(get_lsu_replication_prop, get_lsu_replication_prop);
    ROUTED(get_server_config, get_server_config_v11);
    OWN(get_server_prop_byname);
    ROUTED(get_server_prop, get_server_prop_v8);
    ROUTED(include_in_image, include_in_image);
    ROUTED(ioctl, ioctl_v9);
    ROUTED(label_lsu, label_lsu);
    ROUTED(list_image, list_image_v10);
    ROUTED(list_lsu, list_lsu_v7);
    OWN(open_evchannel);
    ROUTED(open_image_group_list, open_image_group_list);
    ROUTED(open_image_list, open_image_list_v7);
    ROUTED(open_image, open_image_v10);
    ROUTED(open_lsu_list, open_lsu_list_v11);
    OWN(open_server);
    OWN(open_session);
    ROUTED(open_target_server, open_target_server);
    ROUTED(read_image_meta, read_image_meta);
    ROUTED(read_image, read_image_v7);
    ROUTED(set_server_config, set_server_config_v11);
    ROUTED(write_image_meta, write_image_meta);
    ROUTED(write_image, write_image_v7);
#undef OWN
#undef ROUTED
    return made;
}

constexpr sts_api_t table = make_table();

} // namespace

bool is_initialised() { return hosts > 0; }

int close_handle(void* handle, int32_t mode) { return close(handle, mode); }

namespace {

int begin_use(const char* path) {
    const std::lock_guard<std::recursive_mutex> lock(life_guard);
    if (is_within) {
        ++plugin_users;
        return STS_OK;
    }
    if (++hosts > 1) {
        return STS_OK;
    }
    const int status = with_plugins([&] { load_plugins(path); });
    if (status != STS_OK) {
        --hosts;
        stop();
    }
    return status;
}

int end_use() {
    const std::lock_guard<std::recursive_mutex> lock(life_guard);
    if ((is_within ? plugin_users : hosts.load()) == 0) {
        return STS_ERR_NOT_INIT;
    }
    if (is_within) {
        --plugin_users;
    } else if (--hosts == 0) {
        stop();
    }
    return hosts + plugin_users > 0 ? STS_ERR_TERMINATE_IGNORED : STS_OK;
}

} // namespace

} // namespace disk

#pragma GCC visibility push(default)

int stsm_init(uint64_t version, const char* path, const sts_api_t** table) {
    constexpr uint64_t table_version = 12;
    if (version != table_version) {
        return STS_ERR_VERSION;
    }
    if (path == nullptr || table == nullptr) {
        return STS_ERR_INVALID;
    }
    const int status = disk::begin_use(path);
    if (status == STS_OK) {
        *table = &disk::table;
    }
    return status;
}

int stsm_terminate() { return disk::end_use(); }

#pragma GCC visibility pop
