// The functions behind the slots of the table, by topic. What each takes and answers stands in
// sts_records.h; they throw their failures (caller/failure.h).
#pragma once

#include "platform/sts/caller/handles.h"
#include "platform/sts/sts_records.h"

#include <memory>

namespace disk {

// server.cpp
/// The definition that a session was opened with; STS_ERR_INVALID unless it is a session's handle.
sts_session_def_v7_t definition_of(const sts_next_session_s* session);
int open_session(const sts_session_def_v7_t* session, sts_next_session_s** out);
int open_server(sts_next_session_s* session, const char* name, const sts_server_def_s* server_def,
                sts_forwarded_t forwarded, sts_next_server_s** out);
int open_target_server(sts_next_server_s* source, sts_forwarded_t name, sts_forwarded_t unused_2,
                       sts_forwarded_t unused_3, sts_next_server_s** out);
int get_server_prop(sts_next_server_s* server_handle, sts_server_info_s* info);
int get_server_prop_byname(const sts_session_def_v7_t* session, const char* name,
                           sts_server_info_s* info);
int get_server_config(sts_next_server_s* server_handle, char* text, uint32_t length,
                      uint32_t* used);
int set_server_config(sts_next_server_s* server_handle, const char* text, char* error_text,
                      uint32_t error_length);
int ioctl(sts_next_server_s* server_handle, uint32_t command, void* buffer);

// sts.cpp
int close_handle(void* handle, int32_t mode);

// lsu.cpp
int create_lsu(sts_next_server_s* server_handle, const sts_lsu_def_s* definition, void** out);
int delete_lsu(const sts_lsu_ref_s* lsu);
int find_lsu(sts_next_server_s* server_handle, sts_forwarded_t label, sts_forwarded_t found,
             sts_forwarded_t, sts_forwarded_t, sts_forwarded_t);
int label_lsu(const sts_lsu_ref_s* lsu, sts_forwarded_t label);
int get_lsu_prop_byname(const sts_lsu_ref_s* lsu, sts_lsu_info_s* info);
int get_lsu_replication_prop(const sts_lsu_ref_s* lsu, uint32_t source_room, void* sources,
                             uint32_t target_room, void* targets);

// lists.cpp
int open_lsu_list(sts_next_server_s* server_handle, sts_forwarded_t, sts_next_lsu_list_s** out);
int list_lsu(sts_next_lsu_list_s* list, void* entry);
int open_image_list(const sts_lsu_ref_s* lsu, int32_t type, sts_next_image_list_s** out);
int open_image_group_list(const sts_lsu_ref_s* lsu, sts_forwarded_t, int32_t type,
                          sts_next_image_list_s** out);
int list_image(sts_next_image_list_s* list, void* entry);

// image.cpp
int create_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags,
                 sts_next_image_s** out);
int open_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags,
               sts_next_image_s** out);
int delete_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags);
int get_image_prop(void* handle, sts_image_info_s* info);
int get_image_prop_byname(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                          sts_image_info_s* info);
int get_image_group(sts_next_image_s* image_handle, sts_forwarded_t group, sts_forwarded_t,
                    sts_forwarded_t, sts_forwarded_t, sts_forwarded_t);
int get_image_group_byname(const sts_lsu_ref_s* lsu, sts_forwarded_t name, sts_forwarded_t group);

// transfer.cpp
int read_image(sts_next_image_s* image_handle, void* buffer, uint64_t length, uint64_t position,
               uint64_t* bytes_read);
int write_image(sts_next_image_s* image_handle, sts_forwarded_t, const void* buffer,
                uint64_t length, uint64_t position, uint64_t* bytes_written);
int flush(sts_next_image_s* image_handle, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
          sts_forwarded_t, sts_forwarded_t);
int read_image_meta(sts_next_image_s* image_handle, sts_forwarded_t buffer, sts_forwarded_t length,
                    sts_forwarded_t position, sts_forwarded_t bytes_read, sts_forwarded_t);
int write_image_meta(sts_next_image_s* image_handle, sts_forwarded_t buffer, sts_forwarded_t length,
                     sts_forwarded_t position, sts_forwarded_t bytes_written, sts_forwarded_t);
int copy_extent(sts_next_image_s* to, sts_forwarded_t to_position, sts_next_image_s* from,
                sts_forwarded_t from_position, sts_forwarded_t length, sts_forwarded_t copied,
                sts_forwarded_t);
int include_in_image(sts_next_image_s* to, sts_forwarded_t to_position, sts_next_image_s* from,
                     sts_forwarded_t copied, sts_forwarded_t, sts_forwarded_t);
int delete_files(sts_next_image_s* image_handle, sts_forwarded_t files, sts_forwarded_t,
                 sts_forwarded_t, sts_forwarded_t, sts_forwarded_t);

// async_copy.cpp
int async_copy_image(const sts_session_def_v7_t* session, sts_forwarded_t source,
                     const sts_lsu_ref_s* lsu, sts_forwarded_t target, sts_next_operation_s** out,
                     uint32_t flags, sts_copy_params_s params);
int async_wait(const sts_session_def_v7_t* session, sts_next_operation_s* operation_handle,
               int32_t seconds, sts_async_status_s* status);
int async_cancel(const sts_session_def_v7_t* session, sts_next_operation_s* operation_handle);

// event_channel.cpp
int open_evchannel(sts_next_session_s* session, sts_forwarded_t first, sts_forwarded_t second,
                   sts_next_evchannel_s** out);
int add_evsource(sts_next_evchannel_s* channel_handle, int, sts_forwarded_t start,
                 const char* server_name, void* event_source, int);
int get_event(sts_next_evchannel_s* channel_handle, sts_event_s* event);
int get_event_payload(sts_next_server_s* server_handle, sts_forwarded_t event,
                      sts_forwarded_t payload);
int delete_event(sts_next_server_s* server_handle, sts_event_s* event);

/// What a forwarded value points to; null for 0.
template <typename Pointed>
Pointed* pointer_of(sts_forwarded_t value) {
    return reinterpret_cast<Pointed*>(value); // NOLINT(performance-no-int-to-ptr)
}

} // namespace disk
