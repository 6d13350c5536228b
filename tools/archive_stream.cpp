#include "tools/archive_stream.h"

#include "tools/failure.h"
#include "tools/status_names.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <new>

namespace {

/// Runs the body of a callback: no exception may pass through the C library that calls it, so it is
/// kept for later.
template <typename Body>
la_ssize_t kept(archive* handle, std::exception_ptr& thrown, Body body) {
    try {
        return body();
    } catch (...) {
        thrown = std::current_exception();
        archive_set_error(handle, EIO, "the image can't be moved on");
        return ARCHIVE_FATAL;
    }
}

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

// --- writing
// --------------------------------------------------------------------------------------

void archive_writer::discard_archive::operator()(archive* handle) const {
    archive_write_fail(handle); // what isn't finished by now is not to be written
    archive_write_free(handle);
}

archive_writer::archive_writer(host_image& image, stream& account, const transfer& run,
                               uint64_t block)
    : image_(image), account_(account), run_(run), archive_(archive_write_new()) {
    archive* const handle = archive_.get();
    require_memory(handle);
    require(archive_write_set_format_pax(handle));
    // Names are bytes: nothing is converted, so every name comes back as it was.
    require(archive_write_set_format_option(handle, "pax", "hdrcharset", "BINARY"));
    require(archive_write_set_bytes_per_block(handle, static_cast<int>(block)));
    require(archive_write_set_bytes_in_last_block(handle, 1));
    require(archive_write_open2(handle, this, nullptr, write_block, nullptr, nullptr));
}

la_ssize_t archive_writer::write_block(archive* handle, void* self, const void* buffer,
                                       size_t length) {
    auto& writer = *static_cast<archive_writer*>(self);
    return kept(handle, writer.thrown_, [&]() -> la_ssize_t {
        writer.run_.check_may_move();
        uint64_t written = 0;
        const int status = writer.image_.write(buffer, length, writer.position_, written);
        if (status != STS_OK) {
            throw failed("writing the image", writer.image_.name(), status);
        }
        if (written == 0) {
            throw failure(fmt::format("the image \"{}\" takes no more data at byte {}",
                                      writer.image_.name(), writer.position_));
        }
        writer.position_ += written;
        writer.account_.bytes += written;
        return static_cast<la_ssize_t>(written);
    });
}

void archive_writer::fail() {
    if (thrown_ != nullptr) {
        std::rethrow_exception(thrown_);
    }
    throw failure(fmt::format("writing the archive in the image \"{}\" failed: {}", image_.name(),
                              archive_text(archive_.get())));
}

void archive_writer::require(int result) {
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
        fail();
    }
}

bool archive_writer::header(archive_entry* entry, std::string& reason) {
    const int result = archive_write_header(archive_.get(), entry);
    if (result == ARCHIVE_FATAL) {
        fail();
    }
    reason = result == ARCHIVE_OK ? "" : archive_text(archive_.get());
    return result == ARCHIVE_OK || result == ARCHIVE_WARN;
}

void archive_writer::data(const void* bytes, size_t length) {
    if (archive_write_data(archive_.get(), bytes, length) < 0) {
        fail();
    }
}

void archive_writer::finish_entry() { require(archive_write_finish_entry(archive_.get())); }

void archive_writer::finish() { require(archive_write_close(archive_.get())); }

// --- reading
// --------------------------------------------------------------------------------------

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

la_ssize_t archive_reader::read_block(archive* handle, void* self, const void** buffer) {
    auto& reader = *static_cast<archive_reader*>(self);
    return kept(handle, reader.thrown_, [&]() -> la_ssize_t {
        reader.run_.check_may_move();
        uint64_t read = 0;
        const int status =
            reader.image_.read(reader.block_.data(), reader.block_.size(), reader.position_, read);
        if (status != STS_OK) {
            throw failed("reading the image", reader.image_.name(), status);
        }
        if (read > reader.block_.size()) {
            throw failure(
                fmt::format("the image \"{}\" gave more than was asked for", reader.image_.name()));
        }
        reader.position_ += read;
        reader.account_.bytes += read;
        reader.account_.done += read;
        *buffer = reader.block_.data();
        return static_cast<la_ssize_t>(read);
    });
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
