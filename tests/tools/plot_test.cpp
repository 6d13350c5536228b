#include "tools/plot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::Not;

namespace {

void expect_scale(double largest, int most, double step, double end) {
    const axis_scale scale = scale_for(largest, most);
    EXPECT_DOUBLE_EQ(scale.step, step) << largest;
    EXPECT_DOUBLE_EQ(scale.end, end) << largest;
}

TEST(PlotScale, HasRoundStepsThatReachTheLargestValue) {
    expect_scale(10, 8, 2, 10);
    expect_scale(9.1, 8, 2, 10);
    expect_scale(16, 8, 2, 16);
    expect_scale(17, 8, 5, 20);
    expect_scale(41, 8, 10, 50);
    expect_scale(0.7, 8, 0.1, 0.7);
    expect_scale(1000, 8, 200, 1000);
    expect_scale(1, 1, 1, 1);
}

TEST(PlotScale, NothingToShowStillHasAStep) {
    expect_scale(0, 8, 1, 1);
    expect_scale(-3, 8, 1, 1);
}

TEST(PlotScale, NeverMakesMoreStepsThanAsked) {
    for (double largest = 0.001; largest < 1e12; largest *= 1.37) {
        const axis_scale scale = scale_for(largest, 8);
        EXPECT_LE(scale.end / scale.step, 8.0001) << largest;
        EXPECT_GE(scale.end, largest * 0.999999) << largest;
    }
}

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

TEST(XmlText, EscapesWhatXmlMarks) { EXPECT_EQ(xml_text("a<b>&\"c"), "a&lt;b&gt;&amp;&quot;c"); }

TEST(XmlText, ReplacesWhatXmlCanNotHold) {
    EXPECT_EQ(xml_text(std::string("a\x01\x1b\0z", 5)), "a???z");
    EXPECT_EQ(xml_text("\xff"), "\xEF\xBF\xBD");
    EXPECT_EQ(xml_text("\xEF\xBF\xBF\xEF\xBF\xBE"), "??");
    EXPECT_EQ(xml_text("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
}

} // namespace
