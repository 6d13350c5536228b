#include "tools/terminal/wrapped.h"

#include <sstream>
#include <vector>

namespace {

constexpr size_t list_column = 30;
constexpr const char* call_start = "  throttlectl ";
constexpr const char* call_indent = "      ";

bool begins_with(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

std::vector<std::string> words_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

/// `start`, and the words behind it, in lines that are broken by `line_break` where the next word
/// doesn't fit.
std::string filled(std::string start, const std::vector<std::string>& words,
                   const std::string& line_break, const std::string& indent, size_t width) {
    const size_t room = width - (line_break.size() - 1);
    std::string text;
    std::string line = std::move(start);
    bool is_fresh = line.empty() || line.back() == ' ';
    for (const std::string& word : words) {
        if (!is_fresh && line.size() + 1 + word.size() > room) {
            text += line + line_break;
            line = indent;
            is_fresh = true;
        }
        line += (is_fresh ? "" : " ") + word;
        is_fresh = false;
    }
    return text + line + "\n";
}

/// The pieces of a call that stay in one line: what is in quotes, and an option and its value.
std::vector<std::string> arguments_of(const std::string& call) {
    std::vector<std::string> all;
    bool is_quoted = false;
    bool is_option = false;
    for (const std::string& word : words_of(call)) {
        if (is_quoted || (is_option && word[0] != '-')) {
            all.back() += " " + word;
        } else {
            all.push_back(word);
        }
        is_option = word[0] == '-';
        for (const char each : word) {
            is_quoted = is_quoted != (each == '\'');
        }
    }
    return all;
}

/// A name that is too long for its column stands in a line of its own.
std::string wrapped_row(const std::string& row, size_t width) {
    const std::string indent(list_column, ' ');
    if (row[list_column - 1] != ' ') {
        return filled("  ", words_of(row), "\n", indent, width);
    }
    return filled(row.substr(0, list_column), words_of(row.substr(list_column)), "\n", indent,
                  width);
}

bool is_prose(const std::string& line) { return !line.empty() && line[0] != ' '; }

} // namespace

std::string wrapped_help(const std::string& help, size_t width) {
    std::istringstream lines(help);
    std::string text;
    std::string prose;
    const auto end_prose = [&] {
        if (!prose.empty()) {
            text += filled("", words_of(prose), "\n", "", width);
            prose.clear();
        }
    };
    for (std::string line; std::getline(lines, line);) {
        if (is_prose(line)) {
            if (begins_with(line, "Usage: ")) { // the summary above it may have no full stop
                end_prose();
            }
            prose += (prose.empty() ? "" : " ") + line;
            if (line.back() == '.' || line.back() == ':') {
                end_prose();
            }
            continue;
        }
        end_prose();
        if (line.size() <= width) {
            text += line + "\n";
        } else if (begins_with(line, call_start)) {
            text += filled("  ", arguments_of(line), " \\\n", call_indent, width);
        } else {
            text += wrapped_row(line, width);
        }
    }
    end_prose();
    return text;
}
