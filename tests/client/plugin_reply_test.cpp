// What the built plugin reads out of a service's answers, well made or not, and the answers after
// which no byte could ever be moved.

#include "tests/client/plugin_fixture.h"

#include <climits>
#include <csignal>
#include <unistd.h>

using testing::ElementsAre;
using testing::KilledBySignal;

namespace {

/// The values after an answer. Before it they are 2, 3, 4 and -5.
struct reading {
    const char* name;
    long readers;
    long writers;
    long free_flow;
    long wait;
    std::string answer;
};

void PrintTo(const reading& each, std::ostream* out) { *out << each.name; }

const std::string before = reply_text(2, 3, 4, -5);

class PluginReading : public Plugin, public testing::WithParamInterface<reading> {
  protected:
    std::string line() const {
        return "response:0,connection# for r:" + std::to_string(GetParam().readers) +
               ",connection# for w:" + std::to_string(GetParam().writers) +
               ",free flow:" + std::to_string(GetParam().free_flow) +
               ",wait seconds:" + std::to_string(GetParam().wait);
    }
    std::vector<unsigned> slept() const {
        const auto wait = static_cast<unsigned>(GetParam().wait);
        return GetParam().wait > 0 ? std::vector<unsigned>{wait} : std::vector<unsigned>{};
    }
};

const reading readings[] = {
    {"AllFourRows", 12, 345, 6789, 7, reply_text(12, 345, 6789, 7)},
    {"NegativeNumbers", -7, 3, -8, -9, reply_text(-7, 3, -8, -9)},
    {"ZeroCounts", 0, 0, 0, 0, reply_text(0, 0)},
    {"Nothing", 2, 3, 4, -5, ""},
    {"TextThatNamesNone", 2, 3, 4, -5, "value=9,fixed=y;THR_;\xff\xfe%s%n"},
    {"OneRowOnly", 2, 3, 8, -5, reply_row("THR_FREE_FLOW", 8)},
    {"AllButTheWait", 5, 6, 7, -5,
     "THR_R_CONNECTION_COUNTS,value=5,fixed=y;THR_W_CONNECTION_COUNTS,value=6,fixed=y;"
     "THR_FREE_FLOW,value=7,fixed=y;"},
    {"AnyOrder", 2, 6, 4, 1,
     "THR_WAIT_SECONDS,value=1,fixed=y;THR_W_CONNECTION_COUNTS,value=6,fixed=y;"},
    {"TheFirstOfTwoRows", 1, 5, 6, 7, reply_text(1, 5, 6, 7) + reply_text(1, 8, 9, 10)},
    {"OtherTextBetweenNameAndValue", 2, 3, 4, 12,
     "THR_WAIT_SECONDS any text at all; even lines\n\"quoted\" value =3 value=12,fixed=n"},
    {"AValueBeforeTheName", 2, 3, 9, -5, "value=8,fixed=y;THR_FREE_FLOW,value=9,fixed=y"},
    {"ANameWithinALongerOne", 2, 3, 6, -5,
     "MY_THR_FREE_FLOWS,value=6,fixed=y;THR_FREE_FLOW,value=7,fixed=y;"},
    {"ARowWithoutValueAsTheNextRows", 9, 9, 4, -5,
     "THR_R_CONNECTION_COUNTS,fixed=y;THR_W_CONNECTION_COUNTS,value=9,fixed=y;"},
    {"AValueWithoutItsEnd", 2, 3, 12, 7, "THR_FREE_FLOW,value=12;THR_WAIT_SECONDS,value=7"},
    {"AnEmptyValue", 2, 3, 0, 0, "THR_FREE_FLOW,value=,fixed=y;THR_WAIT_SECONDS,value="},
    {"NoNumber", 2, 0, 0, -5,
     "THR_FREE_FLOW,value=abc,fixed=y;THR_W_CONNECTION_COUNTS,value=x1,fixed=y"},
    {"NumbersOfOtherForms", 8, 10, 0, 1,
     "THR_R_CONNECTION_COUNTS,value= +8 ,fixed=y;THR_W_CONNECTION_COUNTS,value=010,fixed=y;"
     "THR_FREE_FLOW,value=0x10,fixed=y;THR_WAIT_SECONDS,value=1.9,fixed=y"},
    {"NumbersBeyondTheRange", 2, 3, LONG_MAX, LONG_MIN,
     "THR_FREE_FLOW,value=99999999999999999999,fixed=y;"
     "THR_WAIT_SECONDS,value=-99999999999999999999,fixed=y"},
    {"ANameWithoutTheWordValueFromOffset5", 2, 3, 6, -5, "-----6THR_FREE_FLOW"},
    {"AMegabyte", 5, 6, 7, 8,
     std::string(500'000, ' ') + reply_text(5, 6, 7, 8) + std::string(500'000, 'x')},
};

INSTANTIATE_TEST_SUITE_P(Of, PluginReading, testing::ValuesIn(readings),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(PluginReading, InAnAnswerToAClaim) {
    service.answer("check_bandwidth", {returns(0, before), {}});
    throttling_image_s* const image = create(open_server());
    write(image, 10);
    service.answer("check_connections", returns(0, GetParam().answer));
    clock.take_sleeps();
    take_log();
    close(image);
    EXPECT_EQ(told_by("check_connections").at(1), line());
    EXPECT_EQ(clock.take_sleeps(), slept());
}

TEST_P(PluginReading, InAnAnswerToAReport) {
    service.answer("check_bandwidth", {returns(0, before), returns(0, GetParam().answer), {}});
    throttling_image_s* const image = create(open_server());
    write(image, 0);
    write(image, 10);
    clock.advance(30);
    take_log();
    write(image, 10);
    const lines told = told_by("check_bandwidth");
    ASSERT_GE(told.size(), 2U);
    EXPECT_EQ(told.at(told.size() - 2), line());
}

// --- no rate is left

class PluginWithoutARateDeathTest : public Plugin {
  protected:
    void SetUp() override { std::signal(SIGFPE, SIG_DFL); } // a sanitizer has a handler of its own

    /// Each child has an image of its own in the directory that all share.
    static std::string own_name() { return "image" + std::to_string(getpid()); }

    /// Writes two bytes to a new image, and leaves with 0.
    void write_bytes() {
        throttling_image_s* const image = create(open_server(), own_name());
        write(image, 1);
        write(image, 1);
        _exit(0);
    }
    /// Reads two bytes of one that is there, and leaves with 0.
    void read_bytes() {
        throttling_server_s* const server = open_server();
        throttling_image_s* image = create(server, own_name());
        write(image, 2);
        close(image);
        image = open(server, own_name());
        read(image, 1);
        read(image, 1);
        _exit(0);
    }
    /// Each direction with an answer to `operation` that has this count of its own connections.
    void expect_end_by(const std::string& operation, long count) {
        service.answer(operation, returns(0, reply_text(1, count)));
        EXPECT_EXIT(write_bytes(), KilledBySignal(SIGFPE), "") << count;
        service.answer(operation, returns(0, reply_text(count, 1)));
        EXPECT_EXIT(read_bytes(), KilledBySignal(SIGFPE), "") << count;
    }
};

TEST_F(PluginWithoutARateDeathTest, AsManyConnectionsAsBytesASecondStillMove) {
    service.answer("check_connections", returns(0, reply_text(1000, 1000)));
    EXPECT_EXIT(write_bytes(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(read_bytes(), testing::ExitedWithCode(0), "");
}

TEST_F(PluginWithoutARateDeathTest, CountsOfZeroEndNothing) {
    service.answer("check_connections", returns(0, reply_text(0, 0)));
    EXPECT_EXIT(write_bytes(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(read_bytes(), testing::ExitedWithCode(0), "");
}

TEST_F(PluginWithoutARateDeathTest, ACountOfTheOtherDirectionEndsNothing) {
    service.answer("check_connections", returns(0, reply_text(-1, 1)));
    EXPECT_EXIT(write_bytes(), testing::ExitedWithCode(0), "");
}

TEST_F(PluginWithoutARateDeathTest, MoreConnectionsThanBytesASecondEndTheProcess) {
    expect_end_by("check_connections", 1001);
}

TEST_F(PluginWithoutARateDeathTest, ANegativeOrHugeCountEndsTheProcess) {
    for (const char* const operation : {"check_connections", "check_bandwidth"}) {
        for (const long count : {-1L, LONG_MIN, LONG_MAX}) {
            expect_end_by(operation, count);
        }
        service.answer(operation, {});
    }
}

TEST_F(PluginWithoutARateDeathTest, APercentOfZeroEndsTheProcessWithAServiceAndWithout) {
    settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\nTHR:WRITE_BANDWIDTH_PERCENT=0\n");
    EXPECT_EXIT(write_bytes(), KilledBySignal(SIGFPE), "");
    service.stop();
    EXPECT_EXIT(write_bytes(), KilledBySignal(SIGFPE), "");
}

} // namespace
