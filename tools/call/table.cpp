#include "tools/call/table.h"

#include <algorithm>
#include <stdexcept>

namespace {

using kind = argument_kind;

/// What an argument is by its type, wherever the entry's own row doesn't say otherwise.
struct type_row {
    const char* type;
    kind what;
    const char* text;
};

constexpr type_row types[] = {
    {"const sts_session_def_v7_t*", kind::session, "the tool's session"},
    {"throttling_server_s*", kind::server, "the server of --server"},
    {"const sts_lsu_ref_s*", kind::lsu, "LSU"},
    {"sts_lsu_ref_s*", kind::given_up_lsu, "LSU; the entry frees the record"},
    {"throttling_image_s*", kind::image, "LSU/IMAGE, opened to be read"},
    {"throttling_image_list_s*", kind::image_list, "LSU whose images the list has"},
    {"throttling_lsu_list_s*", kind::lsu_list, "a list of the server's LSUs"},
    {"throttling_evchannel_s*", kind::channel,
     "a channel with the server's events, those kept too; LSU: its alone"},
    {"sts_next_operation_s**", kind::operation,
     "LSU/IMAGE whose copy to .to=LSU/IMAGE is started; .bytes_per_second paces it"},
    {"const sts_image_def_s*", kind::image_def, "IMAGE; .group=GROUP"},
    {"const sts_lsu_def_s*", kind::lsu_def, "LSU; .label=TEXT"},
    {"const sts_server_def_s*", kind::nothing, "null"},
    {"sts_copy_params_s", kind::copy_params, ".block_size=BYTES; .bytes_per_second=BYTES"},
    {"const char*", kind::text, "a text"},
    {"int32_t", kind::number, "passed on"},
    {"uint32_t", kind::number, "passed on"},
    {"uint64_t", kind::number, "passed on"},
    {"sts_forwarded_t", kind::number, "passed on"},
    {"throttling_server_s**", kind::server_out, "the server, closed behind the call"},
    {"throttling_image_s**", kind::image_out, "the image, closed as complete behind the call"},
    {"throttling_image_list_s**", kind::image_list_out, "the list, closed behind the call"},
    {"throttling_lsu_list_s**", kind::lsu_list_out, "the list, closed behind the call"},
    {"throttling_evchannel_s**", kind::channel_out, "the channel, closed behind the call"},
    {"sts_next_operation_s***", kind::operation_out, "the copy, waited for behind the call"},
    {"void***", kind::lsu_out, "the next layer's handle"},
    {"uint64_t*", kind::count, "bytes moved"},
    {"uint32_t*", kind::count_32, "bytes used"},
    {"sts_server_info_s*", kind::server_info, "the properties"},
    {"sts_lsu_info_s*", kind::lsu_info, "the properties"},
    {"sts_image_info_s*", kind::image_info, "the properties"},
    {"sts_async_status_s*", kind::async_status, "where the operation is"},
    {"sts_event_s*", kind::event_out, "the event"},
};

/// An argument that is more than its type.
struct argument_row {
    const char* name;
    kind what;
    const char* text;
    const char* size_argument = "";
};

struct entry_row {
    const char* name;
    const char* summary;
    std::vector<argument_row> arguments = {};
    std::optional<operation_type_t> paced = {};
};

constexpr const char* not_supported = "not supported by the plugin";
const argument_row any_server = {"name", kind::server_name, "a server's name (default: --server)"};
const argument_row to_write = {"image", kind::written_image,
                               "LSU/IMAGE, opened to be written; created where it isn't there"};
const argument_row list_type = {"type", kind::number, "0"};
const argument_row open_flags = {"flags", kind::number, "1 reads, 2 writes"};
const argument_row in_list = {"entry", kind::image_entry, "the entry"};
const argument_row found_lsu = {"second", kind::lsu_entry, "the LSU"};

const std::vector<entry_row>& rows() {
    static const std::vector<entry_row> all = {
        {"async_flush", "writes an image's data through to the disk", {to_write}},
        {"async_read_image", not_supported},
        {"async_wait",
         "waits for an asynchronous copy",
         {{"forwarded", kind::number, "seconds; 0 only looks, -1 waits until the end"}}},
        {"async_write_image", not_supported},
        {"claim_v7", "says whether a server's name is the plugin's", {any_server}},
        {"close_evchannel", "closes an event channel"},
        {"close_image_v7",
         "closes an image and settles what it has moved",
         {{"first_mode", kind::number, "0 complete, 1 abandon"},
          {"second_mode", kind::number, "in place of the first unless it is 0"}}},
        {"close_image_list_v7", "closes a list of images"},
        {"close_lsu_list_v7", "closes a list of LSUs"},
        {"close_server_v7", "closes a server"},
        {"copy_extent",
         "copies a part of one image into another",
         {to_write,
          {"first", kind::number, "position in the image"},
          {"second", kind::number, "position in the other"},
          {"third", kind::number, "bytes to copy"},
          {"fourth", kind::count, "bytes copied"}}},
        {"create_image_v10", "creates an image", {open_flags}},
        {"delete_event", "deletes an event", {{"event", kind::event, "the event's number"}}},
        {"delete_files",
         "deletes what an image that is written is made of",
         {to_write, {"first", kind::number, "1 its data, 2 its metadata, 3 both"}}},
        {"delete_image_v10", "deletes an image", {{"flags", kind::number, "0"}}},
        {"get_event", "takes the next event of a channel"},
        {"get_image_group",
         "reads the group that an image belongs to",
         {{"first", kind::image_group, "the group"}}},
        {"get_image_group_byname",
         "reads an image group",
         {{"first", kind::text, "the group's name"}, {"second", kind::image_group, "the group"}}},
        {"get_image_prop_v10",
         "reads the properties of an open image",
         {{"handle", kind::image, "LSU/IMAGE, opened to be read"}}},
        {"get_image_prop_byname_v10", "reads an image's properties"},
        {"get_lsu_prop_byname_v11", "reads an LSU's properties"},
        {"get_server_prop_v8", "reads the properties of an open server"},
        {"get_server_prop_byname_v8", "reads a server's properties", {any_server}},
        {"include_in_image",
         "copies the whole of one image into another",
         {to_write,
          {"first", kind::number, "position in the image"},
          {"second", kind::count, "bytes copied"}}},
        {"ioctl_v9",
         "runs a control command",
         {{"command", kind::number, "13 reads the configuration text, 14 writes it"},
          {"buffer", kind::config_buffer, "text that the buffer holds (default: none)"}}},
        {"list_image_v10", "takes the next entry of a list of images", {in_list}},
        {"list_lsu_v7",
         "takes the next entry of a list of LSUs",
         {{"entry", kind::lsu_entry, "the entry"}}},
        {"open_evchannel",
         "opens a channel for a server's events",
         {any_server,
          {"event_source", kind::event_source, ".lsu=LSU: its alone; .kinds=BITS: 1 << kind"},
          {"source_parameter", kind::number, "0 from now on, 1 those kept too"}}},
        {"open_lsu_list_v11", "opens a list of a server's LSUs"},
        {"open_server_v7", "opens a server", {any_server}},
        {"open_target_server",
         "opens a server as the target of copies from another",
         {{"first", kind::optional_text,
           "the server's name as the next layer knows it (default: the same)"}}},
        {"open_image_v10", "opens an image", {open_flags}},
        {"open_image_group_list", "opens a list of an LSU's image groups", {list_type}},
        {"open_image_list_v7", "opens a list of an LSU's images", {list_type}},
        {"read_image_v7",
         "reads an image's data, paced",
         {{"buffer", kind::out_buffer, "the data", "length"},
          {"length", kind::number, "bytes to read (default: 4096)"},
          {"position", kind::number, "where"}},
         OPERATION_READ},
        {"terminate_v7", "stops the plugin"},
        {"write_image_v7",
         "writes an image's data, paced",
         {to_write,
          {"buffer", kind::in_buffer, "the data", "length"},
          {"length", kind::number, "bytes to write (default: all)"},
          {"position", kind::number, "where"}},
         OPERATION_WRITE},
        {"find_lsu", "finds the LSU with a label", {{"first", kind::text, "the label"}, found_lsu}},
        {"label_lsu", "gives an LSU another label", {{"label", kind::text, "the label"}}},
        {"read_image_meta",
         "reads an image's metadata",
         {{"first", kind::out_buffer, "the metadata", "second"},
          {"second", kind::number, "bytes to read (default: 4096)"},
          {"third", kind::number, "where"},
          {"fourth", kind::count, "bytes read"}}},
        {"write_image_meta",
         "writes an image's metadata",
         {to_write,
          {"first", kind::in_buffer, "the metadata", "second"},
          {"second", kind::number, "bytes to write (default: all)"},
          {"third", kind::number, "where"},
          {"fourth", kind::count, "bytes written"}}},
        {"async_cancel", "cancels an asynchronous copy"},
        {"async_copy_image",
         "starts to copy an image",
         {{"source", kind::image_def, "IMAGE of the LSU"},
          {"target", kind::copy_target,
           "IMAGE to be made; .lsu=LSU; .server_name=NAME as the next layer knows it"}}},
        {"copy_image", not_supported},
        {"get_event_payload",
         "reads what else there is about an event",
         {{"first", kind::event, "the event's number"}, {"second", kind::payload, "the payload"}}},
        {"named_async_cancel", not_supported},
        {"named_async_copy_image", not_supported},
        {"named_async_status", not_supported},
        {"named_async_wait", not_supported},
        {"get_server_config_v11",
         "reads the configuration text of all layers",
         {{"buffer", kind::out_text, "the text", "length"},
          {"length", kind::number, "room for it in bytes (default: 10240)"}}},
        {"set_server_config_v11",
         "applies a configuration text to all layers",
         {{"text", kind::text, "the text"},
          {"error_text", kind::out_text, "why it was refused", "error_length"},
          {"error_length", kind::number, "room for that in bytes (default: 10240)"}}},
        {"begin_copy_image", not_supported},
        {"end_copy_image", not_supported},
        {"async_end_copy_image", not_supported},
        {"named_async_end_copy_image", not_supported},
        {"get_lsu_replication_prop",
         "reads which LSUs images of an LSU were copied from and to",
         {{"first", kind::number, "sources that there is room for (default: 16)"},
          {"second", kind::peers, "the sources", "first"},
          {"third", kind::number, "targets that there is room for (default: 16)"},
          {"fourth", kind::peers, "the targets", "third"}}},
        {"iocontrol_v11", not_supported},
        {"create_lsu", "creates an LSU"},
        {"delete_lsu", "deletes an LSU"},
    };
    return all;
}

argument argument_of(const parameter& declared) {
    for (const type_row& row : types) {
        if (declared.type == row.type) {
            return {declared.name, declared.type, row.what, row.text, ""};
        }
    }
    return {declared.name, declared.type, kind::nothing, "null", ""};
}

argument& argument_named(std::vector<argument>& all, const std::string& name,
                         const std::string& which) {
    for (argument& each : all) {
        if (each.name == name) {
            return each;
        }
    }
    throw std::logic_error("the entry " + which + " has no argument " + name);
}

} // namespace

