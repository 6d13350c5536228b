// A text that is made while it is taken.
#pragma once

#include <functional>
#include <string>
#include <utility>

/// The next piece of the text, which may be of any size. Empty: there is no more.
using text_source = std::function<std::string()>;

/// All that is left of it.
inline std::string whole(const text_source& source) {
    std::string text;
    for (std::string piece = source(); !piece.empty(); piece = source()) {
        text += piece;
    }
    return text;
}

/// `text` in one piece.
inline text_source in_one_piece(std::string text) {
    return [text = std::move(text)]() mutable { return std::exchange(text, ""); };
}
