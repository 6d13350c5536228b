// The 57 entries that the host calls, once and in slot order. The table's type, the prototypes, the
// entries that are not supported and the tests that walk the table all come from this one list.
//
// Slots 0 to 36 are in alphabetical order, those behind them are not: the host goes by number.
#pragma once

#include "plugin/stsapi.h"

struct throttling_server_s;
struct throttling_image_s;
struct throttling_lsu_list_s;
struct throttling_image_list_s;
struct throttling_evchannel_s;

/// Declared entries as ENTRY(name, (arguments)), those that only answer STS_ERR_NOT_SUPPORTED as
/// UNSUPPORTED(name). Every name is that of the function without its "throttling_".
// clang-format off
#define STSPI_ENTRIES(ENTRY, UNSUPPORTED)                                                            \
    ENTRY(async_flush, (throttling_image_s* image, sts_forwarded_t first, sts_forwarded_t second,    \
                        sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t fifth))       \
    UNSUPPORTED(async_read_image)                                                                    \
    ENTRY(async_wait, (const sts_session_def_v7_t* session, sts_next_operation_s** operation,        \
                       int32_t forwarded, sts_async_status_s* async_status))                         \
    UNSUPPORTED(async_write_image)                                                                   \
    ENTRY(claim_v7, (const char* name))                                                              \
    ENTRY(close_evchannel, (throttling_evchannel_s* channel))                                        \
    ENTRY(close_image_v7, (throttling_image_s* image, int32_t first_mode, int32_t second_mode))      \
    ENTRY(close_image_list_v7, (throttling_image_list_s* list))                                      \
    ENTRY(close_lsu_list_v7, (throttling_lsu_list_s* list))                                          \
    ENTRY(close_server_v7, (throttling_server_s* server))                                            \
    ENTRY(copy_extent, (throttling_image_s* image, sts_forwarded_t first, throttling_image_s*        \
                        other, sts_forwarded_t second, sts_forwarded_t third, sts_forwarded_t        \
                        fourth, sts_forwarded_t fifth))                                              \
    ENTRY(create_image_v10, (const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,             \
                             uint32_t flags, throttling_image_s** out))                              \
    ENTRY(delete_event, (throttling_server_s* server, sts_event_s* event))                           \
    ENTRY(delete_files, (throttling_image_s* image, sts_forwarded_t first, sts_forwarded_t second,   \
                         sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t fifth))      \
    ENTRY(delete_image_v10, (const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t    \
                             flags))                                                                 \
    ENTRY(get_event, (throttling_evchannel_s* channel, sts_event_s* event))                          \
    ENTRY(get_image_group, (throttling_image_s* image, sts_forwarded_t first, sts_forwarded_t        \
                            second, sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t   \
                            fifth))                                                                  \
    ENTRY(get_image_group_byname, (const sts_lsu_ref_s* lsu, sts_forwarded_t first,                  \
                                   sts_forwarded_t second))                                          \
    ENTRY(get_image_prop_v10, (void* handle, sts_image_info_s* info))                                \
    ENTRY(get_image_prop_byname_v10, (const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,    \
                                      sts_image_info_s* info))                                       \
    ENTRY(get_lsu_prop_byname_v11, (const sts_lsu_ref_s* lsu, sts_lsu_info_s* info))                 \
    ENTRY(get_server_prop_v8, (throttling_server_s* server, sts_server_info_s* info))                \
    ENTRY(get_server_prop_byname_v8, (const sts_session_def_v7_t* session, const char* name,         \
                                      sts_server_info_s* info))                                      \
    ENTRY(include_in_image, (throttling_image_s* image, sts_forwarded_t first, throttling_image_s*   \
                             other, sts_forwarded_t second, sts_forwarded_t third, sts_forwarded_t   \
                             fourth))                                                                \
    ENTRY(ioctl_v9, (throttling_server_s* server, uint32_t command, void* buffer))                   \
    ENTRY(list_image_v10, (throttling_image_list_s* list, void* entry))                              \
    ENTRY(list_lsu_v7, (throttling_lsu_list_s* list, void* entry))                                   \
    ENTRY(open_evchannel, (const sts_session_def_v7_t* session, const char* name, void*              \
                           event_source, sts_forwarded_t unused_4, sts_forwarded_t first,            \
                           sts_forwarded_t second, sts_forwarded_t unused_7, sts_forwarded_t         \
                           source_parameter, throttling_evchannel_s** out))                          \
    ENTRY(open_lsu_list_v11, (throttling_server_s* server, sts_forwarded_t forwarded,                \
                              throttling_lsu_list_s** out))                                          \
    ENTRY(open_server_v7, (const sts_session_def_v7_t* session, const char* name,                    \
                           const sts_server_def_s* server_def, sts_forwarded_t forwarded,            \
                           throttling_server_s** out))                                               \
    ENTRY(open_target_server, (throttling_server_s* server, sts_forwarded_t first,                   \
                               sts_forwarded_t second, sts_forwarded_t third,                        \
                               throttling_server_s** out))                                           \
    ENTRY(open_image_v10, (const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,               \
                           uint32_t flags, throttling_image_s** out))                                \
    ENTRY(open_image_group_list, (const sts_lsu_ref_s* lsu, sts_forwarded_t forwarded, int32_t       \
                                  type, throttling_image_list_s** out))                              \
    ENTRY(open_image_list_v7, (const sts_lsu_ref_s* lsu, int32_t type, throttling_image_list_s**     \
                               out))                                                                 \
    ENTRY(read_image_v7, (throttling_image_s* image, void* buffer, uint64_t length,                  \
                          uint64_t position, uint64_t* bytes_read))                                  \
    ENTRY(terminate_v7, ())                                                                          \
    ENTRY(write_image_v7, (throttling_image_s* image, sts_forwarded_t forwarded, const void* buffer, \
                           uint64_t length, uint64_t position, uint64_t* bytes_written))             \
    ENTRY(find_lsu, (throttling_server_s* server, sts_forwarded_t first, sts_forwarded_t second,     \
                     sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t fifth))          \
    ENTRY(label_lsu, (const sts_lsu_ref_s* lsu, sts_forwarded_t label))                              \
    ENTRY(read_image_meta, (throttling_image_s* image, sts_forwarded_t first, sts_forwarded_t        \
                            second, sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t   \
                            fifth))                                                                  \
    ENTRY(write_image_meta, (throttling_image_s* image, sts_forwarded_t first, sts_forwarded_t       \
                             second, sts_forwarded_t third, sts_forwarded_t fourth,                  \
                             sts_forwarded_t fifth))                                                 \
    ENTRY(async_cancel, (const sts_session_def_v7_t* session, sts_next_operation_s** operation))     \
    ENTRY(async_copy_image, (sts_forwarded_t unused, sts_forwarded_t source, const sts_lsu_ref_s*    \
                             lsu, sts_forwarded_t target, sts_next_operation_s*** out, uint32_t      \
                             flags, sts_copy_params_s copy_params))                                  \
    UNSUPPORTED(copy_image)                                                                          \
    ENTRY(get_event_payload, (throttling_server_s* server, sts_forwarded_t first, sts_forwarded_t    \
                              second))                                                               \
    UNSUPPORTED(named_async_cancel)                                                                  \
    UNSUPPORTED(named_async_copy_image)                                                              \
    UNSUPPORTED(named_async_status)                                                                  \
    UNSUPPORTED(named_async_wait)                                                                    \
    ENTRY(get_server_config_v11, (throttling_server_s* server, char* buffer, uint32_t length,        \
                                  uint32_t* used))                                                   \
    ENTRY(set_server_config_v11, (throttling_server_s* server, const char* text, char* error_text,   \
                                  uint32_t error_length))                                            \
    UNSUPPORTED(begin_copy_image)                                                                    \
    UNSUPPORTED(end_copy_image)                                                                      \
    UNSUPPORTED(async_end_copy_image)                                                                \
    UNSUPPORTED(named_async_end_copy_image)                                                          \
    ENTRY(get_lsu_replication_prop, (const sts_lsu_ref_s* lsu, uint32_t first, void* second,         \
                                     uint32_t third, void* fourth))                                  \
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
