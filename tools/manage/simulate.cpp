// "simulate": when a transfer would be finished, and what would move meanwhile.

#include "config/settings.h"
#include "tools/figures/plot.h"
#include "tools/host/settings_findings.h"
#include "tools/manage/commands.h"
#include "tools/manage/preview_table.h"
#include "tools/manage/preview_time.h"
#include "tools/manage/simulation.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/output_file.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <ctime>
#include <fmt/format.h>
#include <memory>
#include <optional>

namespace {

constexpr size_t most_lines = 28; // of stretches: two weeks of two windows
constexpr size_t most_points = 400;

struct simulate_options {
    simulated_transfer transfer;
    std::string from = "now";
    std::string settings; ///< empty: the plugin's own file
    std::string plot;
    uint64_t streams = 1;
    bool reads = false;
    bool as_json = false;
};

checked_settings settings_of(const std::string& file) {
    const checked_settings found = told_settings(file);
    if (found.state == checked_settings::missing) {
        throw failure(missing_settings_text(file.empty() ? plugin_config_path : file));
    }
    return found;
}

/// "1d 07:12:00".
std::string duration_text(time_t seconds) {
    const std::string days = seconds < 86400 ? "" : fmt::format("{}d ", seconds / 86400);
    return days +
           fmt::format("{:02}:{:02}:{:02}", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
}

std::string moment_text(time_t when) { return time_text(when, "%a %Y-%m-%d %H:%M"); }

const char* outcome_of(const simulated_course& course) {
    if (course.finished) {
        return "finished";
    }
    return course.faulted ? "fault" : "unfinished";
}

std::string stretches_text(const simulated_course& course) {
    std::vector<std::vector<std::string>> lines;
    for (const simulated_stretch& each : course.stretches) {
        if (lines.size() == most_lines) {
            break;
        }
        lines.push_back({moment_text(each.from), moment_text(each.to), window_name(each.window),
                         rate_text(static_cast<double>(each.rate)), size_text(each.bytes)});
    }
    std::string text = columns_text({"from", "to", "window", "rate", "moved"}, lines);
    if (course.stretches.size() > lines.size()) {
        text += fmt::format("and {} more, which --json lists\n",
                            course.stretches.size() - lines.size());
    }
    return text;
}

std::string windows_text(const simulated_course& course) {
    std::vector<std::vector<std::string>> lines;
    for (const pacing_window window : {pacing_window::work_time, pacing_window::off_time,
                                       pacing_window::weekend, pacing_window::none}) {
        time_t lasts = 0;
        uint64_t bytes = 0;
        for (const simulated_stretch& each : course.stretches) {
            lasts += each.window == window ? each.to - each.from : 0;
            bytes += each.window == window ? each.bytes : 0;
        }
        if (lasts != 0) {
            lines.push_back({window_name(window), duration_text(lasts), size_text(bytes)});
        }
    }
    return columns_text({"window", "time in it", "moved"}, lines);
}

std::string outcome_text(const simulate_options& options, const simulated_course& course) {
    if (course.finished) {
        return fmt::format("Finished {}, after {}.\n", day_and_time(*course.finished),
                           duration_text(*course.finished - options.transfer.begins));
    }
    if (course.faulted) {
        return fmt::format("At {} nothing is allowed: the plugin ends the process, with {} of it "
                           "moved.\n",
                           day_and_time(*course.faulted), size_text(course.bytes()));
    }
    return fmt::format("Not finished within ten years: {} of it moved.\n",
                       size_text(course.bytes()));
}

void print_text(const simulate_options& options, const simulated_course& course) {
    const simulated_transfer& asked = options.transfer;
    if (asked.config.sample_interval == 0) {
        fmt::print("Throttling is off (THR:SAMPLE_INTERVAL is 0): all moves as fast as it can.\n"
                   "Turned on, it would allow:\n");
    }
    fmt::print("{} of {} from {}", size_text(asked.bytes),
               asked.direction == OPERATION_READ ? "reads" : "writes", day_and_time(asked.begins));
    if (asked.share > 1) {
        fmt::print(", one of {} connections", asked.share);
    }
    fmt::print("\n\n");
    if (!course.stretches.empty()) {
        fmt::print("{}\n{}\n", stretches_text(course), windows_text(course));
    }
    fmt::print("{}", outcome_text(options, course));
    if (course.finished && options.streams > 1) {
        fmt::print("The {} streams share that: {} each.\n", options.streams,
                   size_text(asked.bytes / options.streams));
    }
}

void print_json(const simulate_options& options, const checked_settings& found,
                const simulated_course& course) {
    const auto time_or_null = [](const std::optional<time_t>& when) {
        return when ? ordered_json(*when) : ordered_json();
    };
    ordered_json stretches = ordered_json::array();
    for (const simulated_stretch& each : course.stretches) {
        stretches.push_back({{"from", each.from},
                             {"to", each.to},
                             {"window", window_name(each.window)},
                             {"rate", each.rate},
                             {"bytes", each.bytes}});
    }
    const simulated_transfer& asked = options.transfer;
    const ordered_json all = {
        {"file", options.settings.empty() ? plugin_config_path : options.settings},
        {"sample_interval", asked.config.sample_interval},
        {"findings", findings_json(found.findings)},
        {"direction", asked.direction == OPERATION_READ ? "read" : "write"},
        {"bytes", asked.bytes},
        {"share", asked.share},
        {"streams", options.streams},
        {"from", asked.begins},
        {"outcome", outcome_of(course)},
        {"finished", time_or_null(course.finished)},
        {"fault", time_or_null(course.faulted)},
        {"moved", course.bytes()},
        {"stretches", stretches}};
    fmt::print("{}\n", dumped(all, 2));
}

// --- the picture -------------------------------------------------------------------------------

/// The course at that time: what has been moved by then, and what is allowed.
class course_reader {
  public:
    explicit course_reader(const simulated_course& course) : course_(course) {}

    /// Times come in order.
    sample at(double time, time_t begins) {
        const double when = static_cast<double>(begins) + time;
        const auto& all = course_.stretches;
        while (next_ + 1 < all.size() && when >= static_cast<double>(all[next_].to)) {
            before_ += all[next_++].bytes;
        }
        const simulated_stretch& here = all[next_];
        const auto lasts = static_cast<double>(std::max<time_t>(here.to - here.from, 1));
        const double part = std::clamp((when - static_cast<double>(here.from)) / lasts, 0.0, 1.0);
        const auto inside = static_cast<uint64_t>(part * static_cast<double>(here.bytes));
        return {time, here.rate, {before_ + inside}};
    }

  private:
    const simulated_course& course_;
    size_t next_ = 0;
    uint64_t before_ = 0;
};

plot_data plot_of(const simulate_options& options, const simulated_course& course) {
    plot_data data;
    data.title = fmt::format("{} of {} from {}", size_text(options.transfer.bytes),
                             options.transfer.direction == OPERATION_READ ? "reads" : "writes",
                             day_and_time(options.transfer.begins));
    data.streams = {"simulated"};
    if (course.stretches.empty()) {
        return data;
    }
    course_reader reader(course);
    const auto lasts = static_cast<double>(course.stretches.back().to - options.transfer.begins);
    for (size_t point = 0; point <= most_points; ++point) {
        const double time = lasts * static_cast<double>(point) / most_points;
        data.samples.push_back(reader.at(time, options.transfer.begins));
    }
    return data;
}

int run_simulate(simulate_options options) {
    const std::optional<time_t> from = time_named(options.from, time(nullptr));
    if (!from) {
        throw usage_failure(no_time_text("--from", options.from));
    }
    output_file picture(options.plot);
    const checked_settings found = settings_of(options.settings);
    options.transfer.config = found.config;
    options.transfer.begins = *from;
    options.transfer.direction = options.reads ? OPERATION_READ : OPERATION_WRITE;
    const simulated_course course = simulate(options.transfer);
    options.as_json ? print_json(options, found, course) : print_text(options, course);
    if (!options.plot.empty()) {
        picture.write(plot_svg(plot_of(options, course)));
    }
    return course.finished ? EXIT_DONE : EXIT_FAILED;
}

} // namespace

void add_simulate(CLI::App& app, request& asked) {
    const auto kept = std::make_shared<simulate_options>();
    CLI::App* const simulate = app.add_subcommand(
        "simulate", "Say when a transfer would be finished, and what moves until then");
    add_size(*simulate, "--bytes", kept->transfer.bytes, "How much is to be moved")->required();
    add_named(*simulate, "--from", kept->from, "When it begins (default: now)", "WHEN");
    simulate->add_flag("--read", kept->reads, "It reads (default: it writes)");
    simulate
        ->add_option("--share", kept->transfer.share,
                     "Connections that share the bandwidth, this one among them")
        ->check(CLI::Range(1, 1000000).description(""))
        ->type_name("N")
        ->capture_default_str();
    simulate->add_option("--streams", kept->streams, "Streams of this one, which share its rate")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N")
        ->capture_default_str();
    add_named(*simulate, "--settings", kept->settings, "A settings file (default: the plugin's)",
              "FILE");
    add_named(*simulate, "--plot", kept->plot, "Draw it", "FILE.svg");
    add_json(*simulate, kept->as_json);
    simulate->footer(
        std::string(when_help) +
        "Nothing is moved: the plugin's arithmetic runs on virtual time, by the hours of local "
        "time, also where the clocks change. A device that keeps up is taken for granted. Rates "
        "are this connection's share. Ends with 1 when it is never finished: where nothing is "
        "allowed the plugin ends the process.\n"
        "The fields of --json are in docs/json.md.\n\n" +
        examples({"simulate --bytes 2T --from 'Fri 20:00'",
                  "simulate --bytes 500G --read --share 3 --settings draft.conf --plot "
                  "night.svg"}));
    chooses(*simulate, asked, [kept] { return run_simulate(*kept); });
}
