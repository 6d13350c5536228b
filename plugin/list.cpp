// Lists of LSUs, of images and of image groups. A list counts as open on its server until a close
// that the next layer grants; a list of groups is the exception that closes without having been
// counted.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

namespace {

/// The entry behind the last one, logged as no failure, or a failure.
void log_list_end(const throttling_server_s& server, const char* who, int status,
                  const char* at_end, const char* failure) {
    if (status == STS_ERR_END_OF_LIST) {
        log_msg(&server.session, who, 1, STS_SEV_DEBUG, "%s", at_end);
    } else if (status != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "%s%d", failure, status);
    }
}

handle_ptr<throttling_image_list_s> new_image_list(const sts_lsu_ref_s& lsu, int32_t type) {
    return handle_ptr<throttling_image_list_s>(
        new throttling_image_list_s{IMAGE_LIST_MAGIC, type, lsu, next_lsu_of(lsu), nullptr});
}

} // namespace

// --- LSUs --------------------------------------------------------------------------------------

int throttling_open_lsu_list_v11(throttling_server_s* server, sts_forwarded_t forwarded,
                                 throttling_lsu_list_s** out) {
    constexpr const char* who = "throttling_open_lsu_list_v9"; // the name that logs know it by
    if (out == nullptr || !is_valid(server) || server->next_server == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, who, 1, STS_SEV_DEBUG, "enter.");
    return without_throwing([&] {
        handle_ptr<throttling_lsu_list_s> list(new throttling_lsu_list_s{});
        list->magic = LSU_LIST_MAGIC;
        list->server = server;
        const int status =
            next<&sts_api_t::open_lsu_list>(server->next_server, forwarded, &list->next_list);
        if (status != STS_OK) {
            log_msg(
                &server->session, who, 1, STS_SEV_ERROR,
                "fail to call sts_open_lsu_list of the next plugin in the stack, error code = %d",
                status);
            return status;
        }
        ++server->open_handles;
        *out = list.release();
        log_msg(&server->session, who, 1, STS_SEV_DEBUG, "leave.");
        return status;
    });
}

int throttling_list_lsu_v7(throttling_lsu_list_s* list, void* entry) {
    if (entry == nullptr || !is_valid(list)) {
        return STS_ERR_INVALID;
    }
    const throttling_server_s& server = *list->server;
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::list_lsu>(list->next_list, entry);
    log_list_end(server, __func__, status, "reach the end of lsu list",
                 "fail to call sts_list_lsu of the next plugin in the stack, error code = ");
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status;
}

int throttling_close_lsu_list_v7(throttling_lsu_list_s* list) {
    if (!is_valid(list)) {
        return STS_ERR_INVALID;
    }
    throttling_server_s& server = *list->server;
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::close_handle>(list->next_list, 0);
    if (status != STS_OK) {
        log_msg(&server.session, __func__, 1, STS_SEV_ERROR,
                "fail to call sts_close_lsu_list of the next plugin in the stack, error code = %d",
                status);
        return status; // the list stays open
    }
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "leave.");
    --server.open_handles;
    const handle_ptr<throttling_lsu_list_s> released(list);
    return STS_OK;
}

// --- images and image groups -------------------------------------------------------------------

int throttling_open_image_list_v7(const sts_lsu_ref_s* lsu, int32_t type,
                                  throttling_image_list_s** out) {
    throttling_server_s* const server = server_of(lsu);
    if (out == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    constexpr const char* who = "throttling_open_image_list_v7";
    log_msg(&server->session, who, 1, STS_SEV_DEBUG, "enter.");
    return without_throwing([&] {
        handle_ptr<throttling_image_list_s> list = new_image_list(*lsu, type);
        const int status =
            next<&sts_api_t::open_image_list>(&list->next_lsu, type, &list->next_list);
        if (status != STS_OK) {
            log_msg(&server->session, who, 1, STS_SEV_ERROR,
                    "fail to open info list handle for lsu: %.1024s with type %d, error code: %d",
                    lsu->name, type, status);
            return status;
        }
        ++server->open_handles;
        *out = list.release();
        log_msg(&server->session, who, 1, STS_SEV_DEBUG, "leave.");
        return status;
    });
}

int throttling_open_image_group_list(const sts_lsu_ref_s* lsu, sts_forwarded_t forwarded,
                                     int32_t type, throttling_image_list_s** out) {
    return without_throwing([&] {
        // Handed out before it is open, and not counted: the host closes it in any case.
        throttling_image_list_s* const list = *out = new_image_list(*lsu, type).release();
        return next<&sts_api_t::open_image_group_list>(&list->next_lsu, forwarded, type,
                                                       &list->next_list);
    });
}

int throttling_list_image_v10(throttling_image_list_s* list, void* entry) {
    if (entry == nullptr || !is_valid(list)) {
        return STS_ERR_INVALID;
    }
    const throttling_server_s& server = *server_of(&list->lsu);
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::list_image>(list->next_list, entry);
    log_list_end(server, __func__, status, "reach the end of info object list",
                 "fail to get the next info object in list, error code: ");
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status;
}

int throttling_close_image_list_v7(throttling_image_list_s* list) {
    if (!is_valid(list)) {
        return STS_ERR_INVALID;
    }
    throttling_server_s& server = *server_of(&list->lsu);
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const int status = next<&sts_api_t::close_handle>(list->next_list, 0);
    if (status != STS_OK) {
        log_msg(&server.session, __func__, 1, STS_SEV_ERROR,
                "fail to close info list handle for lsu: %.1024s with type %d, error code: %d",
                list->next_lsu.name, list->type, status);
        return status; // the list stays open
    }
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "leave.");
    --server.open_handles;
    const handle_ptr<throttling_image_list_s> released(list);
    return STS_OK;
}
