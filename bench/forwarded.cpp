#include "bench/forwarded.h"

#include "bench/measure.h"
#include "bench/next_layer.h"
#include "bench/plugin_host.h"
#include "platform/sts/sts_records.h"

#include <cstdlib>

namespace {

constexpr double limit = 40; // nanoseconds that an entry may take more than its slot

/// An argument that a layer has its own of: what the slot is given, and what its entry is given.
template <typename Next, typename Ours>
struct swapped {
    Next next;
    Ours ours;
};
template <typename Next, typename Ours>
swapped(Next, Ours) -> swapped<Next, Ours>;

template <typename Argument>
Argument for_slot(Argument argument) {
    return argument;
}
template <typename Next, typename Ours>
Next for_slot(const swapped<Next, Ours>& argument) {
    return argument.next;
}

template <typename Argument>
Argument for_entry(Argument argument) {
    return argument;
}
template <typename Next, typename Ours>
Ours for_entry(const swapped<Next, Ours>& argument) {
    return argument.ours;
}

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

/// Registers pairs of benchmarks and notes their lines.
class pairs {
  public:
    explicit pairs(const stspi_ep_t& ep) : ep_(ep) {}

    /// An entry that swaps and calls. Both calls take the same arguments but for those swapped.
    template <auto slot, auto entry, typename... Arguments>
    void add(const std::string& name, Arguments... arguments) {
        add_pair(
            "`" + name + "`", "its slot",
            [&api = idle_next_layer(), arguments...] {
                return (api.*slot)(for_slot(arguments)...);
            },
            [&ep = ep_, arguments...] { return (ep.*entry)(for_entry(arguments)...); });
        lines_.back().kind = target::difference;
        lines_.back().limit = limit;
    }

    /// Entries that make something and release it.
    template <typename SlotCalls, typename EntryCalls>
    void add_allocating(const std::string& name, SlotCalls slots, EntryCalls entries) {
        add_pair(name, "the slots", slots, entries);
        lines_.back().allocates = true;
    }

    const std::vector<comparison>& lines() const { return lines_; }

  private:
    template <typename SlotCall, typename EntryCall>
    void add_pair(const std::string& name, const std::string& beside, SlotCall slot,
                  EntryCall entry) {
        const std::string slot_name = "slot: " + name;
        const std::string entry_name = "entry: " + name;
        add_call(slot_name, slot);
        add_call(entry_name, entry);
        lines_.push_back({name, entry_name, beside, slot_name, target::none, 0});
    }

    /// Throws unless the call succeeds: a refusal isn't what is to be measured.
    template <typename Call>
    static void add_call(const std::string& name, Call call) {
        require_ok(call(), name.c_str());
        benchmark::RegisterBenchmark(name.c_str(), [call](benchmark::State& state) {
            measure(state, [&] { benchmark::DoNotOptimize(call()); });
        });
    }

    const stspi_ep_t& ep_;
    std::vector<comparison> lines_;
};

void add_handles(pairs& all, open_handles& open) {
    const sts_api_t& api = idle_next_layer();
    const stspi_ep_t& ep = open.server.ep();
    all.add_allocating(
        "open and close of an LSU list",
        [&api] {
            sts_next_lsu_list_s* list = nullptr;
            const int status = api.open_lsu_list(any_handle<sts_next_server_s>(), 0, &list);
            return status != STS_OK ? status : api.close_handle(list, 0);
        },
        [&ep, server = open.server.handle()] {
            throttling_lsu_list_s* list = nullptr;
            const int status = ep.open_lsu_list_v11(server, 0, &list);
            return status != STS_OK ? status : ep.close_lsu_list_v7(list);
        });
    all.add_allocating(
        "open and close of an image list",
        [&api, lsu = &open.lsu] {
            sts_next_image_list_s* list = nullptr;
            const int status = api.open_image_list(lsu, 0, &list);
            return status != STS_OK ? status : api.close_handle(list, 0);
        },
        [&ep, lsu = &open.lsu] {
            throttling_image_list_s* list = nullptr;
            const int status = ep.open_image_list_v7(lsu, 0, &list);
            return status != STS_OK ? status : ep.close_image_list_v7(list);
        });
    all.add_allocating(
        "`async_copy_image`",
        [&api, &open] {
            sts_next_operation_s* operation = nullptr;
            return api.async_copy_image(nullptr, 0, &open.lsu, 0, &operation, 0, open.copy_params);
        },
        [&ep, &open] {
            sts_next_operation_s** operation = nullptr;
            const int status =
                ep.async_copy_image(0, 0, &open.lsu, 0, &operation, 0, open.copy_params);
            free(operation); // the holder is the host's
            return status;
        });
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
    pairs all(open.server.ep());
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
    add_handles(all, open);
    return all.lines();
}
