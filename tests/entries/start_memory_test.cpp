// The start of the layer where memory can't be had: it is no operation of the table, but the host
// calls it first, and nothing may be thrown at it there either.

#include "tests/entries/memory_meter.h"
#include "tests/plugin/frame.h"

#include <cstring>

namespace {

class StartMemory : public Frame {
  protected:
    StartMemory() { sts_api = nullptr; }
};

TEST_F(StartMemory, EachAllocationThatFailsIsAnsweredAndTheLayerStaysCountedButUnbound) {
    int failed = 0;
    for (int number = 1;; ++number) {
        SCOPED_TRACE("without allocation " + std::to_string(number));
        files.write_plugin_file("THR:a_storage_with_quite_a_long_name=3\nTHR:s3=10\n");
        stspi_api_rec_t record;
        memset(&record, 'Z', sizeof record);
        memory_meter::start(memory_meter::only(number));
        const int status = stspi_init(12, "/some/plugins", &record);
        const memory_meter::reading memory = memory_meter::stop();
        const bool started = status == STS_OK;
        EXPECT_EQ(sts_api != nullptr, started);
        EXPECT_EQ(record.version == 11, started);
        EXPECT_EQ(throttling_terminate_v7(), STS_OK); // it was counted
        if (started) {
            EXPECT_LT(memory.asked, number);
            break;
        }
        EXPECT_EQ(status, STS_ERR_NOMEM);
        EXPECT_EQ(memory.kept, 0);
        ++failed;
    }
    EXPECT_EQ(failed, 3); // two storages, and the name that needs a block of its own
}

} // namespace
