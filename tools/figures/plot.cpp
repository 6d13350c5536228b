#include "tools/figures/plot.h"

#include "tools/figures/plot_scale.h"
#include "tools/figures/xml_text.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>

namespace {

// The page and, in it, the frame that holds the curves.
constexpr double page_width = 960;
constexpr double page_height = 520;
constexpr double left = 84;
constexpr double right = 936;
constexpr double top = 64;
constexpr double bottom = 410;
constexpr double legend_top = 468;
constexpr double legend_column = 213;
constexpr double legend_row = 20;
constexpr size_t legend_columns = 4;
constexpr size_t most_named_streams = 8; // two rows below that of the totals
constexpr size_t most_points = 400;      // of a curve, however long the run was
constexpr int most_steps = 8;
constexpr double headroom = 1.15;
constexpr double mean_window = 5; // seconds: pacing sleeps whole ones, so less shows only that

constexpr std::array<const char*, 8> stream_colours = {"#4e79a7", "#f28e2b", "#59a14f", "#b07aa1",
                                                       "#76b7b2", "#edc948", "#9c755f", "#ff9da7"};
constexpr const char* total_colour = "#1f2d3d";
constexpr const char* allowed_colour = "#d62728";
constexpr const char* grid_colour = "#e3e7ec";
constexpr const char* text_colour = "#3b4652";

struct time_unit {
    const char* name;
    double seconds;
};

time_unit time_unit_for(double duration) {
    if (duration >= 3 * 3600) {
        return {"hours", 3600};
    }
    return duration >= 600 ? time_unit{"minutes", 60} : time_unit{"seconds", 1};
}

const char* colour_of(size_t stream) { return stream_colours.at(stream % stream_colours.size()); }

/// Bytes since the beginning by time, of one stream or of all: what every curve comes from.
class byte_curve {
  public:
    byte_curve(const std::vector<sample>& samples, size_t first, size_t behind) {
        for (const sample& each : samples) {
            uint64_t bytes = 0;
            for (size_t stream = first; stream < behind; ++stream) {
                bytes += each.bytes[stream];
            }
            times_.push_back(each.time);
            bytes_.push_back(static_cast<double>(bytes));
        }
    }

    /// Mean rate in the window around `time`, as much of it as the run has.
    double mean_rate(double time, double window) const {
        const double from = std::max(times_.front(), time - window / 2);
        const double to = std::min(times_.back(), time + window / 2);
        return to > from ? (bytes_at(to) - bytes_at(from)) / (to - from) : 0;
    }

  private:
    double bytes_at(double time) const {
        const auto behind = std::upper_bound(times_.begin(), times_.end(), time);
        if (behind == times_.end()) {
            return bytes_.back();
        }
        const auto index = static_cast<size_t>(behind - times_.begin());
        const double part = (time - times_[index - 1]) / (times_[index] - times_[index - 1]);
        return bytes_[index - 1] + part * (bytes_[index] - bytes_[index - 1]);
    }

    std::vector<double> times_;
    std::vector<double> bytes_;
};

/// The picture as it is put together.
class picture {
  public:
    explicit picture(const plot_data& data)
        : data_(data), all_(data.samples, 0, data.streams.size()),
          duration_(data.samples.back().time),
          points_(std::clamp<size_t>(data.samples.size() - 1, 1, most_points)),
          point_(duration_ / static_cast<double>(points_)),
          window_(std::max(std::clamp(duration_ / 4, 1.0, mean_window), 2 * point_)),
          unit_(unit_for(largest_rate())),
          rates_(scale_for(headroom * largest_rate() / unit_.bytes, most_steps)),
          time_unit_(time_unit_for(duration_)),
          times_(scale_for(duration_ / time_unit_.seconds, most_steps + 2)) {}

    std::string text() {
        open_page();
        draw_grid();
        draw_each_second();
        if (data_.streams.size() > 1) {
            for (size_t stream = 0; stream < data_.streams.size(); ++stream) {
                draw_mean(byte_curve(data_.samples, stream, stream + 1), colour_of(stream), 1.6);
            }
        }
        draw_mean(all_, total_colour, 2.6);
        draw_allowed();
        draw_legend();
        add("</svg>\n");
        return svg_;
    }

  private:
    double largest_rate() const {
        double largest = 1;
        for (const sample& each : data_.samples) {
            largest = std::max(largest, static_cast<double>(each.allowed.value_or(0)));
        }
        for (size_t point = 0; point <= points_; ++point) {
            largest = std::max(largest, all_.mean_rate(time_of(point), window_));
        }
        return largest;
    }

    double x(double time) const {
        return left + (duration_ > 0 ? time / duration_ : 0) * (right - left);
    }
    double y(double rate) const {
        const double part = rate / (rates_.end * unit_.bytes);
        return bottom - std::min(part, 1.0) * (bottom - top); // what is above is cut at the frame
    }

    template <typename... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        svg_ += fmt::format(format, std::forward<Arguments>(arguments)...);
    }

    void open_page() {
        add("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" "
            "height=\"{1}\" font-family=\"system-ui, 'DejaVu Sans', sans-serif\" font-size=\"13\" "
            "fill=\"{2}\">\n",
            page_width, page_height, text_colour);
        add("<title>{0}</title>\n<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n"
            "<text x=\"{1}\" y=\"34\" font-size=\"18\" font-weight=\"600\">{0}</text>\n",
            xml_text(data_.title), left);
    }