entry_description description_of(const entry& which) {
    entry_description description;
    for (const parameter& declared : which.parameters) {
        description.arguments.push_back(argument_of(declared));
    }
    const auto row = std::find_if(rows().begin(), rows().end(),
                                  [&](const entry_row& each) { return which.name == each.name; });
    if (row == rows().end()) {
        throw std::logic_error("the entry " + which.name + " isn't described");
    }
    description.summary = row->summary;
    description.paced = row->paced;
    for (const argument_row& own : row->arguments) {
        argument& described = argument_named(description.arguments, own.name, which.name);
        described.kind = own.what;
        described.text = own.text;
        described.size_argument = own.size_argument;
    }
    return description;
}

bool takes_value(argument_kind what) {
    return what < kind::session && what != kind::copy_params && what != kind::event_source;
}

std::vector<std::string> fields_of(argument_kind what) {
    switch (what) {
    case kind::image_def:
        return {"group"};
    case kind::lsu_def:
        return {"label"};
    case kind::event_source:
        return {"lsu", "kinds"};
    case kind::copy_target:
        return {"lsu", "server_name"};
    case kind::copy_params:
        return {"block_size", "bytes_per_second"};
    case kind::operation:
        return {"to", "bytes_per_second"};
    default:
        return {};
    }
}
