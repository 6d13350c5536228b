// The server's configuration as one text, by its own two operations and by commands 13 and 14.

#include "tests/conformance/storage.h"

#include <cstring>
#include <memory>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string storage_rows = "name=STS:EVENTS_KEPT,";
const std::string layer_rows = "name=THR:";

class Config : public Storage {
  protected:
    std::string get() {
        std::string text(STS_CONFIG_SIZE, 'x');
        uint32_t used = 0;
        EXPECT_EQ(call::get_server_config(server, text.data(), uint32_t{STS_CONFIG_SIZE}, &used),
                  STS_OK);
        text.resize(used);
        return text;
    }
    int set(const std::string& text) {
        char error[200] = "as it was";
        const int status =
            call::set_server_config(server, text.c_str(), error, uint32_t{sizeof error});
        reason = error;
        return status;
    }
    static std::string events_kept(int count) {
        return "name=STS:EVENTS_KEPT,value=" + std::to_string(count) + ",fixed=n;";
    }
    static std::string events_kept_row(int count) {
        return "type=int,value=" + std::to_string(count) + ",fixed=n;";
    }
    static int count(const std::string& text, const std::string& row) {
        int found = 0;
        for (size_t at = 0; (at = text.find(row, at)) != std::string::npos; ++at) {
            ++found;
        }
        return found;
    }
    /// The row of a layer that limits the connections of the test's storage.
    std::string limit_row(int limit) const {
        return "name=THR:" + path("store") +
               ",description=maximum connections for cloud storage,type=int,value=" +
               std::to_string(limit) + ",fixed=n;";
    }

    std::string reason;
};

TEST_F(Config, BeginsWithTheRowsOfTheStorage) {
    EXPECT_EQ(set(events_kept(77)), STS_OK);
    EXPECT_EQ(reason, "as it was");
    const std::string text = get();
    EXPECT_THAT(text, StartsWith(storage_rows));
    EXPECT_THAT(text.substr(0, 150), HasSubstr(events_kept_row(77)));
    EXPECT_EQ(text.find('\0'), std::string::npos);
    EXPECT_EQ(text.find(layer_rows) != std::string::npos, differs(rules::config_rows));
}

TEST_F(Config, HasTheRowsOfEachLayerOnce) {
    differs(rules::config_rows);
    const int layers = stack::current().layers();
    const std::string text = get();
    EXPECT_EQ(count(text, storage_rows), 1);
    EXPECT_EQ(count(text, "name=THR:SAMPLE_INTERVAL,"), layers);
    EXPECT_EQ(count(text, limit_row(10)), layers);
}

TEST_F(Config, OfALayerIsThatOfAllSinceTheyShareAFile) {
    EXPECT_EQ(set(limit_row(3)), STS_OK);
    EXPECT_EQ(count(get(), limit_row(3)), stack::current().layers());
    EXPECT_EQ(count(get(), limit_row(10)), 0);
}

TEST_F(Config, FillsABufferOfJustItsLengthAndNoneThatIsShorter) {
    const std::string text = get();
    std::string exact(text.size(), 'x');
    uint32_t used = 0;
    EXPECT_EQ(
        call::get_server_config(server, exact.data(), static_cast<uint32_t>(exact.size()), &used),
        STS_OK);
    EXPECT_EQ(exact, text);
    EXPECT_EQ(used, text.size());
    used = 0;
    EXPECT_EQ(call::get_server_config(server, exact.data(), static_cast<uint32_t>(exact.size() - 1),
                                      &used),
              STS_ERR_BUFFER_SPACE);
    EXPECT_EQ(used, text.size());
}

TEST_F(Config, OfTheStorageAloneDoesntFitABufferThatIsTooShortForIt) {
    const std::string text = get();
    char buffer[10] = {};
    uint32_t used = 77;
    EXPECT_EQ(call::get_server_config(server, buffer, uint32_t{sizeof buffer}, &used),
              STS_ERR_BUFFER_SPACE);
    EXPECT_EQ(used, differs(rules::config_length_untold) ? 77U : text.size());
}

