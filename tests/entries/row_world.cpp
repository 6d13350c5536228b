#include "tests/entries/row_world.h"

#include <cstring>

row_world::row_world(const row& of_row) : of(of_row), called(operation_named(of_row.operation)) {
    if (of.text != nullptr) {
        text = of.text;
        if (!has_parameter(of, parameter_t::const_text)) { // it comes in a buffer
            strcpy(record.data(), of.text);
        }
    }
}

row_world::~row_world() {
    if (has_released()) {
        switch (called.parameters[0]) {
        case parameter_t::lsu:
            lsu = nullptr;
            break;
        case parameter_t::lsu_list:
            lsu_list = nullptr;
            break;
        case parameter_t::image_list:
            image_list = nullptr;
            break;
        default:
            channel = nullptr;
        }
    }
    if (out == untouched<void>()) {
        return;
    }
    if (of.operation == "open_lsu_list_v11") {
        throttling_close_lsu_list_v7(static_cast<throttling_lsu_list_s*>(out));
    } else if (of.operation == "open_image_list_v7" || of.operation == "open_image_group_list") {
        throttling_close_image_list_v7(static_cast<throttling_image_list_s*>(out));
    } else if (of.operation == "open_evchannel") {
        throttling_close_evchannel(static_cast<throttling_evchannel_s*>(out));
    } else {
        free(out); // a holder
    }
}

bool row_world::has_released() const {
    return of.releases == when::always ? status != STS_ERR_INVALID
                                       : of.releases == when::on_success && status == STS_OK;
}

std::vector<uint64_t> row_world::good_arguments() {
    std::vector<uint64_t> good = arguments_for(called);
    for (const auto& [place, value] : of.arguments) {
        good[place - 1] = value;
    }
    return good;
}

void row_world::call_with(const std::vector<uint64_t>& given, int answer, bool refuse_memory) {
    world::call(called, given, of.slot, answer, of.at, refuse_memory);
}
