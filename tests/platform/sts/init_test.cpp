// Start and stop of the storage library, its table and what it exports.

#include "tests/platform/sts/disk_store.h"
#include "tests/support/process_state.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <sstream>

using testing::ElementsAre;

namespace {

/// The library as it is before anybody has opened it.
class StsInit : public testing::Test {
  protected:
    ~StsInit() override { close_library(); }

    const sts_api_t* api = nullptr;
};

TEST_F(StsInit, AcceptsVersion12Alone) {
    for (const uint64_t version : {0UL, 11UL, 13UL, ~0UL, (1UL << 32U) + 12}) {
        EXPECT_EQ(stsm_init(version, "", &api), STS_ERR_VERSION) << version;
        EXPECT_EQ(api, nullptr);
    }
    EXPECT_EQ(stsm_init(12, "", &api), STS_OK);
    EXPECT_NE(api, nullptr);
}

TEST_F(StsInit, RefusesNullArguments) {
    EXPECT_EQ(stsm_init(12, nullptr, &api), STS_ERR_INVALID);
    EXPECT_EQ(stsm_init(12, "", nullptr), STS_ERR_INVALID);
    EXPECT_EQ(stsm_terminate(), STS_ERR_NOT_INIT); // neither counted
}

TEST_F(StsInit, LooksAtTheVersionBeforeTheOtherArguments) {
    EXPECT_EQ(stsm_init(11, nullptr, nullptr), STS_ERR_VERSION);
}

TEST_F(StsInit, StaysUpUntilTheLastUserHasTerminatedIt) {
    const sts_api_t* again = nullptr;
    ASSERT_EQ(stsm_init(12, "", &api), STS_OK);
    ASSERT_EQ(stsm_init(12, "", &again), STS_OK);
    EXPECT_EQ(again, api);
    EXPECT_EQ(stsm_terminate(), STS_ERR_TERMINATE_IGNORED);
    sts_session_def_v7_t definition = {};
    sts_next_session_s* session = nullptr;
    EXPECT_EQ(api->open_session(&definition, &session), STS_OK);
    EXPECT_EQ(stsm_terminate(), STS_OK);
    EXPECT_EQ(stsm_terminate(), STS_ERR_NOT_INIT);
}

TEST_F(StsInit, AnswersNotInitialisedAfterTheLastTerminate) {
    ASSERT_EQ(stsm_init(12, "", &api), STS_OK);
    ASSERT_EQ(stsm_terminate(), STS_OK);
    sts_session_def_v7_t definition = {};
    sts_next_session_s* session = nullptr;
    sts_server_info_s info = {};
    EXPECT_EQ(api->open_session(&definition, &session), STS_ERR_NOT_INIT);
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(api->get_server_prop_byname(&definition, "disk:/", &info), STS_ERR_NOT_INIT);
}

TEST_F(StsInit, CanBeStartedAgain) {
    ASSERT_EQ(stsm_init(12, "", &api), STS_OK);
    sts_session_def_v7_t definition = {};
    sts_next_session_s* before = nullptr;
    ASSERT_EQ(api->open_session(&definition, &before), STS_OK);
    ASSERT_EQ(stsm_terminate(), STS_OK);
    ASSERT_EQ(stsm_init(12, "", &api), STS_OK);
    EXPECT_EQ(api->close_handle(before, 0), STS_ERR_INVALID);
    sts_next_session_s* session = nullptr;
    EXPECT_EQ(api->open_session(&definition, &session), STS_OK);
    EXPECT_EQ(api->close_handle(session, 0), STS_OK);
}

TEST_F(StsInit, FillsEverySlotThatHasANameAndNoOther) {
    ASSERT_EQ(stsm_init(12, "", &api), STS_OK);
    constexpr size_t named[] = {1,   6,   7,   19,  24,  27,  31,  32,  40,  42,  43,
                                44,  48,  49,  52,  53,  55,  56,  57,  58,  59,  63,
                                65,  67,  69,  75,  77,  78,  80,  81,  103, 104, 105,
                                106, 107, 109, 110, 114, 118, 119, 123, 128, 129};
    static_assert(sizeof(sts_api_t) == 130 * sizeof(void*));
    void* slots[130];
    memcpy(slots, api, sizeof slots);
    for (size_t slot = 0; slot < 130; ++slot) {
        const bool has_name =
            std::find(std::begin(named), std::end(named), slot) != std::end(named);
        EXPECT_EQ(slots[slot] != nullptr, has_name) << slot;
    }
}

TEST_F(StsInit, GivesUpWhatIsOpenAtTheLastTerminate) {
    const size_t before = descriptors();
    {
        struct : DiskStore {
            void TestBody() override {}
            using DiskStore::create;
            using DiskStore::session;
        } store;
        store.create("unfinished");
        EXPECT_GT(descriptors(), before);
    }
    EXPECT_EQ(descriptors(), before);
}

TEST(StsExports, AreItsTwoDoorsAlone) {
    Dl_info library = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&stsm_init), &library), 0);
    const std::string command = std::string("nm -D --defined-only ") + library.dli_fname;
    FILE* const output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    std::vector<std::string> symbols;
    char line[512];
    while (fgets(line, sizeof line, output) != nullptr) {
        std::istringstream words(line);
        std::string address, type, name;
        words >> address >> type >> name;
        symbols.push_back(name);
    }
    EXPECT_EQ(pclose(output), 0);
    EXPECT_THAT(symbols, ElementsAre("stsm_init", "stsm_terminate"));
}

} // namespace
