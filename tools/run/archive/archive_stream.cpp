#include "tools/run/archive/archive_stream.h"

#include "tools/host/status_names.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
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
                               uint64_t block, kept_times times)
    : image_(image), account_(account), run_(run), times_(times), block_(block),
      seal_(image.name(), [this](const std::string& bytes) { write_seal(bytes); }),
      plain_(new_archive(archive_write_set_format_ustar)),
      extended_(new_archive(archive_write_set_format_pax)), current_(plain_.get()) {}

/// One that hands on at once what it makes.
archive_ptr archive_writer::new_archive(int (*set_format)(archive*)) {
    archive_ptr made(archive_write_new());
    current_ = made.get();
    require_memory(current_);
    require(set_format(current_) == ARCHIVE_OK);
    if (archive_format(current_) != ARCHIVE_FORMAT_TAR_USTAR) {
        // Names are bytes: nothing is converted, so every name comes back as it was.
        require(archive_write_set_format_option(current_, "pax", "hdrcharset", "BINARY") ==
                ARCHIVE_OK);
    }
    require(archive_write_set_bytes_per_block(current_, 0) == ARCHIVE_OK);
    require(archive_write_open2(current_, this, nullptr, take, nullptr, nullptr) == ARCHIVE_OK);
    return made;
}

/// Drops what can't be written rather than say so: the library doesn't release all that it holds
/// when it is told of a failure. Whoever called the library looks for what was thrown.
la_ssize_t archive_writer::take(archive* /*handle*/, void* self, const void* buffer,
                                size_t length) {
    auto& writer = *static_cast<archive_writer*>(self);
    if (!writer.is_over_ && writer.thrown_ == nullptr) {
        try {
            writer.gather(static_cast<const char*>(buffer), length);
        } catch (...) {
            writer.thrown_ = std::current_exception();
        }
    }
    return static_cast<la_ssize_t>(length);
}

void archive_writer::gather(const char* bytes, size_t length) {
    while (length > 0) {
        const size_t part = std::min(length, block_.size() - block_length_);
        memcpy(block_.data() + block_length_, bytes, part);
        block_length_ += part;
        bytes += part;
        length -= part;
        if (block_length_ == block_.size()) {
            write_block();
        }
    }
}

void archive_writer::write_block() {
    for (size_t done = 0; done < block_length_;) {
        run_.check_may_move();
        const size_t length = block_length_ - done;
        uint64_t written = 0;
        const int status = image_.write(block_.data() + done, length, position_, written);
        if (status != STS_OK) {
            throw failed("writing the image", image_.name(), status);
        }
        if (written == 0 || written > length) {
            throw failure(fmt::format("the image \"{}\" took {} of {} bytes at byte {}",
                                      image_.name(), written, length, position_));
        }
        seal_.take(block_.data() + done, written);
        position_ += written;
        account_.bytes += written;
        done += written;
    }
    block_length_ = 0;
}

/// A storage that keeps no metadata keeps a backup all the same: the end tells.
void archive_writer::write_seal(const std::string& bytes) {
    if (seal_status_ == STS_OK) {
        uint64_t written = 0;
        seal_status_ = image_.write_meta(bytes.data(), bytes.size(), seal_length_, written);
        if (seal_status_ == STS_OK && written != bytes.size()) {
            seal_status_ = sts_status_of_errno(ENOSPC);
        }
        seal_length_ += written;
    }
}

void archive_writer::require(bool good) {
    if (thrown_ != nullptr) {
        std::rethrow_exception(thrown_);
    }
    if (!good) {
        throw failure(fmt::format("writing the archive in the image \"{}\" failed: {}",
                                  image_.name(), archive_text(current_)));
    }
}

/// Whether a plain header may hold it: the library tells what is too long or too large for one.
bool archive_writer::is_plain(archive_entry* entry) const {
    return (times_ == kept_times::seconds || archive_entry_mtime_nsec(entry) == 0) &&
           archive_entry_xattr_count(entry) == 0 && archive_entry_acl_types(entry) == 0 &&
           archive_entry_sparse_count(entry) == 0;
}

int archive_writer::write_header(archive_entry* entry) {
    if (is_plain(entry)) {
        current_ = plain_.get();
        const int result = archive_write_header(current_, entry);
        if (result == ARCHIVE_OK || result == ARCHIVE_FATAL) {
            return result;
        }
    }
    current_ = extended_.get();
    return archive_write_header(current_, entry);
}

bool archive_writer::header(archive_entry* entry, std::string& reason) {
    seal_.begin(piece_kind::header, position_ + block_length_);
    const int result = write_header(entry);
    require(result != ARCHIVE_FATAL);
    seal_.begin(piece_kind::content, position_ + block_length_);
    reason = result == ARCHIVE_OK ? "" : archive_text(current_);
    return result == ARCHIVE_OK || result == ARCHIVE_WARN;
}

void archive_writer::data(const void* bytes, size_t length) {
    require(archive_write_data(current_, bytes, length) >= 0);
}

void archive_writer::finish_entry() {
    require(archive_write_finish_entry(current_) >= ARCHIVE_WARN);
}

std::string archive_writer::finish() {
    seal_.begin(piece_kind::end, position_ + block_length_);
    current_ = plain_.get();
    require(archive_write_close(current_) >= ARCHIVE_WARN);
    write_block();
    seal_.finish();
    return seal_status_ == STS_OK ? "" : status_text(seal_status_);
}

