#include "bench/forwarded.h"

#include "bench/making.h"
#include "bench/pairs.h"
#include "platform/sts/sts_records.h"

namespace {

/// What the calls need open and have filled, throttling off.
struct open_handles {
    open_handles();
    ~open_handles();
    open_handles(const open_handles&) = delete;
    open_handles& operator=(const open_handles&) = delete;

    hosted_server server{the_plugin_host(), std::string()};
    hosted_image image{server};
    sts_lsu_ref_s lsu = server.lsu();
    sts_session_def_v7_t session = quiet_session();
    throttling_lsu_list_s* lsu_list = nullptr;
    throttling_image_list_s* image_list = nullptr;
    throttling_evchannel_s* channel = nullptr;
    sts_next_operation_s* operation = nullptr;
    sts_server_info_s server_info = {};
    sts_lsu_info_s lsu_info = {};
    sts_image_def_s image_def = {};
    sts_image_info_s image_info = {};
    sts_image_entry_s image_entry = {};
    sts_lsu_entry_s lsu_entry = {};
    sts_event_s event = {};
    sts_async_status_s async_status = {};
    sts_copy_params_s copy_params = {};
    char ioctl_buffer = 0;
};

open_handles::open_handles() {
    const stspi_ep_t& ep = server.ep();
    sts_event_source_s source = {};
    require_ok(ep.open_lsu_list_v11(server.handle(), 0, &lsu_list), "open_lsu_list");
    require_ok(ep.open_image_list_v7(&lsu, 0, &image_list), "open_image_list");
    require_ok(ep.open_evchannel(&session, hosted_server_name, &source, 0, 0, 0, 0, 0, &channel),
               "open_evchannel");
}

open_handles::~open_handles() {
    server.ep().close_evchannel(channel);
    server.ep().close_image_list_v7(image_list);
    server.ep().close_lsu_list_v7(lsu_list);
}

} // namespace

std::vector<comparison> register_forwarded_entries() {
    using slot = sts_api_t;
    using entry = stspi_ep_t;
    static open_handles open;
    constexpr sts_forwarded_t any = 0;
    constexpr uint32_t relayed_command = 7;
    constexpr uint32_t count = 0;
    void* const nothing = nullptr;
    const auto lsu = &open.lsu; // swapped by the entry, for the length of its call
    const swapped image{any_handle<sts_next_image_s>(), open.image.handle()};
    const swapped image_or_list{static_cast<void*>(image.next), static_cast<void*>(image.ours)};
    const swapped server{any_handle<sts_next_server_s>(), open.server.handle()};
    const swapped name{"idle:bench", hosted_server_name};
    const swapped lsu_list{any_handle<sts_next_lsu_list_s>(), open.lsu_list};
    const swapped image_list{any_handle<sts_next_image_list_s>(), open.image_list};
    const swapped channel{any_handle<sts_next_evchannel_s>(), open.channel};
    const swapped operation{open.operation, &open.operation};

    // clang-format off
    pairs all;
    all.add<&slot::read_image_meta, &entry::read_image_meta>("read_image_meta", image, any, any, any, any, any);
    all.add<&slot::write_image_meta, &entry::write_image_meta>("write_image_meta", image, any, any, any, any, any);
    all.add<&slot::get_image_group, &entry::get_image_group>("get_image_group", image, any, any, any, any, any);
    all.add<&slot::delete_files, &entry::delete_files>("delete_files", image, any, any, any, any, any);
    all.add<&slot::flush, &entry::async_flush>("async_flush", image, any, any, any, any, any);
    all.add<&slot::include_in_image, &entry::include_in_image>("include_in_image", image, any, image, any, any, any);
    all.add<&slot::copy_extent, &entry::copy_extent>("copy_extent", image, any, image, any, any, any, any);
    all.add<&slot::get_image_prop, &entry::get_image_prop_v10>("get_image_prop_v10", image_or_list, &open.image_info);
    all.add<&slot::find_lsu, &entry::find_lsu>("find_lsu", server, any, any, any, any, any);
    all.add<&slot::get_server_prop, &entry::get_server_prop_v8>("get_server_prop_v8", server, &open.server_info);
    all.add<&slot::get_server_prop_byname, &entry::get_server_prop_byname_v8>("get_server_prop_byname_v8", &open.session, name, &open.server_info);
    all.add<&slot::ioctl, &entry::ioctl_v9>("ioctl_v9, relayed", server, relayed_command, static_cast<void*>(&open.ioctl_buffer));
    all.add<&slot::label_lsu, &entry::label_lsu>("label_lsu", lsu, any);
    all.add<&slot::get_image_group_byname, &entry::get_image_group_byname>("get_image_group_byname", lsu, any, any);
    all.add<&slot::get_lsu_prop_byname, &entry::get_lsu_prop_byname_v11>("get_lsu_prop_byname_v11", lsu, &open.lsu_info);
    all.add<&slot::get_lsu_replication_prop, &entry::get_lsu_replication_prop>("get_lsu_replication_prop", lsu, count, nothing, count, nothing);
    all.add<&slot::get_image_prop_byname, &entry::get_image_prop_byname_v10>("get_image_prop_byname_v10", lsu, &open.image_def, &open.image_info);
    all.add<&slot::delete_image, &entry::delete_image_v10>("delete_image_v10", lsu, &open.image_def, count);
    all.add<&slot::list_lsu, &entry::list_lsu_v7>("list_lsu_v7", lsu_list, &open.lsu_entry);
    all.add<&slot::list_image, &entry::list_image_v10>("list_image_v10", image_list, &open.image_entry);
    all.add<&slot::async_wait, &entry::async_wait>("async_wait", &open.session, operation, 0, &open.async_status);
    all.add<&slot::async_cancel, &entry::async_cancel>("async_cancel", &open.session, operation);
    all.add<&slot::get_event, &entry::get_event>("get_event", channel, &open.event);
    all.add<&slot::delete_event, &entry::delete_event>("delete_event", server, &open.event);
    all.add<&slot::get_event_payload, &entry::get_event_payload>("get_event_payload", server, any, any);
    // clang-format on
    add_making_entries(all);
    return all.lines();
}
