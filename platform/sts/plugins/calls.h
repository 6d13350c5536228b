// What a plugin's servers need beyond passing a call on (routed.h): opening by name, and the
// operations whose entries don't have the arguments of their slots.
#pragma once

#include "platform/sts/events/source.h"
#include "platform/sts/sts_records.h"

#include <memory>

namespace disk {

/// Fail with STS_ERR_NOT_CLAIMED where no plugin claims the name.
int open_plugin_server(const sts_session_def_v7_t& session, const char* name,
                       const sts_server_def_s* server_def, sts_forwarded_t forwarded,
                       sts_next_server_s** out);
int get_plugin_server_prop(const sts_session_def_v7_t& session, const char* name,
                           sts_server_info_s* info);

// Of the slots of that name, where the first handle is a plugin's.
int create_plugin_lsu(sts_next_server_s* server, const sts_lsu_def_s* definition, void** out);
int delete_plugin_lsu(const sts_lsu_ref_s* lsu);
int get_plugin_image_prop(void* handle, sts_image_info_s* info);
int copy_plugin_image(sts_forwarded_t source, const sts_lsu_ref_s* lsu, sts_forwarded_t target,
                      sts_next_operation_s** out, uint32_t flags, const sts_copy_params_s& params);
int wait_for_plugin_copy(const sts_session_def_v7_t* session, sts_next_operation_s* operation,
                         int32_t seconds, sts_async_status_s* status);
int cancel_plugin_copy(const sts_session_def_v7_t* session, sts_next_operation_s* operation);

/// Opens the events of a plugin's server. `session` stays where it is for as long as they are open.
std::unique_ptr<event_source> open_plugin_events(const sts_session_def_v7_t& session,
                                                 const char* server_name, void* source,
                                                 sts_forwarded_t first, sts_forwarded_t second,
                                                 sts_forwarded_t start);

} // namespace disk
