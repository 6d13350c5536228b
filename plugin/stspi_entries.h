// The 57 entries that the host calls, once and in slot order. The table's type, the prototypes, the
// entries that are not supported and the tests that walk the table all come from this one list.
//
// Slots 0 to 36 are in alphabetical order, those behind them are not: the host goes by number.
#pragma once

#include "plugin/stsapi.h"

struct throttling_server_s;
struct throttling_image_s;

/// Declared entries as ENTRY(name, (arguments)), those that only answer STS_ERR_NOT_SUPPORTED as
/// UNSUPPORTED(name). Every name is that of the function without its "throttling_".
// clang-format off
#define STSPI_ENTRIES(ENTRY, UNSUPPORTED)                                                            \
    UNSUPPORTED(async_flush)                                                                         \
    UNSUPPORTED(async_read_image)                                                                    \
    UNSUPPORTED(async_wait)                                                                          \
    UNSUPPORTED(async_write_image)                                                                   \
    ENTRY(claim_v7, (const char* name))                                                              \
    UNSUPPORTED(close_evchannel)                                                                     \
    ENTRY(close_image_v7, (throttling_image_s* image, int32_t first_mode, int32_t second_mode))      \
    UNSUPPORTED(close_image_list_v7)                                                                 \
    UNSUPPORTED(close_lsu_list_v7)                                                                   \
    ENTRY(close_server_v7, (throttling_server_s* server))                                            \
    UNSUPPORTED(copy_extent)                                                                         \
    ENTRY(create_image_v10, (const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,             \
                             uint32_t flags, throttling_image_s** out))                              \
    UNSUPPORTED(delete_event)                                                                        \
    UNSUPPORTED(delete_files)                                                                        \
    UNSUPPORTED(delete_image_v10)                                                                    \
    UNSUPPORTED(get_event)                                                                           \
    UNSUPPORTED(get_image_group)                                                                     \
    UNSUPPORTED(get_image_group_byname)                                                              \
    UNSUPPORTED(get_image_prop_v10)                                                                  \
    UNSUPPORTED(get_image_prop_byname_v10)                                                           \
    UNSUPPORTED(get_lsu_prop_byname_v11)                                                             \
    ENTRY(get_server_prop_v8, (throttling_server_s* server, sts_server_info_s* info))                \
    ENTRY(get_server_prop_byname_v8, (const sts_session_def_v7_t* session, const char* name,         \
                                      sts_server_info_s* info))                                      \
    UNSUPPORTED(include_in_image)                                                                    \
    UNSUPPORTED(ioctl_v9)                                                                            \
    UNSUPPORTED(list_image_v10)                                                                      \
    UNSUPPORTED(list_lsu_v7)                                                                         \
    UNSUPPORTED(open_evchannel)                                                                      \
    UNSUPPORTED(open_lsu_list_v11)                                                                   \
    ENTRY(open_server_v7, (const sts_session_def_v7_t* session, const char* name,                    \
                           const sts_server_def_s* server_def, sts_forwarded_t forwarded,            \
                           throttling_server_s** out))                                               \
    ENTRY(open_target_server, (throttling_server_s* server, sts_forwarded_t first,                   \
                               sts_forwarded_t second, sts_forwarded_t third,                        \
                               throttling_server_s** out))                                           \
    ENTRY(open_image_v10, (const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,               \
                           uint32_t flags, throttling_image_s** out))                                \
    UNSUPPORTED(open_image_group_list)                                                               \
    UNSUPPORTED(open_image_list_v7)                                                                  \
    ENTRY(read_image_v7, (throttling_image_s* image, void* buffer, uint64_t length,                  \
                          uint64_t position, uint64_t* bytes_read))                                  \
    ENTRY(terminate_v7, ())                                                                          \
    ENTRY(write_image_v7, (throttling_image_s* image, sts_forwarded_t forwarded, const void* buffer, \
                           uint64_t length, uint64_t position, uint64_t* bytes_written))             \
    UNSUPPORTED(find_lsu)                                                                            \
    UNSUPPORTED(label_lsu)                                                                           \
    UNSUPPORTED(read_image_meta)                                                                     \
    UNSUPPORTED(write_image_meta)                                                                    \
    UNSUPPORTED(async_cancel)                                                                        \
    UNSUPPORTED(async_copy_image)                                                                    \
    UNSUPPORTED(copy_image)                                                                          \
    UNSUPPORTED(get_event_payload)                                                                   \
    UNSUPPORTED(named_async_cancel)                                                                  \
    UNSUPPORTED(named_async_copy_image)                                                              \
    UNSUPPORTED(named_async_status)                                                                  \
    UNSUPPORTED(named_async_wait)                                                                    \
    UNSUPPORTED(get_server_config_v11)                                                               \
    UNSUPPORTED(set_server_config_v11)                                                               \
    UNSUPPORTED(begin_copy_image)                                                                    \
    UNSUPPORTED(end_copy_image)                                                                      \
    UNSUPPORTED(async_end_copy_image)                                                                \
    UNSUPPORTED(named_async_end_copy_image)                                                          \
    UNSUPPORTED(get_lsu_replication_prop)                                                            \
    UNSUPPORTED(iocontrol_v11)
// clang-format on

constexpr size_t STSPI_ENTRY_COUNT = 57;

/// The entry table as the host reads it: one typed pointer a slot.
struct stspi_ep_t {
#define STSPI_SLOT(name, arguments) int(*name) arguments;
#define STSPI_UNSUPPORTED_SLOT(name) int (*name)();
    STSPI_ENTRIES(STSPI_SLOT, STSPI_UNSUPPORTED_SLOT)
#undef STSPI_SLOT
#undef STSPI_UNSUPPORTED_SLOT
};
static_assert(sizeof(stspi_ep_t) == STSPI_ENTRY_COUNT * sizeof(void*));
