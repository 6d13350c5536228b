// No service: its port refuses.

#include "tests/faults/faulty_host.h"
#include "tests/support/scripted_service.h"

using testing::Contains;

namespace {

class NoServiceRealTime : public FaultyHost {
  protected:
    NoServiceRealTime() { look_for_service_at(free_port()); }
};

TEST_F(NoServiceRealTime, ABackupGoesOnWithoutADelayWorthNaming) {
    EXPECT_LT(delay_of("a backup without a service", [this] { back_up(); }), slack);
    EXPECT_THAT(take_errors(), Contains("4 [create_or_open_image_v10]fail to check connections "
                                        "from service."));
}

TEST_F(NoServiceRealTime, AHundredTransfersThatEachTryToReportGoOnWithoutADelayWorthNaming) {
    open_server();
    open();
    const auto transfers = [this] {
        for (int i = 0; i < 100; ++i) {
            image->write();
        }
    };
    EXPECT_LT(delay_of("a hundred transfers without a service", transfers), slack);
    image->read_back();
}

} // namespace
