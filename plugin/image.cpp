// Image data: the operations that are throttled. The engine decides; this file says when it is
// asked.
//
//   open      connect, send the settings, claim a connection: the one point that can be refused
//   transfer  at the first of each direction claim a connection; then ask for bandwidth, which is
//             where a transfer waits; forward; count the bytes for the next time
//   close     close below, report what was moved, give the connections back
//
// Apart from a refusal nothing that the engine answers stops anything: it is logged and data flows.

#include "plugin/next_layer.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

namespace {

uint32_t begun_bit(operation_type_t operation) { return 1U << operation; }

bool has_begun(const throttling_image_s& image, operation_type_t operation) {
    return (image.io_flags & begun_bit(operation)) != 0;
}

int check_connections(throttling_server_s& server, operation_type_t operation, int delta) {
    return without_throwing(
        [&] { return server.connector.check_connections(operation, delta, server.security); });
}

int check_bandwidth(throttling_server_s& server, operation_type_t operation, int force) {
    return without_throwing([&] {
        return server.connector.check_bandwidth(&server.bandwidth[operation], server.security,
                                                force);
    });
}

/// Logs a failed claim. True when the service refused it.
bool is_refused(const throttling_server_s& server, const char* who, int status) {
    if (status == STS_ERR_MAX_CONNECTIONS) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "exceed max connections.");
        return true;
    }
    if (status != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "fail to check connections from service.");
    }
    return false;
}

/// Connects the server to the service and asks for one more image. STS_ERR_MAX_CONNECTIONS when it
/// is refused, else 0.
int admit_image(throttling_server_s& server, const char* who) {
    ServiceConnector& connector = server.connector;
    connector.set_throttling_enabled(server.config.sample_interval);
    if (!connector.is_throttling_enabled()) {
        return STS_OK;
    }
    char storage[STS_NAME_SIZE];
    char type[STS_NAME_SIZE];
    get_net_server_name_type(server.server_name, storage, type);
    int status =
        without_throwing([&] { return connector.connect_service(&server.session, type, storage); });
    if (status != STS_OK && status != STS_ERR_NO_SERVICE) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "connect service error:%d.", status);
    }
    status = without_throwing(
        [&] { return connector.set_config_params(&server.config, server.security); });
    if (status != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "set config params error:%d.", status);
    }
    status = check_connections(server, OPERATION_READ_WRITE, 1);
    return is_refused(server, who, status) ? STS_ERR_MAX_CONNECTIONS : STS_OK;
}

/// Claims a connection at the first transfer of a direction, then waits for bandwidth.
/// STS_ERR_MAX_CONNECTIONS when the claim is refused, else 0.
int admit_transfer(throttling_image_s& image, operation_type_t operation, const char* who) {
    throttling_server_s& server = server_of(image);
    const bool throttled = server.connector.is_throttling_enabled() != 0;
    int first = 0;
    if (!has_begun(image, operation)) {
        image.io_flags |= begun_bit(operation); // stays, also when the claim is refused
        if (throttled && is_refused(server, who, check_connections(server, operation, 1))) {
            return STS_ERR_MAX_CONNECTIONS;
        }
        first = 1;
    }
    if (throttled && check_bandwidth(server, operation, first) != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR, "fail to check bandwidth from service.");
    }
    return STS_OK;
}

/// Counts what a transfer has moved. With throttling off nobody asks for it, so threads needn't
/// wait for each other's additions.
void count(throttling_server_s& server, operation_type_t operation, uint64_t bytes) {
    auto& moved = server.bandwidth[operation].data_length;
    if (server.connector.is_throttling_enabled()) {
        moved += bytes;
    } else {
        moved = moved + bytes;
    }
}

/// Reports the last bytes of both directions, then gives both connections back.
void settle(throttling_image_s& image, const char* who) {
    throttling_server_s& server = server_of(image);
    if (!server.connector.is_throttling_enabled()) {
        return;
    }
    if (has_begun(image, OPERATION_READ) && check_bandwidth(server, OPERATION_READ, 1) != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR,
                "fail to check read bandwidth from service.");
    }
    if (has_begun(image, OPERATION_WRITE) &&
        check_bandwidth(server, OPERATION_WRITE, 1) != STS_OK) {
        log_msg(&server.session, who, 1, STS_SEV_ERROR,
                "fail to check write bandwidth from service.");
    }
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        if (has_begun(image, operation) && check_connections(server, operation, -1) != STS_OK) {
            log_msg(&server.session, who, 1, STS_SEV_ERROR,
                    "fail to check connections from service.");
        }
    }
}

