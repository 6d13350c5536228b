// The records that cross to the plugin: texts into their fields, and what they hold as the fields
// of an object, for people and programs alike.
#pragma once

#include "platform/sts/sts_records.h"
#include "tools/terminal/tables.h"

#include <cstring>
#include <string>
#include <vector>

// --- in ----------------------------------------------------------------------------------------

/// Copies `text` into a field of `size` bytes. Fails, naming `what` it is, when it is too long.
void copy_text_to(char* field, size_t size, const std::string& text, const std::string& what);

template <size_t size>
void copy_text(char (&field)[size], const std::string& text, const std::string& what) {
    copy_text_to(field, size, text, what);
}

sts_image_def_s image_definition(const std::string& image, const std::string& group = {});
sts_lsu_def_s lsu_definition(const std::string& lsu, const std::string& label);

/// What a copy makes; `server` is the next layer's name of it, empty: the source's.
sts_copy_target_s copy_target(const std::string& image, const std::string& lsu,
                              const std::string& server = {});

/// How a copy is made: `block` bytes at a time and at most `rate` bytes a second; 0: as the storage
/// does.
sts_copy_params_s copy_params(uint64_t block, uint64_t rate);

/// A copy that the plugin frees.
sts_lsu_ref_s* given_up_copy(const sts_lsu_ref_s& lsu);

/// A pointer as a forwarded value.
inline sts_forwarded_t forwarded(const void* pointer) {
    return reinterpret_cast<sts_forwarded_t>(pointer);
}

// --- out ---------------------------------------------------------------------------------------

/// A text field that the other side should have terminated.
template <size_t size>
std::string text_of(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

ordered_json fields_of(const sts_server_info_s& info);
ordered_json fields_of(const sts_lsu_info_s& info);
ordered_json fields_of(const sts_lsu_entry_s& entry);
ordered_json fields_of(const sts_image_info_s& info);
ordered_json fields_of(const sts_image_entry_s& entry);
ordered_json fields_of(const sts_image_group_s& group);
ordered_json fields_of(const sts_async_status_s& status);
ordered_json fields_of(const sts_event_s& event);
ordered_json fields_of(const sts_event_payload_s& payload);
/// Of all peers before the first that is empty.
ordered_json fields_of(const std::vector<sts_replication_peer_s>& peers);

/// The names of the kinds of events, by sts_event_kind_t - 1: "image-created", ...
const std::vector<std::string>& event_kinds();
