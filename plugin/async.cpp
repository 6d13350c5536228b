// Asynchronous image copies. The holder that a copy hands out carries the next layer's operation to
// its wait and cancel; it comes from malloc and is the host's to free.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <cstdlib>
#include <cstring>

int throttling_async_copy_image(sts_forwarded_t /*unused*/, sts_forwarded_t source,
                                const sts_lsu_ref_s* lsu, sts_forwarded_t target,
                                sts_next_operation_s*** out, uint32_t flags,
                                sts_copy_params_s copy_params) {
    constexpr const char* who =
        "throttling_named_async_copy_image"; // the name that logs know it by
    const throttling_server_s* const server = server_of(lsu);
    if (!is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, who, 1, STS_SEV_DEBUG, "enter.");
    int status = STS_OK;
    if (server->next_server != nullptr) {
        auto* const holder =
            static_cast<sts_next_operation_s**>(malloc(sizeof(sts_next_operation_s*)));
        if (holder != nullptr) {
            *holder = nullptr;
            *out = holder;
            const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
            status = next<&sts_api_t::async_copy_image>(nullptr, source, &next_lsu, target, holder,
                                                        flags, copy_params);
            if (status != STS_OK) {
                log_msg(&server->session, who, 1, STS_SEV_DEBUG,
                        "async copy image failed, error code = %d", status);
            }
        } else {
            status = STS_ERR_NOMEM;
        }
    }
    log_msg(&server->session, who, 1, STS_SEV_DEBUG, "leave.");
    return status;
}

int throttling_async_wait(const sts_session_def_v7_t* session, sts_next_operation_s** operation,
                          int32_t forwarded, sts_async_status_s* async_status) {
    if (session == nullptr || operation == nullptr || async_status == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::async_wait>(session, *operation, forwarded, async_status);
    if (status != STS_OK) {
        memcpy(reinterpret_cast<char*>(async_status) + STS_ASYNC_STATUS_RESULT, &status,
               sizeof status);
        log_msg(session, __func__, 1, STS_SEV_DEBUG, "async wait failed with error %d", status);
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status;
}

int throttling_async_cancel(const sts_session_def_v7_t* session, sts_next_operation_s** operation) {
    if (session == nullptr || operation == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::async_cancel>(session, *operation);
    if (status != STS_OK) {
        log_msg(session, __func__, 1, STS_SEV_DEBUG, "async cancel failed with error %d", status);
    }
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status;
}
