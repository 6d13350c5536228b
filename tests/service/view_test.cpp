// What others see of the book: its history, as JSON, and as Prometheus collects it.

#include "tests/service/ledger_fixture.h"

#include "service/views.h"

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

using nlohmann::json;
using testing::HasSubstr;

namespace {

class View : public LedgerTest {
  protected:
    json status(time_t since = 0) { return json::parse(whole(status_json(book, now, since))); }
    std::string metrics() { return whole(metrics_text(book, now)); }
    void pass_with_ticks(int64_t seconds) {
        for (int64_t each = 0; each < seconds; ++each) {
            pass(1);
            book.tick(now);
        }
    }
};

/// Checks text as a collector reads it: each metric has its help, its type and its lines together.
void expect_valid_exposition(const std::string& text) {
    const std::regex help(R"re(# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) \S.*)re");
    const std::regex type(R"re(# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge))re");
    const std::regex line(
        R"re(([a-zA-Z_:][a-zA-Z0-9_:]*)(\{[a-z]+="(\\[\\"n]|[^"\\\n])*"(,[a-z]+="(\\[\\"n]|[^"\\\n])*")*\})? [0-9.e+]+)re");
    std::istringstream in(text);
    std::set<std::string> metrics;
    std::set<std::string> series;
    std::string current;
    std::string typed;
    std::smatch parts;
    for (std::string each; std::getline(in, each);) {
        if (std::regex_match(each, parts, help)) {
            current = parts[1];
            EXPECT_TRUE(metrics.insert(current).second) << "twice: " << each;
        } else if (std::regex_match(each, parts, type)) {
            typed = parts[1];
            EXPECT_EQ(typed, current);
            EXPECT_EQ(parts[2] == "counter", current.find("_total") != std::string::npos);
        } else {
            ASSERT_TRUE(std::regex_match(each, parts, line)) << each;
            EXPECT_EQ(parts[1], current);
            EXPECT_EQ(typed, current);
            EXPECT_TRUE(series.insert(each.substr(0, each.rfind(' '))).second) << "twice: " << each;
        }
    }
    EXPECT_EQ(text.back(), '\n');
    EXPECT_GE(metrics.size(), 14U);
}

TEST_F(View, HistoryHasAPointForEachStep) {
    connect(1);
    pass_with_ticks(10);
    const storage_view view = seen();
    ASSERT_EQ(view.history.size(), 10U / history_step);
    EXPECT_EQ(view.history[1].when - view.history[0].when, history_step);
    EXPECT_EQ(view.history.back().when, now.wall);
    EXPECT_EQ(view.history.back().connections, 1);
}

TEST_F(View, HistoryHoldsTheRatesOfItsTime) {
    configure(row("s3", 9) + row("SAMPLE_INTERVAL", 30) + row("AVAIL_BANDWIDTH", 1000));
    report(1, "w:s3", 4000, 10);
    pass_with_ticks(2);
    report(1, "w:s3", 200, 2);
    pass_with_ticks(2);
    const storage_view view = seen();
    ASSERT_EQ(view.history.size(), 2U);
    EXPECT_EQ(view.history[0].write.measured, 400U);
    EXPECT_EQ(view.history[1].write.measured, 100U);
    EXPECT_EQ(view.history[1].write.allowed, 1000U);
    EXPECT_EQ(view.history[1].write.flows, 1);
    EXPECT_EQ(view.history[1].read.measured, 0U);
}

TEST_F(View, HistoryIsBounded) {
    connect(1);
    pass_with_ticks(history_step * static_cast<int64_t>(history_points + 20));
    EXPECT_EQ(seen().history.size(), history_points);
}

TEST_F(View, OnlyWhatIsNewerIsHandedOut) {
    connect(1);
    pass_with_ticks(10);
    EXPECT_EQ(book.view(now, {"", now.wall - 4}).storages.at(0).history.size(), 2U);
    EXPECT_TRUE(book.view(now, {"", now.wall}).storages.at(0).history.empty());
}

TEST_F(View, AStorageThatNobodyNamesOrUsesIsForgotten) {
    end_flow(1, "w:typo");
    connect(1, "used");
    configure(row("named", 3));
    pass_with_ticks(4);
    disconnect(1, "used");
    EXPECT_EQ(status()["storages"].size(), 2U); // its past is still to be seen
    pass_with_ticks(history_step * static_cast<int64_t>(history_points + 2));
    ASSERT_EQ(status()["storages"].size(), 1U);
    EXPECT_EQ(status()["storages"][0]["name"], "named");
}

// --- JSON ---

TEST_F(View, StatusTellsEachStorage) {
    configure(row("s3", 2) + row("SAMPLE_INTERVAL", 30) + row("AVAIL_BANDWIDTH", 1000));
    connect(1);
    connect(2);
    connect(3);
    report(1, "w:s3", 500, 10);
    const json seen = status();
    EXPECT_EQ(seen["sessions"], 3);
    EXPECT_EQ(seen["reports"], 1);
    const json& storage = seen["storages"].at(0);
    EXPECT_EQ(storage["name"], "s3");
    EXPECT_EQ(storage["limit"], 2);
    EXPECT_EQ(storage["connections"], 2);
    EXPECT_EQ(storage["refused"], 1);
    EXPECT_EQ(storage["sample_interval"], 30);
    EXPECT_EQ(storage["write"], json({{"flows", 1}, {"allowed", 1000}, {"measured", 50}}));
    EXPECT_EQ(storage["read"], json({{"flows", 0}, {"allowed", 1000}, {"measured", 0}}));
}

TEST_F(View, StatusHasTheHistoryInColumns) {
    connect(1);
    report(1, "r:s3", 500, 10);
    pass_with_ticks(4);
    const json history = status()["storages"].at(0)["history"];
    EXPECT_EQ(history["time"], json({now.wall - 2, now.wall}));
    EXPECT_EQ(history["connections"], json({1, 1}));
    EXPECT_EQ(history["readers"], json({1, 1}));
    EXPECT_EQ(history["writers"], json({0, 0}));
    EXPECT_EQ(history["write_measured"], json({0, 0}));
    EXPECT_EQ(history["read_allowed"], json({104857600, 104857600}));
}

TEST_F(View, AnyNameMakesValidJson) {
    connect(1, "a\"b\\c</script><b>\xff\xe4");
    EXPECT_EQ(status()["storages"].at(0)["name"], "a\"b\\c</script><b>\u00ff\u00e4");
}

TEST_F(View, NamesAreShownAsTheLatin1ThatTheyAre) {
    connect(1, "st\xf6r");
    connect(1, "st\xe4r");
    EXPECT_EQ(status()["storages"].at(0)["name"], "st\u00e4r");
    EXPECT_EQ(status()["storages"].at(1)["name"], "st\u00f6r");
    EXPECT_THAT(metrics(), HasSubstr("vlsld_storage_connections{storage=\"st\u00e4r\"} 1\n"
                                     "vlsld_storage_connections{storage=\"st\u00f6r\"} 1\n"));
}

TEST_F(View, EveryByteThatANameMayHaveIsShownDistinctly) {
    std::set<std::string> names;
    for (int byte = ' '; byte < 256; ++byte) {
        if (byte != 0x7f) {
            connect(1, std::string("x") + static_cast<char>(byte));
        }
    }
    const json told = status();
    for (const json& each : told["storages"]) {
        EXPECT_TRUE(names.insert(each["name"]).second) << each["name"];
    }
    EXPECT_EQ(names.size(), 223U);
    expect_valid_exposition(metrics());
}

// --- Prometheus ---

TEST_F(View, MetricsAreValidWithAndWithoutStorages) {
    expect_valid_exposition(metrics());
    connect(1);
    connect(1, "a\"b\\c{}");
    connect(1, "st\xf6r"); // two that differ in a byte that isn't ASCII
    connect(1, "st\xe4r");
    configure(row("good", 2) + row("a\tb\x01"
                                   "c",
                                   5)); // a name that no label could have
    report(1, "w:s3", 1'000'000'000'000, 1);
    expect_valid_exposition(metrics());
}

TEST_F(View, MetricsTellEachStorage) {
    configure(row("s3", 1));
    connect(1, "s3");
    connect(2, "s3");
    report(1, "r:s3", 123456789, 1);
    const std::string text = metrics();
    for (const char* expected :
         {"vlsld_sessions 2\n", "vlsld_storage_connections{storage=\"s3\"} 1\n",
          "vlsld_storage_connection_limit{storage=\"s3\"} 1\n",
          "vlsld_storage_refused_total{storage=\"s3\"} 1\n",
          "vlsld_storage_flows{storage=\"s3\",direction=\"read\"} 1\n",
          "vlsld_storage_flows{storage=\"s3\",direction=\"write\"} 0\n",
          "vlsld_storage_allowed_bytes_per_second{storage=\"s3\",direction=\"read\"} 104857600\n",
          "vlsld_storage_measured_bytes_per_second{storage=\"s3\",direction=\"read\"} 123456789\n",
          "\nprocess_resident_memory_bytes "}) {
        EXPECT_THAT(text, HasSubstr(expected));
    }
}

} // namespace
