// Event channels. A channel needs no open server: it has a session of its own at the next layer,
// and stamps the full server name on each event, so that the host can tell which stack it came
// from. Close is the only way out of a channel that was handed out, also of one whose open failed.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

namespace {

/// Opens session and channel at the next layer and attaches the server to it. What was opened
/// before a failure stays in the channel.
int open_next_channel(throttling_evchannel_s& channel, const char* next_name, void* event_source,
                      sts_forwarded_t first, sts_forwarded_t second,
                      sts_forwarded_t source_parameter, const char* who) {
    int status = next<&sts_api_t::open_session>(channel.session, &channel.next_session);
    if (status != STS_OK) {
        log_msg(channel.session, who, 1, STS_SEV_ERROR, "Failed to open a new session, return: %d",
                status);
        return status;
    }
    status = next<&sts_api_t::open_evchannel>(channel.next_session, first, second,
                                              &channel.next_channel);
    if (status != STS_OK) {
        log_msg(channel.session, who, 1, STS_SEV_ERROR, "open_evchannel failed, error code =  %d",
                status);
        return status;
    }
    status = next<&sts_api_t::add_evsource>(channel.next_channel, 0, source_parameter, next_name,
                                            event_source, 0);
    if (status != STS_OK) {
        log_msg(channel.session, who, 1, STS_SEV_ERROR, "add_evsource failed, error code =  %d",
                status);
    }
    return status;
}

} // namespace

int throttling_open_evchannel(const sts_session_def_v7_t* session, const char* name,
                              void* event_source, sts_forwarded_t /*unused_4*/,
                              sts_forwarded_t first, sts_forwarded_t second,
                              sts_forwarded_t /*unused_7*/, sts_forwarded_t source_parameter,
                              throttling_evchannel_s** out) {
    constexpr const char* who = "throttling_open_evchannel";
    if (session == nullptr || name == nullptr || event_source == nullptr || out == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "enter stspi_open_evchannel");
    log_msg(session, who, 1, STS_SEV_DEBUG, "Server Name = %s", name);
    int status = STS_ERR_INVALID;
    const char* next_name = nullptr;
    if (get_field_ptr_in_name(name, 2, &next_name) != 0) {
        log_msg(session, who, 1, STS_SEV_ERROR, "input server name %s is not valid.", name);
    } else {
        log_msg(session, who, 1, STS_SEV_DEBUG,
                "the server name to the next plugin in stack is %s.", next_name);
        status = without_throwing([&] {
            auto* const channel = *out =
                new throttling_evchannel_s{name, nullptr, nullptr, session};
            return next_name[0] == '\0' ? STS_OK
                                        : open_next_channel(*channel, next_name, event_source,
                                                            first, second, source_parameter, who);
        });
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "leave stspi_open_evchannel");
    return status;
}

int throttling_close_evchannel(throttling_evchannel_s* channel) {
    const sts_session_def_v7_t* const session = channel->session;
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter stspi_close_evchannel");
    int status = STS_OK;
    if (channel->next_channel != nullptr) {
        if (const int failed = next<&sts_api_t::close_handle>(channel->next_channel, 0)) {
            log_msg(session, __func__, 1, STS_SEV_ERROR, "Failed to close evchannel, return: %d",
                    failed);
        }
        status = next<&sts_api_t::close_handle>(channel->next_session, 0);
        if (status != STS_OK) {
            log_msg(session, __func__, 1, STS_SEV_DEBUG, "Close session handle returned: %d",
                    status);
        }
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "exit stspi_close_evchannel");
    delete channel;
    return status;
}

int throttling_get_event(throttling_evchannel_s* channel, sts_event_s* event) {
    const sts_session_def_v7_t* const session = channel->session;
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter stspi_get_event");
    int status = STS_OK;
    if (channel->next_channel == nullptr) {
        log_msg(session, __func__, 1, STS_SEV_DEBUG, "null event channel handle");
    } else {
        status = next<&sts_api_t::get_event>(channel->next_channel, event);
        if (status != STS_OK && status != STS_ERR_NO_EVENT) {
            log_msg(session, __func__, 1, STS_SEV_DEBUG, "get_event failed, error code = %d",
                    status);
        }
        store_server_name(event, STS_EVENT_NAME, channel->server_name.c_str());
        log_msg(session, __func__, 1, STS_SEV_DEBUG, "The server name within event is %s",
                reinterpret_cast<const char*>(event) + STS_EVENT_NAME);
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave stspi_get_event");
    return status;
}

int throttling_delete_event(throttling_server_s* server, sts_event_s* event) {
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter stspi_delete_event");
    const int status = next<&sts_api_t::delete_event>(server->next_server, event);
    if (status != STS_OK) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                "Failed to call delete event, return: %d", status);
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "exit stspi_delete_event");
    return status;
}

int throttling_get_event_payload(throttling_server_s* server, sts_forwarded_t first,
                                 sts_forwarded_t second) {
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter stspi_get_event_payload");
    const int status = next<&sts_api_t::get_event_payload>(server->next_server, first, second);
    if (status != STS_OK) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                "get event payload failed, return: %d", status);
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "exit stspi_get_event_payload");
    return status;
}