    void draw_grid() {
        const auto rate_steps = static_cast<int>(std::lround(rates_.end / rates_.step));
        for (int step = 0; step <= rate_steps; ++step) {
            const double value = step * rates_.step;
            const double height = y(value * unit_.bytes);
            add("<path d=\"M{:.1f} {:.1f}H{:.1f}\" stroke=\"{}\"/>\n", left, height, right,
                step == 0 ? text_colour : grid_colour);
            add("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"end\">{:g}</text>\n", left - 8,
                height + 4.5, value);
        }
        for (int step = 0; step * times_.step * time_unit_.seconds <= duration_; ++step) {
            const double place = x(step * times_.step * time_unit_.seconds);
            add("<path d=\"M{:.1f} {:.1f}V{:.1f}\" stroke=\"{}\"/>\n", place, top, bottom,
                step == 0 ? text_colour : grid_colour);
            add("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{:g}</text>\n", place,
                bottom + 18, step * times_.step);
        }
        add("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{}</text>\n",
            (left + right) / 2, bottom + 38, time_unit_.name);
        add("<text transform=\"translate(24 {:.1f}) rotate(-90)\" text-anchor=\"middle\">{}/s"
            "</text>\n",
            (top + bottom) / 2, unit_.name);
    }

    double time_of(size_t point) const { return static_cast<double>(point) * point_; }

    /// What was really moved in each second, in the background.
    void draw_each_second() {
        add("<path fill=\"{}\" fill-opacity=\"0.10\" d=\"M{:.1f} {:.1f}", total_colour, left,
            bottom);
        for (size_t point = 0; point < points_; ++point) {
            const double middle = time_of(point) + point_ / 2;
            add("V{:.1f}H{:.1f}", y(all_.mean_rate(middle, point_)), x(time_of(point + 1)));
        }
        add("V{:.1f}Z\"/>\n", bottom);
    }

    void draw_mean(const byte_curve& curve, const char* colour, double width) {
        add("<polyline fill=\"none\" stroke=\"{}\" stroke-width=\"{}\" stroke-linejoin=\"round\" "
            "points=\"",
            colour, width);
        for (size_t point = 0; point <= points_; ++point) {
            const double time = time_of(point);
            add("{:.1f},{:.1f} ", x(time), y(curve.mean_rate(time, window_)));
        }
        add("\"/>\n");
    }

    bool is_throttled() const {
        return std::any_of(data_.samples.begin(), data_.samples.end(),
                           [](const sample& each) { return each.allowed.has_value(); });
    }

    /// Stepped, since the rate changes with a window.
    void draw_allowed() {
        if (!is_throttled()) {
            return;
        }
        add("<path fill=\"none\" stroke=\"{}\" stroke-width=\"2\" stroke-dasharray=\"7 4\" d=\"",
            allowed_colour);
        for (size_t index = 0; index < data_.samples.size(); ++index) {
            const sample& each = data_.samples[index];
            const double height = y(static_cast<double>(each.allowed.value_or(0)));
            const bool is_last = index + 1 == data_.samples.size();
            if (index == 0) {
                add("M{:.1f} {:.1f}", x(each.time), height);
            } else if (is_last || each.allowed != data_.samples[index - 1].allowed) {
                add("H{:.1f}V{:.1f}", x(each.time), height);
            }
        }
        add("\"/>\n");
    }

    void draw_legend() {
        legend_entry(is_throttled() ? "allowed" : "not throttled", allowed_colour, 2, "7 4");
        legend_entry(fmt::format("total, mean of {:.2g} s", window_), total_colour, 2.6, "none");
        legend_entry(fmt::format("total, each {}", point_ > 0.5 && point_ < 1.5
                                                       ? "second"
                                                       : fmt::format("{:.2g} s", point_)),
                     "#d5dae0", 10, "none");
        if (data_.streams.size() < 2) {
            return;
        }
        entries_ = legend_columns; // the streams begin a row
        const size_t named = std::min(data_.streams.size(), most_named_streams);
        for (size_t stream = 0; stream < named; ++stream) {
            const size_t others = data_.streams.size() - named;
            const bool is_last = stream + 1 == named && others > 0;
            legend_entry(is_last ? fmt::format("and {} more", others + 1) : data_.streams[stream],
                         colour_of(stream), 1.6, "none");
        }
    }

    void legend_entry(const std::string& name, const char* colour, double width,
                      const char* dashes) {
        constexpr size_t most_characters = 24;
        const double place = left + static_cast<double>(entries_ % legend_columns) * legend_column;
        const size_t row = entries_ / legend_columns;
        const double height = legend_top + static_cast<double>(row) * legend_row;
        ++entries_;
        const std::string shown =
            name.size() > most_characters
                ? "..." + name.substr(name.size() - most_characters + 3) // the stream's number
                : name;
        add("<path d=\"M{:.1f} {:.1f}h26\" stroke=\"{}\" stroke-width=\"{}\" "
            "stroke-dasharray=\"{}\"/>\n",
            place, height - 4.5, colour, width, dashes);
        add("<text x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n", place + 34, height, xml_text(shown));
    }

    const plot_data& data_;
    const byte_curve all_;
    const double duration_;
    const size_t points_; ///< steps of a curve
    const double point_;  ///< seconds of each
    const double window_; ///< seconds that a mean is taken over
    const size_unit unit_;
    const axis_scale rates_;
    const time_unit time_unit_;
    const axis_scale times_;
    size_t entries_ = 0;
    std::string svg_;
};

} // namespace

std::string plot_svg(const plot_data& data) {
    plot_data drawn = data;
    if (drawn.samples.empty()) {
        drawn.samples.push_back({0, {}, std::vector<uint64_t>(drawn.streams.size())});
    }
    return picture(drawn).text();
}
