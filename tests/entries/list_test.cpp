// Lists of LSUs, images and image groups from their open to their close, and what they do to the
// server's count.

#include "tests/plugin/frame.h"

#include <cstring>

namespace {

class Lists : public Frame {
  protected:
    throttling_lsu_list_s* open_lsus() {
        throttling_lsu_list_s* list = nullptr;
        EXPECT_EQ(throttling_open_lsu_list_v11(server.get(), 5, &list), STS_OK);
        forget();
        return list;
    }
    throttling_image_list_s* open_images() {
        throttling_image_list_s* list = nullptr;
        EXPECT_EQ(throttling_open_image_list_v7(&lsu, 6, &list), STS_OK);
        forget();
        return list;
    }

    server_ptr server = open();
    sts_lsu_ref_s lsu = lsu_of(server.get());
    char entry[16] = {};
};

TEST_F(Lists, ListClosedTwiceIsInvalidTheSecondTime) {
    const fault::retained_memory kept;
    throttling_lsu_list_s* const lsus = open_lsus();
    EXPECT_EQ(throttling_close_lsu_list_v7(lsus), STS_OK);
    throttling_image_list_s* const images = open_images();
    EXPECT_EQ(throttling_close_image_list_v7(images), STS_OK);
    forget();
    EXPECT_EQ(throttling_close_lsu_list_v7(lsus), STS_ERR_INVALID);
    EXPECT_EQ(throttling_list_lsu_v7(lsus, entry), STS_ERR_INVALID);
    EXPECT_EQ(throttling_close_image_list_v7(images), STS_ERR_INVALID);
    EXPECT_EQ(throttling_list_image_v10(images, entry), STS_ERR_INVALID);
    EXPECT_EQ(take_story(), lines{});
    EXPECT_EQ(server->open_handles, 0);
}

TEST_F(Lists, CloseThatTheNextLayerRefusesKeepsTheListAndCanBeRepeated) {
    throttling_lsu_list_s* const lsus = open_lsus();
    throttling_image_list_s* const images = open_images();
    next_layer().answers["close_handle"] = 4711;
    EXPECT_EQ(throttling_close_lsu_list_v7(lsus), 4711);
    EXPECT_EQ(throttling_close_image_list_v7(images), 4711);
    EXPECT_EQ(server->open_handles, 2);
    EXPECT_EQ(lsus->magic, 0xed9aeb37U);
    EXPECT_EQ(images->magic, 0x3e9ba66bU);
    EXPECT_EQ(throttling_list_lsu_v7(lsus, entry), STS_OK); // it can go on as well
    next_layer().answers.clear();
    EXPECT_EQ(throttling_close_lsu_list_v7(lsus), STS_OK);
    EXPECT_EQ(throttling_close_image_list_v7(images), STS_OK);
    EXPECT_EQ(server->open_handles, 0);
}

TEST_F(Lists, NameOfAnLsuWithoutAZeroIsLoggedUpToItsField) {
    struct {
        sts_lsu_ref_s lsu;
        char behind[8];
    } place = {lsu, "behind"};
    memset(place.lsu.name, 'n', sizeof place.lsu.name);
    next_layer().answers["open_image_list"] = 4711;
    throttling_image_list_s* list = nullptr;
    EXPECT_EQ(throttling_open_image_list_v7(&place.lsu, 6, &list), 4711);
    EXPECT_EQ(take_story().back(),
              error_line("throttling_open_image_list_v7",
                         "fail to open info list handle for lsu: " + std::string(1024, 'n') +
                             " with type 6, error code: 4711"));
}

TEST_F(Lists, EndOfTheLsusIsHandedUpAndLoggedAsNoFailure) {
    throttling_lsu_list_s* const list = open_lsus();
    next_layer().answers["list_lsu"] = 2060013;
    EXPECT_EQ(throttling_list_lsu_v7(list, entry), 2060013);
    EXPECT_EQ(take_story(), (lines{"3 [throttling_list_lsu_v7]enter.", "-> list_lsu(#3, pointer)",
                                   "3 [throttling_list_lsu_v7]reach the end of lsu list",
                                   "3 [throttling_list_lsu_v7]leave."}));
    throttling_close_lsu_list_v7(list);
}

TEST_F(Lists, LsusOfAServerWithoutANextLayerAreInvalid) {
    const server_ptr end = open("CS_throttle:global:");
    throttling_lsu_list_s* list = untouched<throttling_lsu_list_s>();
    EXPECT_EQ(throttling_open_lsu_list_v11(end.get(), 5, &list), STS_ERR_INVALID);
    EXPECT_EQ(list, untouched<throttling_lsu_list_s>());
    EXPECT_EQ(take_story(), lines{});
}

TEST_F(Lists, ServerWithAListOpenIsBusy) {
    throttling_lsu_list_s* const list = open_lsus();
    EXPECT_EQ(throttling_close_server_v7(server.get()), STS_ERR_BUSY);
    EXPECT_EQ(throttling_close_lsu_list_v7(list), STS_OK);
    EXPECT_EQ(throttling_close_server_v7(server.release()), STS_OK);
}

TEST_F(Lists, ImageListKeepsWhatItWasOpenedWithAndWhatTheNextLayerSees) {
    memset(lsu.name + 5, 'x', sizeof lsu.name - 5);
    throttling_image_list_s* const list = open_images();
    EXPECT_EQ(list->magic, 0x3e9ba66bU);
    EXPECT_EQ(list->type, 6);
    EXPECT_EQ(memcmp(&list->lsu, &lsu, sizeof lsu), 0);
    EXPECT_EQ(list->next_lsu.server, server->next_server);
    EXPECT_EQ(memcmp(list->next_lsu.name, lsu.name, sizeof lsu.name), 0);
    EXPECT_NE(list->next_list, nullptr);
    throttling_close_image_list_v7(list);
}

TEST_F(Lists, LsuListKeepsItsServer) {
    throttling_lsu_list_s* const list = open_lsus();
    EXPECT_EQ(list->magic, 0xed9aeb37U);
    EXPECT_EQ(list->server, server.get());
    throttling_close_lsu_list_v7(list);
}

TEST_F(Lists, ListOfAFailedOpenIsStale) {
    const fault::retained_memory kept;
    throttling_image_list_s* images = nullptr;
    throttling_lsu_list_s* lsus = nullptr;
    next_layer().effects["open_image_list"] = [&](const next_call& call) {
        // The record and the place for the next layer's list lie in the handle.
        images = reinterpret_cast<throttling_image_list_s*>(
            call.arguments[0].value - offsetof(throttling_image_list_s, next_lsu));
        EXPECT_EQ(images->magic, 0x3e9ba66bU);
    };
    next_layer().effects["open_lsu_list"] = [&](const next_call& call) {
        lsus = reinterpret_cast<throttling_lsu_list_s*>(call.arguments[2].value -
                                                        offsetof(throttling_lsu_list_s, next_list));
        EXPECT_EQ(lsus->magic, 0xed9aeb37U);
    };
    next_layer().answers = {{"open_image_list", 4711}, {"open_lsu_list", 4712}};
    throttling_image_list_s* images_out = untouched<throttling_image_list_s>();
    throttling_lsu_list_s* lsus_out = untouched<throttling_lsu_list_s>();
    EXPECT_EQ(throttling_open_image_list_v7(&lsu, 6, &images_out), 4711);
    EXPECT_EQ(throttling_open_lsu_list_v11(server.get(), 5, &lsus_out), 4712);
    EXPECT_EQ(images_out, untouched<throttling_image_list_s>());
    EXPECT_EQ(lsus_out, untouched<throttling_lsu_list_s>());
    ASSERT_NE(images, nullptr);
    ASSERT_NE(lsus, nullptr);
    EXPECT_EQ(images->magic, 0U);
    EXPECT_EQ(lsus->magic, 0U);
    EXPECT_EQ(server->open_handles, 0);
}

TEST_F(Lists, NameThatFillsItsFieldIsLoggedAsFarAsItGoes) {
    throttling_image_list_s* const list = open_images();
    memset(list->next_lsu.name, 'x', sizeof list->next_lsu.name);
    const std::string name(STS_LSU_NAME_SIZE, 'x');
    next_layer().answers["close_handle"] = 4711;
    EXPECT_EQ(throttling_close_image_list_v7(list), 4711);
    EXPECT_TRUE(has_logged(STS_SEV_ERROR,
                           "[throttling_close_image_list_v7]fail to close info list handle for "
                           "lsu: " +
                               name + " with type 6, error code: 4711"));
    next_layer().answers.clear();
    throttling_close_image_list_v7(list);
}

// --- image groups ------------------------------------------------------------------------------

TEST_F(Lists, GroupListIsHandedOutBeforeItIsOpenAndKeptWhenItFails) {
    throttling_image_list_s* list = nullptr;
    next_layer().answers["open_image_group_list"] = 4711;
    next_layer().effects["open_image_group_list"] = [&](const next_call& call) {
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(call.arguments[0].value, reinterpret_cast<uint64_t>(&list->next_lsu));
        EXPECT_EQ(call.arguments[3].value, reinterpret_cast<uint64_t>(&list->next_list));
    };
    EXPECT_EQ(throttling_open_image_group_list(&lsu, 5, 6, &list), 4711);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->magic, 0x3e9ba66bU);
    EXPECT_EQ(list->type, 6);
    EXPECT_EQ(list->lsu.server, server.get());
    EXPECT_EQ(list->next_lsu.server, server->next_server);
    EXPECT_EQ(list->next_list, nullptr);
    EXPECT_EQ(server->open_handles, 0);
    EXPECT_EQ(throttling_close_image_list_v7(list), STS_OK);
}

TEST_F(Lists, ClosedGroupListLeavesTheCountOneTooLowAndTheServerBusy) {
    throttling_image_list_s* list = nullptr;
    EXPECT_EQ(throttling_open_image_group_list(&lsu, 5, 6, &list), STS_OK);
    EXPECT_EQ(server->open_handles, 0);
    EXPECT_EQ(throttling_list_image_v10(list, entry), STS_OK);
    EXPECT_EQ(throttling_close_image_list_v7(list), STS_OK);
    EXPECT_EQ(server->open_handles, -1);
    EXPECT_EQ(throttling_close_server_v7(server.get()), 2060005);
}

} // namespace
