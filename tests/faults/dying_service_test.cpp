// A service that dies in the middle of a backup, and comes back on the same port under the same
// keys.

#include "tests/faults/faulty_host.h"
#include "tests/support/scripted_service.h"

#include <algorithm>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DyingServiceRealTime : public FaultyHost {
  protected:
    DyingServiceRealTime() {
        open_server();
        open();
        image->write();
        service.take();
        take_errors();
    }

    /// A report of one transfer, as the service sees it.
    std::string report(int first_second, int last_second) const {
        return "check_bandwidth(\"w:s3\", \"a_b\", {1, " + std::to_string(start + first_second) +
               ", " + std::to_string(start + last_second) + ", 1000})";
    }

    remote_service service;
    const time_t start = clock.now();
};

TEST_F(DyingServiceRealTime, ABackupGoesOnBeingCountedByTheServiceThatComesBack) {
    service.answer("check_bandwidth", dies());
    EXPECT_LT(delay_of("the transfer in which the service dies", [this] { image->write(); }),
              slack);
    EXPECT_LT(delay_of("a transfer without it", [this] { image->write(); }), slack);
    const std::string exchange = "4 Unknown CORBA exception occured while processing "
                                 "check_bandwidth, return code =2060017";
    const std::string transfer = "4 [throttling_write_image_v7]fail to check bandwidth from "
                                 "service.";
    EXPECT_THAT(take_errors(), ElementsAre(exchange, transfer, exchange, transfer));

    service.stop();
    service.start();
    EXPECT_LT(delay_of("the transfer after its return", [this] { image->write(); }), slack);
    image.reset();
    server.reset();
    EXPECT_THAT(service.take(),
                ElementsAre(report(3, 4), report(4, 4), "check_connections(\"w:s3\", \"a_b\", -1)",
                            "check_connections(\"a:s3\", \"a_b\", -1)", "destroy()"));
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(DyingServiceRealTime, AnImageThatIsOpenedMeanwhileIsOneMoreOfTheSameBackup) {
    service.stop();
    std::optional<open_image> second;
    const auto open_second = [&] { second.emplace(*server, &clock); };
    EXPECT_LT(delay_of("an open without the service", open_second), slack);
    service.start();
    second->write();
    second.reset();
    image.reset();
    server.reset();
    EXPECT_THAT(service.take(),
                testing::IsSupersetOf({"check_connections(\"w:s3\", \"a_b\", -1)",
                                       "check_connections(\"a:s3\", \"a_b\", -1)", "destroy()"}));
}

TEST_F(DyingServiceRealTime, OneThatClosesItsConnectionsIsAskedOverNewOnes) {
    service.answer("check_bandwidth", {drops_connections(), {}});
    EXPECT_LT(delay_of("the transfer whose connection goes", [this] { image->write(); }), slack);
    constexpr int more = 10; // the service may still be closing while the first of them connects
    for (int i = 0; i < more; ++i) {
        image->write();
    }
    const lines asked = service.take();
    EXPECT_EQ(asked.front(), report(1, 2));
    EXPECT_EQ(std::count(asked.begin(), asked.end(), report(1, 2)), 1);
    EXPECT_EQ(asked.back(), report(1 + more, 2 + more));
}

} // namespace
