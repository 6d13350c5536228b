#include "bench/next_layer.h"

namespace {

/// A slot that has nothing to give back.
template <typename... Arguments>
int succeed(Arguments...) {
    return STS_OK;
}

int open_session(const sts_session_def_v7_t*, sts_next_session_s** session) {
    *session = any_handle<sts_next_session_s>();
    return STS_OK;
}

int open_server(sts_next_session_s*, const char*, const sts_server_def_s*, sts_forwarded_t,
                sts_next_server_s** server) {
    *server = any_handle<sts_next_server_s>();
    return STS_OK;
}

int open_image(const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t, sts_next_image_s** image) {
    *image = any_handle<sts_next_image_s>();
    return STS_OK;
}

int open_image_list(const sts_lsu_ref_s*, int32_t, sts_next_image_list_s** list) {
    *list = any_handle<sts_next_image_list_s>();
    return STS_OK;
}

int open_image_group_list(const sts_lsu_ref_s*, sts_forwarded_t, int32_t,
                          sts_next_image_list_s** list) {
    *list = any_handle<sts_next_image_list_s>();
    return STS_OK;
}

int open_lsu_list(sts_next_server_s*, sts_forwarded_t, sts_next_lsu_list_s** list) {
    *list = any_handle<sts_next_lsu_list_s>();
    return STS_OK;
}

int open_evchannel(sts_next_session_s*, sts_forwarded_t, sts_forwarded_t,
                   sts_next_evchannel_s** channel) {
    *channel = any_handle<sts_next_evchannel_s>();
    return STS_OK;
}

int read_image(sts_next_image_s*, void*, uint64_t length, uint64_t, uint64_t* bytes_read) {
    *bytes_read = length;
    return STS_OK;
}

int write_image(sts_next_image_s*, sts_forwarded_t, const void*, uint64_t length, uint64_t,
                uint64_t* bytes_written) {
    *bytes_written = length;
    return STS_OK;
}

sts_api_t make_table() {
    sts_api_t table = {};
    table.open_session = open_session;
    table.open_server = open_server;
    table.open_image = open_image;
    table.create_image = open_image;
    table.open_image_list = open_image_list;
    table.open_image_group_list = open_image_group_list;
    table.open_lsu_list = open_lsu_list;
    table.open_evchannel = open_evchannel;
    table.read_image = read_image;
    table.write_image = write_image;
    table.add_evsource = succeed;
    table.async_cancel = succeed;
    table.async_copy_image = succeed;
    table.async_wait = succeed;
    table.close_handle = succeed;
    table.copy_extent = succeed;
    table.create_lsu = succeed;
    table.delete_event = succeed;
    table.delete_files = succeed;
    table.delete_image = succeed;
    table.delete_lsu = succeed;
    table.find_lsu = succeed;
    table.flush = succeed;
    table.get_event = succeed;
    table.get_event_payload = succeed;
    table.get_image_group = succeed;
    table.get_image_group_byname = succeed;
    table.get_image_prop = succeed;
    table.get_image_prop_byname = succeed;
    table.get_lsu_prop_byname = succeed;
    table.get_lsu_replication_prop = succeed;
    table.get_server_config = succeed;
    table.get_server_prop = succeed;
    table.get_server_prop_byname = succeed;
    table.include_in_image = succeed;
    table.ioctl = succeed;
    table.label_lsu = succeed;
    table.list_image = succeed;
    table.list_lsu = succeed;
    table.read_image_meta = succeed;
    table.set_server_config = succeed;
    table.write_image_meta = succeed;
    return table;
}

} // namespace

const sts_api_t& idle_next_layer() {
    static const sts_api_t table = make_table();
    return table;
}

#pragma GCC visibility push(default)

int stsm_init(uint64_t, const char*, const sts_api_t** table) {
    *table = &idle_next_layer();
    return STS_OK;
}

int stsm_terminate() { return STS_OK; }

#pragma GCC visibility pop
