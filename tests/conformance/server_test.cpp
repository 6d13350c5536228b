// Servers: open, close, properties, targets.

#include "tests/conformance/storage.h"

#include <filesystem>
#include <memory>

namespace fs = std::filesystem;

namespace {

class Server : public Storage {
  protected:
    sts_server_info_s info_of(handle asked) {
        sts_server_info_s info = {};
        EXPECT_EQ(call::get_server_prop(asked, &info), STS_OK);
        return info;
    }
    int open_status(const std::string& name) {
        handle opened;
        const int status = call::open_server(&session, name.c_str(), out(opened));
        EXPECT_EQ(opened.value, nullptr) << name;
        return status;
    }
};

TEST_F(Server, IsKnownByTheNameThatItWasOpenedWith) {
    EXPECT_EQ(create_lsu("second"), STS_OK);
    const sts_server_info_s info = info_of(server);
    EXPECT_EQ(info.server_name, server_name());
    EXPECT_EQ(info.lsu_count, 2U);
    EXPECT_GT(info.capacity, 0U);
    EXPECT_LE(info.free, info.capacity);
}

TEST_F(Server, IsKnownByItsNameWithoutBeingOpen) {
    sts_server_info_s info = {};
    ASSERT_EQ(call::get_server_prop_byname(&session, server_name().c_str(), &info), STS_OK);
    EXPECT_EQ(info.server_name, server_name());
    EXPECT_EQ(info.lsu_count, 1U);
    EXPECT_EQ(info.capacity, info_of(server).capacity);
}

TEST_F(Server, MayBeOpenedMoreThanOnce) {
    const handle second = open_server();
    EXPECT_NE(second.value, server.value);
    store("image", "content");
    EXPECT_EQ(call::close_server(second), STS_OK);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(Server, MakesItsRootWhenItIsOpenedAndNotWhenItIsAskedAbout) {
    sts_server_info_s info = {};
    EXPECT_EQ(call::get_server_prop_byname(&session, server_name("new").c_str(), &info),
              errno_status(ENOENT));
    EXPECT_FALSE(fs::exists(path("new")));
    EXPECT_EQ(call::close_server(open_server("new")), STS_OK);
    EXPECT_TRUE(fs::is_directory(path("new")));
}

TEST_F(Server, WithoutADirectoryAboveItIsntThere) {
    EXPECT_EQ(open_status(server_name("no/such")), errno_status(ENOENT));
}

TEST_F(Server, ThatNobodyKnowsIsntClaimed) {
    const std::string unknown = stack::current().server_name("nobody:" + directory);
    EXPECT_EQ(open_status(unknown), STS_ERR_NOT_CLAIMED);
    sts_server_info_s info = {};
    EXPECT_EQ(call::get_server_prop_byname(&session, unknown.c_str(), &info), STS_ERR_NOT_CLAIMED);
}

TEST_F(Server, WithAnEmptyRootIsRefused) {
    EXPECT_EQ(open_status(stack::current().server_name("disk:")), STS_ERR_INVALID);
}

TEST_F(Server, NeedsItsArguments) {
    handle opened;
    sts_server_info_s info = {};
    EXPECT_EQ(call::open_server(&session, nullptr, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_prop(server, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_prop(handle{}, &info), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_prop_byname(&session, nullptr, &info), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_prop_byname(nullptr, server_name().c_str(), &info), STS_ERR_INVALID);
    EXPECT_EQ(call::get_server_prop_byname(&session, server_name().c_str(), nullptr),
              STS_ERR_INVALID);
}

TEST_F(Server, StaysOpenWhileAnImageIsOpenOnIt) {
    const handle image = create("image");
    EXPECT_EQ(call::close_server(server), STS_ERR_BUSY);
    write(image, "still there");
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), "still there");
}

TEST_F(Server, StaysOpenWhileAListIsOpenOnIt) {
    handle lsus;
    ASSERT_EQ(call::open_lsu_list(server, 0, out(lsus)), STS_OK);
    EXPECT_EQ(call::close_server(server), STS_ERR_BUSY);
    EXPECT_EQ(call::close_lsu_list(lsus), STS_OK);

    const sts_lsu_ref_s lsu = ref();
    handle images;
    ASSERT_EQ(call::open_image_list(&lsu, 0, out(images)), STS_OK);
    EXPECT_EQ(call::close_server(server), STS_ERR_BUSY);
    EXPECT_EQ(call::close_image_list(images), STS_OK);
}

// --- targets ------------------------------------------------------------------------------------

class TargetServer : public Server {
  protected:
    /// Opens the target of the server on that root and closes both at the end.
    void open_target(const std::string& root) {
        differs(rules::names_below);
        const std::string name = storage_name(root);
        ASSERT_EQ(call::open_target_server(server, forward(name.c_str()), 0, 0, out(target)),
                  STS_OK);
        if (differs(rules::target_shares_session)) {
            status_of_closing = STS_ERR_INVALID;
        }
    }
    void TearDown() override {
        if (target.value != nullptr) {
            EXPECT_EQ(call::close_server(target), status_of_closing_target);
        }
        Server::TearDown();
    }
    /// Opens and closes a list of groups of an LSU of the target.
    void close_group_list(const std::string& lsu_name) {
        const sts_lsu_ref_s lsu = ref_on(target, lsu_name);
        handle list;
        EXPECT_EQ(call::open_image_group_list(&lsu, 0, 0, out(list)), STS_OK);
        EXPECT_EQ(call::close_image_list(list), STS_OK);
    }

    handle target;
    int status_of_closing_target = STS_OK;
};

TEST_F(TargetServer, IsAServerOfItsOwn) {
    ASSERT_NO_FATAL_FAILURE(open_target("other"));
    EXPECT_EQ(create_lsu_on(target, "there"), STS_OK);
    EXPECT_TRUE(fs::is_directory(path("other/there")));
    EXPECT_THAT(lsu_names(), testing::ElementsAre("lsu"));
    sts_server_info_s info = {};
    EXPECT_EQ(call::get_server_prop(target, &info), STS_OK);
    EXPECT_EQ(info.lsu_count, 1U);
    EXPECT_EQ(info.server_name,
              differs(rules::target_keeps_name) ? server_name() : server_name("other"));
}

TEST_F(TargetServer, WithoutANameIsTheSameServerOnceMore) {
    ASSERT_EQ(call::open_target_server(server, 0, 0, 0, out(target)), STS_OK);
    if (differs(rules::target_shares_session)) {
        status_of_closing = STS_ERR_INVALID;
    }
    EXPECT_EQ(info_of(target).server_name, server_name());
    EXPECT_EQ(info_of(target).lsu_count, 1U);
}

TEST_F(TargetServer, MovesImagesAsAnyOtherDoes) {
    ASSERT_NO_FATAL_FAILURE(open_target("other"));
    ASSERT_EQ(create_lsu_on(target, "there"), STS_OK);
    std::swap(server, target);
    store("image", "content", "", "there");
    EXPECT_EQ(content_of("image", "there"), "content");
    std::swap(server, target);
    EXPECT_THAT(image_names(), testing::IsEmpty());
}

TEST_F(TargetServer, MayBeOpenedWhileAnImageIsOpenOnItsSource) {
    const handle image = create("image");
    ASSERT_NO_FATAL_FAILURE(open_target("other"));
    ASSERT_EQ(create_lsu_on(target, "there"), STS_OK);
    const bool inherits = differs(rules::target_inherits_count);
    EXPECT_EQ(call::close_server(server), STS_ERR_BUSY); // which is the one that the image is on
    if (inherits) {
        EXPECT_EQ(call::close_server(target), STS_ERR_BUSY);
        differs(rules::group_list_count);
        close_group_list("there"); // nothing else takes one from its count
    }
    EXPECT_EQ(call::close_server(target), STS_OK);
    target = {};
    write(image, "content");
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(TargetServer, KeepsWhatItInheritedWhenTheImageOfItsSourceIsClosed) {
    const handle image = create("image");
    ASSERT_NO_FATAL_FAILURE(open_target("other"));
    ASSERT_EQ(create_lsu_on(target, "there"), STS_OK);
    EXPECT_EQ(close(image), STS_OK);
    if (differs(rules::target_inherits_count)) {
        EXPECT_EQ(call::close_server(target), STS_ERR_BUSY);
        differs(rules::group_list_count);
        close_group_list("there");
    }
}

TEST_F(TargetServer, WithAnImageOpenOnItDoesntHoldItsSource) {
    ASSERT_NO_FATAL_FAILURE(open_target("other"));
    ASSERT_EQ(create_lsu_on(target, "there"), STS_OK);
    std::swap(server, target);
    const handle image = create("image", "", "there");
    std::swap(server, target);
    EXPECT_EQ(call::close_server(target), STS_ERR_BUSY);
    // Whoever closes first closes the session that a layer shares.
    EXPECT_EQ(call::close_server(server), STS_OK);
    server = {};
    write(image, "content");
    EXPECT_EQ(close(image), STS_OK);
    status_of_closing_target = status_of_closing;
}

TEST_F(TargetServer, ThatCantBeOpenedGivesItsStatus) {
    const std::string names[] = {"nobody:x", "disk:" + path("no/such")};
    const int statuses[] = {STS_ERR_NOT_CLAIMED, errno_status(ENOENT)};
    for (size_t each = 0; each < 2; ++each) {
        handle refused;
        EXPECT_EQ(
            call::open_target_server(server, forward(names[each].c_str()), 0, 0, out(refused)),
            statuses[each]);
        EXPECT_EQ(refused.value != nullptr, differs(rules::target_left_in_out));
        if (refused.value != nullptr) {
            EXPECT_EQ(call::close_server(refused), STS_OK);
        }
    }
}

} // namespace
