// What is said of a settings file: each kind of mistake by its line, key and words, and that what
// it says the plugin makes of the file is what the plugin's reader makes of it.

#include "config/settings.h"
#include "config/settings_check.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// A file that has nothing wrong with it.
constexpr const char* well = "THR:SAMPLE_INTERVAL=5\n";

std::vector<std::string> said(const std::string& text) {
    std::vector<std::string> lines;
    for (const settings_finding& each : check_settings_text(text).findings) {
        lines.push_back(finding_text("F", each));
    }
    return lines;
}

/// What is said of lines that stand behind one that turns throttling on.
std::vector<std::string> said_of(const std::string& lines) { return said(well + lines); }

class SettingsFile : public testing::Test {
  protected:
    SettingsFile() {
        char name[] = "/tmp/settings_check.XXXXXX";
        directory_ = mkdtemp(name);
        path = directory_ + "/f.conf";
    }
    ~SettingsFile() override { std::filesystem::remove_all(directory_); }

    void write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

    std::string path;

  private:
    std::string directory_;
};

TEST(SettingsCheck, SaysNothingOfAFileThatIsWell) {
    EXPECT_THAT(said_of(""), IsEmpty());
    EXPECT_THAT(said_of("# THR:LOG_LEVEL=x\n\n  \nTHR:/srv/store=4\nTHR:AVAIL_BANDWIDTH=1024000\n"
                        "THR:WEEKEND_START=6\nTHR:WEEKEND_END=7\n#no newline"),
                IsEmpty());
}

TEST(SettingsCheck, SaysOfTheDefaultsThatThrottlingIsOff) {
    char text[STS_CONFIG_SIZE];
    config_text written(text);
    form_file(throttling_config_s(), written);
    EXPECT_THAT(said(text), ElementsAre("F:14: warning: THR:SAMPLE_INTERVAL: throttling is off: "
                                        "the interval is 0; everything moves as fast as it can"));
    EXPECT_THAT(said(""), ElementsAre("F: warning: THR:SAMPLE_INTERVAL: throttling is off: the "
                                      "interval is 0; everything moves as fast as it can"));
}

