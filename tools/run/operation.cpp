#include "tools/run/operation.h"

#include "tools/figures/plot.h"
#include "tools/figures/progress.h"
#include "tools/figures/report.h"
#include "tools/host/settings_findings.h"
#include "tools/host/sharing_notice.h"
#include "tools/run/streams/supervise.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/output_file.h"
#include "tools/terminal/sizes.h"

#include <fmt/format.h>

namespace {

constexpr size_t entries_between_reports = 1024;

/// Open before anything is moved.
struct kept_files {
    explicit kept_files(const run_options& options) : json(options.json), plot(options.plot) {}
    output_file json;
    output_file plot;
};

plot_data plot_of(const run_options& options, const transfer& run) {
    plot_data data;
    const figures total = figures_of(run).total;
    data.title = fmt::format("{} {}: {} in {:.1f} s, {}", run.operation(), options.backup,
                             size_text(static_cast<double>(total.bytes)), total.seconds,
                             rate_text(total.rate));
    if (total.allowed_rate) {
        data.title += fmt::format(" of {} allowed", rate_text(total.allowed_rate));
    }
    for (const auto& each : run.streams()) {
        data.streams.push_back(each->name);
    }
    data.samples = run.samples();
    return data;
}

/// Says what was moved, to people and to programs, also of a run that has failed.
void report(const run_options& options, const transfer& run, const std::string& outcome,
            kept_files& files) {
    if (run.samples().empty()) {
        return; // it never began
    }
    const run_figures figures = figures_of(run);
    fmt::print("{}", table_text(figures));
    if (run.streams().size() > 1 && figures.total.allowed_rate) {
        fmt::print("A stream's allowed rate is its equal share of what all of them are allowed.\n");
    }
    const run_subject asked = {options.server, options.lsu, options.backup, options.block};
    if (!options.plot.empty()) {
        files.plot.write(plot_svg(plot_of(options, run)));
    }
    files.json.write(json_text(asked, run, outcome));
}

} // namespace

std::vector<tree_root> roots_of(const std::vector<std::string>& directories) {
    std::vector<tree_root> roots;
    for (const std::string& directory : directories) {
        roots.push_back(root_of(directory));
    }
    return roots;
}

void entries_found::add() {
    if (++count_ % entries_between_reports == 0) {
        run_.check_may_move();
        tell();
    }
}

void entries_found::tell() const { run_.say(fmt::format("{} entries found", count_)); }

int run_operation(const run_options& options, transfer& run, const std::function<void()>& job,
                  const std::function<int()>& summary) {
    if (!options.json.empty() && is_same_file(options.json, options.plot)) {
        throw usage_failure(
            fmt::format("{} can't hold both the figures and the picture", options.json));
    }
    kept_files files(options);
    told_settings();
    sharing_notice notice(options.server);
    progress_view view(run);
    const std::exception_ptr thrown = supervise(run, view, job, [&] { notice.look(); });
    if (thrown == nullptr) {
        report(options, run, "done", files);
        return summary();
    }
    if (run.is_interrupted()) {
        report(options, run, "interrupted", files);
        console::get().line("Interrupted: " + run.left_behind());
        return EXIT_INTERRUPTED;
    }
    report(options, run, "failed", files);
    std::rethrow_exception(thrown);
}
