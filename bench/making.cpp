#include "bench/making.h"

#include "platform/sts/sts_records.h"

#include <cstdlib>

namespace {

using slot = sts_api_t;
using entry = stspi_ep_t;

constexpr sts_forwarded_t any = 0;
constexpr int32_t any_type = 0;

/// The open of a list and its close. Both opens take `arguments` and where the list goes.
template <auto slot_open, auto entry_open, auto entry_close, typename Next, typename Ours,
          typename... Arguments>
void add_list(pairs& all, const std::string& name, Arguments... arguments) {
    all.add_making(
        name, 2,
        [&api = idle_next_layer(), arguments...] {
            Next* list = nullptr;
            const int status = (api.*slot_open)(for_slot(arguments)..., &list);
            return status != STS_OK ? status : api.close_handle(list, 0);
        },
        [&ep = the_plugin_host().ep(), arguments...] {
            Ours* list = nullptr;
            const int status = (ep.*entry_open)(for_entry(arguments)..., &list);
            return status != STS_OK ? status : (ep.*entry_close)(list);
        });
}

void add_lists(pairs& all, const hosted_server& server) {
    // A list of groups leaves its server one handle short, so that server is never closed.
    static const hosted_server of_groups(the_plugin_host(), std::string());
    static const sts_lsu_ref_s lsu = server.lsu();
    static const sts_lsu_ref_s lsu_of_groups = of_groups.lsu();
    add_list<&slot::open_lsu_list, &entry::open_lsu_list_v11, &entry::close_lsu_list_v7,
             sts_next_lsu_list_s, throttling_lsu_list_s>(
        all, "open_lsu_list_v11, close_lsu_list_v7",
        swapped{any_handle<sts_next_server_s>(), server.handle()}, any);
    add_list<&slot::open_image_list, &entry::open_image_list_v7, &entry::close_image_list_v7,
             sts_next_image_list_s, throttling_image_list_s>(
        all, "open_image_list_v7, close_image_list_v7", &lsu, any_type);
    add_list<&slot::open_image_group_list, &entry::open_image_group_list,
             &entry::close_image_list_v7, sts_next_image_list_s, throttling_image_list_s>(
        all, "open_image_group_list, close_image_list_v7", &lsu_of_groups, any, any_type);
}

/// A channel has a session of its own at the next layer: five slots.
void add_channel(pairs& all) {
    static const sts_session_def_v7_t session = quiet_session();
    static sts_event_source_s source = {};
    all.add_making(
        "open_evchannel, close_evchannel", 2,
        [&api = idle_next_layer()] {
            sts_next_session_s* own_session = nullptr;
            sts_next_evchannel_s* channel = nullptr;
            int status = api.open_session(&session, &own_session);
            status |= api.open_evchannel(own_session, any, any, &channel);
            status |= api.add_evsource(channel, 0, any, "idle:bench", &source, 0);
            status |= api.close_handle(channel, 0);
            return status | api.close_handle(own_session, 0);
        },
        [&ep = the_plugin_host().ep()] {
            throttling_evchannel_s* channel = nullptr;
            const int status = ep.open_evchannel(&session, hosted_server_name, &source, any, any,
                                                 any, any, any, &channel);
            return status != STS_OK ? status : ep.close_evchannel(channel);
        });
}

/// What the entry makes or releases is the host's: each call of it has the same from its host.
void add_holders(pairs& all, const hosted_server& server) {
    static const sts_lsu_ref_s lsu = server.lsu();
    static const sts_lsu_def_s lsu_def = {};
    static const sts_copy_params_s copy_params = {};
    const lsu_entries& ep2 = the_plugin_host().lsu_ep();
    all.add_making(
        "async_copy_image", 1,
        [&api = idle_next_layer()] {
            sts_next_operation_s* operation = nullptr;
            return api.async_copy_image(nullptr, any, &lsu, any, &operation, 0, copy_params);
        },
        [&ep = the_plugin_host().ep()] {
            sts_next_operation_s** holder = nullptr;
            const int status = ep.async_copy_image(any, any, &lsu, any, &holder, 0, copy_params);
            free(holder);
            return status;
        });
    all.add_making(
        "create_lsu", 1,
        [&api = idle_next_layer()] {
            void* handle = nullptr;
            return api.create_lsu(any_handle<sts_next_server_s>(), &lsu_def, &handle);
        },
        [&ep2, handle = server.handle()] {
            void** holder = nullptr;
            const int status = ep2.create_lsu(handle, &lsu_def, &holder);
            free(holder);
            return status;
        });
    const auto given_up = [] {
        auto* const record = static_cast<sts_lsu_ref_s*>(malloc(sizeof(sts_lsu_ref_s)));
        return record != nullptr ? &(*record = lsu) : nullptr;
    };
    all.add_making(
        "delete_lsu", 1,
        [&api = idle_next_layer(), given_up] {
            sts_lsu_ref_s* const record = given_up();
            const int status = api.delete_lsu(record);
            free(record);
            return status;
        },
        [&ep2, given_up] { return ep2.delete_lsu(given_up()); });
}

/// The settings of all layers as one text.
void add_configuration(pairs& all, const hosted_server& server) {
    static sts_config_buffer_s read = {};
    static sts_config_buffer_s written = {"THR:READ_BANDWIDTH_PERCENT=100\n", 0};
    static uint32_t used = 0;
    static char refusal[256];
    constexpr uint32_t read_command = 13;
    constexpr uint32_t write_command = 14;
    constexpr auto size = static_cast<uint32_t>(sizeof read.text);
    constexpr auto refusal_size = static_cast<uint32_t>(sizeof refusal);
    const swapped handle{any_handle<sts_next_server_s>(), server.handle()};

    // clang-format off
    all.add_with_file<&slot::get_server_config, &entry::get_server_config_v11>("get_server_config_v11: reads the file", handle, +read.text, size, &used);
    all.add_with_file<&slot::ioctl, &entry::ioctl_v9>("ioctl_v9, 13: reads the file", handle, read_command, static_cast<void*>(&read));
    all.add_with_file<&slot::set_server_config, &entry::set_server_config_v11>("set_server_config_v11: writes the file", handle, +written.text, +refusal, refusal_size);
    all.add_with_file<&slot::ioctl, &entry::ioctl_v9>("ioctl_v9, 14: writes the file", handle, write_command, static_cast<void*>(&written));
    // clang-format on
}

} // namespace

void add_making_entries(pairs& all) {
    static const hosted_server server(the_plugin_host(), std::string());
    add_lists(all, server);
    add_channel(all);
    add_holders(all, server);
    add_configuration(all, server);
}
