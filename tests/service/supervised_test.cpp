// What the service tells whoever started it.

#include "tests/service/service_process.h"

#include "common/descriptor.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

using testing::MatchesRegex;

namespace {

/// A socket that is told.
class Supervised : public testing::Test {
  protected:
    Supervised() {
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(told_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        const timeval patience = {20, 0};
        setsockopt(told_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~Supervised() override { std::filesystem::remove_all(directory_); }

    std::string path() const { return directory_ + "/notify"; }
    std::string next() const {
        char text[256];
        const ssize_t size = recv(told_.get(), text, sizeof text, 0);
        return size < 0 ? "nothing" : std::string(text, static_cast<size_t>(size));
    }

  private:
    std::string directory_ =
        (std::filesystem::temp_directory_path() / "supervised-XXXXXX").string();
    const descriptor told_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(Supervised, SaysWhenItIsReadyReloadsAndStops) {
    service_process service({}, 0, {{"NOTIFY_SOCKET", path()}});
    EXPECT_EQ(next(), "READY=1");
    service.send(SIGHUP);
    EXPECT_THAT(next(), MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+"));
    EXPECT_EQ(next(), "READY=1");
    service.stop(SIGTERM);
    EXPECT_EQ(next(), "STOPPING=1");
}

TEST_F(Supervised, SaysThatItLivesWhereItIsWatchedInRealTime) {
    const service_process service({}, 0, {{"NOTIFY_SOCKET", path()}, {"WATCHDOG_USEC", "3000000"}});
    EXPECT_EQ(next(), "READY=1");
    EXPECT_EQ(next(), "WATCHDOG=1");
}

TEST_F(Supervised, IsNotHeldUpWhereNobodyIsToBeToldOrCanBe) {
    for (const std::string& nowhere :
         {std::string(), std::string("relative"), path() + ".gone", "/" + std::string(200, 'x')}) {
        service_process service({}, 0, {{"NOTIFY_SOCKET", nowhere}});
        EXPECT_EQ(service.stop(SIGTERM).code, 0);
    }
}

} // namespace