int create_or_open_image_v10(int create, const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                             uint32_t flags, throttling_image_s** out) {
    constexpr const char* who = "create_or_open_image_v10";
    throttling_server_s* const server = server_of(lsu);
    if (!is_valid(server) || image_def == nullptr || out == nullptr) {
        return STS_ERR_INVALID;
    }
    if (const int refused = admit_image(*server, who)) {
        return refused;
    }
    return without_throwing([&] {
        handle_ptr<throttling_image_s> image(new throttling_image_s{});
        image->lsu = *lsu;
        image->next_lsu = next_lsu_of(*lsu);
        image->magic = IMAGE_MAGIC;
        const int status = create == 1 ? next<&sts_api_t::create_image>(&image->next_lsu, image_def,
                                                                        flags, &image->next_image)
                                       : next<&sts_api_t::open_image>(&image->next_lsu, image_def,
                                                                      flags, &image->next_image);
        if (status != STS_OK) {
            log_msg(&server->session, who, 1, STS_SEV_ERROR,
                    "fail to call the next plugin in the stack, error code = %d", status);
            return status; // the connection stays claimed until the server closes
        }
        ++server->open_handles;
        *out = image.release();
        return status;
    });
}

} // namespace

int throttling_open_image_v10(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                              uint32_t flags, throttling_image_s** out) {
    return create_or_open_image_v10(0, lsu, image_def, flags, out);
}

int throttling_create_image_v10(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                                uint32_t flags, throttling_image_s** out) {
    return create_or_open_image_v10(1, lsu, image_def, flags, out);
}

int throttling_read_image_v7(throttling_image_s* image, void* buffer, uint64_t length,
                             uint64_t position, uint64_t* bytes_read) {
    if (!is_valid(image) || buffer == nullptr || bytes_read == nullptr) {
        return STS_ERR_INVALID;
    }
    if (const int refused = admit_transfer(*image, OPERATION_READ, __func__)) {
        return refused;
    }
    throttling_server_s& server = server_of(*image);
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "read->.");
    const int status =
        next<&sts_api_t::read_image>(image->next_image, buffer, length, position, bytes_read);
    if (status != STS_OK) {
        log_msg(&server.session, __func__, 1, STS_SEV_ERROR, "fail to read image, return code: %d",
                status);
        return status;
    }
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "<-read.");
    count(server, OPERATION_READ, *bytes_read);
    return STS_OK;
}

int throttling_write_image_v7(throttling_image_s* image, sts_forwarded_t forwarded,
                              const void* buffer, uint64_t length, uint64_t position,
                              uint64_t* bytes_written) {
    if (!is_valid(image) || buffer == nullptr || bytes_written == nullptr) {
        return STS_ERR_INVALID;
    }
    if (const int refused = admit_transfer(*image, OPERATION_WRITE, __func__)) {
        return refused;
    }
    throttling_server_s& server = server_of(*image);
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "write->.");
    const int status = next<&sts_api_t::write_image>(image->next_image, forwarded, buffer, length,
                                                     position, bytes_written);
    if (status != STS_OK) {
        log_msg(&server.session, __func__, 1, STS_SEV_ERROR,
                "fail to write image , error code: %d.", status);
        return status;
    }
    log_msg(&server.session, __func__, 1, STS_SEV_DEBUG, "<-write.");
    count(server, OPERATION_WRITE, *bytes_written);
    return STS_OK;
}

int throttling_close_image_v7(throttling_image_s* image, int32_t first_mode, int32_t second_mode) {
    if (!is_valid(image)) {
        return STS_ERR_INVALID;
    }
    throttling_server_s& server = server_of(*image);
    const int status = next<&sts_api_t::close_handle>(image->next_image,
                                                      second_mode != 0 ? second_mode : first_mode);
    if (status != STS_OK) {
        log_msg(&server.session, __func__, 1, STS_SEV_ERROR,
                "fail to call sts_close_image, error code = %d", status);
    }
    settle(*image, __func__);
    --server.open_handles;
    const handle_ptr<throttling_image_s> released(image);
    return status;
}
