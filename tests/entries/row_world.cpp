#include "tests/entries/row_world.h"

#include <cstring>

row_world::row_world(const row& of_row) : of(of_row), called(operation_named(of_row.operation)) {
    if (of.text != nullptr) {
        text = of.text;
        if (!has_parameter(of, parameter_t::const_text)) { // it comes in a buffer
            strcpy(record.data(), of.text);
        }
    }
    if (of.operation == "terminate_v7") {
        stspi_api_rec_t ignored;
        EXPECT_EQ(stspi_init(12, "/some/plugins", &ignored), STS_OK);
    }
    if (of.needs_no_layer) { // nor a session
        read_log_file();
    }
    if (of.operation == "close_server_v7") {
        set_apart();
    }
    if (of.throttled) {
        throttle();
    }
    forget();
}

/// Gives the call a server on which nothing is open.
void row_world::set_apart() {
    home_ = std::move(server);
    server = open_named();
}

/// Turns throttling on for the server. An image that the call needs is admitted, and has moved
/// something if it is to be closed; a server that it needs has had one.
void row_world::throttle() {
    server->config.sample_interval = 30;
    if (of.operation == "close_server_v7") {
        open_image(server).reset();
    }
    if (!has_parameter(of, parameter_t::image)) {
        return;
    }
    image.reset();
    image = open_image(server);
    next_layer().name(image->next_image, "image'");
    if (of.operation == "close_image_v7") {
        EXPECT_EQ(throttling_read_image_v7(image.get(), record.data(), 500, 0, &moved), STS_OK);
        EXPECT_EQ(throttling_write_image_v7(image.get(), 0, record.data(), 700, 0, &moved), STS_OK);
        moved = 77;
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
        case parameter_t::image:
            static_cast<void>(image.release());
            break;
        case parameter_t::server:
            static_cast<void>(server.release());
            break;
        default:
            channel = nullptr;
        }
    }
    if (home_) {
        if (server) {
            server->magic = SERVER_MAGIC;
        }
        server = std::move(home_);
    }
    server->bandwidth = {{OPERATION_READ, 0, 0, 0}, {OPERATION_WRITE, 0, 0, 0}};
    if (out != untouched<void>()) {
        release_out();
    }
}

void row_world::release_out() {
    if (of.operation == "open_lsu_list_v11") {
        throttling_close_lsu_list_v7(static_cast<throttling_lsu_list_s*>(out));
    } else if (of.operation == "open_image_list_v7" || of.operation == "open_image_group_list") {
        throttling_close_image_list_v7(static_cast<throttling_image_list_s*>(out));
    } else if (of.operation == "open_evchannel") {
        throttling_close_evchannel(static_cast<throttling_evchannel_s*>(out));
    } else if (of.operation == "open_server_v7" || of.operation == "open_target_server") {
        close_at_end()(static_cast<throttling_server_s*>(out));
    } else if (of.operation == "open_image_v10" || of.operation == "create_image_v10") {
        close_at_end()(static_cast<throttling_image_s*>(out));
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

void row_world::call_with(const std::vector<uint64_t>& given, int answer,
                          memory_meter::refused refused) {
    world::call(called, given, of.slot, answer, of.at, refused);
}