// --- reading -----------------------------------------------------------------------------------

namespace {

constexpr uint64_t empty_archive = 1024; // bytes of one without entries

/// Whether it is the storage's medium that fails here, and perhaps not elsewhere in the image.
bool is_bad_medium(int status) {
    const int error = sts_errno_of_status(status);
    return error == EIO || error == EBADMSG;
}

/// Reads an image's metadata as far as they can be read.
uint64_t read_meta(host_image& image, char* buffer, uint64_t length, uint64_t position) {
    uint64_t count = 0;
    const int status = image.read_meta(buffer, length, position, count);
    return status == STS_OK ? std::min(count, length) : 0;
}

} // namespace

archive_reader::archive_reader(host_image& image, stream& account, const transfer& run,
                               uint64_t block)
    : image_(image), account_(account), run_(run), block_(block), archive_(archive_read_new()) {
    archive* const handle = archive_.get();
    require_memory(handle);
    open_seal();
    archive_read_support_format_tar(handle);
    archive_read_support_filter_none(handle);
    if (archive_read_open2(handle, this, nullptr, read_block, nullptr, nullptr) != ARCHIVE_OK) {
        fail();
    }
}

void archive_reader::open_seal() {
    char first = '\0';
    if (read_meta(image_, &first, 1, 0) == 0) {
        return;
    }
    std::optional<image_seal> seal =
        image_seal::read([this](char* buffer, uint64_t length, uint64_t position) {
            return read_meta(image_, buffer, length, position);
        });
    is_seal_broken_ = !seal;
    if (seal) {
        checked_.emplace(*std::move(seal), block_.size(),
                         [this](char* buffer, uint64_t length, uint64_t position) {
                             return read(buffer, length, position);
                         });
    }
}

/// No exception may pass through the library that calls this: it is kept for later.
la_ssize_t archive_reader::read_block(archive* handle, void* self, const void** buffer) {
    auto& reader = *static_cast<archive_reader*>(self);
    try {
        const std::string_view bytes = reader.read_on();
        *buffer = bytes.data();
        return static_cast<la_ssize_t>(bytes.size());
    } catch (...) {
        reader.thrown_ = std::current_exception();
        archive_set_error(handle, EIO, "the image can't be read on");
        return ARCHIVE_FATAL;
    }
}

/// The next bytes for the library; none at the image's end.
std::string_view archive_reader::read_on() {
    if (checked_) {
        return checked_->next();
    }
    block_length_ = read(block_.data(), block_.size(), position_);
    position_ += block_length_;
    return {block_.data(), block_length_};
}

/// Fills the buffer; 0 at the image's end. What a bad medium doesn't give of a sealed image counts
/// as zeros, which its seal will tell.
uint64_t archive_reader::read(char* buffer, uint64_t length, uint64_t position) {
    run_.check_may_move();
    uint64_t count = 0;
    const int status = image_.read(buffer, length, position, count);
    if (checked_ && is_bad_medium(status) && position < checked_->length()) {
        count = std::min(length, checked_->length() - position);
        std::fill_n(buffer, count, '\0');
    } else if (status != STS_OK) {
        throw failed("reading the image", image_.name(), status);
    }
    if (count > length) {
        throw failure(fmt::format("the image \"{}\" gave {} of {} bytes at byte {}", image_.name(),
                                  count, length, position));
    }
    account_.bytes += count;
    account_.done += count;
    return count;
}

void archive_reader::fail() {
    if (thrown_ != nullptr) {
        std::rethrow_exception(thrown_);
    }
    throw archive_damage(fmt::format("holds no whole archive: {}", archive_text(archive_.get())));
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
    ++entries_;
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

std::string archive_reader::damage_of_entry() {
    if (!checked_) {
        return {};
    }
    const std::string places =
        checked_->take_damage(static_cast<uint64_t>(archive_read_header_position(archive_.get())));
    return places.empty() ? ""
                          : fmt::format("not as it was backed up: the image \"{}\" is damaged in "
                                        "its bytes {}",
                                        image_.name(), places);
}

std::vector<std::string> archive_reader::finish() {
    if (!checked_) {
        return look_behind_the_end();
    }
    std::vector<std::string> all = checked_->finish();
    if (checked_->image() != image_.name()) {
        all.push_back(fmt::format("it was written as \"{}\"", printable(checked_->image())));
    }
    if (entries_ != checked_->entries_left()) {
        all.push_back(
            fmt::format("{} of {} entries could be read", entries_, checked_->entries_left()));
    }
    return all;
}

/// An archive that ends too early shows by what is behind.
std::vector<std::string> archive_reader::look_behind_the_end() {
    std::vector<std::string> all;
    if (is_seal_broken_) {
        all.emplace_back("its seal is damaged");
    }
    const auto end = static_cast<uint64_t>(archive_filter_bytes(archive_.get(), 0));
    size_t start =
        block_length_ - std::min<uint64_t>(block_length_, position_ - std::min(end, position_));
    do {
        const auto* const found = std::find_if(block_.data() + start, block_.data() + block_length_,
                                               [](char byte) { return byte != '\0'; });
        if (found != block_.data() + block_length_) {
            all.push_back(
                fmt::format("its archive ends at byte {}, and there is more behind", end));
            return all;
        }
        start = 0;
    } while (!read_on().empty());
    if (entries_ == 0 && position_ > empty_archive) {
        all.push_back(fmt::format("its {} bytes hold no entry", position_));
    }
    return all;
}
