// The arguments of a call in which an entry hands something out: handles, which are closed behind
// it, and what is shown.

#include "tools/call/scene.h"

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

} // namespace

template <typename Handle, typename Close>
uint64_t call_scene::handle_out(const argument& which, Close ending) {
    Handle** const handle = keep<Handle*>(nullptr);
    shows_.emplace_back([this, handle, name = which.name] {
        out_[name] = *handle != nullptr ? "a handle" : "nothing";
    });
    closes_.emplace_back([this, handle, ending] {
        const int ended = *handle != nullptr ? ending(*handle) : int{STS_OK};
        return status_ == STS_OK ? ended : int{STS_OK}; // what is left by a failure is half open
    });
    return forwarded(handle);
}

uint64_t call_scene::make_handle_out(const argument& which) {
    const stspi_ep_t& entries = host_.entries();
    switch (which.kind) {
    case kind::server_out:
        return handle_out<throttling_server_s>(which, entries.close_server_v7);
    case kind::image_out:
        return handle_out<throttling_image_s>(which, [&entries](throttling_image_s* image) {
            return entries.close_image_v7(image, STS_CLOSE_COMPLETE, 0);
        });
    case kind::image_list_out:
        return handle_out<throttling_image_list_s>(which, entries.close_image_list_v7);
    case kind::lsu_list_out:
        return handle_out<throttling_lsu_list_s>(which, entries.close_lsu_list_v7);
    case kind::channel_out:
        return handle_out<throttling_evchannel_s>(which, entries.close_evchannel);
    case kind::operation_out:
        return handle_out<sts_next_operation_s*>(
            which, [this](sts_next_operation_s** holder) { return end_copy(holder); });
    default:
        return handle_out<void*>(which, [](void** holder) {
            free(static_cast<void*>(holder));
            return int{STS_OK};
        });
    }
}

/// Shown when the call has gone well: else there is nothing in it.
template <typename Record>
uint64_t call_scene::record_out(const argument& which) {
    Record* const record = keep<Record>({});
    shows_.emplace_back([this, record, name = which.name] {
        if (status_ == STS_OK) {
            if constexpr (std::is_integral_v<Record>) {
                out_[name] = *record;
            } else {
                out_[name] = fields_of(*record);
            }
        }
    });
    return forwarded(record);
}

uint64_t call_scene::make_shown(const argument& which) {
    switch (which.kind) {
    case kind::count:
        return record_out<uint64_t>(which);
    case kind::count_32:
        return record_out<uint32_t>(which);
    case kind::server_info:
        return record_out<sts_server_info_s>(which);
    case kind::lsu_info:
        return record_out<sts_lsu_info_s>(which);
    case kind::lsu_entry:
        return record_out<sts_lsu_entry_s>(which);
    case kind::image_info:
        return record_out<sts_image_info_s>(which);
    case kind::image_entry:
        return record_out<sts_image_entry_s>(which);
    case kind::image_group:
        return record_out<sts_image_group_s>(which);
    case kind::async_status:
        return record_out<sts_async_status_s>(which);
    case kind::event_out:
        return record_out<sts_event_s>(which);
    case kind::payload:
        return record_out<sts_event_payload_s>(which);
    case kind::peers: {
        auto* const peers = keep(std::vector<sts_replication_peer_s>(size_for(which) + 1));
        shows_.emplace_back([this, peers, name = which.name] {
            if (status_ == STS_OK) {
                out_[name] = fields_of(*peers);
            }
        });
        return forwarded(peers->data());
    }
    default: { // a buffer; what is an error text is there when the call has failed
        auto* const buffer = keep(std::vector<char>(size_for(which) + 1));
        shows_.emplace_back([this, buffer, name = which.name] {
            if (const std::string content = content_of(*buffer);
                status_ == STS_OK || !content.empty()) {
                out_[name] = content;
            }
        });
        return forwarded(buffer->data());
    }
    }
}
