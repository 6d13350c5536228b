// The library's two doors and its table: `stsm_init` hands out the one table there is, and counts
// its users.
//
//   sts.cpp            the table, start and stop, closing of handles
//   server.cpp         sessions and servers          settings.cpp     their configuration
//   lsu.cpp            LSUs                          replication.cpp  who their images come from
//   image.cpp          images                        image_files.cpp  their files
//   transfer.cpp       their bytes                   async_copy.cpp   copies by a thread
//   lists.cpp          lists
//   event_channel.cpp  event channels                event_log.cpp    the events' files
//   store.cpp          where all of it is            files.cpp        how files are reached
//   handles.cpp        what the caller holds         failure.h        how we fail
//   plugins.cpp        servers of others

#include "platform/sts/library.h"
#include "platform/sts/operations.h"
#include "platform/sts/store.h"

#include <mutex>

namespace disk {

namespace {

std::mutex users_guard;
int users = 0;

constexpr sts_api_t make_table() {
    sts_api_t made = {};
#define DISK_SLOT(name) made.name = guarded<name>::slot
    DISK_SLOT(add_evsource);
    DISK_SLOT(async_cancel);
    DISK_SLOT(async_copy_image);
    DISK_SLOT(async_wait);
    DISK_SLOT(close_handle);
    DISK_SLOT(copy_extent);
    DISK_SLOT(create_image);
    DISK_SLOT(create_lsu);
    DISK_SLOT(delete_event);
    DISK_SLOT(delete_files);
    DISK_SLOT(delete_image);
    DISK_SLOT(delete_lsu);
    DISK_SLOT(find_lsu);
    DISK_SLOT(flush);
    DISK_SLOT(get_event_payload);
    DISK_SLOT(get_event);
    DISK_SLOT(get_image_group_byname);
    DISK_SLOT(get_image_group);
    DISK_SLOT(get_image_prop_byname);
    DISK_SLOT(get_image_prop);
    DISK_SLOT(get_lsu_prop_byname);
    DISK_SLOT(get_lsu_replication_prop);
    DISK_SLOT(get_server_config);
    DISK_SLOT(get_server_prop_byname);
    DISK_SLOT(get_server_prop);
    DISK_SLOT(include_in_image);
    DISK_SLOT(ioctl);
    DISK_SLOT(label_lsu);
    DISK_SLOT(list_image);
    DISK_SLOT(list_lsu);
    DISK_SLOT(open_evchannel);
    DISK_SLOT(open_image_group_list);
    DISK_SLOT(open_image_list);
    DISK_SLOT(open_image);
    DISK_SLOT(open_lsu_list);
    DISK_SLOT(open_server);
    DISK_SLOT(open_session);
    DISK_SLOT(open_target_server);
    DISK_SLOT(read_image_meta);
    DISK_SLOT(read_image);
    DISK_SLOT(set_server_config);
    DISK_SLOT(write_image_meta);
    DISK_SLOT(write_image);
#undef DISK_SLOT
    return made;
}

constexpr sts_api_t table = make_table();

} // namespace

bool is_initialised() {
    const std::lock_guard<std::mutex> lock(users_guard);
    return users > 0;
}

int close_handle(void* handle, int32_t mode) {
    if (kind_of(handle) == handle_kind::server &&
        borrowed<server>(handle)->files->open_handles > 0) {
        return STS_ERR_BUSY;
    }
    std::unique_ptr<object> closed = retire(handle);
    require(closed != nullptr);
    return kind_of(handle) == handle_kind::image ? close_image(std::move(closed), mode) : STS_OK;
}

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
    const std::lock_guard<std::mutex> lock(disk::users_guard);
    ++disk::users;
    *table = &disk::table;
    return STS_OK;
}

int stsm_terminate() {
    {
        const std::lock_guard<std::mutex> lock(disk::users_guard);
        if (disk::users == 0) {
            return STS_ERR_NOT_INIT;
        }
        if (--disk::users > 0) {
            return STS_ERR_TERMINATE_IGNORED;
        }
    }
    disk::retire_all(); // images that are being written are given up, copies cancelled
    return STS_OK;
}

#pragma GCC visibility pop
