// No service: its port refuses.

#include "tests/faults/faulty_host.h"
#include "tests/support/scripted_service.h"

using testing::Contains;

namespace {

class NoServiceRealTime : public FaultyHost {
  protected:
    NoServiceRealTime() { setenv("VLSL_PORT", std::to_string(free_port()).c_str(), 1); }
};

TEST_F(NoServiceRealTime, ABackupGoesOnWithoutADelayWorthNaming) {
    EXPECT_LT(seconds_of("a backup without a service", [this] { back_up(); }), slack);
    EXPECT_THAT(errors(), Contains("4 [create_or_open_image_v10]fail to check connections "
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
    EXPECT_LT(seconds_of("a hundred transfers without a service", transfers), slack);
    image->read_back();
}

} // namespace