TEST(SettingsCheck, TellsValuesThatArentWhollyANumber) {
    EXPECT_THAT(said_of("THR:AVAIL_BANDWIDTH=100M\n"),
                ElementsAre("F:2: error: THR:AVAIL_BANDWIDTH: \"100M\" isn't a whole number "
                            "(104857600 would be); the plugin takes 100"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL=high\n"),
                ElementsAre("F:2: error: THR:LOG_LEVEL: \"high\" isn't a whole number; the plugin "
                            "takes 0"));
    EXPECT_THAT(said_of("THR:READ_BANDWIDTH_PERCENT=50.5\n"),
                ElementsAre("F:2: error: THR:READ_BANDWIDTH_PERCENT: \"50.5\" isn't a whole "
                            "number; the plugin takes 50"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL=\n"),
                ElementsAre("F:2: error: THR:LOG_LEVEL: no value; the plugin takes 0"));
    EXPECT_THAT(said_of("THR:CSSC_HOST_NAME=\n"),
                ElementsAre("F:2: error: THR:CSSC_HOST_NAME: no value; the plugin refuses it and "
                            "goes on with \"localhost\""));
    EXPECT_THAT(said_of("THR:nas=many\n"),
                ElementsAre("F:2: error: THR:nas: \"many\" isn't a whole number; the plugin takes "
                            "it for a storage named \"nas\" with a limit of 10, the default"));
}

TEST(SettingsCheck, TellsEveryValueOutOfItsRange) {
    for (const setting& each : settings) {
        if (each.kind == setting_kind::number && each.in_file) {
            for (const int64_t value : {int64_t{each.low} - 1, int64_t{each.high} + 1}) {
                const auto lines = said_of(std::string("THR:LOG_LEVEL=0\n") + each.key + "=" +
                                           std::to_string(value) + "\n");
                EXPECT_THAT(lines, testing::Contains(testing::StartsWith(
                                       std::string("F:3: error: ") + each.key + ": " +
                                       std::to_string(value) + " isn't from ")))
                    << each.key;
            }
        }
    }
    EXPECT_THAT(said_of("THR:WORK_TIME_BANDWIDTH_PERCENT=101\n"),
                ElementsAre("F:2: error: THR:WORK_TIME_BANDWIDTH_PERCENT: 101 isn't from 0 to "
                            "100; the plugin refuses it and goes on with 100"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL=4294967299\n"), // its low 32 bits are 3
                ElementsAre("F:2: error: THR:LOG_LEVEL: 4294967299 isn't from 0 to 5; the plugin "
                            "takes 3"));
    EXPECT_THAT(said_of("THR:AVAIL_BANDWIDTH=9223372036854775808\n"),
                ElementsAre("F:2: error: THR:AVAIL_BANDWIDTH: 9223372036854775808 isn't from 1 to "
                            "9223372036854775807; the plugin refuses it and goes on with "
                            "104857600"));
    EXPECT_THAT(said_of("THR:nas=0\n"),
                ElementsAre("F:2: error: THR:nas: 0 isn't from 1 to 2147483647; the plugin takes "
                            "it for a storage named \"nas\" with a limit of 10, the default"));
    EXPECT_THAT(said_of("THR:CSSC_HOST_NAME=" + std::string(600, 'h') + "\n"),
                ElementsAre(HasSubstr("F:2: error: THR:CSSC_HOST_NAME: longer than 511 bytes; "
                                      "the plugin takes \"hhh")));
}

TEST(SettingsCheck, TellsLinesThatThePluginDoesntRead) {
    EXPECT_THAT(said_of("THR:LOG_LEVEL 3\n"),
                ElementsAre("F:2: error: no \"=\" in \"THR:LOG_LEVEL 3\"; the plugin ignores the "
                            "line"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL=3"),
                ElementsAre("F:2: error: THR:LOG_LEVEL: no newline at the end; the plugin ignores "
                            "the line"));
    EXPECT_THAT(said_of(" THR:LOG_LEVEL=3\n"),
                ElementsAre("F:2: error:  THR:LOG_LEVEL: blanks around the key; the plugin "
                            "ignores the line"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL =3\n"),
                ElementsAre("F:2: error: THR:LOG_LEVEL : blanks around the key; the plugin takes "
                            "it for a storage named \"LOG_LEVEL \" with a limit of 3"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL= 3\n"),
                ElementsAre("F:2: error: THR:LOG_LEVEL: blanks around the value; the plugin takes "
                            "3"));
    EXPECT_THAT(said_of("THR:LOG_LEVEL=3\r\n"),
                ElementsAre("F:2: error: THR:LOG_LEVEL: the line ends in CR LF; the plugin takes "
                            "3"));
    EXPECT_THAT(said_of(std::string("THR:LOG_LEVEL=3\0\n", 17)),
                ElementsAre("F:2: error: THR:LOG_LEVEL: holds a zero byte, which ends the line "
                            "for the plugin; the plugin ignores the line"));
}

TEST(SettingsCheck, TellsALineThatIsReadInPieces) {
    const std::string rest = "THR:nas=3\n";
    EXPECT_THAT(
        said_of("THR:CSSC_HOST_NAME=" + std::string(config_line_size - 1 - 19, 'h') + rest + "x\n"),
        ElementsAre("F:2: error: THR:CSSC_HOST_NAME: longer than 10239 bytes; the plugin "
                    "ignores those, and reads what stands behind them as lines of their "
                    "own",
                    "F:3: error: no \"=\" in \"x\"; the plugin ignores the line", testing::_));
    const checked_settings comment =
        check_settings_text("#" + std::string(config_line_size - 2, '-') + rest);
    EXPECT_EQ(comment.config.connections.at("nas"), 3U);
    EXPECT_THAT(comment.findings.at(0).effect,
                "the plugin reads what stands behind them as lines of their own");
    EXPECT_EQ(comment.findings.at(0).line, 1);
}

TEST(SettingsCheck, TellsAKeyThatIsNearOne) {
    EXPECT_THAT(said_of("THR:SAMPLE_INTERVALL=30\n"),
                ElementsAre("F:2: warning: THR:SAMPLE_INTERVALL: no setting; did you mean "
                            "THR:SAMPLE_INTERVAL?; the plugin takes it for a storage named "
                            "\"SAMPLE_INTERVALL\" with a limit of 30"));
    EXPECT_THAT(said_of("AVAIL_BANDWIDTH=30\n"),
                ElementsAre("F:2: warning: AVAIL_BANDWIDTH: no setting; did you mean "
                            "THR:AVAIL_BANDWIDTH?; the plugin ignores the line"));
    EXPECT_THAT(said_of("thr:log_levle=3\n"), ElementsAre(HasSubstr("mean THR:LOG_LEVEL?")));
    EXPECT_THAT(said_of("COLOUR=3\n"),
                ElementsAre("F:2: warning: COLOUR: no setting; the plugin ignores the line"));
    EXPECT_THAT(said_of("THR:=3\n"), ElementsAre(HasSubstr("THR:: names no storage; ")));
    EXPECT_THAT(said_of("THR:/srv/log=3\nTHR:nas1=3\nTHR:nas2=3\n"), IsEmpty());
}

TEST(SettingsCheck, TellsWhatBelongsIntoTheOtherFile) {
    EXPECT_THAT(said_of("CSSC_PORT=5000\nCSSC_IS_SECURE=0\n"),
                ElementsAre("F:2: warning: CSSC_PORT: belongs into cloudstore.conf; the plugin "
                            "doesn't heed it here",
                            "F:3: warning: CSSC_IS_SECURE: belongs into cloudstore.conf; the "
                            "plugin ignores the line"));
}

TEST(SettingsCheck, TellsWhatIsSaidTwice) {
    EXPECT_THAT(said_of("THR:nas=3\nTHR:nas=4\nTHR:LOG_LEVEL=1\nTHR:LOG_LEVEL=6\n"),
                ElementsAre("F:3: warning: THR:nas: said before in line 2; the plugin takes the "
                            "last one",
                            HasSubstr("F:5: error: THR:LOG_LEVEL: 6 isn't from 0 to 5; the plugin "
                                      "refuses it and goes on with 1"),
                            "F:5: warning: THR:LOG_LEVEL: said before in line 4; what the plugin "
                            "took before stays"));
}

TEST(SettingsCheck, TellsWindowsThatAreMendedAndHow) {
    EXPECT_THAT(said_of("THR:WORK_TIME_START=23\nTHR:WORK_TIME_END=23\nTHR:OFF_TIME_START=1\n"),
                ElementsAre("F:3: warning: THR:WORK_TIME_END: the work window 23 to 23 is empty; "
                            "the plugin makes it 23 to 0"));
    EXPECT_THAT(said_of("THR:OFF_TIME_START=20\nTHR:OFF_TIME_END=20\n"),
                ElementsAre("F:3: warning: THR:OFF_TIME_END: the off window 20 to 20 is empty; "
                            "the plugin makes it 20 to 21"));
    EXPECT_THAT(said_of("THR:WORK_TIME_START=9\nTHR:WORK_TIME_END=17\nTHR:OFF_TIME_START=16\n"
                        "THR:OFF_TIME_END=20\n"),
                ElementsAre("F:5: warning: THR:OFF_TIME_END: the off window 16 to 20 overlaps "
                            "with the work window 9 to 17; the off window becomes what the work "
                            "window leaves, 17 to 9"));
    EXPECT_THAT(said_of("THR:WORK_TIME_END=19\n"),
                ElementsAre("F:2: warning: THR:WORK_TIME_END: the off window 18 to 8 overlaps "
                            "with the work window 8 to 19; the off window becomes what the work "
                            "window leaves, 19 to 8"));
}

TEST(SettingsCheck, TellsDaysThatCantBeAndAWeekendThatNeverHolds) {
    EXPECT_THAT(said_of("THR:WEEKEND_BANDWIDTH_PERCENT=50\nTHR:WEEKEND_END=7\n"),
                ElementsAre("F:3: warning: THR:WEEKEND_END: day 7 never comes: Monday is 1, "
                            "Saturday 6, and Sunday 0, which can't be said; the weekend ends with "
                            "Saturday, and Sunday goes by the hours"));
    EXPECT_THAT(said_of("THR:WEEKEND_START=7\n"),
                ElementsAre("F:2: warning: THR:WEEKEND_START: day 7 never comes: Monday is 1, "
                            "Saturday 6, and Sunday 0, which can't be said; no day is a "
                            "weekend's"));
    EXPECT_THAT(said_of("THR:WEEKEND_START=5\nTHR:WEEKEND_END=1\n"),
                ElementsAre("F:3: warning: THR:WEEKEND_END: a weekend from day 5 to 1 never "
                            "holds: it doesn't go on into the next week; no day is a weekend's"));
}

TEST(SettingsCheck, TellsARateOfNothingAndWhoIsToBlame) {
    EXPECT_THAT(said_of("THR:WORK_TIME_BANDWIDTH_PERCENT=0\n"),
                ElementsAre("F:2: error: THR:WORK_TIME_BANDWIDTH_PERCENT: the rate of reads and "
                            "writes comes to 0 in 60 hours of the week, the first Monday 08:00; a "
                            "transfer then ends the process"));
    EXPECT_THAT(said_of("THR:READ_BANDWIDTH_PERCENT=none\n"),
                ElementsAre(HasSubstr("isn't a whole number"),
                            "F:2: error: THR:READ_BANDWIDTH_PERCENT: the rate of reads comes to 0 "
                            "in 168 hours of the week, the first Monday 00:00; a transfer then "
                            "ends the process"));
    EXPECT_THAT(said_of("THR:AVAIL_BANDWIDTH=1\nTHR:WEEKEND_BANDWIDTH_PERCENT=99\n"
                        "THR:WEEKEND_END=6\n"),
                ElementsAre(HasSubstr("F:2: error: THR:AVAIL_BANDWIDTH: the rate of reads and "
                                      "writes comes to 0 in 24 hours of the week, the first "
                                      "Saturday 00:00")));
    EXPECT_THAT(said("THR:OFF_TIME_BANDWIDTH_PERCENT=0\nTHR:SAMPLE_INTERVAL=0\n"),
                ElementsAre(HasSubstr("; throttling is off; once it is on, a transfer then ends "
                                      "the process"),
                            HasSubstr("F:2: warning: THR:SAMPLE_INTERVAL: throttling is off")));
}

TEST(SettingsCheck, TellsARateThatWraps) {
    EXPECT_THAT(said_of("THR:AVAIL_BANDWIDTH=184467440737095517\n"),
                ElementsAre(HasSubstr("comes to 0"),
                            HasSubstr("THR:AVAIL_BANDWIDTH: 184467440737095517 times 100 percent "
                                      "is more than 64 bits hold")));
    EXPECT_THAT(said_of("THR:AVAIL_BANDWIDTH=184467440737095516\n"), IsEmpty());
}

TEST(SettingsCheck, WarnsOfAnIntervalAboveAMinute) {
    EXPECT_THAT(said("THR:SAMPLE_INTERVAL=60\n"), IsEmpty());
    EXPECT_THAT(said("THR:SAMPLE_INTERVAL=61\n"),
                ElementsAre("F:1: warning: THR:SAMPLE_INTERVAL: 61 seconds are long; 2 to 10 are "
                            "recommended; after idling up to 61 seconds' worth pass at once, and "
                            "where a window closes nothing passes for several times as long"));
}

std::string storages(int count) {
    std::string lines;
    for (int each = 1000; each < 1000 + count; ++each) {
        lines += "THR:/srv/storage/number" + std::to_string(each) + "=10\n";
    }
    return lines;
}

TEST(SettingsCheck, TellsAFileThatIsNearlyFullOrLosesSettings) {
    EXPECT_THAT(said_of(storages(220)), IsEmpty());
    EXPECT_THAT(said_of(storages(260)), ElementsAre(testing::StartsWith(
                                            "F: warning: 8478 of 10239 bytes are used (82 %)")));
    const auto lines = said_of(storages(400));
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], testing::StartsWith("F: error: 12422 bytes long, "));
    EXPECT_THAT(lines[0], HasSubstr("of which 10239 are kept; the next rewrite cuts off "));
    EXPECT_THAT(lines[0], HasSubstr("THR:SAMPLE_INTERVAL, THR:LOG_LEVEL, THR:CSSC_HOST_NAME"));
    std::string comments;
    while (comments.size() <= 10239) {
        comments += "# nothing of this is kept, and nothing of it is needed\n";
    }
    EXPECT_THAT(said_of(comments), ElementsAre(HasSubstr("warning: 10")));
}

TEST_F(SettingsFile, IsBoundedHoweverHostileItIs) {
    write("");
    ASSERT_EQ(truncate(path.c_str(), 100 * 1024 * 1024), 0);
    const checked_settings zeros = check_settings(path.c_str());
    EXPECT_GE(zeros.count(finding_severity::error), 1U);
    EXPECT_LE(zeros.findings.size(), 1000U);

    std::string text;
    while (text.size() < 3U * 1024 * 1024) {
        text += "x\n";
    }
    write(text);
    const checked_settings lines = check_settings(path.c_str());
    ASSERT_THAT(lines.findings, SizeIs(1000));
    EXPECT_THAT(lines.findings.back().wrong, HasSubstr(" more like these, "));

    write(std::string(2U * 1024 * 1024, 'x'));
    EXPECT_THAT(check_settings(path.c_str()).findings.at(1).wrong,
                HasSubstr("longer than 1048576 bytes"));
}

TEST_F(SettingsFile, IsToldWhenItCantBeRead) {
    EXPECT_EQ(check_settings(path.c_str()).state, checked_settings::missing);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const checked_settings fifo = check_settings(path.c_str()); // doesn't block
    EXPECT_EQ(fifo.state, checked_settings::unreadable);
    EXPECT_EQ(finding_text("F", fifo.findings.at(0)),
              "F: error: no regular file; the plugin doesn't start");
    EXPECT_EQ(check_settings("/dev/zero").findings.at(0).wrong, "no regular file");
    const checked_settings directory = check_settings("/tmp");
    EXPECT_EQ(directory.state, checked_settings::unreadable);
    EXPECT_EQ(directory.findings.at(0).wrong, "can't be read: Is a directory");
}

TEST_F(SettingsFile, ComesToWhatThePluginsReaderMakesOfIt) {
    const std::vector<std::string> pieces = {"THR:",
                                             "LOG_LEVEL",
                                             "SAMPLE_INTERVAL",
                                             "WORK_TIME_START",
                                             "OFF_TIME_END",
                                             "=",
                                             "=",
                                             "=",
                                             "\n",
                                             "\n",
                                             "\n",
                                             "12",
                                             "7",
                                             "abc",
                                             " ",
                                             "\r",
                                             "#",
                                             "-3",
                                             "4294967301",
                                             "nas",
                                             "\t",
                                             "WEEKEND_START",
                                             "AVAIL_BANDWIDTH",
                                             std::string(1, '\0')};
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (auto count = random() % 40; count > 0; --count) {
            text += pieces[random() % pieces.size()];
        }
        write(text);
        throttling_config_s read;
        read_config_file_to_var(nullptr, &read, path.c_str());
        const checked_settings found = check_settings(path.c_str());
        ASSERT_TRUE(found.config == read) << text;
        for (const settings_finding& each : found.findings) {
            ASSERT_LE(each.line, std::count(text.begin(), text.end(), '\n') + 1);
        }
    }
}

TEST(Sizes, AreReadAsPeopleWriteThem) {
    EXPECT_EQ(size_in("104857600"), 104857600U);
    EXPECT_EQ(size_in("100M"), 104857600U);
    EXPECT_EQ(size_in("100MiB"), 104857600U);
    EXPECT_EQ(size_in("12.5MB/s"), 13107200U);
    EXPECT_EQ(size_in("1.5g"), 1610612736U);
    EXPECT_EQ(size_in("2T"), 2199023255552U);
    EXPECT_EQ(size_in("1k/s"), 1024U);
    EXPECT_EQ(size_in("512B"), 512U);
    EXPECT_EQ(size_in("9223372036854775807"), 9223372036854775807U);
    for (const char* const none : {"", "M", "100 M", "100X", "-1", "-1M", "0", "0.1", "12.5", "1iB",
                                   "8E", "1e3", "infM", "nanB", "9223372036854775808", "1MM"}) {
        EXPECT_EQ(size_in(none), 0U) << none;
    }
}

} // namespace
