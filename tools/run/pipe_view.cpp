#include "tools/run/pipe_view.h"

#include "tools/terminal/console.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

constexpr size_t least_bar = 5;
constexpr size_t most_bar = 40;

std::string arrow_text(double done, size_t width) {
    const auto full = static_cast<size_t>(done * static_cast<double>(width));
    std::string text(width, ' ');
    std::fill_n(text.begin(), full, '=');
    if (full < width) {
        text[full] = '>';
    }
    return "[" + text + "]";
}

} // namespace

std::string pipe_text(uint64_t bytes, double seconds, double rate, uint64_t size, size_t width) {
    std::string text =
        fmt::format("{} {} [{}]", size_text(bytes), left_text(seconds), rate_text(rate));
    if (size != 0) {
        const double done = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(size));
        std::optional<double> left;
        if (rate > 0) {
            left = static_cast<double>(size - std::min(bytes, size)) / rate;
        }
        const std::string end = fmt::format("{:3.0f} % ETA {}", 100 * done, left_text(left));
        const size_t taken = text.size() + end.size() + 4; // blanks and brackets
        if (taken + least_bar <= width) {
            text += " " + arrow_text(done, std::min(width - taken, most_bar));
        }
        text += " " + end;
    }
    return text.substr(0, width);
}

std::vector<std::string> pipe_view::lines() const {
    if (is_quiet_ || !run().is_running()) {
        return {};
    }
    const stream& all = *run().streams().front();
    return {pipe_text(all.bytes, run().seconds(), recent_rate(run()), size_, console::width())};
}

void pipe_view::show_end() const {
    if (is_quiet_ || run().streams().empty()) {
        return;
    }
    const stream& all = *run().streams().front();
    const double seconds = run().seconds();
    const double mean = seconds > 0 ? static_cast<double>(all.bytes) / seconds : 0;
    console::get().line(pipe_text(all.bytes, seconds, mean, size_, console::width()));
}
