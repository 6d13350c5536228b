// Who paces a run is said where it isn't the service: in one line, once.

#include "tests/tools/tool_fixture.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;

namespace {

/// A port that nobody else has while this lives; others can connect once it listens.
class held_port {
  public:
    held_port() : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        number_ = std::to_string(ntohs(address.sin_port));
    }
    ~held_port() { close(socket_); }
    const std::string& number() const { return number_; }

  private:
    int socket_;
    std::string number_;
};

class SharingNotice : public ToolTest {
  protected:
    SharingNotice() {
        std::filesystem::create_directory(path("tree"));
        write_text(path("tree/file"), "content");
        write_settings("THR:SAMPLE_INTERVAL=5\n");
        how.environment["VLSL_PORT"] = nobody.number();
    }
    static size_t lines_about(const std::string& err) {
        size_t count = 0;
        for (size_t at = 0; (at = err.find("this process alone", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
    held_port nobody;
};

TEST_F(SharingNotice, NamesTheAddressesWhereNoServiceAnswersAndTheRunGoesOn) {
    const ended backup = run("backup", {path("tree"), "--name", "b"});
    EXPECT_EQ(backup.code, 0);
    EXPECT_THAT(backup.err, HasSubstr("throttlectl: no service answers on "));
    EXPECT_THAT(backup.err, HasSubstr("127.0.0.1:" + nobody.number()));
    EXPECT_THAT(backup.err, HasSubstr(": this is paced by this process alone\n"));
    EXPECT_EQ(lines_about(backup.err), 1U) << backup.err;
}

TEST_F(SharingNotice, SaysThatAGlobalServerIsPacedByTheProcessAlone) {
    const ended backup =
        tool({"run", "backup", path("tree"), "--conf-dir", path("conf"), "--server",
              "CS_throttle:global:disk:" + path("store"), "--lsu", "daily"});
    EXPECT_EQ(backup.code, 0);
    EXPECT_THAT(backup.err, HasSubstr("throttlectl: a server of the type \"global\" or without a "
                                      "name is paced by this process alone"));
    EXPECT_EQ(lines_about(backup.err), 1U) << backup.err;
}

TEST_F(SharingNotice, IsSilentWhileThrottlingIsOff) {
    write_settings("THR:SAMPLE_INTERVAL=0\n");
    EXPECT_EQ(lines_about(run("backup", {path("tree"), "--name", "b"}).err), 0U);
}

TEST_F(SharingNotice, PortThatIsNoneIsSaid) {
    how.environment["VLSL_PORT"] = "http";
    EXPECT_THAT(run("backup", {path("tree"), "--name", "b"}).err,
                HasSubstr("no service is looked for, since VLSL_PORT is no port (1 to 65535): "));
}

TEST_F(SharingNotice, DirectoryOfTheSettingsThatIsMissingIsNamedWithTheRemedy) {
    const ended list =
        tool({"run", "list", "--conf-dir", path("none"), "--server", server(), "--lsu", "daily"});
    EXPECT_EQ(list.code, 1);
    EXPECT_EQ(list.err, "throttlectl: the directory of the settings, " + path("none") +
                            ", isn't there: make it with \"mkdir -p " + path("none") +
                            "\", or name another with --conf-dir\n");
}

TEST_F(SharingNotice, ErrorsOfTheCommandLineBeginWithTheProgramsName) {
    EXPECT_THAT(tool({"walk"}).err, testing::StartsWith("throttlectl: A subcommand is required"));
}

} // namespace
