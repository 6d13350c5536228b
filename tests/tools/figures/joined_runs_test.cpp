#include "tools/figures/joined_runs.h"

#include "tools/terminal/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// A run of two streams that moves 100 bytes in each of two seconds.
std::string figures_text(const std::string& name, int began, const std::string& allowed) {
    const std::string rate = ", \"allowed_rate\": " + allowed + "}";
    return "{\"backup\": \"" + name + "\", \"began\": " + std::to_string(began) +
           ", \"samples\": [{\"time\": 1.0, \"bytes\": [60, 40]" + rate +
           ", {\"time\": 2.0, \"bytes\": [10, 90]" + rate + "]}";
}

std::string refusal_of(const std::string& text) {
    try {
        read_run("a.json", text);
    } catch (const failure& error) {
        return error.what();
    }
    return "";
}

TEST(JoinedRuns, EachRunIsOneCurveOnOneClock) {
    const plot_data data = joined("both", {read_run("a.json", figures_text("a", 1000, "150")),
                                           read_run("b.json", figures_text("b", 1001, "70"))});
    EXPECT_EQ(data.title, "both");
    EXPECT_THAT(data.streams, ElementsAre("a", "b"));
    std::vector<double> times;
    std::vector<std::vector<uint64_t>> bytes;
    for (const sample& each : data.samples) {
        times.push_back(each.time);
        bytes.push_back(each.bytes);
    }
    EXPECT_THAT(times, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(bytes, ElementsAre(ElementsAre(0, 0), ElementsAre(100, 0), ElementsAre(200, 100),
                                   ElementsAre(200, 200)));
}

TEST(JoinedRuns, AllowedIsWhatThoseAtWorkAreAllowedTogether) {
    const plot_data data = joined("both", {read_run("a.json", figures_text("a", 1000, "150")),
                                           read_run("b.json", figures_text("b", 1001, "70"))});
    EXPECT_THAT(data.samples.at(0).allowed, 150U);
    EXPECT_THAT(data.samples.at(1).allowed, 220U);
    EXPECT_THAT(data.samples.at(2).allowed, 70U);
    EXPECT_THAT(data.samples.at(3).allowed, 70U);
}

TEST(JoinedRuns, OneThatIsNotThrottledTakesTheLimitAway) {
    const plot_data data = joined("both", {read_run("a.json", figures_text("a", 1000, "null")),
                                           read_run("b.json", figures_text("b", 1001, "70"))});
    EXPECT_EQ(data.samples.at(1).allowed, std::nullopt);
    EXPECT_THAT(data.samples.at(2).allowed, 70U);
}

TEST(JoinedRuns, BytesBetweenTwoMomentsAreSpreadEvenly) {
    const recorded_run run = read_run("a.json", figures_text("a", 1000, "150"));
    EXPECT_EQ(run.bytes_at(999.5), 0U);
    EXPECT_EQ(run.bytes_at(1000.5), 50U);
    EXPECT_EQ(run.bytes_at(1005), 200U);
}

TEST(JoinedRuns, WhatIsNoRunIsRefusedByItsFileAndKey) {
    EXPECT_THAT(refusal_of("no JSON"),
                HasSubstr("a.json doesn't hold the figures of a run: parse error at line 1"));
    EXPECT_THAT(refusal_of("[]"), HasSubstr("a.json doesn't"));
    EXPECT_THAT(refusal_of("{\"backup\": \"a\", \"samples\": []}"), HasSubstr("'began'"));
    EXPECT_THAT(refusal_of("{\"backup\": 5}"), HasSubstr("must be string"));
    EXPECT_THAT(refusal_of("{\"backup\": \"a\", \"began\": 1, \"samples\": []}"),
                HasSubstr("it has no samples"));
    const std::string second = R"({"time": 1, "bytes": [1], "allowed_rate": null})";
    EXPECT_THAT(
        refusal_of(R"({"backup": "a", "began": 1, "samples": [)" + second + ", " + second + "]}"),
        HasSubstr("the sample of second 1 isn't in order"));
}

TEST(JoinedRuns, NumbersThatCanNotBeAreRefusedByTheirKey) {
    const auto refusal = [](const std::string& time, const std::string& bytes,
                            const std::string& rate) {
        return refusal_of(R"({"backup": "a", "began": 1e308, "samples": [{"time": )" + time +
                          ", \"bytes\": " + bytes + ", \"allowed_rate\": " + rate + "}]}");
    };
    EXPECT_EQ(refusal("1", "[5]", "7"), "");
    EXPECT_THAT(refusal("1", "[5, -5]", "7"),
                HasSubstr("its \"bytes\" -5 isn't a whole number from 0"));
    EXPECT_THAT(refusal("1", "[0.5]", "7"), HasSubstr("its \"bytes\" 0.5 isn't"));
    EXPECT_THAT(refusal("1", "[5]", "-7"), HasSubstr("its \"allowed_rate\" -7 isn't"));
    EXPECT_THAT(refusal("1e308", "[5]", "7"), HasSubstr("its \"time\" 1e+308 is beyond"));
    EXPECT_THAT(refusal("1e999", "[5]", "7"), HasSubstr("1e999"));
    EXPECT_THAT(refusal("-1", "[5]", "7"), HasSubstr("the sample of second -1 isn't in order"));
}

} // namespace
