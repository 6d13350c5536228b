// The storage library's own settings in the server configuration text, through both doors.

#include "tests/platform/sts/disk_store.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

namespace fs = std::filesystem;

namespace {

const std::string default_text =
    "name=STS:EVENTS_KEPT,description=Events that are kept until they are deleted,type=int,"
    "value=10000,fixed=n;"
    "name=STS:SYNC_AT_CLOSE,description=Whether closing an image waits until it is on the disk,"
    "type=int,value=1,fixed=n;";

class StsConfig : public DiskStore {
  protected:
    std::string text() {
        char buffer[STS_CONFIG_SIZE];
        uint32_t used = 0;
        EXPECT_EQ(api->get_server_config(server, buffer, sizeof buffer, &used), STS_OK);
        EXPECT_EQ(strlen(buffer), used);
        return buffer;
    }
    int apply(const std::string& rows) {
        memset(error, '?', sizeof error);
        return api->set_server_config(server, rows.c_str(), error, sizeof error);
    }
    bool says(const std::string& part) { return text().find(part) != std::string::npos; }

    char error[200] = {};
};

TEST_F(StsConfig, StartsWithItsDefaults) { EXPECT_EQ(text(), default_text); }

TEST_F(StsConfig, SetsWhatTheRowsNameAndKeepsTheRest) {
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,description=x,type=int,value=5,fixed=n;"), STS_OK);
    EXPECT_TRUE(says("name=STS:EVENTS_KEPT,description=Events that are kept until they are "
                     "deleted,type=int,value=5,fixed=n;"));
    EXPECT_TRUE(says("value=1,fixed=n;"));
    EXPECT_EQ(apply("name=STS:SYNC_AT_CLOSE,value=0"), STS_OK); // unfinished, but clear
    EXPECT_TRUE(says("value=5,"));
    EXPECT_TRUE(says("value=0,"));
}

TEST_F(StsConfig, IsKeptInTheStore) {
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,value=5,fixed=n;"), STS_OK);
    server = open_server();
    EXPECT_TRUE(says("value=5,"));
    server = open_server("other");
    EXPECT_EQ(text(), default_text);
}

TEST_F(StsConfig, AcceptsItsOwnText) {
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,value=5,fixed=n;"), STS_OK);
    const std::string changed = text();
    EXPECT_EQ(apply(default_text), STS_OK);
    EXPECT_EQ(text(), default_text);
    EXPECT_EQ(apply(changed), STS_OK);
    EXPECT_EQ(text(), changed);
}

TEST_F(StsConfig, PassesOverTheRowsOfOtherLayers) {
    EXPECT_EQ(apply("name=THR:SAMPLE_INTERVAL,description=d,type=int,value=30,fixed=y;"
                    "name=THR:s3,description=d,type=int,value=nonsense,fixed=n;"
                    "name=XSTS:EVENTS_KEPT,value=1,fixed=n;nonsense;;,,;name=;name"),
              STS_OK);
    EXPECT_EQ(text(), default_text);
    EXPECT_FALSE(fs::exists(path("store/.server/settings")));
}

TEST_F(StsConfig, FindsItsRowsAmongOthers) {
    EXPECT_EQ(apply("name=THR:A,value=1,fixed=n;\n name=STS:EVENTS_KEPT,value=7,fixed=n;"
                    "name=THR:B,value=2,fixed=n;"),
              STS_OK);
    EXPECT_TRUE(says("value=7,"));
}

TEST_F(StsConfig, TakesTheLastOfTwoRows) {
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,value=7,fixed=n;name=STS:EVENTS_KEPT,value=8,fixed=n;"),
              STS_OK);
    EXPECT_TRUE(says("value=8,"));
}

TEST_F(StsConfig, SaysWhichValueIsBadAndChangesNothing) {
    for (const char* const value : {"", "x", "7x", "-1", "1000001", "99999999999999999999", " 7"}) {
        EXPECT_EQ(apply(std::string("name=STS:SYNC_AT_CLOSE,value=0,fixed=n;name=STS:EVENTS_KEPT,"
                                    "type=int,value=") +
                        value + ",fixed=n;"),
                  STS_ERR_INVALID);
        EXPECT_STREQ(error, (std::string("STS:EVENTS_KEPT: \"") + value +
                             "\" is not a number from 0 to 1000000")
                                .c_str());
    }
    EXPECT_EQ(text(), default_text);
}

TEST_F(StsConfig, SaysWhichKeyIsUnknownOrHasNoValue) {
    EXPECT_EQ(apply("name=STS:NONE,value=1,fixed=n;"), STS_ERR_INVALID);
    EXPECT_STREQ(error, "STS:NONE is not a setting of this server");
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,fixed=n;"), STS_ERR_INVALID);
    EXPECT_STREQ(error, "STS:EVENTS_KEPT has no value");
}