TEST_F(Config, IsReadByCommand13Too) {
    const std::string text = get();
    const auto buffer = std::make_unique<sts_config_buffer_s>();
    memset(buffer.get(), 'x', sizeof *buffer);
    ASSERT_EQ(call::ioctl(server, 13U, buffer.get()), STS_OK);
    EXPECT_EQ(buffer->used, static_cast<int32_t>(text.size()));
    EXPECT_EQ(std::string(buffer->text, text.size()), text);
    EXPECT_EQ(buffer->text[text.size()], '\0');
}

TEST_F(Config, IsWrittenByCommand14Too) {
    const auto buffer = std::make_unique<sts_config_buffer_s>();
    set_field(buffer->text, events_kept(78));
    EXPECT_EQ(call::ioctl(server, 14U, buffer.get()), STS_OK);
    EXPECT_THAT(get(), HasSubstr(events_kept_row(78)));
    set_field(buffer->text, "");
    EXPECT_EQ(call::ioctl(server, 14U, buffer.get()), STS_ERR_INVALID);
    set_field(buffer->text, events_kept(-5));
    EXPECT_EQ(call::ioctl(server, 14U, buffer.get()), STS_ERR_INVALID);
    EXPECT_THAT(get(), HasSubstr(events_kept_row(78)));
}

TEST_F(Config, KnowsNoOtherCommand) {
    char buffer[16] = {};
    EXPECT_EQ(call::ioctl(server, 7U, buffer), errno_status(ENOTTY));
    EXPECT_EQ(call::ioctl(server, 13U, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::ioctl(server, 14U, nullptr), STS_ERR_INVALID);
}

TEST_F(Config, TellsWhyARowIsRefused) {
    EXPECT_EQ(set("name=STS:EVENTS_KEPT,value=many,fixed=n;"), STS_ERR_INVALID);
    EXPECT_EQ(reason, "STS:EVENTS_KEPT: \"many\" is not a number from 0 to 1000000");
    EXPECT_EQ(set("name=STS:NO_SUCH,value=1,fixed=n;"), STS_ERR_INVALID);
    EXPECT_EQ(reason, "STS:NO_SUCH is not a setting of this server");
}

TEST_F(Config, CutsTheReasonToItsBuffer) {
    char error[8] = "1234567";
    EXPECT_EQ(call::set_server_config(server, "name=STS:NO_SUCH,value=1,fixed=n;", error, 5U),
              STS_ERR_INVALID);
    EXPECT_STREQ(error, "STS:");
    EXPECT_EQ(error[5], '6'); // untouched
}

TEST_F(Config, GoesBackInAsItCameOut) {
    EXPECT_EQ(set(events_kept(79)), STS_OK);
    const std::string text = get();
    EXPECT_EQ(set(text), STS_OK);
    EXPECT_EQ(get(), text);
}

TEST_F(Config, PassesOverRowsOfNobody) {
    const std::string before = get();
    EXPECT_EQ(set("name=OTHER:KEY,value=1,fixed=n;"), STS_OK);
    EXPECT_EQ(get(), before);
}

TEST_F(Config, NeedsItsArguments) {
    char text[10] = {};
    uint32_t used = 0;
    EXPECT_EQ(call::get_server_config(server, nullptr, 10U, &used), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_config(server, text, 10U, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_config(handle{}, text, 10U, &used), STS_ERR_INVALID);
    EXPECT_EQ(call::set_server_config(server, nullptr, text, 10U), STS_ERR_INVALID);
    EXPECT_EQ(call::set_server_config(server, "", text, 10U), STS_ERR_INVALID);
    EXPECT_EQ(call::set_server_config(server, "x", nullptr, 0U), STS_ERR_INVALID);
    EXPECT_EQ(call::set_server_config(handle{}, "x", text, 10U), STS_ERR_INVALID);
}

} // namespace
