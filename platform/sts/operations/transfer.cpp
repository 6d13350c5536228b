// The bytes of images: data, metadata, extents.
//
// Reading and writing data is the one path that matters for speed: borrow the image (two atomic
// counts), then pread or pwrite on its file, from or to the caller's own memory.

#include "platform/sts/operations/image.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/pipe.h"

#include <algorithm>
#include <unistd.h>

namespace disk {

namespace {

/// Fails with EBADF's status, as a transfer does, unless the image is open for writing.
void require_writing(const image& changed) {
    if (!changed.writing) {
        fail_errno(EBADF);
    }
}

/// The metadata's file, kept open by the image or by `opened`; -1 where there is none.
int meta_of(const image& asked, unique_fd& opened) {
    if (asked.writing) {
        opened = asked.writing->meta();
        return opened.get();
    }
    return asked.reading.meta.get();
}

bool overlap(uint64_t first, uint64_t second, uint64_t length) {
    return std::max(first, second) - std::min(first, second) < length;
}

} // namespace

int read_image(sts_next_image_s* image_handle, void* buffer, uint64_t length, uint64_t position,
               uint64_t* bytes_read) {
    require(buffer != nullptr && bytes_read != nullptr);
    if (is_pipe_image(image_handle)) {
        return read_pipe(image_handle, buffer, length, bytes_read);
    }
    return read_at(borrowed<image>(image_handle)->data, buffer, length, position, bytes_read);
}

int write_image(sts_next_image_s* image_handle, sts_forwarded_t /*unused*/, const void* buffer,
                uint64_t length, uint64_t position, uint64_t* bytes_written) {
    require(buffer != nullptr && bytes_written != nullptr);
    if (is_pipe_image(image_handle)) {
        return write_pipe(image_handle, length, bytes_written);
    }
    return write_at(borrowed<image>(image_handle)->data, buffer, length, position, bytes_written);
}

int flush(sts_next_image_s* image_handle, sts_forwarded_t /*unused_2*/,
          sts_forwarded_t /*unused_3*/, sts_forwarded_t /*unused_4*/, sts_forwarded_t /*unused_5*/,
          sts_forwarded_t /*unused_6*/) {
    const borrowed<image> flushed(image_handle);
    uninterrupted([&] { return fdatasync(flushed->data); });
    unique_fd opened;
    const int meta = meta_of(*flushed, opened);
    if (meta != -1) {
        uninterrupted([&] { return fdatasync(meta); });
    }
    return STS_OK;
}

int read_image_meta(sts_next_image_s* image_handle, sts_forwarded_t buffer, sts_forwarded_t length,
                    sts_forwarded_t position, sts_forwarded_t bytes_read,
                    sts_forwarded_t /*unused*/) {
    auto* const into = pointer_of<void>(buffer);
    auto* const count = pointer_of<uint64_t>(bytes_read);
    require(into != nullptr && count != nullptr);
    const borrowed<image> asked(image_handle);
    unique_fd opened;
    const int meta = meta_of(*asked, opened);
    if (meta == -1) {
        *count = 0;
        return STS_OK;
    }
    return read_at(meta, into, length, position, count);
}

int write_image_meta(sts_next_image_s* image_handle, sts_forwarded_t buffer, sts_forwarded_t length,
                     sts_forwarded_t position, sts_forwarded_t bytes_written,
                     sts_forwarded_t /*unused*/) {
    const auto* const from = pointer_of<const void>(buffer);
    auto* const count = pointer_of<uint64_t>(bytes_written);
    require(from != nullptr && count != nullptr);
    const borrowed<image> changed(image_handle);
    require_writing(*changed);
    return write_at(changed->writing->make_meta().get(), from, length, position, count);
}

int copy_extent(sts_next_image_s* to, sts_forwarded_t to_position, sts_next_image_s* from,
                sts_forwarded_t from_position, sts_forwarded_t length, sts_forwarded_t copied,
                sts_forwarded_t /*unused*/) {
    auto* const count = pointer_of<uint64_t>(copied);
    require(count != nullptr && (to != from || !overlap(to_position, from_position, length)));
    const borrowed<image> target(to);
    const borrowed<image> source(from);
    require_writing(*target);
    *count = copy_bytes(source->data, from_position, target->data, to_position, length);
    return STS_OK;
}

int include_in_image(sts_next_image_s* to, sts_forwarded_t to_position, sts_next_image_s* from,
                     sts_forwarded_t copied, sts_forwarded_t unused_5,
                     sts_forwarded_t /*unused_6*/) {
    const uint64_t length = size_of(borrowed<image>(from)->data);
    return copy_extent(to, to_position, from, 0, length, copied, unused_5);
}

int delete_files(sts_next_image_s* image_handle, sts_forwarded_t files,
                 sts_forwarded_t /*unused_3*/, sts_forwarded_t /*unused_4*/,
                 sts_forwarded_t /*unused_5*/, sts_forwarded_t /*unused_6*/) {
    require(files != 0 && (files & ~uint64_t{STS_FILES_DATA | STS_FILES_META}) == 0);
    const borrowed<image> changed(image_handle);
    require_writing(*changed);
    if ((files & STS_FILES_DATA) != 0) {
        uninterrupted([&] { return ftruncate(changed->data, 0); });
    }
    if ((files & STS_FILES_META) != 0) {
        changed->writing->remove_meta();
    }
    return STS_OK;
}

} // namespace disk
