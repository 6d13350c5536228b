#include "tools/call/handed_out.h"

#include "tools/call/copy.h"
#include "tools/host/records.h"

#include <cstdlib>
#include <type_traits>

namespace {

using kind = argument_kind;

/// Without the zeros that nothing was written over.
std::string content_of(const std::vector<char>& buffer) {
    size_t size = buffer.size();
    while (size > 0 && buffer[size - 1] == '\0') {
        --size;
    }
    return {buffer.data(), size};
}

template <typename Handle, typename Close>
uint64_t handle_out(const argument& which, call_stage& stage, Close ending) {
    Handle** const handle = stage.keep<Handle*>(nullptr);
    stage.show([handle, name = which.name](int, ordered_json& out) {
        out[name] = *handle != nullptr ? "a handle" : "nothing";
    });
    stage.close_behind([handle, ending](int status) {
        const int ended = *handle != nullptr ? ending(*handle) : int{STS_OK};
        return status == STS_OK ? ended : int{STS_OK}; // what is left by a failure is half open
    });
    return forwarded(handle);
}

/// Shown when the call has gone well: else there is nothing in it.
template <typename Record>
uint64_t record_out(const argument& which, call_stage& stage) {
    Record* const record = stage.keep<Record>({});
    stage.show([record, name = which.name](int status, ordered_json& out) {
        if (status == STS_OK) {
            if constexpr (std::is_integral_v<Record>) {
                out[name] = *record;
            } else {
                out[name] = fields_of(*record);
            }
        }
    });
    return forwarded(record);
}

} // namespace

uint64_t make_handle_out(const argument& which, call_stage& stage) {
    const stspi_ep_t& entries = stage.entries();
    switch (which.kind) {
    case kind::server_out:
        return handle_out<throttling_server_s>(which, stage, entries.close_server_v7);
    case kind::image_out:
        return handle_out<throttling_image_s>(which, stage, [&entries](throttling_image_s* image) {
            return entries.close_image_v7(image, STS_CLOSE_COMPLETE, 0);
        });
    case kind::image_list_out:
        return handle_out<throttling_image_list_s>(which, stage, entries.close_image_list_v7);
    case kind::lsu_list_out:
        return handle_out<throttling_lsu_list_s>(which, stage, entries.close_lsu_list_v7);
    case kind::channel_out:
        return handle_out<throttling_evchannel_s>(which, stage, entries.close_evchannel);
    case kind::operation_out:
        return handle_out<sts_next_operation_s*>(
            which, stage,
            [&stage](sts_next_operation_s** holder) { return end_copy(stage, holder); });
    default:
        return handle_out<void*>(which, stage, [](void** holder) {
            free(static_cast<void*>(holder));
            return int{STS_OK};
        });
    }
}

uint64_t make_shown(const argument& which, const given_arguments& given, call_stage& stage) {
    switch (which.kind) {
    case kind::count:
        return record_out<uint64_t>(which, stage);
    case kind::count_32:
        return record_out<uint32_t>(which, stage);
    case kind::server_info:
        return record_out<sts_server_info_s>(which, stage);
    case kind::lsu_info:
        return record_out<sts_lsu_info_s>(which, stage);
    case kind::lsu_entry:
        return record_out<sts_lsu_entry_s>(which, stage);
    case kind::image_info:
        return record_out<sts_image_info_s>(which, stage);
    case kind::image_entry:
        return record_out<sts_image_entry_s>(which, stage);
    case kind::image_group:
        return record_out<sts_image_group_s>(which, stage);
    case kind::async_status:
        return record_out<sts_async_status_s>(which, stage);
    case kind::event_out:
        return record_out<sts_event_s>(which, stage);
    case kind::payload:
        return record_out<sts_event_payload_s>(which, stage);
    case kind::peers: {
        auto* const peers =
            stage.keep(std::vector<sts_replication_peer_s>(given.size_for(which) + 1));
        stage.show([peers, name = which.name](int status, ordered_json& out) {
            if (status == STS_OK) {
                out[name] = fields_of(*peers);
            }
        });
        return forwarded(peers->data());
    }
    default: { // a buffer; what is an error text is there when the call has failed
        auto* const buffer = stage.keep(std::vector<char>(given.size_for(which) + 1));
        stage.show([buffer, name = which.name](int status, ordered_json& out) {
            if (const std::string content = content_of(*buffer);
                status == STS_OK || !content.empty()) {
                out[name] = content;
            }
        });
        return forwarded(buffer->data());
    }
    }
}
