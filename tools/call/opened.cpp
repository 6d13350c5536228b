// The arguments of a call that are opened or started before it, and ended behind it.

#include "tools/call/scene.h"
#include "tools/host/status_names.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/waiting.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>

namespace {

using kind = argument_kind;

constexpr int32_t until_the_end = -1;

} // namespace

std::string call_scene::server_name() const {
    if (common_.server.empty()) {
        throw usage_failure(
            fmt::format("--server is required: {} is called on a server", entry_.name));
    }
    return common_.server;
}

const host_server& call_scene::server() {
    if (server_ == nullptr) {
        server_ = std::make_unique<host_server>(host_, session_, server_name());
        closes_.insert(closes_.begin(), [this] { return server_->end(); }); // last of all
    }
    return *server_;
}

host_image& call_scene::open_image(const argument& which, bool to_write) {
    const auto [lsu, name] = image_path(which.name, value_of(which));
    bool is_there = !to_write;
    if (to_write) {
        const std::vector<listed_image> images = server_->images(lsu);
        is_there = std::any_of(images.begin(), images.end(),
                               [&, &image = name](const auto& each) { return each.name == image; });
    }
    const auto image = std::make_shared<host_image>(
        is_there ? server_->open_image(lsu, name, to_write ? STS_IMAGE_WRITE : STS_IMAGE_READ)
                 : server_->create_image(lsu, name, ""));
    kept_.push_back(image);
    closes_.emplace_back([this, image] {
        if (is_closing()) {
            image->let_go();
            return int{STS_OK};
        }
        return image->end(status_ == STS_OK ? STS_CLOSE_COMPLETE : STS_CLOSE_ABANDON);
    });
    return *image;
}

template <typename Handle, typename Open, typename Close>
uint64_t call_scene::open_handle(const char* what, const std::string& object, Open open,
                                 Close ending) {
    Handle* handle = nullptr;
    require_ok(open(&handle), what, object);
    if (!is_closing()) {
        closes_.emplace_back([handle, ending] { return ending(handle); });
    }
    return forwarded(handle);
}

uint64_t call_scene::open_image_list(const argument& which) {
    const sts_lsu_ref_s lsu = server().ref(value_of(which));
    return open_handle<throttling_image_list_s>(
        "listing the images of", value_of(which),
        [&](auto** list) { return host_.entries().open_image_list_v7(&lsu, 0, list); },
        host_.entries().close_image_list_v7);
}

uint64_t call_scene::open_lsu_list() {
    throttling_server_s* const handle = server().handle();
    return open_handle<throttling_lsu_list_s>(
        "listing the LSUs of", server_name(),
        [&](auto** list) { return host_.entries().open_lsu_list_v11(handle, 0, list); },
        host_.entries().close_lsu_list_v7);
}

uint64_t call_scene::open_channel(const argument& which) {
    const std::string* const lsu = find_value(which.name);
    sts_event_source_s source = {};
    copy_text(source.lsu, lsu != nullptr ? *lsu : "", "the LSU name");
    return open_handle<throttling_evchannel_s>(
        "opening an event channel of", server_name(),
        [&](auto** channel) {
            return host_.entries().open_evchannel(&session_, server_name().c_str(), &source, 0, 0,
                                                  0, 0, STS_EVENTS_KEPT, channel);
        },
        host_.entries().close_evchannel);
}

uint64_t call_scene::make_opened(const argument& which) {
    switch (which.kind) {
    case kind::session:
        return forwarded(&session_);
    case kind::server:
        return forwarded(server().handle());
    case kind::image:
    case kind::written_image:
        (void)server();
        return forwarded(open_image(which, which.kind == kind::written_image).handle());
    case kind::image_list:
        return open_image_list(which);
    case kind::lsu_list:
        return open_lsu_list();
    case kind::channel:
        return open_channel(which);
    case kind::operation:
        return start_copy(which);
    default:
        return 0;
    }
}

uint64_t call_scene::start_copy(const argument& which) {
    const auto [from_lsu, from_image] = image_path(which.name, value_of(which));
    const auto [to_lsu, to_image] = image_path(which.name + ".to", field_of(which, "to"));
    const sts_lsu_ref_s lsu = server().ref(from_lsu);
    const sts_image_def_s source = image_definition(from_image);
    const sts_copy_target_s target = copy_target(to_image, to_lsu);
    const sts_copy_params_s params = copy_params(0, number_field_of(which, "bytes_per_second"));
    sts_next_operation_s** holder = nullptr;
    const int status = host_.entries().async_copy_image(0, forwarded(&source), &lsu,
                                                        forwarded(&target), &holder, 0, params);
    if (status != STS_OK) {
        free(static_cast<void*>(holder));
        throw failed("starting a copy of", value_of(which), status);
    }
    closes_.emplace_back([this, holder] {
        host_.entries().async_cancel(&session_, holder);
        (void)end_copy(holder);
        return int{STS_OK};
    });
    return forwarded(static_cast<void*>(holder));
}

/// Waits for its end and answers what came of it. A copy that didn't begin has an empty holder.
int call_scene::end_copy(sts_next_operation_s** holder) {
    const waiting notice("waiting for the end of the copy");
    sts_async_status_s ended = {};
    const int status = *holder != nullptr
                           ? host_.entries().async_wait(&session_, holder, until_the_end, &ended)
                           : int{STS_OK};
    free(static_cast<void*>(holder));
    return status != STS_OK ? status : ended.result;
}
