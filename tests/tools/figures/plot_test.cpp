#include "tools/figures/plot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::Not;

namespace {

/// Two streams of which the second starts late, allowed 100 and then 200 bytes per second.
plot_data two_streams() {
    plot_data data;
    data.title = "a <title>";
    data.streams = {"one", "two"};
    data.samples = {{0, 100, {0, 0}}, {1, 100, {100, 0}}, {2, 200, {200, 0}}, {3, 200, {300, 100}}};
    return data;
}

TEST(Plot, AllowedRateIsAStepWhereTheWindowChanges) {
    const std::string svg = plot_svg(two_streams());
    // 100 of 250 B/s up to second 2 of 3, then 200: the frame is 84..936 wide and 64..410 high.
    EXPECT_THAT(svg, HasSubstr("d=\"M84.0 271.6H652.0V133.2H936.0V133.2\""));
}

TEST(Plot, NamesStreamsUnitsAndTitle) {
    const std::string svg = plot_svg(two_streams());
    for (const char* text : {">one<", ">two<", ">allowed<", ">B/s<", ">seconds<",
                             ">total, each second<", "<title>a &lt;title&gt;</title>"}) {
        EXPECT_THAT(svg, HasSubstr(text));
    }
}

TEST(Plot, SingleStreamIsTheTotal) {
    plot_data data = two_streams();
    data.streams = {"one"};
    EXPECT_THAT(plot_svg(data), Not(HasSubstr(">one<")));
}

TEST(Plot, UnthrottledRunSaysSo) {
    plot_data data = two_streams();
    for (sample& each : data.samples) {
        each.allowed.reset();
    }
    EXPECT_THAT(plot_svg(data), HasSubstr(">not throttled<"));
}

TEST(Plot, RunThatMovedNothingHasNoNumberThatIsNone) {
    for (const size_t samples : {size_t{1}, size_t{0}}) {
        plot_data data = two_streams();
        data.samples.resize(samples);
        const std::string svg = plot_svg(data);
        EXPECT_THAT(svg, Not(HasSubstr("nan")));
        EXPECT_THAT(svg, Not(HasSubstr("inf")));
    }
}

TEST(Plot, LongRunIsDrawnWithFewPoints) {
    plot_data data;
    data.streams = {"one"};
    for (uint64_t second = 0; second < 100000; ++second) {
        data.samples.push_back({static_cast<double>(second), 1000, {second * 1000}});
    }
    const std::string svg = plot_svg(data);
    EXPECT_LT(svg.size(), 40000U);
    EXPECT_THAT(svg, HasSubstr(">hours<"));
}

} // namespace
