// Sessions and servers of the storage library: names, roots, properties, closing.

#include "tests/platform/sts/disk_store.h"

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

class StsServer : public DiskStore {
  protected:
    int status_of_opening(const std::string& name) {
        sts_next_server_s* opened = nullptr;
        const int status = api->open_server(session, name.c_str(), nullptr, 0, &opened);
        EXPECT_EQ(opened != nullptr, status == STS_OK);
        return status;
    }
};

TEST_F(StsServer, OpensAnAbsoluteRoot) {
    EXPECT_EQ(status_of_opening("disk:" + directory), STS_OK);
}

TEST_F(StsServer, MakesTheRootWhereItsParentExists) {
    EXPECT_EQ(status_of_opening(server_name("fresh")), STS_OK);
    EXPECT_TRUE(fs::is_directory(path("fresh")));
    EXPECT_EQ(status_of_opening(server_name("none/fresh")), errno_status(ENOENT));
    EXPECT_FALSE(fs::exists(path("none")));
}

TEST_F(StsServer, TakesAPlainNameBelowTheConfiguredDirectory) {
    const environment root("VL_STS_ROOT", directory.c_str());
    EXPECT_EQ(status_of_opening("disk:named"), STS_OK);
    EXPECT_TRUE(fs::is_directory(path("named")));
}

TEST_F(StsServer, RefusesANameThatLeavesTheConfiguredDirectory) {
    const environment root("VL_STS_ROOT", path("store").c_str());
    for (const char* const name :
         {"disk:..", "disk:.", "disk:../up", "disk:a/b", "disk:a/../../b"}) {
        EXPECT_EQ(status_of_opening(name), STS_ERR_INVALID) << name;
    }
}

TEST_F(StsServer, RefusesAPlainNameWithoutAConfiguredDirectory) {
    const environment unset("VL_STS_ROOT", nullptr);
    EXPECT_EQ(status_of_opening("disk:named"), STS_ERR_INVALID);
    const environment relative("VL_STS_ROOT", "relative");
    EXPECT_EQ(status_of_opening("disk:named"), STS_ERR_INVALID);
}

TEST_F(StsServer, RefusesAnEmptyRoot) { EXPECT_EQ(status_of_opening("disk:"), STS_ERR_INVALID); }

TEST_F(StsServer, LeavesNamesOfOtherPluginsAlone) {
    for (const char* const name : {"", "disk", "Disk:/tmp", "CS_throttle:a:disk:/tmp", "other:x"}) {
        EXPECT_EQ(status_of_opening(name), STS_ERR_NOT_CLAIMED) << name;
    }
}

TEST_F(StsServer, RefusesARootThatIsAFile) {
    std::ofstream(path("file")) << "x";
    EXPECT_EQ(status_of_opening(server_name("file")), errno_status(ENOTDIR));
}

TEST_F(StsServer, RefusesARootThatIsTooLongForASystem) {
    EXPECT_EQ(status_of_opening("disk:/" + std::string(5000, 'x')), errno_status(ENAMETOOLONG));
}

