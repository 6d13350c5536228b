#include "tools/run/files/scratch_file.h"

#include "tools/terminal/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>

namespace {

constexpr size_t kept_in_memory = size_t{1} << 20;
constexpr size_t least_read = 512; // bytes at once
constexpr size_t most_read = size_t{64} * 1024;
constexpr mode_t scratch_mode = 0600;
constexpr unsigned digit_bits = 7;
constexpr unsigned digit_mask = 0x7f;
constexpr unsigned more_digits = 0x80;
constexpr unsigned number_bits = 64;

std::string scratch_directory() {
    const char* const wanted = getenv("TMPDIR");
    return wanted != nullptr && *wanted != '\0' ? wanted : "/var/tmp";
}

[[noreturn]] void scratch_failed(const char* what) {
    throw failure(fmt::format("a scratch file in {} {}: {} (TMPDIR names another directory)",
                              scratch_directory(), what, strerror(errno)));
}

descriptor new_scratch_file() {
    const std::string directory = scratch_directory();
    descriptor made(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, scratch_mode));
    if (!made.is_open() && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        std::string name = directory + "/throttlectl-XXXXXX";
        made = descriptor(mkostemp(name.data(), O_CLOEXEC));
        if (made.is_open()) {
            unlink(name.c_str());
        }
    }
    if (!made.is_open()) {
        scratch_failed("can't be made");
    }
    return made;
}

} // namespace

void scratch_file::append(const std::string& bytes) {
    tail_ += bytes;
    if (tail_.size() >= kept_in_memory) {
        write_tail();
    }
}

void scratch_file::write_tail() {
    if (!file_.is_open()) {
        file_ = new_scratch_file();
    }
    for (size_t done = 0; done < tail_.size();) {
        const ssize_t written = pwrite(file_.get(), tail_.data() + done, tail_.size() - done,
                                       static_cast<off_t>(in_file_ + done));
        if (written < 0 && errno != EINTR) {
            scratch_failed("can't be written");
        }
        done += static_cast<size_t>(std::max<ssize_t>(written, 0));
    }
    in_file_ += tail_.size();
    tail_.clear();
}

size_t scratch_file::read(char* buffer, size_t length, uint64_t position) const {
    size_t done = 0;
    while (done < length && position + done < in_file_) {
        const uint64_t left = in_file_ - position - done;
        const ssize_t got =
            pread(file_.get(), buffer + done, std::min<uint64_t>(length - done, left),
                  static_cast<off_t>(position + done));
        if (got == 0 || (got < 0 && errno != EINTR)) {
            errno = got == 0 ? EIO : errno;
            scratch_failed("can't be read");
        }
        done += static_cast<size_t>(std::max<ssize_t>(got, 0));
    }
    if (done < length && position + done < size()) {
        done += tail_.copy(buffer + done, length - done, position + done - in_file_);
    }
    return done;
}

void put_number(std::string& bytes, uint64_t number) {
    for (; number > digit_mask; number >>= digit_bits) {
        bytes += static_cast<char>((number & digit_mask) | more_digits);
    }
    bytes += static_cast<char>(number);
}

void put_text(std::string& bytes, const std::string& text) {
    put_number(bytes, text.size());
    bytes += text;
}

bool scratch_reader::fill() {
    position_ += buffer_.size();
    next_ = 0;
    buffer_.resize(std::clamp(buffer_.size() * 2, least_read, most_read)); // it may be for a word
    buffer_.resize(file_.read(buffer_.data(), buffer_.size(), position_));
    return !buffer_.empty();
}

uint64_t scratch_reader::number() {
    uint64_t number = 0;
    for (unsigned shift = 0; shift < number_bits; shift += digit_bits) {
        if (next_ == buffer_.size() && !fill()) {
            return 0;
        }
        const auto byte = static_cast<unsigned char>(buffer_[next_++]);
        number |= uint64_t{byte & digit_mask} << shift;
        if ((byte & more_digits) == 0) {
            break;
        }
    }
    return number;
}

void scratch_reader::add_bytes(std::string& text, size_t length) {
    while (length > 0 && (next_ < buffer_.size() || fill())) {
        const size_t part = std::min(length, buffer_.size() - next_);
        text.append(buffer_, next_, part);
        next_ += part;
        length -= part;
    }
}

std::string scratch_reader::text() {
    std::string text;
    add_bytes(text, number());
    return text;
}
