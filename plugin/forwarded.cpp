// Operations that carry no throttling. Each swaps our handle for the next layer's, calls one slot
// and answers its status; this layer keeps nothing of it. An LSU is swapped on the stack for the
// length of the call.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

// --- a swap and a call: nothing is checked and nothing logged ----------------------------------

int throttling_write_image_meta(throttling_image_s* image, sts_forwarded_t first,
                                sts_forwarded_t second, sts_forwarded_t third,
                                sts_forwarded_t fourth, sts_forwarded_t fifth) {
    return next<&sts_api_t::write_image_meta>(image->next_image, first, second, third, fourth,
                                              fifth);
}

int throttling_read_image_meta(throttling_image_s* image, sts_forwarded_t first,
                               sts_forwarded_t second, sts_forwarded_t third,
                               sts_forwarded_t fourth, sts_forwarded_t fifth) {
    return next<&sts_api_t::read_image_meta>(image->next_image, first, second, third, fourth,
                                             fifth);
}

int throttling_get_image_group(throttling_image_s* image, sts_forwarded_t first,
                               sts_forwarded_t second, sts_forwarded_t third,
                               sts_forwarded_t fourth, sts_forwarded_t fifth) {
    return next<&sts_api_t::get_image_group>(image->next_image, first, second, third, fourth,
                                             fifth);
}

int throttling_delete_files(throttling_image_s* image, sts_forwarded_t first,
                            sts_forwarded_t second, sts_forwarded_t third, sts_forwarded_t fourth,
                            sts_forwarded_t fifth) {
    return next<&sts_api_t::delete_files>(image->next_image, first, second, third, fourth, fifth);
}

int throttling_async_flush(throttling_image_s* image, sts_forwarded_t first, sts_forwarded_t second,
                           sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t fifth) {
    return next<&sts_api_t::flush>(image->next_image, first, second, third, fourth, fifth);
}

int throttling_include_in_image(throttling_image_s* image, sts_forwarded_t first,
                                throttling_image_s* other, sts_forwarded_t second,
                                sts_forwarded_t third, sts_forwarded_t fourth) {
    return next<&sts_api_t::include_in_image>(image->next_image, first, other->next_image, second,
                                              third, fourth);
}

int throttling_copy_extent(throttling_image_s* image, sts_forwarded_t first,
                           throttling_image_s* other, sts_forwarded_t second, sts_forwarded_t third,
                           sts_forwarded_t fourth, sts_forwarded_t fifth) {
    return next<&sts_api_t::copy_extent>(image->next_image, first, other->next_image, second, third,
                                         fourth, fifth);
}

int throttling_find_lsu(throttling_server_s* server, sts_forwarded_t first, sts_forwarded_t second,
                        sts_forwarded_t third, sts_forwarded_t fourth, sts_forwarded_t fifth) {
    return next<&sts_api_t::find_lsu>(server->next_server, first, second, third, fourth, fifth);
}

int throttling_label_lsu(const sts_lsu_ref_s* lsu, sts_forwarded_t label) {
    const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
    return next<&sts_api_t::label_lsu>(&next_lsu, label);
}

int throttling_get_image_group_byname(const sts_lsu_ref_s* lsu, sts_forwarded_t first,
                                      sts_forwarded_t second) {
    const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
    return next<&sts_api_t::get_image_group_byname>(&next_lsu, first, second);
}

// --- properties: the full server name goes back up in place of the next layer's ----------------

int throttling_get_lsu_prop_byname_v11(const sts_lsu_ref_s* lsu, sts_lsu_info_s* info) {
    constexpr const char* who =
        "throttling_get_lsu_prop_byname_v9"; // the name that logs know it by
    const throttling_server_s* const server = server_of(lsu);
    if (info == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, who, 1, STS_SEV_DEBUG, "enter.");
    const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
    const int status = next<&sts_api_t::get_lsu_prop_byname>(&next_lsu, info);
    if (status != STS_OK) {
        log_msg(&server->session, who, 1, STS_SEV_ERROR,
                "fail to call the next plugin in the stack, error code = %d", status);
        return status;
    }
    store_server_name(info, STS_LSU_INFO_NAME, server->server_name);
    log_msg(&server->session, who, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

int throttling_get_lsu_replication_prop(const sts_lsu_ref_s* lsu, uint32_t first, void* second,
                                        uint32_t third, void* fourth) {
    const throttling_server_s* const server = server_of(lsu);
    if (!is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    int status = STS_OK;
    if (server->next_server != nullptr) {
        const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
        status =
            next<&sts_api_t::get_lsu_replication_prop>(&next_lsu, first, second, third, fourth);
        if (status != STS_OK) {
            log_msg(&server->session, __func__, 1, STS_SEV_DEBUG,
                    "Failed to get lsu replication prop, error code = %d", status);
        }
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status;
}

int throttling_get_image_prop_byname_v10(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                                         sts_image_info_s* info) {
    const throttling_server_s* const server = server_of(lsu);
    if (image_def == nullptr || info == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
    const int status = next<&sts_api_t::get_image_prop_byname>(&next_lsu, image_def, info);
    if (status != STS_OK) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                "fail to call the next plugin in the stack, error code = %d", status);
        return status;
    }
    store_server_name(info, STS_IMAGE_INFO_NAME, server->server_name);
    return STS_OK;
}

// An image and an image list serve alike: what is used of them stands at the same place.
static_assert(offsetof(throttling_image_s, lsu) == offsetof(throttling_image_list_s, lsu));
static_assert(offsetof(throttling_image_s, next_image) ==
              offsetof(throttling_image_list_s, next_list));

int throttling_get_image_prop_v10(void* handle, sts_image_info_s* info) {
    const auto* const image = static_cast<const throttling_image_s*>(handle);
    if (image == nullptr || info == nullptr || !is_valid(server_of(&image->lsu))) {
        return STS_ERR_INVALID;
    }
    const throttling_server_s& server = server_of(*image);
    const int status = next<&sts_api_t::get_image_prop>(image->next_image, info);
    if (status != STS_OK) {
        log_msg(&server.session, __func__, 1, STS_SEV_ERROR,
                "fail to get the image info from info handle, error code: %d", status);
        return status;
    }
    store_server_name(info, STS_IMAGE_INFO_NAME, server.server_name);
    return STS_OK;
}

// --- deletion ----------------------------------------------------------------------------------

int throttling_delete_image_v10(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                                uint32_t flags) {
    const throttling_server_s* const server = server_of(lsu);
    if (image_def == nullptr || !is_valid(server)) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
    const int status = next<&sts_api_t::delete_image>(&next_lsu, image_def, flags);
    if (status != STS_OK) {
        log_msg(&server->session, __func__, 1, STS_SEV_ERROR,
                "fail to call the next plugin in the stack, error code = %d", status);
        return status;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}
