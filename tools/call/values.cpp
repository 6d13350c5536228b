#include "tools/call/values.h"

#include "tools/host/records.h"

namespace {

using kind = argument_kind;

uint64_t make_record(const argument& which, const given_arguments& given, call_stage& stage) {
    switch (which.kind) {
    case kind::config_buffer: {
        sts_config_buffer_s filled = {};
        if (const std::string* const value = given.find(which.name)) {
            copy_text(filled.text, *value, "the configuration text");
        }
        auto* const buffer = stage.keep(filled);
        stage.show([buffer, name = which.name](int, ordered_json& out) {
            out[name] = {{"text", text_of(buffer->text)}, {"used", buffer->used}};
        });
        return forwarded(buffer);
    }
    case kind::lsu:
        return forwarded(stage.keep(stage.server().ref(given.value_of(which))));
    case kind::given_up_lsu:
        return forwarded(given_up_copy(stage.server().ref(given.value_of(which))));
    case kind::image_def:
        return forwarded(
            stage.keep(image_definition(given.value_of(which), given.field_of(which, "group"))));
    case kind::lsu_def:
        return forwarded(
            stage.keep(lsu_definition(given.value_of(which), given.field_of(which, "label"))));
    case kind::event_source: {
        sts_event_source_s source = {};
        copy_text(source.lsu, given.field_of(which, "lsu"), "the LSU name");
        source.kinds = given.number_field_of(which, "kinds");
        return forwarded(stage.keep(source));
    }
    case kind::copy_target:
        return forwarded(stage.keep(copy_target(given.value_of(which), given.field_of(which, "lsu"),
                                                given.field_of(which, "server_name"))));
    case kind::copy_params:
        return forwarded(stage.keep(copy_params(given.number_field_of(which, "block_size"),
                                                given.number_field_of(which, "bytes_per_second"))));
    default: {
        sts_event_s event = {};
        event.number = number_for(which.name, "uint64_t", given.value_of(which));
        return forwarded(stage.keep(event));
    }
    }
}

} // namespace

uint64_t make_value(const argument& which, const given_arguments& given, call_stage& stage) {
    switch (which.kind) {
    case kind::number:
        return given.number_of(which);
    case kind::optional_text:
        return given.find(which.name) != nullptr
                   ? forwarded(stage.keep(given.value_of(which))->c_str())
                   : 0;
    case kind::server_name:
        return forwarded(stage
                             .keep(given.find(which.name) != nullptr ? given.value_of(which)
                                                                     : stage.server_name())
                             ->c_str());
    case kind::in_buffer:
        (void)given.size_for(which);
        return forwarded(stage.keep(given.value_of(which))->data());
    case kind::text:
        return forwarded(stage.keep(given.value_of(which))->c_str());
    default:
        return make_record(which, given, stage);
    }
}
