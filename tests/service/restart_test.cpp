// A service that is started anew, and one that has settings of its own.

#include "tests/service/reply_values.h"
#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

constexpr const char* sent_rates =
    "name=THR:AVAIL_BANDWIDTH,description=d,type=int,value=10485760,fixed=n;"
    "name=THR:SAMPLE_INTERVAL,description=d,type=int,value=30,fixed=n;"
    "name=THR:s3,description=d,type=int,value=4,fixed=n;";

class Restart : public testing::Test {
  protected:
    Restart() {
        std::string path = (fs::temp_directory_path() / "restart-XXXXXX").string();
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        scratch_ = path;
    }
    ~Restart() override { fs::remove_all(scratch_); }

    std::string path(const std::string& name) const { return (scratch_ / name).string(); }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(scratch_ / name) << text;
    }
    static ended run_tool(const std::vector<std::string>& arguments) {
        std::vector<std::string> command = {THROTTLECTL};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run_process(command);
    }
    static long count_in(const exchange& said) {
        return value_of(said.text, "THR_W_CONNECTION_COUNTS");
    }

    fs::path scratch_;
};

TEST_F(Restart, ChangesNoRateAndNoLimit) {
    std::optional<service_process> service(std::in_place,
                                           std::vector<std::string>{"--state", path("state")});
    const remote_session client(service->port());
    client.configure(sent_rates);
    const ended limited = run_tool({"service", "limit", "s3", "--write", "1M", "--for", "1h",
                                    "--control", service->control()});
    ASSERT_EQ(limited.code, 0) << limited.err;
    EXPECT_EQ(count_in(client.report("w:s3")), 10);
    EXPECT_EQ(service->stop(SIGTERM).code, 0);
    service.emplace(std::vector<std::string>{"--state", path("state")});
    EXPECT_EQ(service->storage("s3")["limit"], 4);
    EXPECT_EQ(service->storage("s3")["write"]["allowed"], 1048576);
    EXPECT_EQ(service->storage("s3")["read"]["allowed"], 10485760);
    const remote_session after(service->port());
    after.configure(sent_rates);
    EXPECT_EQ(count_in(after.report("w:s3")), 10);
}

TEST_F(Restart, ADamagedBookIsToldAndHarmless) {
    fs::create_directory(path("state"));
    fs::permissions(path("state"), fs::perms(0700));
    write("state/book", "{\"format\":1,");
    fs::permissions(path("state/book"), fs::perms(0600));
    service_process service({"--state", path("state")});
    EXPECT_THAT(service.stop(SIGTERM).err,
                HasSubstr("warning: " + path("state/book") +
                          ": no JSON object of this format; it is put aside as book.refused"));
    EXPECT_TRUE(fs::exists(path("state/book.refused")));
}

TEST_F(Restart, SettingsOfItsOwnHoldAndAreReadAnewOnSighup) {
    write("own.conf", "THR:AVAIL_BANDWIDTH=5242880\nTHR:SAMPLE_INTERVAL=10\nTHR:s3=2\n");
    service_process service({"--settings", path("own.conf")});
    const remote_session client(service.port());
    client.configure(sent_rates);
    EXPECT_EQ(count_in(client.report("w:s3")), 2) << "it has twice as much of its own";
    EXPECT_EQ(service.storage("s3")["limit"], 2);
    EXPECT_EQ(service.storage("s3")["write"]["allowed"], 5242880);
    EXPECT_TRUE(service.await_log("which don't hold here"));
    write("own.conf", "THR:AVAIL_BANDWIDTH=1048576\nTHR:SAMPLE_INTERVAL=10\nTHR:s3=1\n");
    service.send(SIGHUP);
    ASSERT_TRUE(service.await_log("settings of " + path("own.conf") + " are read anew"));
    EXPECT_EQ(service.storage("s3")["limit"], 1);
    fs::remove(path("own.conf"));
    service.send(SIGHUP);
    ASSERT_TRUE(service.await_log("warning: --settings " + path("own.conf") +
                                  ": there is no such file; what was read before goes on"));
    EXPECT_EQ(service.storage("s3")["limit"], 1);
}

TEST_F(Restart, WhatIsWrongWithItsSettingsIsSaidAsTheCheckSaysIt) {
    write("own.conf", "THR:AVAIL_BANDWIDTH=100M\nTHR:SAMPLE_INTERVAL=900\nTHR:READ_BANDWIDTH=\\5\n"
                      "no setting\n");
    const std::string checked = run_tool({"config", "check", path("own.conf")}).out;
    service_process service({"--settings", path("own.conf")});
    const std::string log = service.stop(SIGTERM).err;
    size_t lines = 0;
    for (size_t begin = 0; begin < checked.size(); ++lines) {
        const size_t end = checked.find('\n', begin);
        EXPECT_THAT(log, HasSubstr(" " + checked.substr(begin, end - begin) + "\n"));
        begin = end + 1;
    }
    EXPECT_GE(lines, 3);
}

TEST_F(Restart, SettingsThatArentThereEndTheStart) {
    const ended result = run_process({service_process::program(), "--state", path("state"),
                                      "--port", "0", "--no-http", "--settings", path("none.conf")});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "vlsld: --settings " + path("none.conf") + ": there is no such file\n");
}

} // namespace
