// LSU creation and deletion, which the host reaches through the second entry table: they have no
// slot in the first.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <cstdlib>

// clang-format off
void* const PluginEntryPoints2_v11[22] = {
    nullptr, nullptr, nullptr, nullptr, reinterpret_cast<void*>(&throttling_create_lsu),
    nullptr, nullptr, nullptr, nullptr, reinterpret_cast<void*>(&throttling_delete_lsu),
};
// clang-format on

int throttling_create_lsu(throttling_server_s* server, const sts_lsu_def_s* definition,
                          void*** out) {
    if (definition == nullptr || out == nullptr) {
        return STS_ERR_INVALID;
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    int status = STS_OK;
    if (server->next_server != nullptr) {
        void** const holder = static_cast<void**>(calloc(1, sizeof(void*)));
        if (holder != nullptr) {
            *out = holder;
            status = next<&sts_api_t::create_lsu>(server->next_server, definition, holder);
        } else {
            status = STS_ERR_NOMEM;
        }
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status;
}

int throttling_delete_lsu(sts_lsu_ref_s* lsu) {
    if (lsu == nullptr) {
        return STS_ERR_INVALID;
    }
    const throttling_server_s* const server = server_of(lsu);
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "enter.");
    int status = STS_OK;
    if (server->next_server != nullptr) {
        const sts_lsu_ref_s next_lsu = next_lsu_of(*lsu);
        status = next<&sts_api_t::delete_lsu>(&next_lsu);
    }
    log_msg(&server->session, __func__, 1, STS_SEV_DEBUG, "leave.");
    free(lsu);
    return status;
}
