// The arguments of a call that are made from what was given.

#include "tools/call/scene.h"

namespace {
using kind = argument_kind;
} // namespace

uint64_t call_scene::make_value(const argument& which) {
    switch (which.kind) {
    case kind::number: {
        const std::string* const value = find_value(which.name);
        return value != nullptr ? number_for(which.name, which.type, *value)
                                : default_number(which);
    }
    case kind::optional_text:
        return find_value(which.name) != nullptr ? forwarded(keep(value_of(which))->c_str()) : 0;
    case kind::server_name:
        return forwarded(
            keep(find_value(which.name) != nullptr ? value_of(which) : server_name())->c_str());
    case kind::in_buffer:
        (void)size_for(which);
        return forwarded(keep(value_of(which))->data());
    case kind::text:
        return forwarded(keep(value_of(which))->c_str());
    default:
        return make_record(which);
    }
}

uint64_t call_scene::make_record(const argument& which) {
    switch (which.kind) {
    case kind::config_buffer: {
        sts_config_buffer_s filled = {};
        if (const std::string* const value = find_value(which.name)) {
            copy_text(filled.text, *value, "the configuration text");
        }
        auto* const buffer = keep(filled);
        shows_.emplace_back([this, buffer, name = which.name] {
            out_[name] = {{"text", text_of(buffer->text)}, {"used", buffer->used}};
        });
        return forwarded(buffer);
    }
    case kind::lsu:
        return forwarded(keep(server().ref(value_of(which))));
    case kind::given_up_lsu:
        return forwarded(given_up_copy(server().ref(value_of(which))));
    case kind::image_def:
        return forwarded(keep(image_definition(value_of(which), field_of(which, "group"))));
    case kind::lsu_def:
        return forwarded(keep(lsu_definition(value_of(which), field_of(which, "label"))));
    case kind::event_source: {
        sts_event_source_s source = {};
        copy_text(source.lsu, field_of(which, "lsu"), "the LSU name");
        source.kinds = number_field_of(which, "kinds");
        return forwarded(keep(source));
    }
    case kind::copy_target:
        return forwarded(keep(
            copy_target(value_of(which), field_of(which, "lsu"), field_of(which, "server_name"))));
    case kind::copy_params:
        return forwarded(keep(copy_params(number_field_of(which, "block_size"),
                                          number_field_of(which, "bytes_per_second"))));
    default: {
        sts_event_s event = {};
        event.number = number_for(which.name, "uint64_t", value_of(which));
        return forwarded(keep(event));
    }
    }
}
