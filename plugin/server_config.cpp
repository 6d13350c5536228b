// The settings of the whole stack as one text. On a read the next layer's text comes first and ours
// behind it; on a write the same text goes down first, with no undo should ours then fail. Commands
// 13 and 14 of the ioctl are the same through a buffer of fixed size; every other command is
// relayed.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t read_config_command = 13;
constexpr uint32_t write_config_command = 14;
constexpr const char* set_failed = "set config fail.";

/// This layer's own text as the host sees it.
int read_own_config(const throttling_server_s& server, char (&text)[STS_CONFIG_SIZE]) {
    char storage[STS_NAME_SIZE];
    char type[STS_NAME_SIZE];
    get_net_server_name_type(server.server_name, storage, type);
    return without_throwing(
        [&] { return read_config_file_to_buf(&server.session, text, type, storage); });
}

int write_own_config(const throttling_server_s& server, const char* text) {
    char storage[STS_NAME_SIZE];
    char type[STS_NAME_SIZE];
    get_net_server_name_type(server.server_name, storage, type);
    return without_throwing(
        [&] { return write_config_file_from_buf(&server.session, text, type, storage); });
}

/// Appends `text` at the first zero of `buffer`, never behind its `length` bytes.
void append(char* buffer, size_t length, const char* text) {
    const size_t end = strnlen(buffer, length);
    memcpy(buffer + end, text, std::min(strlen(text), length - end));
}

int read_config(throttling_server_s& server, sts_config_buffer_s* buffer, const char* who) {
    char own[STS_CONFIG_SIZE] = {};
    if (const int status = read_own_config(server, own)) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "get config fail.");
        return status;
    }
    buffer->used = 0;
    memset(buffer->text, 0, sizeof buffer->text);
    if (server.next_server != nullptr) {
        const int status = next<&sts_api_t::ioctl>(server.next_server, read_config_command, buffer);
        if (status != STS_OK) {
            log_msg(&server.session, who, 1, STS_SEV_ERROR,
                    "can not get underneath plug-in's config.");
            return status;
        }
    }
    const auto own_length = static_cast<int64_t>(strlen(own));
    if (own_length + buffer->used > static_cast<int64_t>(sizeof buffer->text)) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "the buffer space is not enough.");
        return STS_ERR_BUFFER_SPACE;
    }
    append(buffer->text, sizeof buffer->text, own);
    buffer->used += static_cast<int32_t>(own_length);
    log_msg(&server.session, who, 1, STS_SEV_DEBUG, "get config OK.");
    return STS_OK;
}

int write_config(throttling_server_s& server, sts_config_buffer_s* buffer, const char* who) {
    if (buffer->text[0] == '\0') {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "set config fail because empty buffer.");
        return STS_ERR_INVALID;
    }
    int status = STS_OK;
    if (server.next_server != nullptr) {
        status = next<&sts_api_t::ioctl>(server.next_server, write_config_command, buffer);
    }
    if (status == STS_OK) {
        char text[sizeof buffer->text + 1] = {}; // a full buffer has no terminator of its own
        memcpy(text, buffer->text, sizeof buffer->text);
        status = write_own_config(server, text);
    }
    if (status != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, set_failed);
        return status;
    }
    log_msg(&server.session, who, 1, STS_SEV_DEBUG, "set config OK.");
    return STS_OK;
}

} // namespace

int throttling_get_server_config_v11(throttling_server_s* server, char* buffer, uint32_t length,
                                     uint32_t* used) {
    if (buffer == nullptr || used == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    memset(buffer, 0, length);
    char own[STS_CONFIG_SIZE] = {};
    if (const int status = read_own_config(*server, own)) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR, "get config fail.");
        return status;
    }
    uint32_t next_used = 0;
    if (server->next_server != nullptr) {
        const int status =
            next<&sts_api_t::get_server_config>(server->next_server, buffer, length, &next_used);
        if (status != STS_OK) {
            log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                    "can not get underneath plug-in's config.");
            return status;
        }
    }
    const uint64_t total = strlen(own) + uint64_t{next_used};
    *used = static_cast<uint32_t>(total);
    if (length < total) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR, "the buffer space is not enough.");
        return STS_ERR_BUFFER_SPACE;
    }
    append(buffer, length, own);
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

int throttling_set_server_config_v11(throttling_server_s* server, const char* text,
                                     char* error_text, uint32_t error_length) {
    if (text == nullptr || text[0] == '\0' || error_text == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (server->next_server != nullptr) {
        const int status = next<&sts_api_t::set_server_config>(server->next_server, text,
                                                               error_text, error_length);
        if (status != STS_OK) {
            log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                    "can not set underneath plug-in's config.");
            return status;
        }
    }
    if (const int status = write_own_config(*server, text)) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR, set_failed);
        snprintf(error_text, error_length, "%s", set_failed);
        return status;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

int throttling_ioctl_v9(throttling_server_s* server, uint32_t command, void* buffer) {
    if (buffer == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    int status = STS_OK;
    switch (command) {
    case read_config_command:
        status = read_config(*server, static_cast<sts_config_buffer_s*>(buffer), __func__);
        break;
    case write_config_command:
        status = write_config(*server, static_cast<sts_config_buffer_s*>(buffer), __func__);
        break;
    default:
        log_msg(&server->session, __func__, 1, STS_SEV_DEBUG,
                "relay the command %d to the next plugin", static_cast<int>(command));
        status = next<&sts_api_t::ioctl>(server->next_server, command, buffer);
        log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave. return code %d", status);
        return status;
    }
    if (status == STS_OK) { // a failed configuration command has said so already
        log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave. return code %d", status);
    }
    return status;
}
