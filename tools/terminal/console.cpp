#include "tools/terminal/console.h"

#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr const char* clear_line = "\r\033[K";
constexpr const char* line_up = "\033[A";

} // namespace

console& console::get() {
    static console the_console;
    return the_console;
}

console::console() : is_terminal_(isatty(STDERR_FILENO) != 0) {}

size_t console::width() {
    winsize size = {};
    const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return (is_known ? size.ws_col : 80U) - 1; // a full line would wrap
}

void console::line(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    print(erased() + text + "\n");
    drawn_ = 0;
    draw();
}

void console::bars(const std::vector<std::string>& lines) {
    const std::lock_guard<std::mutex> lock(mutex_);
    print(erased());
    bars_ = lines;
    drawn_ = 0;
    draw();
}

void console::clear_bars() { bars({}); }

void console::print(const std::string& text) {
    fwrite(text.data(), 1, text.size(), stderr);
    fflush(stderr);
}

/// What takes the bars off the screen; the cursor stands below the last one.
std::string console::erased() const {
    std::string text;
    for (size_t bar = 0; bar < drawn_; ++bar) {
        text += std::string(line_up) + clear_line;
    }
    return text;
}

void console::draw() {
    const size_t columns = width();
    std::string text;
    for (const std::string& bar : bars_) {
        text += bar.substr(0, columns) + "\n";
    }
    drawn_ = bars_.size();
    print(text);
}
