#include "tests/entries/rows.h"

#include <algorithm>

namespace {

const char* const lsu = "{server' \"lsu1\"}";

std::string on_lsu(const std::string& slot, const std::string& others) {
    return slot + "(" + lsu + others + ")";
}

const lines enter = {"3 enter."};
const lines leave = {"3 leave."};
const std::string failed_next = "4 fail to call the next plugin in the stack, error code = %d";
constexpr int end_of_list = STS_ERR_END_OF_LIST;
const char* const own_row = "name=THR:s3,description=x,type=int,value=5,fixed=n;";

/// A swap and a call, nothing else.
row plain(const std::string& operation, const std::string& slot, const std::string& call,
          cut_off_t cut_off = cut_off_t::no_matter) {
    row made = {operation, slot, call};
    made.cut_off = cut_off;
    return made;
}

std::vector<row> plain_rows() {
    const cut_off_t null = cut_off_t::null_goes_down;
    const auto on_image = [](const std::string& slot) {
        return slot + "(image', f2, f3, f4, f5, f6)";
    };
    return {
        plain("write_image_meta", "write_image_meta", on_image("write_image_meta")),
        plain("read_image_meta", "read_image_meta", on_image("read_image_meta")),
        plain("get_image_group", "get_image_group", on_image("get_image_group")),
        plain("delete_files", "delete_files", on_image("delete_files")),
        plain("async_flush", "flush", on_image("flush")),
        plain("include_in_image", "include_in_image",
              "include_in_image(image', f2, other', f4, f5, f6)"),
        plain("copy_extent", "copy_extent", "copy_extent(image', f2, other', f4, f5, f6, f7)"),
        plain("find_lsu", "find_lsu", "find_lsu(server', f2, f3, f4, f5, f6)", null),
        plain("label_lsu", "label_lsu", on_lsu("label_lsu", ", f2"), null),
        plain("get_image_group_byname", "get_image_group_byname",
              on_lsu("get_image_group_byname", ", f2, f3"), null),
    };
}

std::vector<row> property_rows() {
    row lsu_prop = {"get_lsu_prop_byname_v11", "get_lsu_prop_byname",
                    on_lsu("get_lsu_prop_byname", ", record"), "throttling_get_lsu_prop_byname_v9"};
    lsu_prop.before = enter;
    lsu_prop.after = leave;
    lsu_prop.failure = failed_next;
    lsu_prop.checked = {1, 2};
    lsu_prop.server = magic_t::checked;
    lsu_prop.cut_off = cut_off_t::null_goes_down;
    lsu_prop.name_at = 8;

    row replication = {"get_lsu_replication_prop", "get_lsu_replication_prop",
                       on_lsu("get_lsu_replication_prop", ", u2, record, u4, other_record")};
    replication.before = enter;
    replication.after = replication.after_failure = leave;
    replication.failure = "3 Failed to get lsu replication prop, error code = %d";
    replication.checked = {1};
    replication.passed = {3, 5};
    replication.server = magic_t::checked;
    replication.cut_off = cut_off_t::nothing_called;

    row by_name = {"get_image_prop_byname_v10", "get_image_prop_byname",
                   on_lsu("get_image_prop_byname", ", definition, record")};
    by_name.failure = failed_next;
    by_name.checked = {1, 2, 3};
    by_name.server = magic_t::checked;
    by_name.cut_off = cut_off_t::null_goes_down;
    by_name.name_at = 6360;

    row by_handle = {"get_image_prop_v10", "get_image_prop", "get_image_prop(image', record)"};
    by_handle.failure = "4 fail to get the image info from info handle, error code: %d";
    by_handle.checked = {1, 2};
    by_handle.server = magic_t::checked;
    by_handle.name_at = 6360;

    row deletion = {"delete_image_v10", "delete_image", on_lsu("delete_image", ", definition, u3")};
    deletion.before = enter;
    deletion.after = leave;
    deletion.failure = failed_next;
    deletion.checked = {1, 2};
    deletion.server = magic_t::checked;
    deletion.cut_off = cut_off_t::null_goes_down;
    return {lsu_prop, replication, by_name, by_handle, deletion};
}

std::vector<row> list_rows() {
    row open_lsus = {"open_lsu_list_v11", "open_lsu_list", "open_lsu_list(server', f2, out)",
                     "throttling_open_lsu_list_v9"};
    open_lsus.before = enter;
    open_lsus.after = leave;
    open_lsus.failure =
        "4 fail to call sts_open_lsu_list of the next plugin in the stack, error code = %d";
    open_lsus.checked = {1, 3};
    open_lsus.server = magic_t::checked;
    open_lsus.cut_off = cut_off_t::refused;
    open_lsus.out = when::on_success;
    open_lsus.counts = open_lsus.kept = 1;
    open_lsus.without_memory = enter;

    row list_lsus = {"list_lsu_v7", "list_lsu", "list_lsu(lsu_list', record)"};
    list_lsus.before = enter;
    list_lsus.after = list_lsus.after_failure = leave;
    list_lsus.failure =
        "4 fail to call sts_list_lsu of the next plugin in the stack, error code = %d";
    list_lsus.failures = {{end_of_list, "3 reach the end of lsu list"}};
    list_lsus.checked = {1, 2};
    list_lsus.handle = magic_t::checked;

    row close_lsus = {"close_lsu_list_v7", "close_handle", "close_handle(lsu_list', 0)"};
    close_lsus.before = enter;
    close_lsus.after = leave;
    close_lsus.failure =
        "4 fail to call sts_close_lsu_list of the next plugin in the stack, error code = %d";
    close_lsus.checked = {1};
    close_lsus.handle = magic_t::checked;
    close_lsus.counts = close_lsus.kept = -1;
    close_lsus.releases = when::on_success;

    row open_images = {"open_image_list_v7", "open_image_list",
                       on_lsu("open_image_list", ", i2, out")};
    open_images.before = enter;
    open_images.after = leave;
    open_images.failure =
        "4 fail to open info list handle for lsu: lsu1 with type {TYPE}, error code: %d";
    open_images.checked = {1, 3};
    open_images.server = magic_t::checked;
    open_images.cut_off = cut_off_t::null_goes_down;
    open_images.out = when::on_success;
    open_images.counts = open_images.kept = 1;
    open_images.without_memory = enter;

    row open_groups = {"open_image_group_list", "open_image_group_list",
                       on_lsu("open_image_group_list", ", f2, i3, out")};
    open_groups.cut_off = cut_off_t::null_goes_down;
    open_groups.out = when::always;
    open_groups.kept = open_groups.kept_after_failure = 1;
    open_groups.without_memory = lines{};

    row list_images = {"list_image_v10", "list_image", "list_image(image_list', record)"};
    list_images.before = enter;
    list_images.after = list_images.after_failure = leave;
    list_images.failure = "4 fail to get the next info object in list, error code: %d";
    list_images.failures = {{end_of_list, "3 reach the end of info object list"}};
    list_images.checked = {1, 2};
    list_images.handle = magic_t::checked;

    row close_images = {"close_image_list_v7", "close_handle", "close_handle(image_list', 0)"};
    close_images.before = enter;
    close_images.after = leave;
    close_images.failure =
        "4 fail to close info list handle for lsu: lsu1 with type 4, error code: %d";
    close_images.checked = {1};
    close_images.handle = magic_t::checked;
    close_images.counts = close_images.kept = -1;
    close_images.releases = when::on_success;
    return {open_lsus, list_lsus, close_lsus, open_images, open_groups, list_images, close_images};
}

std::vector<row> lsu_and_async_rows() {
    row create = {"create_lsu", "create_lsu", "create_lsu(server', definition, out)"};
    create.before = enter;
    create.after = create.after_failure = leave;
    create.checked = {2, 3};
    create.cut_off = cut_off_t::nothing_called;
    create.out = when::always;
    create.out_needs_next = true;
    create.kept = create.kept_after_failure = 1;
    create.without_memory = lines{"3 enter.", "3 leave."};

    row remove = {"delete_lsu", "delete_lsu", on_lsu("delete_lsu", "")};
    remove.before = enter;
    remove.after = remove.after_failure = leave;
    remove.checked = {1};
    remove.cut_off = cut_off_t::nothing_called;
    remove.kept = remove.kept_after_failure = -1;
    remove.releases = when::always;

    row copy = {"async_copy_image", "async_copy_image",
                std::string("async_copy_image(null, f2, ") + lsu + ", f4, out, u6, params)",
                "throttling_named_async_copy_image"};
    copy.before = enter;
    copy.after = copy.after_failure = leave;
    copy.failure = "3 async copy image failed, error code = %d";
    copy.checked = {3};
    copy.server = magic_t::checked;
    copy.cut_off = cut_off_t::nothing_called;
    copy.out = when::always;
    copy.out_needs_next = true;
    copy.kept = copy.kept_after_failure = 1;
    copy.without_memory = lines{"3 enter.", "3 leave."};

    row wait = {"async_wait", "async_wait", "async_wait(session, operation', i3, record)"};
    wait.before = enter;
    wait.after = wait.after_failure = leave;
    wait.failure = "3 async wait failed with error %d";
    wait.checked = {1, 2, 4};
    wait.status_at = 8;

    row cancel = {"async_cancel", "async_cancel", "async_cancel(session, operation')"};
    cancel.before = enter;
    cancel.after = cancel.after_failure = leave;
    cancel.failure = "3 async cancel failed with error %d";
    cancel.checked = {1, 2};
    return {create, remove, copy, wait, cancel};
}

/// A row of the ioctl for one command.
row command(uint64_t number) {
    row made = {"ioctl_v9", "ioctl", "ioctl(server', " + std::to_string(number) + ", record)"};
    made.before = enter;
    made.checked = {1, 3};
    made.server = magic_t::checked;
    made.cut_off = cut_off_t::nothing_called;
    made.arguments = {{2, number}};
    return made;
}

std::vector<row> config_rows() {
    row get = {"get_server_config_v11", "get_server_config",
               "get_server_config(server', buffer, 10240, pointer)"};
    get.before = enter;
    get.after = leave;
    get.failure = "4 can not get underneath plug-in's config.";
    get.checked = {1, 2, 4};
    get.server = magic_t::checked;
    get.cut_off = cut_off_t::nothing_called;
    get.arguments = {{3, 10240}};
    get.without_memory = lines{"3 enter.", "4 get config fail."};

    row set = {"set_server_config_v11", "set_server_config",
               "set_server_config(server', \"{NAME}\", buffer, 64)"};
    set.before = enter;
    set.after = leave;
    set.failure = "4 can not set underneath plug-in's config.";
    set.checked = {1, 2, 3};
    set.server = magic_t::checked;
    set.cut_off = cut_off_t::nothing_called;
    set.arguments = {{4, 64}};
    set.text = own_row;
    set.without_memory = lines{"3 enter.", "-> " + set.call, "4 set config fail."};

    row read = command(13);
    read.after = {"3 get config OK.", "3 leave. return code 0"};
    read.failure = get.failure;
    read.without_memory = get.without_memory;

    row write = command(14);
    write.after = {"3 set config OK.", "3 leave. return code 0"};
    write.failure = "4 set config fail.";
    write.text = own_row;
    write.without_memory = lines{"3 enter.", "-> " + write.call, "4 set config fail."};

    row relay = command(7);
    relay.before = {"3 enter.", "3 relay the command 7 to the next plugin"};
    relay.after = relay.after_failure = {"3 leave. return code %d"};
    relay.cut_off = cut_off_t::null_goes_down;
    return {get, set, read, write, relay};
}

std::vector<row> channel_rows() {
    const std::string to_session = "-> open_session(session, out)";
    const std::string to_channel = "-> open_evchannel(new, f5, f6, out)";
    const std::string to_source = "-> add_evsource(new, 0, f8, \"{NEXT}\", record, 0)";
    const std::string left = "3 leave stspi_open_evchannel";
    row open = {"open_evchannel", "open_session", to_session.substr(3)};
    open.before = {"3 enter stspi_open_evchannel", "3 Server Name = {NAME}",
                   "3 the server name to the next plugin in stack is {NEXT}."};
    open.after = {to_channel, to_source, left};
    open.failure = "4 Failed to open a new session, return: %d";
    open.after_failure = {left};
    open.checked = {1, 2, 3, 9};
    open.cut_off = cut_off_t::nothing_called;
    open.out = when::always;
    open.kept = open.kept_after_failure = 2; // the channel and its name
    open.without_memory = open.before;
    open.without_memory->push_back(left);

    row second = open;
    second.slot = "open_evchannel";
    second.call = to_channel.substr(3);
    second.before.push_back(to_session);
    second.after = {to_source, left};
    second.failure = "4 open_evchannel failed, error code =  %d";
    second.repeats = true;

    row third = second;
    third.slot = "add_evsource";
    third.call = to_source.substr(3);
    third.before.push_back(to_channel);
    third.after = {left};
    third.failure = "4 add_evsource failed, error code =  %d";

    row close = {"close_evchannel", "close_handle", "close_handle(channel', 0)"};
    close.before = {"3 enter stspi_close_evchannel"};
    close.after = {"-> close_handle(session', 0)", "3 exit stspi_close_evchannel"};
    close.failure = "4 Failed to close evchannel, return: %d";
    close.after_failure = close.after;
    close.hides_failure = true;
    close.cut_off = cut_off_t::nothing_called;
    close.kept = close.kept_after_failure = -2;
    close.releases = when::always;
    close.unbound =
        lines{"3 enter stspi_close_evchannel", "4 Failed to close evchannel, return: 2060010",
              "3 Close session handle returned: 2060010", "3 exit stspi_close_evchannel"};

    row close_session = close;
    close_session.call = "close_handle(session', 0)";
    close_session.before.push_back("-> close_handle(channel', 0)");
    close_session.after = close_session.after_failure = {"3 exit stspi_close_evchannel"};
    close_session.failure = "3 Close session handle returned: %d";
    close_session.hides_failure = false;
    close_session.at = 2;
    close_session.repeats = true;

    row get = {"get_event", "get_event", "get_event(channel', record)"};
    get.before = {"3 enter stspi_get_event"};
    get.after = {"3 The server name within event is {NAME}", "3 leave stspi_get_event"};
    get.failure = "3 get_event failed, error code = %d";
    get.failures = {{STS_ERR_NO_EVENT, ""}};
    get.after_failure = get.after;
    get.cut_off = cut_off_t::nothing_called;
    get.alone =
        lines{"3 enter stspi_get_event", "3 null event channel handle", "3 leave stspi_get_event"};
    get.name_at = 16;
    get.name_after_failure = true;

    row remove = {"delete_event", "delete_event", "delete_event(server', record)"};
    remove.before = {"3 enter stspi_delete_event"};
    remove.failure = "4 Failed to call delete event, return: %d";
    remove.after = remove.after_failure = {"3 exit stspi_delete_event"};
    remove.passed = {2};
    remove.cut_off = cut_off_t::null_goes_down;

    row payload = {"get_event_payload", "get_event_payload", "get_event_payload(server', f2, f3)"};
    payload.before = {"3 enter stspi_get_event_payload"};
    payload.failure = "4 get event payload failed, return: %d";
    payload.after = payload.after_failure = {"3 exit stspi_get_event_payload"};
    payload.cut_off = cut_off_t::null_goes_down;
    return {open, second, third, close, close_session, get, remove, payload};
}

} // namespace

const std::vector<row>& rows() {
    static const std::vector<row> all = [] {
        std::vector<row> joined;
        for (const auto& part : {plain_rows(), property_rows(), list_rows(), lsu_and_async_rows(),
                                 config_rows(), channel_rows()}) {
            joined.insert(joined.end(), part.begin(), part.end());
        }
        return joined;
    }();
    return all;
}

bool has_parameter(const row& of, parameter_t parameter) {
    const auto& all = operation_named(of.operation).parameters;
    return std::find(all.begin(), all.end(), parameter) != all.end();
}

const std::map<std::string, std::string>& without_row() {
    static const char* const servers = "opens, closes or describes a server: the frame's tests";
    static const char* const images = "moves image data through the engine: the frame's tests";
    static const std::map<std::string, std::string> all = {
        {"claim_v7", servers},           {"open_server_v7", servers},
        {"open_target_server", servers}, {"close_server_v7", servers},
        {"get_server_prop_v8", servers}, {"get_server_prop_byname_v8", servers},
        {"open_image_v10", images},      {"create_image_v10", images},
        {"read_image_v7", images},       {"write_image_v7", images},
        {"close_image_v7", images},      {"terminate_v7", "stops the layer: the frame's tests"},
    };
    return all;
}
