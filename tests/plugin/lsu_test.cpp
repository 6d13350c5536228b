// LSU creation and deletion, reached through the second entry table.

#include "tests/plugin/frame.h"
#include "tests/plugin/wrapped.h"

#include <cstdlib>
#include <cstring>

using testing::IsEmpty;

namespace {

class Lsus : public Frame {
  protected:
    Lsus() {
        next_layer().name(definition, "definition");
        server = open();
    }
    ~Lsus() override { wrapped::clear(); }

    /// A record as the host gives it up: 1024 name bytes, all of them used.
    static sts_lsu_ref_s* record(throttling_server_s* of) {
        auto* const lsu = static_cast<sts_lsu_ref_s*>(malloc(sizeof(sts_lsu_ref_s)));
        lsu->server = of;
        memset(lsu->name, 'x', sizeof lsu->name);
        strcpy(lsu->name, "lsu1");
        return lsu;
    }

    const sts_lsu_def_s* definition = untouched<const sts_lsu_def_s>();
    server_ptr server;
};

// --- creation ----------------------------------------------------------------------------------

TEST_F(Lsus, CreationHandsOutAHolderOfTheNextLayersHandle) {
    void** holder = nullptr;
    EXPECT_EQ(throttling_create_lsu(server.get(), definition, &holder), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_create_lsu]enter.", "-> create_lsu(#2, definition, out)",
                     "3 [throttling_create_lsu]leave."}));
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(next_layer().text_of(*holder), "#3");
    free(holder);
}

TEST_F(Lsus, CreationStoresAnEmptyHolderBeforeItAsksTheNextLayer) {
    void** holder = nullptr;
    bool seen = false;
    next_layer().effects["create_lsu"] = [&](const next_call& call) {
        EXPECT_EQ(call.pointer<void*>(2), holder);
        EXPECT_EQ(*holder, nullptr);
        seen = true;
    };
    throttling_create_lsu(server.get(), definition, &holder);
    EXPECT_TRUE(seen);
    free(holder);
}

TEST_F(Lsus, CreationThatFailsLeavesItsEmptyHolderAndLogsNothingOfItsOwn) {
    next_layer().answers["create_lsu"] = 4711;
    void** holder = nullptr;
    EXPECT_EQ(throttling_create_lsu(server.get(), definition, &holder), 4711);
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_create_lsu]enter.", "-> create_lsu(#2, definition, out)",
                     "3 [throttling_create_lsu]leave."}));
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(*holder, nullptr);
    free(holder);
}

TEST_F(Lsus, CreationWithoutANextLayerSucceedsAndHandsOutNothing) {
    const server_ptr end = open("CS_throttle:global:");
    void** holder = untouched<void*>();
    EXPECT_EQ(throttling_create_lsu(end.get(), definition, &holder), STS_OK);
    EXPECT_EQ(holder, untouched<void*>());
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_create_lsu]enter.", "3 [throttling_create_lsu]leave."}));
}

TEST_F(Lsus, CreationChecksItsDefinitionAndOutAlone) {
    void** holder = untouched<void*>();
    EXPECT_EQ(throttling_create_lsu(server.get(), nullptr, &holder), STS_ERR_INVALID);
    EXPECT_EQ(throttling_create_lsu(server.get(), definition, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(throttling_create_lsu(nullptr, nullptr, &holder), STS_ERR_INVALID);
    EXPECT_EQ(holder, untouched<void*>());
    EXPECT_EQ(take_whole_story(), lines{});

    server->magic = 0; // isn't looked at
    EXPECT_EQ(throttling_create_lsu(server.get(), definition, &holder), STS_OK);
    server->magic = SERVER_MAGIC;
    free(holder);
}

TEST_F(Lsus, CreationWithoutMemoryLeavesOutAsItWas) {
    void** holder = untouched<void*>();
    wrapped::calloc_fails = true;
    EXPECT_EQ(throttling_create_lsu(server.get(), definition, &holder), STS_ERR_NOMEM);
    EXPECT_EQ(holder, untouched<void*>());
    EXPECT_THAT(next_layer().calls, IsEmpty());
}

TEST_F(Lsus, CreationWithNoNextLayerBoundAnswersNotInit) {
    sts_api = nullptr;
    void** holder = nullptr;
    EXPECT_EQ(throttling_create_lsu(server.get(), definition, &holder), STS_ERR_NOT_INIT);
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(*holder, nullptr);
    free(holder);
}

// --- deletion ----------------------------------------------------------------------------------

TEST_F(Lsus, DeletionGivesTheNextLayerItsOwnServerAndAllNameBytes) {
    sts_lsu_ref_s* const lsu = record(server.get());
    sts_lsu_ref_s expected = *lsu;
    expected.server = server->next_server;
    EXPECT_EQ(throttling_delete_lsu(lsu), STS_OK);
    const next_argument given = next_layer().last("delete_lsu").arguments[0];
    EXPECT_EQ(given.content,
              std::string(reinterpret_cast<const char*>(&expected), sizeof expected));
    EXPECT_NE(given.value, reinterpret_cast<uint64_t>(lsu));
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_delete_lsu]enter.", "-> delete_lsu({#2 \"lsu1\"})",
                     "3 [throttling_delete_lsu]leave."}));
}

TEST_F(Lsus, DeletionReleasesTheRecordWhateverItsStatus) { // a leak checker sees what it doesn't
    next_layer().answers["delete_lsu"] = 4711;
    EXPECT_EQ(throttling_delete_lsu(record(server.get())), 4711);
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_delete_lsu]enter.", "-> delete_lsu({#2 \"lsu1\"})",
                     "3 [throttling_delete_lsu]leave."}));
    sts_api = nullptr;
    EXPECT_EQ(throttling_delete_lsu(record(server.get())), STS_ERR_NOT_INIT);
}

TEST_F(Lsus, DeletionWithoutANextLayerSucceeds) {
    const server_ptr end = open("CS_throttle:global:");
    EXPECT_EQ(throttling_delete_lsu(record(end.get())), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_delete_lsu]enter.", "3 [throttling_delete_lsu]leave."}));
}

TEST_F(Lsus, DeletionOfNothingIsInvalid) {
    EXPECT_EQ(throttling_delete_lsu(nullptr), STS_ERR_INVALID);
    EXPECT_EQ(take_whole_story(), lines{});
}

} // namespace
