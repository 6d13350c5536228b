#include "tools/call/opened.h"

#include "tools/call/copy.h"
#include "tools/host/records.h"
#include "tools/host/status_names.h"

#include <algorithm>

namespace {

using kind = argument_kind;

host_image& open_image(const argument& which, bool to_write, const given_arguments& given,
                       call_stage& stage) {
    host_server& server = stage.server();
    const auto [lsu, name] = image_path(which.name, given.value_of(which));
    bool is_there = !to_write;
    if (to_write) {
        const std::vector<listed_image> images = server.images(lsu);
        is_there = std::any_of(images.begin(), images.end(),
                               [&, &image = name](const auto& each) { return each.name == image; });
    }
    host_image* const image = stage.keep(
        is_there ? server.open_image(lsu, name, to_write ? STS_IMAGE_WRITE : STS_IMAGE_READ)
                 : server.create_image(lsu, name, ""));
    stage.close_behind([&stage, image](int status) {
        if (stage.is_closing()) {
            image->let_go();
            return int{STS_OK};
        }
        return image->end(status == STS_OK ? STS_CLOSE_COMPLETE : STS_CLOSE_ABANDON);
    });
    return *image;
}

template <typename Handle, typename Open, typename Close>
uint64_t open_handle(const char* what, const std::string& object, call_stage& stage, Open open,
                     Close ending) {
    Handle* handle = nullptr;
    require_ok(open(&handle), what, object);
    if (!stage.is_closing()) {
        stage.close_behind([handle, ending](int) { return ending(handle); });
    }
    return forwarded(handle);
}

uint64_t open_image_list(const argument& which, const given_arguments& given, call_stage& stage) {
    const stspi_ep_t& entries = stage.entries();
    const sts_lsu_ref_s lsu = stage.server().ref(given.value_of(which));
    return open_handle<throttling_image_list_s>(
        "listing the images of", given.value_of(which), stage,
        [&](auto** list) { return entries.open_image_list_v7(&lsu, 0, list); },
        entries.close_image_list_v7);
}

uint64_t open_lsu_list(call_stage& stage) {
    const stspi_ep_t& entries = stage.entries();
    throttling_server_s* const handle = stage.server().handle();
    return open_handle<throttling_lsu_list_s>(
        "listing the LSUs of", stage.server_name(), stage,
        [&](auto** list) { return entries.open_lsu_list_v11(handle, 0, list); },
        entries.close_lsu_list_v7);
}

uint64_t open_channel(const argument& which, const given_arguments& given, call_stage& stage) {
    const stspi_ep_t& entries = stage.entries();
    const std::string* const lsu = given.find(which.name);
    sts_event_source_s source = {};
    copy_text(source.lsu, lsu != nullptr ? *lsu : "", "the LSU name");
    return open_handle<throttling_evchannel_s>(
        "opening an event channel of", stage.server_name(), stage,
        [&](auto** channel) {
            return entries.open_evchannel(&stage.session(), stage.server_name().c_str(), &source, 0,
                                          0, 0, 0, STS_EVENTS_KEPT, channel);
        },
        entries.close_evchannel);
}

} // namespace

uint64_t make_opened(const argument& which, const given_arguments& given, call_stage& stage) {
    switch (which.kind) {
    case kind::session:
        return forwarded(&stage.session());
    case kind::server:
        return forwarded(stage.server().handle());
    case kind::image:
    case kind::written_image:
        return forwarded(
            open_image(which, which.kind == kind::written_image, given, stage).handle());
    case kind::image_list:
        return open_image_list(which, given, stage);
    case kind::lsu_list:
        return open_lsu_list(stage);
    case kind::channel:
        return open_channel(which, given, stage);
    case kind::operation:
        return forwarded(static_cast<void*>(start_copy(which, given, stage)));
    default:
        return 0;
    }
}
