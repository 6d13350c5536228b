#include "tools/archive_stream.h"

#include "tools/failure.h"
#include "tools/status_names.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <new>

namespace {

void require_memory(const archive* handle) {
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
}

} // namespace

std::string archive_text(archive* handle) {
    const char* const text = archive_error_string(handle);
    return text != nullptr ? text : "unknown error";
}

std::string name_of(archive_entry* entry) {
    const char* const path = archive_entry_pathname(entry);
    std::string name = path != nullptr ? path : "";
    while (name.size() > 1 && name.back() == '/') {
        name.pop_back();
    }
    return name;
}

// --- writing -----------------------------------------------------------------------------------

archive_writer::archive_writer(host_image& image, stream& account, const transfer& run,
                               uint64_t block)
    : image_(image), account_(account), run_(run), archive_(archive_write_new()) {
    archive* const handle = archive_.get();
    require_memory(handle);
    require(archive_write_set_format_pax(handle) == ARCHIVE_OK);
    // Names are bytes: nothing is converted, so every name comes back as it was.
    require(archive_write_set_format_option(handle, "pax", "hdrcharset", "BINARY") == ARCHIVE_OK);
    require(archive_write_set_bytes_per_block(handle, static_cast<int>(block)) == ARCHIVE_OK);
    require(archive_write_set_bytes_in_last_block(handle, 1) == ARCHIVE_OK);
    require(archive_write_open2(handle, this, nullptr, write_block, nullptr, nullptr) ==
            ARCHIVE_OK);
}

/// Drops what can't be written rather than say so: the library doesn't release all that it holds
/// when it is told of a failure. Whoever called the library looks for what was thrown.
la_ssize_t archive_writer::write_block(archive* /*handle*/, void* self, const void* buffer,
                                       size_t length) {
    auto& writer = *static_cast<archive_writer*>(self);
    if (writer.is_over_ || writer.thrown_ != nullptr) {
        return static_cast<la_ssize_t>(length);
    }
    try {
        return static_cast<la_ssize_t>(writer.write(buffer, length));
    } catch (...) {
        writer.thrown_ = std::current_exception();
        return static_cast<la_ssize_t>(length);
    }
}

/// Returns the bytes written, which may be fewer.
uint64_t archive_writer::write(const void* buffer, size_t length) {
    run_.check_may_move();
    uint64_t written = 0;
    const int status = image_.write(buffer, length, position_, written);
    if (status != STS_OK) {
        throw failed("writing the image", image_.name(), status);
    }
    if (written == 0 || written > length) {
        throw failure(fmt::format("the image \"{}\" took {} of {} bytes at byte {}", image_.name(),
                                  written, length, position_));
    }
    position_ += written;
    account_.bytes += written;
    return written;
}

void archive_writer::require(bool good) {
    if (thrown_ != nullptr) {
        std::rethrow_exception(thrown_);
    }
    if (!good) {
        throw failure(fmt::format("writing the archive in the image \"{}\" failed: {}",
                                  image_.name(), archive_text(archive_.get())));
    }
}

bool archive_writer::header(archive_entry* entry, std::string& reason) {
    const int result = archive_write_header(archive_.get(), entry);
    require(result != ARCHIVE_FATAL);
    reason = result == ARCHIVE_OK ? "" : archive_text(archive_.get());
    return result == ARCHIVE_OK || result == ARCHIVE_WARN;
}

void archive_writer::data(const void* bytes, size_t length) {
    require(archive_write_data(archive_.get(), bytes, length) >= 0);
}

void archive_writer::finish_entry() {
    require(archive_write_finish_entry(archive_.get()) >= ARCHIVE_WARN);
}

void archive_writer::finish() { require(archive_write_close(archive_.get()) >= ARCHIVE_WARN); }

// --- reading -----------------------------------------------------------------------------------

archive_reader::archive_reader(host_image& image, stream& account, const transfer& run,
                               uint64_t block)
    : image_(image), account_(account), run_(run), block_(block), archive_(archive_read_new()) {
    archive* const handle = archive_.get();
    require_memory(handle);
    archive_read_support_format_tar(handle);
    archive_read_support_filter_none(handle);
    if (archive_read_open2(handle, this, nullptr, read_block, nullptr, nullptr) != ARCHIVE_OK) {
        fail();
    }
}

/// No exception may pass through the library that calls this: it is kept for later.
la_ssize_t archive_reader::read_block(archive* handle, void* self, const void** buffer) {
    auto& reader = *static_cast<archive_reader*>(self);
    try {
        *buffer = reader.block_.data();
        return static_cast<la_ssize_t>(reader.read());
    } catch (...) {
        reader.thrown_ = std::current_exception();
        archive_set_error(handle, EIO, "the image can't be read on");
        return ARCHIVE_FATAL;
    }
}

/// Fills the block; 0 at the image's end.
uint64_t archive_reader::read() {
    run_.check_may_move();
    uint64_t count = 0;
    const int status = image_.read(block_.data(), block_.size(), position_, count);
    if (status != STS_OK) {
        throw failed("reading the image", image_.name(), status);
    }
    if (count > block_.size()) {
        throw failure(fmt::format("the image \"{}\" gave {} of {} bytes at byte {}", image_.name(),
                                  count, block_.size(), position_));
    }
    position_ += count;
    account_.bytes += count;
    account_.done += count;
    return count;
}

void archive_reader::fail() {
    if (thrown_ != nullptr) {
        std::rethrow_exception(thrown_);
    }
    throw failure(fmt::format("the image \"{}\" holds no whole archive: {}", image_.name(),
                              archive_text(archive_.get())));
}

archive_entry* archive_reader::next(std::string& warning) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(archive_.get(), &entry);
    if (result == ARCHIVE_EOF) {
        return nullptr;
    }
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
        fail();
    }
    warning = result == ARCHIVE_WARN ? archive_text(archive_.get()) : "";
    return entry;
}

bool archive_reader::data(const void*& bytes, size_t& length, int64_t& offset) {
    const int result = archive_read_data_block(archive_.get(), &bytes, &length, &offset);
    if (result == ARCHIVE_EOF) {
        return false;
    }
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
        fail();
    }
    return true;
}
