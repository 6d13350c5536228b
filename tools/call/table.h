// What each entry does, and what each of its arguments is to whoever calls it by hand: how it is
// given, what is made of it before the call, and what there is to see of it afterwards.
#pragma once

#include "config/allowed_rate.h"
#include "tools/host/entry_list.h"

#include <optional>
#include <string>
#include <vector>

enum class argument_kind {
    // given as a value
    number,
    text,
    optional_text, ///< null when it isn't given
    server_name,   ///< --server when it isn't given
    in_buffer,     ///< bytes to be written
    config_buffer, ///< of the control commands: text in, text out
    lsu,           ///< a record that names it
    given_up_lsu,  ///< the same, freed by the entry
    image_def,
    lsu_def,
    event_source,
    copy_target,
    copy_params,
    event, ///< a record with its number
    // given as what is opened or started before the call, and ended behind it
    image,
    written_image,
    image_list,
    channel,
    operation,
    // not given
    session,
    server,
    lsu_list,
    nothing, ///< null
    // handed out: handles, closed behind the call
    server_out,
    image_out,
    image_list_out,
    lsu_list_out,
    channel_out,
    operation_out,
    lsu_out,
    // handed out: what is shown
    count,
    count_32,
    out_buffer,
    out_text,
    peers,
    server_info,
    lsu_info,
    lsu_entry,
    image_info,
    image_entry,
    image_group,
    async_status,
    event_out,
    payload,
};

struct argument {
    std::string name;
    std::string type; ///< as in C++
    argument_kind kind = argument_kind::number;
    std::string text;
    std::string size_argument; ///< of a buffer or an array: the argument that holds its size
};

struct entry_description {
    std::string summary;
    std::vector<argument> arguments;
    std::optional<operation_type_t> paced; ///< moves data: the plugin waits in it
};

entry_description description_of(const entry& which);

/// Whether a value can be given for it.
bool takes_value(argument_kind kind);

/// What else can be given for it, as NAME.FIELD=VALUE.
std::vector<std::string> fields_of(argument_kind kind);
