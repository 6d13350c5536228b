#include "tools/run/archive/checked_image.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace {
constexpr size_t places_told = 20; // of an image
} // namespace

checked_image::checked_image(image_seal seal, uint64_t block, reader read)
    : seal_(std::move(seal)), block_(block), read_(std::move(read)), piece_(seal_.next()) {}

/// Reads until `wanted` bytes are there, or the image ends.
void checked_image::fill(uint64_t wanted) {
    std::copy(buffer_.begin() + static_cast<ptrdiff_t>(begin_),
              buffer_.begin() + static_cast<ptrdiff_t>(end_), buffer_.begin());
    end_ -= begin_;
    begin_ = 0;
    while (!is_at_end_ && end_ < wanted) {
        if (buffer_.size() < end_ + block_) {
            buffer_.resize(end_ + block_);
        }
        const uint64_t count = read_(buffer_.data() + end_, block_, read_bytes_);
        whole_.add(buffer_.data() + end_, count);
        read_bytes_ += count;
        end_ += count;
        is_at_end_ = count == 0;
    }
}

void checked_image::advance() {
    position_ += piece_->length;
    piece_ = seal_.next();
}

void checked_image::skip() {
    fill(piece_->length);
    begin_ += std::min<size_t>(available(), piece_->length);
    advance();
}

bool checked_image::is_good(const char* bytes) const {
    return check_of(bytes, piece_->length) == piece_->check;
}

void checked_image::note(uint64_t from, uint64_t to, bool is_header) {
    lost_entries_ += is_header ? 1 : 0;
    if (++place_count_ <= places_told) {
        places_.push_back(fmt::format(
            "{} bytes {} to {} is damaged",
            is_header ? "an entry is lost, as the header in" : "content in", from, to - 1));
    }
}

std::string_view checked_image::next() {
    begin_ += given_;
    given_ = 0;
    while (piece_) {
        const bool is_header = piece_->kind == piece_kind::header;
        if (available() < given_ + piece_->length && !is_at_end_) {
            if (given_ > 0) {
                break;
            }
            fill(piece_->length);
        }
        const bool is_there = available() >= given_ + piece_->length;
        const bool good = is_there && is_good(buffer_.data() + begin_ + given_);
        const bool is_left_out =
            is_header ? !good : is_skipping_ && piece_->kind == piece_kind::content;
        if ((is_left_out || !is_there) && given_ > 0) {
            break;
        }
        if (is_left_out) {
            if (is_header) {
                note(position_, position_ + piece_->length, true);
                is_skipping_ = true;
            }
            skip();
            continue;
        }
        if (!is_there) { // behind the image's end
            fill(piece_->length);
            buffer_.resize(std::max<size_t>(buffer_.size(), piece_->length));
            std::fill(buffer_.begin() + static_cast<ptrdiff_t>(end_),
                      buffer_.begin() + static_cast<ptrdiff_t>(piece_->length), '\0');
            end_ = piece_->length;
        }
        is_skipping_ = false;
        if (is_header) {
            header_ = given_bytes_ + given_;
        } else if (!good) {
            note(position_, position_ + piece_->length, false);
            if (piece_->kind == piece_kind::content) {
                damaged_.push_back({header_, position_, position_ + piece_->length});
            } else { // an end is zeros
                memset(buffer_.data() + begin_ + given_, 0, piece_->length);
            }
        }
        given_ += piece_->length;
        advance();
    }
    given_bytes_ += given_;
    return {buffer_.data() + begin_, given_};
}

std::string checked_image::take_damage(uint64_t position) {
    std::string places;
    size_t count = 0;
    while (!damaged_.empty() && damaged_.front().header <= position) {
        if (++count == 1) {
            places = fmt::format("{} to {}", damaged_.front().from, damaged_.front().to - 1);
        }
        damaged_.pop_front();
    }
    return count > 1 ? fmt::format("{} and {} more", places, count - 1) : places;
}

std::vector<std::string> checked_image::finish() {
    while (!next().empty()) {
    }
    do { // what was written behind its end
        begin_ = end_ = given_ = 0;
        fill(1);
    } while (!is_at_end_);
    std::vector<std::string> all = places_;
    if (place_count_ > places_told) {
        all.push_back(fmt::format("{} more of its places are damaged", place_count_ - places_told));
    }
    if (read_bytes_ != seal_.length()) {
        all.push_back(
            fmt::format("it has {} bytes, and {} were written", read_bytes_, seal_.length()));
    } else if (all.empty() && !seal_.fits(whole_)) {
        all.emplace_back("its checksum is wrong, though no place of the damage can be told");
    }
    if (lost_entries_ > 0) {
        all.push_back(fmt::format("{} of its {} entries {} lost", lost_entries_, seal_.entries(),
                                  lost_entries_ == 1 ? "is" : "are"));
    }
    return all;
}
