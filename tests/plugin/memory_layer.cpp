#include "tests/plugin/memory_layer.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

/// An open image. Its number is the flags it was created with.
struct sts_next_image_s {
    uint32_t number;
    unsigned char data[memory_layer::image_size];
};

namespace {

constexpr int no_such_image = 4404;

std::atomic<long> open_count{0};
std::atomic<long> wrong_count{0};

// Sessions and servers have no inside: any address but an image's will do.
char the_session;
char the_server;

int open_session(const sts_session_def_v7_t*, sts_next_session_s** session) {
    ++open_count;
    *session = reinterpret_cast<sts_next_session_s*>(&the_session);
    return 0;
}

int open_server(sts_next_session_s*, const char*, const sts_server_def_s*, sts_forwarded_t,
                sts_next_server_s** server) {
    ++open_count;
    *server = reinterpret_cast<sts_next_server_s*>(&the_server);
    return 0;
}

int create_image(const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t flags,
                 sts_next_image_s** image) {
    auto* const created = static_cast<sts_next_image_s*>(calloc(1, sizeof(sts_next_image_s)));
    if (created == nullptr) {
        return STS_ERR_NOMEM;
    }
    ++open_count;
    created->number = flags;
    *image = created;
    return 0;
}

int close_handle(void* handle, int32_t) {
    --open_count;
    if (handle != &the_session && handle != &the_server) {
        free(handle);
    }
    return 0;
}

bool is_inside(uint64_t position, uint64_t length) {
    return position <= memory_layer::image_size && length <= memory_layer::image_size - position;
}

int read_image(sts_next_image_s* image, void* buffer, uint64_t length, uint64_t position,
               uint64_t* bytes_read) {
    if (!is_inside(position, length)) {
        return no_such_image;
    }
    memcpy(buffer, image->data + position, length);
    *bytes_read = length;
    return 0;
}

int write_image(sts_next_image_s* image, sts_forwarded_t, const void* buffer, uint64_t length,
                uint64_t position, uint64_t* bytes_written) {
    if (!is_inside(position, length)) {
        return no_such_image;
    }
    const auto* const bytes = static_cast<const unsigned char*>(buffer);
    for (uint64_t i = 0; i < length; ++i) {
        if (bytes[i] != memory_layer::expected_byte(image->number, position + i)) {
            ++wrong_count;
        }
    }
    memcpy(image->data + position, bytes, length);
    *bytes_written = length;
    return 0;
}

sts_api_t make_table() {
    sts_api_t table = {};
    table.open_session = open_session;
    table.open_server = open_server;
    table.create_image = create_image;
    table.open_image = create_image;
    table.close_handle = close_handle;
    table.read_image = read_image;
    table.write_image = write_image;
    return table;
}

} // namespace

namespace memory_layer {

const sts_api_t* table() {
    static const sts_api_t the_table = make_table();
    return &the_table;
}

long open_handles() { return open_count; }

unsigned char expected_byte(uint32_t image, size_t position) {
    return static_cast<unsigned char>(image * 131 + position * 7 + (position >> 8));
}

long wrong_bytes() { return wrong_count; }

} // namespace memory_layer
