#include "platform/sts/operations/pipe.h"

#include "platform/sts/store/store.h"

#include <cstring>
#include <string>
#include <string_view>

namespace disk {

namespace {

constexpr std::string_view pipe_prefix = "pipe:";

struct pipe_place {}; // what a server and its images have in common: that they are open

struct pipe_server : object {
    static constexpr handle_kind kind = handle_kind::pipe_server;
    closing close(int32_t /*mode*/) override {
        const bool has_images = place.use_count() > 1;
        return {has_images ? int{STS_ERR_BUSY} : int{STS_OK}, has_images};
    }
    std::shared_ptr<pipe_place> place = std::make_shared<pipe_place>();
};

struct pipe_image : object {
    static constexpr handle_kind kind = handle_kind::pipe_image;
    explicit pipe_image(std::shared_ptr<pipe_place> opened_on) : place(std::move(opened_on)) {}
    closing close(int32_t mode) override {
        require(mode == STS_CLOSE_COMPLETE || mode == STS_CLOSE_ABANDON);
        return {};
    }
    std::shared_ptr<pipe_place> place;
};

} // namespace

bool is_pipe_name(const char* server_name) {
    return strncmp(server_name, pipe_prefix.data(), pipe_prefix.size()) == 0;
}

bool is_pipe_server(const void* handle) { return kind_of(handle) == handle_kind::pipe_server; }
bool is_pipe_image(const void* handle) { return kind_of(handle) == handle_kind::pipe_image; }

int open_pipe_server(const char* server_name, sts_next_server_s** out) {
    require(is_plain_name(server_name + pipe_prefix.size()));
    hand_out(std::make_unique<pipe_server>(), out);
    return STS_OK;
}

int open_pipe_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                    sts_next_image_s** out) {
    require(image_def != nullptr && is_lsu_name(text_of(lsu->name)) &&
            is_plain_name(text_of(image_def->name)));
    const borrowed<pipe_server> server(lsu->server);
    hand_out(std::make_unique<pipe_image>(server->place), out);
    return STS_OK;
}

int read_pipe(const sts_next_image_s* image, void* buffer, uint64_t length, uint64_t* bytes_read) {
    const borrowed<pipe_image> from(image);
    memset(buffer, 0, length);
    *bytes_read = length;
    return STS_OK;
}

int write_pipe(const sts_next_image_s* image, uint64_t length, uint64_t* bytes_written) {
    const borrowed<pipe_image> to(image);
    *bytes_written = length;
    return STS_OK;
}

} // namespace disk
