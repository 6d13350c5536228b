// Servers: claimed by their prefix, opened through the next layer under the rest of their name, and
// closed when nothing is open on them.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <cstring>

namespace {

/// The two samples of a server that has moved nothing yet.
std::vector<bandwidth_s> new_samples() {
    const time_t now = time(nullptr);
    return {{OPERATION_READ, now, now, 0}, {OPERATION_WRITE, now, now, 0}};
}

/// Gives a storage that is seen for the first time its entry in the settings. False when it has
/// one or needs none.
bool add_storage(throttling_server_s& server) {
    char storage[STS_NAME_SIZE];
    char type[STS_NAME_SIZE];
    get_net_server_name_type(server.server_name, storage, type);
    if (strcmp(type, global_server_type) == 0) {
        return false;
    }
    const auto limit = static_cast<uint32_t>(server.config.default_max_connections);
    return server.config.connections.emplace(storage, limit).second;
}

/// Reads the settings, and records a new storage in their file, where an operator can then change
/// its limit. A name that isn't `valid` is recorded nowhere.
int read_settings(throttling_server_s& server, const sts_session_def_v7_t* session, bool valid,
                  const char* who) {
    settings_seen seen;
    server.config = {};
    if (read_config_file_to_var(session, &server.config, seen) != STS_OK) {
        log_msg(session, who, 1, STS_SEV_ERROR, "read config error, use default.");
    }
    if (!valid || !add_storage(server)) {
        return STS_OK;
    }
    const int status = write_config_file_from_var(&server.session, &server.config, seen);
    return status == settings_left ? STS_OK : status; // the next open records it
}

/// Opens the session and the server `next_name` of the next layer. What was opened before a failure
/// stays in the handle.
int open_next_server(throttling_server_s& server, const sts_session_def_v7_t* session,
                     const char* next_name, const sts_server_def_s* server_def,
                     sts_forwarded_t forwarded, const char* who) {
    int status = next<&sts_api_t::open_session>(session, &server.next_session);
    if (status != STS_OK) {
        log_msg(session, who, 1, STS_SEV_ERROR, "fail to open session, return code: %d", status);
        return status;
    }
    status = next<&sts_api_t::open_server>(server.next_session, next_name, server_def, forwarded,
                                           &server.next_server);
    if (status != STS_OK) {
        log_msg(session, who, 1, STS_SEV_ERROR,
                "fail to open server of the next plugin in stack, return code: %d", status);
        return status;
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "succeed to open server of the next plugin in stack.");
    return STS_OK;
}

/// Takes back what open_next_server had opened when the open failed.
void abandon_next_server(throttling_server_s& server) {
    if (server.next_session == nullptr) {
        return;
    }
    if (server.next_server != nullptr) {
        next<&sts_api_t::close_handle>(server.next_server, 0);
    }
    next<&sts_api_t::close_handle>(server.next_session, 0);
}

/// The steps of an open between the allocation of the handle and its handing out.
int open_server(throttling_server_s& server, const sts_session_def_v7_t* session, const char* name,
                const sts_server_def_s* server_def, sts_forwarded_t forwarded, const char* who) {
    server.security = get_cssc_security(session);
    const char* next_name = nullptr;
    const bool named = get_field_ptr_in_name(name, 2, &next_name) == 0;
    if (const int status =
            until_not_overtaken([&] { return read_settings(server, session, named, who); })) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "write config error.");
        return status;
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "the server name to throttling is %s.", name);
    if (!named) {
        log_msg(session, who, 1, STS_SEV_ERROR, "input server name %s is not valid.", name);
        return STS_ERR_INVALID;
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "the server name to the next plugin in stack is %s.",
            next_name);
    server.bandwidth = new_samples();
    store_server_name(server.next_server_name, 0, next_name);
    if (next_name[0] == '\0') {
        return STS_OK; // the end of the stack
    }
    const int status = open_next_server(server, session, next_name, server_def, forwarded, who);
    if (status != STS_OK) {
        abandon_next_server(server);
    }
    return status;
}

} // namespace

int throttling_claim_v7(const char* name) {
    log_msg(nullptr, __func__, 1, STS_SEV_DEBUG, "enter.");
    return has_server_prefix(name) ? STS_OK : STS_ERR_NOT_CLAIMED;
}

