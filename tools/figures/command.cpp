// "plot": draws several runs in one picture.

#include "tools/figures/command.h"
#include "tools/figures/joined_runs.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/input_file.h"
#include "tools/terminal/output_file.h"

#include <fmt/format.h>
#include <memory>

namespace {

struct plot_options {
    std::vector<std::string> runs;
    std::string picture;
    std::string title = "Runs side by side";
};

int run_plot(const plot_options& options) {
    std::vector<recorded_run> runs;
    for (const std::string& path : options.runs) {
        if (is_same_file(path, options.picture)) {
            throw usage_failure(
                fmt::format("{} holds a run: the picture can't be put there", path));
        }
        runs.push_back(read_run(path, read_file(path)));
    }
    write_file(options.picture, plot_svg(joined(options.title, runs)));
    if (options.picture != standard_output) {
        fmt::print("The picture is in {}.\n", options.picture);
    }
    return EXIT_DONE;
}

} // namespace

void add_plot(CLI::App& app, request& asked) {
    const auto kept = std::make_shared<plot_options>();
    CLI::App* const plot =
        app.add_subcommand("plot", "Draw several runs in one picture, each as one curve");
    add_named(*plot, "RUN", kept->runs, "Files that \"run\" wrote for --json")->required();
    add_named(*plot, "--to", kept->picture, "The picture; - is standard output", "FILE.svg")
        ->required();
    plot->add_option("--title", kept->title, "What stands above it")
        ->type_name("TEXT")
        ->capture_default_str();
    plot->footer(
        "How processes that share a storage share its bandwidth: the rate of each falls when\n"
        "another joins and rises when it leaves. The allowed rate is what those at work are\n"
        "allowed together.\n\n" +
        examples({"plot monday.json nightly.json --to both.svg"}));
    chooses(*plot, asked, [kept] { return run_plot(*kept); });
}