TEST_F(StsConfig, CutsTheReasonToItsBuffer) {
    const char* const rows = "name=STS:NONE,value=1;";
    char small[5] = {'?', '?', '?', '?', '?'};
    EXPECT_EQ(api->set_server_config(server, rows, small, 4), STS_ERR_INVALID);
    EXPECT_STREQ(small, "STS");
    EXPECT_EQ(small[4], '?');
    EXPECT_EQ(api->set_server_config(server, rows, small, 1), STS_ERR_INVALID);
    EXPECT_STREQ(small, "");
    small[0] = '?';
    EXPECT_EQ(api->set_server_config(server, rows, small, 0), STS_ERR_INVALID);
    EXPECT_EQ(small[0], '?');
}

TEST_F(StsConfig, SaysWhyItCantBeKept) {
    fs::create_directories(path("store/.server/settings"));
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,value=7,fixed=n;"), errno_status(EBADMSG));
    EXPECT_EQ(std::string(error),
              "the settings of " + server_name() + " can't be changed: " + strerror(EBADMSG));
}

TEST_F(StsConfig, LeavesTheErrorTextAloneOnSuccess) {
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,value=7,fixed=n;"), STS_OK);
    EXPECT_EQ(error[0], '?');
}

TEST_F(StsConfig, RefusesNullArgumentsAndAnEmptyText) {
    uint32_t used = 7;
    char buffer[10];
    EXPECT_EQ(api->get_server_config(server, nullptr, 10, &used), STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_config(server, buffer, 10, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->set_server_config(server, nullptr, error, sizeof error), STS_ERR_INVALID);
    EXPECT_EQ(api->set_server_config(server, "x", nullptr, 10), STS_ERR_INVALID);
    EXPECT_EQ(apply(""), STS_ERR_INVALID);
    EXPECT_EQ(used, 7U);
}

TEST_F(StsConfig, NeedsABufferOfItsLength) {
    const auto length = static_cast<uint32_t>(default_text.size());
    std::string buffer(length + 1, '?');
    uint32_t used = 0;
    EXPECT_EQ(api->get_server_config(server, buffer.data(), length - 1, &used),
              STS_ERR_BUFFER_SPACE);
    EXPECT_EQ(used, length);
    EXPECT_EQ(buffer, std::string(length + 1, '?'));
    EXPECT_EQ(api->get_server_config(server, buffer.data(), length, &used), STS_OK);
    EXPECT_EQ(buffer, default_text + "?");
    EXPECT_EQ(api->get_server_config(server, buffer.data(), length + 1, &used), STS_OK);
    EXPECT_EQ(buffer, default_text + '\0');
}

TEST_F(StsConfig, IsReadAndWrittenByControlCommandsToo) {
    const auto buffer = std::make_unique<sts_config_buffer_s>();
    ASSERT_EQ(api->ioctl(server, 13, buffer.get()), STS_OK);
    EXPECT_EQ(buffer->text, default_text);
    EXPECT_EQ(buffer->used, static_cast<int32_t>(default_text.size()));
    strcpy(buffer->text, "name=STS:EVENTS_KEPT,value=9,fixed=n;");
    ASSERT_EQ(api->ioctl(server, 14, buffer.get()), STS_OK);
    EXPECT_TRUE(says("value=9,"));
    strcpy(buffer->text, "name=STS:EVENTS_KEPT,value=x,fixed=n;");
    EXPECT_EQ(api->ioctl(server, 14, buffer.get()), STS_ERR_INVALID);
    buffer->text[0] = '\0';
    EXPECT_EQ(api->ioctl(server, 14, buffer.get()), STS_ERR_INVALID);
    EXPECT_TRUE(says("value=9,"));
}

TEST_F(StsConfig, TakesAControlTextThatFillsItsBuffer) {
    const auto buffer = std::make_unique<sts_config_buffer_s>();
    memset(buffer->text, 'x', sizeof buffer->text);
    buffer->used = -1; // would be read as text if the end were not minded
    EXPECT_EQ(api->ioctl(server, 14, buffer.get()), STS_OK);
}

TEST_F(StsConfig, RefusesOtherControlCommandsAndNoBuffer) {
    for (const uint32_t command : {0U, 7U, 12U, 15U, ~0U}) {
        EXPECT_EQ(api->ioctl(server, command, nullptr), errno_status(ENOTTY)) << command;
    }
    EXPECT_EQ(api->ioctl(server, 13, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->ioctl(server, 14, nullptr), STS_ERR_INVALID);
}

TEST_F(StsConfig, HasDefaultsForWhatIsDamaged) {
    EXPECT_EQ(apply("name=STS:EVENTS_KEPT,value=7,fixed=n;"), STS_OK);
    std::ofstream(path("store/.server/settings")) << "garbage;name=STS:EVENTS_KEPT,value=x;";
    EXPECT_EQ(text(), default_text);
    std::ofstream(path("store/.server/settings")) << std::string(100000, '\0');
    EXPECT_EQ(text(), default_text);
}

TEST_F(StsConfig, ThatCantBeReadDoesntKeepAnImageFromBeingCompleted) {
    fs::create_directories(path("store/.server/settings"));
    store("image", "content");
    EXPECT_EQ(content_of("image"), "content");
}

} // namespace
