// Sessions and servers: open, properties, configuration.

#include "platform/sts/operations/server.h"

#include "platform/sts/caller/library.h"
#include "platform/sts/caller/session_log.h"
#include "platform/sts/events/log.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/pipe.h"
#include "platform/sts/plugins/calls.h"
#include "platform/sts/store/image_files.h"
#include "platform/sts/store/lsu_files.h"
#include "platform/sts/store/settings.h"

#include <cstring>

namespace disk {

namespace {

struct session : object {
    static constexpr handle_kind kind = handle_kind::session;
    explicit session(const sts_session_def_v7_t& given) : definition(given) {}
    sts_session_def_v7_t definition;
};

constexpr size_t longest_list = 500; // bytes of names in a warning

enum config_command : uint32_t {
    read_config = 13,
    write_config = 14,
};

/// Removes what killed processes left in the store. What can't be removed now is at a later open.
void tidy(const store& files) {
    (void)status_of([&] { remove_abandoned_lsus(files); });
    for (const std::string& each : lsu_names(files)) {
        (void)status_of([&] {
            const unique_fd lsu = open_directory(files.directory.get(), each);
            if (const auto lock = directory_lock::try_exclusive(lsu.get())) {
                remove_abandoned_drafts(lsu.get());
            }
        });
    }
}

/// Tells the session what of the store others than its owner can read or change: what an earlier
/// release made, or what was opened to them.
void warn_of_readers(const store& files) {
    std::string readable;
    size_t unnamed = 0;
    for (const std::string& each : names_open_to_others(files)) {
        if (readable.size() < longest_list) {
            readable += (readable.empty() ? "" : ", ") + each;
        } else {
            ++unnamed;
        }
    }
    if (!readable.empty()) {
        const std::string root = path_of(files.directory.get());
        tell(files.waiter.session, STS_SEV_WARN,
             "others than the owner can get into " + root + " and read " + readable +
                 (unnamed > 0 ? " and " + std::to_string(unnamed) + " more" : "") +
                 "; \"chmod 700 " + root + "\" keeps them out");
    }
}

/// Opens a server of ours or of a plugin's.
int open_named_server(const sts_session_def_v7_t& owner, const char* name,
                      const sts_server_def_s* server_def, sts_forwarded_t forwarded,
                      sts_next_server_s** out) {
    require(name != nullptr && out != nullptr);
    if (is_pipe_name(name)) {
        return open_pipe_server(name, out);
    }
    if (!is_disk_name(name)) {
        return open_plugin_server(owner, name, server_def, forwarded, out);
    }
    auto opened =
        std::make_unique<server>(owner, open_store(name, missing_root::is_made, {owner, {}}));
    warn_of_readers(*opened->files);
    tidy(*opened->files);
    hand_out(std::move(opened), out);
    return STS_OK;
}

void fill_info(const store& files, sts_server_info_s* info) {
    sts_server_info_s filled = {};
    fill(filled.server_name, files.server_name);
    filled.lsu_count = lsu_names(files).size();
    const space found = space_of(files.directory.get());
    filled.capacity = found.capacity;
    filled.free = found.free;
    *info = filled;
}

/// Writes a configuration text into `length` bytes, terminated where there is room for that too,
/// and stores its length in any case.
int fill_config(const store& files, char* text, uint32_t length, uint32_t* used) {
    const std::string filled = settings_text(read_settings(files));
    *used = static_cast<uint32_t>(filled.size());
    if (filled.size() > length) {
        return STS_ERR_BUFFER_SPACE;
    }
    memcpy(text, filled.data(), filled.size());
    if (filled.size() < length) {
        text[filled.size()] = '\0';
    }
    return STS_OK;
}

/// Applies a configuration text, and on failure says why in words.
int apply_config(const store& files, std::string_view text, std::string* error) {
    require(!text.empty());
    const int status = status_of([&] { return write_settings(files, text, error); });
    if (status == STS_OK) {
        drop_surplus_events(files);
    } else if (error->empty()) {
        const int reason = sts_errno_of_status(status);
        *error = "the settings of " + files.server_name +
                 " can't be changed: " + strerror(reason != 0 ? reason : ENOMEM);
    }
    return status;
}

} // namespace

closing server::close(int32_t /*mode*/) {
    if (files->open_handles > 0) {
        return {STS_ERR_BUSY, true};
    }
    return {};
}

lsu_place open_lsu(const sts_lsu_ref_s* lsu) {
    require(lsu != nullptr);
    const borrowed<server> owner(lsu->server);
    return open_lsu(owner->files, text_of(lsu->name));
}

sts_session_def_v7_t definition_of(const sts_next_session_s* session_handle) {
    return borrowed<session>(session_handle)->definition;
}

int open_session(const sts_session_def_v7_t* given, sts_next_session_s** out) {
    require(given != nullptr && out != nullptr);
    if (!is_initialised()) {
        return STS_ERR_NOT_INIT;
    }
    hand_out(std::make_unique<session>(*given), out);
    return STS_OK;
}

int open_server(sts_next_session_s* session_handle, const char* name,
                const sts_server_def_s* server_def, sts_forwarded_t forwarded,
                sts_next_server_s** out) {
    return open_named_server(definition_of(session_handle), name, server_def, forwarded, out);
}

int open_target_server(sts_next_server_s* source, sts_forwarded_t name,
                       sts_forwarded_t /*unused_2*/, sts_forwarded_t /*unused_3*/,
                       sts_next_server_s** out) {
    const borrowed<server> from(source);
    const auto* const given = pointer_of<const char>(name);
    return open_named_server(from->session,
                             given != nullptr ? given : from->files->server_name.c_str(), nullptr,
                             0, out);
}

int get_server_prop(sts_next_server_s* server_handle, sts_server_info_s* info) {
    require(info != nullptr);
    fill_info(*borrowed<server>(server_handle)->files, info);
    return STS_OK;
}

int get_server_prop_byname(const sts_session_def_v7_t* given, const char* name,
                           sts_server_info_s* info) {
    require(given != nullptr && name != nullptr && info != nullptr);
    if (!is_initialised()) {
        return STS_ERR_NOT_INIT;
    }
    if (!is_disk_name(name)) {
        return get_plugin_server_prop(*given, name, info);
    }
    fill_info(*open_store(name, missing_root::fails, {*given, {}}), info);
    return STS_OK;
}

int get_server_config(sts_next_server_s* server_handle, char* text, uint32_t length,
                      uint32_t* used) {
    require(text != nullptr && used != nullptr);
    return fill_config(*borrowed<server>(server_handle)->files, text, length, used);
}

int set_server_config(sts_next_server_s* server_handle, const char* text, char* error_text,
                      uint32_t error_length) {
    require(text != nullptr && error_text != nullptr);
    const borrowed<server> owner(server_handle);
    std::string error;
    const int status = apply_config(*owner->files, text, &error);
    if (status != STS_OK && error_length > 0) {
        fill_field(error_text, error_length, error);
    }
    return status;
}

int ioctl(sts_next_server_s* server_handle, uint32_t command, void* buffer) {
    const borrowed<server> owner(server_handle);
    auto* const config = static_cast<sts_config_buffer_s*>(buffer);
    switch (command) {
    case read_config: {
        require(config != nullptr);
        uint32_t used = 0;
        const int status = fill_config(*owner->files, config->text, sizeof config->text, &used);
        config->used = static_cast<int32_t>(used);
        return status;
    }
    case write_config: {
        require(config != nullptr);
        std::string error;
        const size_t length = strnlen(config->text, sizeof config->text);
        return apply_config(*owner->files, {config->text, length}, &error);
    }
    default:
        return sts_status_of_errno(ENOTTY);
    }
}

} // namespace disk
