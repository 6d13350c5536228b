// The version text of a build whose release string doesn't fit; see CMakeLists.txt.

#include "plugin/throttling.h"

#include "tests/support/conf_dir.h"
#include "tests/support/fake_next_layer.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

TEST(LongRelease, VersionTextIsCutToThirtyCharacters) {
    const conf_dir files;
    next_layer() = {};
    stspi_api_rec_t record;
    memset(&record, 0x5a, sizeof record);
    ASSERT_EQ(stspi_init(12, "/some/plugins", &record), STS_OK);
    EXPECT_STREQ(record.version_text, "910000 Vaultaro_9.1.0.1_of_a_b");
    EXPECT_EQ(strlen(record.version_text), 30U);
    EXPECT_EQ(record.version_text[31], '\0');
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
}

} // namespace
