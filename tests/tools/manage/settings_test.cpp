// A configuration text taken apart and put together again.

#include "tools/manage/settings.h"

#include "tools/terminal/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

const std::string kept = "name=STS:KEPT,description=of events,type=int,value=7,fixed=n;";
const std::string limit = "name=THR:/a;b,c,description=limit,type=int,value=10,fixed=n;";
const std::string fixed = "name=THR:ALL,description=shared,type=int,value=3,fixed=y;";
const std::string word = "name=X:WORD,description=of another layer,type=text,value=one,fixed=n;";

TEST(ServerSettings, AreTheRowsOfTheText) {
    const server_settings settings(kept + limit + fixed, "s");
    ASSERT_EQ(settings.rows().size(), 3U);
    EXPECT_EQ(settings.rows()[0].name, "STS:KEPT");
    EXPECT_EQ(settings.rows()[0].description, "of events");
    EXPECT_EQ(settings.rows()[0].type, "int");
    EXPECT_EQ(settings.rows()[0].value, "7");
    EXPECT_FALSE(settings.rows()[0].fixed);
    EXPECT_TRUE(settings.rows()[2].fixed);
    EXPECT_TRUE(server_settings("", "s").rows().empty());
}

TEST(ServerSettings, MayHaveNamesWithWhatSeparatesRows) {
    const server_settings settings(kept + limit + fixed, "s");
    ASSERT_NE(settings.find("THR:/a;b,c"), nullptr);
    EXPECT_EQ(settings.find("THR:/a;b,c")->value, "10");
    EXPECT_EQ(settings.find("THR:/a"), nullptr);
}

TEST(ServerSettings, ThatAreCutShortAreRefused) {
    EXPECT_THAT([] { server_settings(kept + limit.substr(0, 30), "the server"); },
                ThrowsMessage<failure>("the configuration text of the server \"the server\" is cut "
                                       "short behind 91 bytes"));
}

TEST(ServerSettings, ThatAreNoRowsAreRefused) {
    for (const std::string& text : {std::string(";"), std::string("abc;"), kept + "name=a;",
                                    kept + "name=x,type=,description=,value=3,fixed=n;"}) {
        EXPECT_THROW(server_settings(text, "s"), failure) << text;
    }
}

TEST(ServerSettings, ChangedTextHasTheNewValuesAndAllTheRestAsItWas) {
    const server_settings settings(kept + limit + fixed + word, "s");
    EXPECT_EQ(changed_text(settings, {{"X:WORD", "three"}, {"STS:KEPT", "123456"}}, "s"),
              "name=STS:KEPT,description=of events,type=int,value=123456,fixed=n;" + limit + fixed +
                  "name=X:WORD,description=of another layer,type=text,value=three,fixed=n;");
}

TEST(ServerSettings, ThatSeveralLayersHaveAreChangedInAllOfThem) {
    const std::string shared = "name=THR:ALL,description=shared,type=int,value=3,fixed=n;";
    const server_settings settings(fixed + limit + shared + limit, "s");
    EXPECT_EQ(changed_text(settings, {{"THR:ALL", "12"}, {"THR:/a;b,c", "4"}}, "s"),
              "name=THR:ALL,description=shared,type=int,value=12,fixed=y;"
              "name=THR:/a;b,c,description=limit,type=int,value=4,fixed=n;"
              "name=THR:ALL,description=shared,type=int,value=12,fixed=n;"
              "name=THR:/a;b,c,description=limit,type=int,value=4,fixed=n;");
}

TEST(ServerSettings, ValueOfATextMayNotEndItsField) {
    const server_settings settings(word, "s");
    for (const char* const bad : {"a,b", "a;b", "a\nb"}) {
        EXPECT_THROW(changed_text(settings, {{"X:WORD", bad}}, "s"), failure) << bad;
    }
}

TEST(ServerSettings, AssignmentIsSplitAtItsLastSign) {
    EXPECT_EQ(assignment_of("THR:/a=b=4"), std::pair(std::string("THR:/a=b"), std::string("4")));
    for (const char* const bad : {"", "=", "a", "a=", "=4"}) {
        EXPECT_THROW(assignment_of(bad), usage_failure) << bad;
    }
}

TEST(ServerSettings, PluginTellsWhatItWouldMakeOfItsOwn) {
    const auto row = [](const std::string& key, const std::string& value) {
        return "name=" + key + ",description=,type=int,value=" + value + ",fixed=n;";
    };
    const auto refused = [&](const std::string& key, const std::string& value) {
        return refused_by_plugin(row(key, value), {{key, value}});
    };
    EXPECT_EQ(refused("THR:READ_BANDWIDTH_PERCENT", "100"), "");
    EXPECT_EQ(refused("THR:READ_BANDWIDTH_PERCENT", "101"),
              "\"THR:READ_BANDWIDTH_PERCENT\" doesn't take \"101\" (it would be 100); ");
    EXPECT_EQ(refused("THR:AVAIL_BANDWIDTH", "9223372036854775807"), "");
    EXPECT_THAT(refused("THR:AVAIL_BANDWIDTH", "-5"), HasSubstr("104857600"));
    EXPECT_EQ(refused("THR:a storage", "3"), "");
    EXPECT_THAT(refused("THR:a storage", "-3"), HasSubstr("it would be 10"));
    EXPECT_EQ(refused("STS:EVENTS_KEPT", "-3"), "") << "not its own";
}

TEST(ServerSettings, SameNumberIsTheSameValue) {
    EXPECT_TRUE(is_same_value("10", "010"));
    EXPECT_TRUE(is_same_value("a", "a"));
    EXPECT_FALSE(is_same_value("10", "100"));
    EXPECT_FALSE(is_same_value("a", "b"));
}

} // namespace
