#include "tools/run/operation.h"

#include "tools/figures/plot.h"
#include "tools/figures/report.h"
#include "tools/run/streams/supervise.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/output_file.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <fmt/format.h>
#include <unistd.h>

namespace {

/// Names this process in the log and to the service; lives as long as the process.
const char* session_id() {
    static const std::string id = fmt::format("throttlectl-{}", getpid());
    return id.c_str();
}

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
void report(const run_options& options, const transfer& run, const std::string& outcome) {
    if (run.samples().empty()) {
        return; // it never began
    }
    const run_figures figures = figures_of(run);
    fmt::print("{}", table_text(figures));
    if (run.streams().size() > 1 && figures.total.allowed_rate) {
        fmt::print("A stream's allowed rate is its equal share of what all of them are allowed.\n");
    }
    write_file(options.json, json_text(options, run, outcome));
    if (!options.plot.empty()) {
        write_file(options.plot, plot_svg(plot_of(options, run)));
    }
}

} // namespace

connection::connection(const server_options& options)
    : host(options.plugin),
      server(host, watching_session(session_id(), options.log), options.server) {}

int ended(host_server& server) {
    server.close();
    return server.passed_over() == 0 ? EXIT_DONE : EXIT_FAILED;
}

tree_listing list_for(transfer& run, const std::vector<tree_root>& roots) {
    return list_trees(roots, [&](size_t entries) {
        run.check_may_move();
        run.say(fmt::format("{} entries found", entries));
    });
}

void file_problems::report(const std::string& path, const std::string& reason) {
    ++count_;
    console::get().line(printable(path) + ": " + reason);
}

void file_problems::report_image(const std::string& image, const std::string& reason) {
    ++count_;
    console::get().line(image_complaint(image, reason));
}

int file_problems::summary() const {
    if (count_ == 0) {
        return EXIT_DONE;
    }
    fmt::print("Not all went well: {} {}, named above.\n", count_.load(),
               count_ == 1 ? "problem" : "problems");
    return EXIT_FAILED;
}

std::string image_complaint(const std::string& image, const std::string& reason) {
    return fmt::format("the image \"{}\": {}", printable(image), reason);
}

void say_unsealed(const std::string& image) {
    console::get().line(fmt::format("warning: the image \"{}\" has no seal, as those of earlier "
                                    "versions: damage to it can't be told",
                                    printable(image)));
}

int run_operation(const run_options& options, transfer& run, const std::function<void()>& job,
                  const std::function<int()>& summary) {
    if (!options.json.empty() && is_same_file(options.json, options.plot)) {
        throw usage_failure(
            fmt::format("{} can't hold both the figures and the picture", options.json));
    }
    require_writable(options.json);
    require_writable(options.plot);
    const std::exception_ptr thrown = supervise(run, job);
    if (thrown == nullptr) {
        report(options, run, "done");
        return summary();
    }
    if (run.is_interrupted()) {
        report(options, run, "interrupted");
        console::get().line("Interrupted: " + run.left_behind());
        return EXIT_INTERRUPTED;
    }
    report(options, run, "failed");
    std::rethrow_exception(thrown);
}