int throttling_open_server_v7(const sts_session_def_v7_t* session, const char* name,
                              const sts_server_def_s* server_def, sts_forwarded_t forwarded,
                              throttling_server_s** out) {
    constexpr const char* who = "throttling_open_server_v7";
    if (session == nullptr || name == nullptr || out == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "enter.");
    return without_throwing([&] {
        handle_ptr<throttling_server_s> server(new throttling_server_s{});
        server->magic = SERVER_MAGIC;
        server->session = *session;
        store_server_name(server->server_name, 0, name);
        if (server_def != nullptr) {
            server->server_def = *server_def;
        }
        const int status = open_server(*server, session, name, server_def, forwarded, who);
        if (status == STS_OK) {
            *out = server.release();
        } else {
            server.reset();
        }
        log_msg(session, who, 1, STS_SEV_DEBUG, "leave.");
        return status;
    });
}

int throttling_open_target_server(throttling_server_s* server, sts_forwarded_t first,
                                  sts_forwarded_t second, sts_forwarded_t third,
                                  throttling_server_s** out) {
    return without_throwing([&] {
        // Everything but the next layer's server: that is the slot's to give.
        handle_ptr<throttling_server_s> target(new throttling_server_s(*server));
        target->magic = SERVER_MAGIC;
        target->next_server = nullptr;
        *out = target.release();
        return next<&sts_api_t::open_target_server>(server->next_server, first, second, third,
                                                    &(*out)->next_server);
    });
}

int throttling_close_server_v7(throttling_server_s* server) {
    if (!is_valid(server)) {
        return STS_ERR_INVALID;
    }
    const sts_session_def_v7_t* const session = &server->session;
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (server->open_handles != 0) {
        return STS_ERR_BUSY;
    }
    ServiceConnector& connector = server->connector;
    if (connector.is_throttling_enabled()) {
        const int32_t security = server->security;
        if (without_throwing(
                [&] { return connector.check_connections(OPERATION_READ_WRITE, -1, security); })) {
            log_msg(session, __func__, 1, STS_SEV_ERROR, "fail to check connections from service.");
        }
        if (connector.disconnect_service() != STS_OK) {
            log_msg(session, __func__, 1, STS_SEV_ERROR, "fail to disconnect from service.");
        }
    }
    server->bandwidth.clear();
    int status = STS_OK;
    if (server->next_server != nullptr) {
        if (const int failed = next<&sts_api_t::close_handle>(server->next_server, 0)) {
            log_msg(session, __func__, 1, STS_SEV_ERROR,
                    "fail to close server handle of the next plugin: %d", failed);
        }
        status = next<&sts_api_t::close_handle>(server->next_session, 0);
        if (status != STS_OK) {
            log_msg(session, __func__, 1, STS_SEV_ERROR,
                    "fail to close session handle of this plugin: %d", status);
        }
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    const handle_ptr<throttling_server_s> released(server);
    return status;
}

int throttling_get_server_prop_v8(throttling_server_s* server, sts_server_info_s* info) {
    if (info == nullptr || !is_valid(server) || server->next_server == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::get_server_prop>(server->next_server, info);
    if (status != STS_OK) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                "fail to get the server properties by handle of the underlying plugin.");
        return status;
    }
    store_server_name(info, STS_SERVER_INFO_NAME, server->server_name);
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

int throttling_get_server_prop_byname_v8(const sts_session_def_v7_t* session, const char* name,
                                         sts_server_info_s* info) {
    if (info == nullptr || session == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (!has_server_prefix(name)) {
        log_msg(session, __func__, 1, STS_SEV_ERROR, "the prefix of server name %s is not correct",
                name != nullptr ? name : "(null)");
        return STS_ERR_INVALID;
    }
    const char* next_name = nullptr;
    if (get_field_ptr_in_name(name, 2, &next_name) != 0) {
        log_msg(session, __func__, 1, STS_SEV_ERROR,
                "there is only throttling plugin's prefix in the server name %s.", name);
        return STS_ERR_INVALID;
    }
    const int status = next<&sts_api_t::get_server_prop_byname>(session, next_name, info);
    if (status != STS_OK) {
        log_msg(
            session, __func__, 1, STS_SEV_ERROR,
            "fail to get the server properties of the underlying plugin by name %s, error code: "
            "%d",
            next_name, status);
        return status;
    }
    store_server_name(info, STS_SERVER_INFO_NAME, name);
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}