TEST_F(StsServer, RefusesNullArguments) {
    sts_next_server_s* opened = nullptr;
    sts_next_session_s* other = nullptr;
    sts_server_info_s info = {};
    EXPECT_EQ(api->open_session(nullptr, &other), STS_ERR_INVALID);
    EXPECT_EQ(api->open_session(&session_def, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->open_server(session, nullptr, nullptr, 0, &opened), STS_ERR_INVALID);
    EXPECT_EQ(api->open_server(session, server_name().c_str(), nullptr, 0, nullptr),
              STS_ERR_INVALID);
    EXPECT_EQ(api->open_target_server(server, 0, 0, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_prop(server, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_prop_byname(&session_def, server_name().c_str(), nullptr),
              STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_prop_byname(&session_def, nullptr, &info), STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_prop_byname(nullptr, server_name().c_str(), &info), STS_ERR_INVALID);
}

TEST_F(StsServer, TellsItsPropertiesByHandleAndByName) {
    create_lsu("second");
    sts_server_info_s by_handle = {};
    sts_server_info_s by_name = {};
    ASSERT_EQ(api->get_server_prop(server, &by_handle), STS_OK);
    ASSERT_EQ(api->get_server_prop_byname(&session_def, server_name().c_str(), &by_name), STS_OK);
    for (const sts_server_info_s& each : {by_handle, by_name}) {
        EXPECT_STREQ(each.server_name, server_name().c_str());
        EXPECT_EQ(each.lsu_count, 2U);
        EXPECT_GT(each.capacity, 0U);
        EXPECT_LE(each.free, each.capacity);
    }
}

TEST_F(StsServer, MakesNoRootWhenAskedForPropertiesByName) {
    sts_server_info_s info = {};
    EXPECT_EQ(api->get_server_prop_byname(&session_def, server_name("none").c_str(), &info),
              errno_status(ENOENT));
    EXPECT_EQ(api->get_server_prop_byname(&session_def, "other:x", &info), STS_ERR_NOT_CLAIMED);
    EXPECT_FALSE(fs::exists(path("none")));
}

TEST_F(StsServer, WontCloseWhileAnImageIsOpen) {
    sts_next_image_s* const image = create("image");
    EXPECT_EQ(close(server), STS_ERR_BUSY);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(close(server), STS_OK);
    EXPECT_EQ(close(server), STS_ERR_INVALID);
}

TEST_F(StsServer, WontCloseWhileAListIsOpen) {
    const sts_lsu_ref_s lsu = ref();
    sts_next_image_list_s* images = nullptr;
    sts_next_image_list_s* groups = nullptr;
    sts_next_lsu_list_s* lsus = nullptr;
    ASSERT_EQ(api->open_image_list(&lsu, 0, &images), STS_OK);
    ASSERT_EQ(api->open_image_group_list(&lsu, 0, 0, &groups), STS_OK);
    ASSERT_EQ(api->open_lsu_list(server, 0, &lsus), STS_OK);
    for (void* const list :
         {static_cast<void*>(images), static_cast<void*>(groups), static_cast<void*>(lsus)}) {
        EXPECT_EQ(close(server), STS_ERR_BUSY);
        EXPECT_EQ(close(list), STS_OK);
    }
    EXPECT_EQ(close(server), STS_OK);
}

TEST_F(StsServer, OutlivesItsSession) {
    EXPECT_EQ(close(session), STS_OK);
    EXPECT_EQ(close(session), STS_ERR_INVALID);
    store("image", "content");
    EXPECT_EQ(content_of("image"), "content");
    EXPECT_EQ(close(server), STS_OK);
}

TEST_F(StsServer, OpensATargetServerByName) {
    sts_next_server_s* target = nullptr;
    const std::string name = server_name("target");
    ASSERT_EQ(api->open_target_server(server, forward(name.c_str()), 0, 0, &target), STS_OK);
    sts_server_info_s info = {};
    ASSERT_EQ(api->get_server_prop(target, &info), STS_OK);
    EXPECT_STREQ(info.server_name, name.c_str());
    EXPECT_EQ(info.lsu_count, 0U);
}

TEST_F(StsServer, OpensItselfAsATargetServerWithoutAName) {
    sts_next_server_s* target = nullptr;
    ASSERT_EQ(api->open_target_server(server, 0, 0, 0, &target), STS_OK);
    EXPECT_NE(target, server);
    EXPECT_EQ(close(server), STS_OK);
    sts_server_info_s info = {};
    ASSERT_EQ(api->get_server_prop(target, &info), STS_OK);
    EXPECT_STREQ(info.server_name, server_name().c_str());
    EXPECT_EQ(info.lsu_count, 1U);
}

TEST_F(StsServer, TellsANameThatIsTooLongForItsFieldCut) {
    const std::string name = "disk:" + std::string(600, '/') + directory + "/store";
    sts_server_info_s info = {};
    ASSERT_EQ(api->get_server_prop_byname(&session_def, name.c_str(), &info), STS_OK);
    EXPECT_EQ(std::string(info.server_name), name.substr(0, 511));
}

} // namespace
