#include "tools/figures/progress.h"

#include "tools/terminal/console.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

constexpr auto redraw_interval = std::chrono::milliseconds(200);
constexpr auto line_interval = std::chrono::seconds(2);
constexpr double recent_seconds = 4; // pacing sleeps whole seconds: less would jump
constexpr size_t bar_width = 20;
constexpr size_t least_bar = 5;
constexpr size_t longest_name = 24;

/// The last sample that is old enough to measure from.
const sample& base_of(const run_course& run) {
    const std::vector<sample>& samples = run.samples();
    const double now = run.seconds();
    const auto newer = std::find_if(samples.rbegin(), samples.rend(), [&](const sample& each) {
        return each.time <= now - recent_seconds;
    });
    return newer != samples.rend() ? *newer : samples.front();
}

double rate_since(double then, double now, uint64_t bytes) {
    return now > then ? static_cast<double>(bytes) / (now - then) : 0;
}

double fraction(uint64_t done, uint64_t planned) {
    return planned == 0 ? 1
                        : std::min(1.0, static_cast<double>(done) / static_cast<double>(planned));
}

/// The allowed rate of one of `count` streams.
std::optional<double> share_of(std::optional<uint64_t> allowed, size_t count) {
    if (!allowed) {
        return {};
    }
    return static_cast<double>(*allowed) / static_cast<double>(std::max<size_t>(count, 1));
}

std::string shortened(const std::string& name) {
    return name.size() <= longest_name ? name : "..." + name.substr(name.size() - longest_name + 3);
}

/// Seconds that the rest takes at `rate`, where the part that is done took `bytes`.
std::optional<double> time_left(double done, uint64_t bytes, double rate) {
    if (done <= 0 || rate <= 0) {
        return done >= 1 ? std::optional<double>(0) : std::nullopt;
    }
    return static_cast<double>(bytes) * (1 - done) / done / rate;
}

progress_line line_of(const std::string& name, double done, uint64_t bytes, double rate,
                      std::optional<double> allowed, uint64_t slept) {
    return {name,
            done,
            rate,
            time_left(done, bytes, rate),
            {fmt::format("of {}", rate_text(allowed)), fmt::format("slept {} s", slept)}};
}

struct totals {
    uint64_t done = 0;
    uint64_t planned = 0;
    uint64_t bytes = 0;
    uint64_t slept = 0;
};

totals totals_of(const run_course& run) {
    totals all;
    for (const auto& each : run.streams()) {
        all.done += each->done;
        all.planned += each->planned;
        all.bytes += each->bytes;
        all.slept += each->slept;
    }
    return all;
}

} // namespace

std::string bar_text(double done, size_t width) {
    const auto full = static_cast<size_t>(std::clamp(done, 0.0, 1.0) * static_cast<double>(width));
    return "[" + std::string(full, '#') + std::string(width - full, '.') + "]";
}

double recent_rate(const run_course& run, size_t index) {
    const sample& base = base_of(run);
    return rate_since(base.time, run.seconds(), run.streams()[index]->bytes - base.bytes[index]);
}

double recent_rate(const run_course& run) {
    const sample& base = base_of(run);
    uint64_t moved = 0;
    for (size_t index = 0; index < run.streams().size(); ++index) {
        moved += run.streams()[index]->bytes - base.bytes[index];
    }
    return rate_since(base.time, run.seconds(), moved);
}

std::string left_text(std::optional<double> seconds) {
    if (!seconds) {
        return "-:--:--";
    }
    constexpr double longest = 1e9; // some thirty years
    const auto whole = static_cast<uint64_t>(std::clamp(*seconds + 0.5, 0.0, longest));
    const uint64_t hours = whole / 3600;
    return hours < 100 ? fmt::format("{}:{:02}:{:02}", hours, whole / 60 % 60, whole % 60)
                       : fmt::format("{}d {:02}h", hours / 24, hours % 24);
}

std::string line_text(const progress_line& line, size_t name_width, size_t width) {
    std::string text =
        fmt::format("{:3.0f} % {:>12}  ETA {:>8}  {:<{}}", 100 * line.done, rate_text(line.rate),
                    left_text(line.left), shortened(line.name), std::min(name_width, longest_name));
    for (const std::string& each : line.behind) {
        if (text.size() + 2 + each.size() > width) {
            return text.substr(0, width);
        }
        text += "  " + each;
    }
    constexpr size_t around = 4; // two blanks and the brackets
    if (text.size() + around + least_bar <= width) {
        const size_t room = width - text.size() - around;
        text += "  " + bar_text(line.done, std::min(room, bar_width));
    }
    return text.substr(0, width);
}

progress_line progress_view::total_line() const {
    const totals all = totals_of(run_);
    return line_of(run_.operation(), fraction(all.done, all.planned), all.bytes, recent_rate(run_),
                   share_of(run_.allowed_now(), 1), all.slept);
}

void progress_view::show() {
    console& screen = console::get();
    const clock::time_point now = clock::now();
    if (now - shown_ < (screen.is_terminal() ? clock::duration(redraw_interval)
                                             : clock::duration(line_interval))) {
        return;
    }
    shown_ = now;
    const std::vector<std::string> shown = lines();
    if (screen.is_terminal()) {
        screen.bars(shown);
    } else if (!shown.empty()) {
        screen.line(shown.back());
    }
}

std::vector<std::string> progress_view::lines() const {
    std::vector<std::string> shown;
    if (run_.is_running()) {
        std::vector<progress_line> all;
        const std::optional<double> share = share_of(run_.allowed_now(), run_.streams().size());
        for (size_t index = 0; index < run_.streams().size(); ++index) {
            const stream& each = *run_.streams()[index];
            all.push_back(line_of(each.name, fraction(each.done, each.planned), each.bytes,
                                  recent_rate(run_, index), share, each.slept));
        }
        all.push_back(total_line());
        size_t name_width = 0;
        for (const progress_line& each : all) {
            name_width = std::max(name_width, each.name.size());
        }
        for (const progress_line& each : all) {
            shown.push_back(line_text(each, name_width, console::width()));
        }
    } else {
        shown.push_back(run_.operation() + ": " + run_.phase());
    }
    return shown;
}

void progress_view::clear() { console::get().clear_bars(); }
