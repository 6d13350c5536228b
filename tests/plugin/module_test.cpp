// The built plugin, loaded as a host loads it. This program's own stsm_init takes the place of the
// storage library's.

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include "tests/support/conf_dir.h"
#include "tests/support/fake_next_layer.h"
#include "tests/support/host_session.h"

#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// One loaded plugin. It isn't unloaded, as a host doesn't: what it makes at load is never deleted.
class module {
  public:
    explicit module(const std::string& path)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(handle_, nullptr) << dlerror();
    }

    template <typename Symbol>
    Symbol* find(const char* name) const {
        void* const found = dlsym(handle_, name);
        EXPECT_NE(found, nullptr) << name;
        return reinterpret_cast<Symbol*>(found);
    }
    /// The entry point, and the slot that undoes it.
    int init(uint64_t version) const {
        stspi_api_rec_t record;
        return find<int(uint64_t, const char*, stspi_api_rec_t*)>("stspi_init")(version, "/plugins",
                                                                                &record);
    }
    const stspi_ep_t& entries() const { return *find<const stspi_ep_t>("ep"); }
    const sts_api_t* next_table() const { return *find<const sts_api_t*>("sts_api"); }

  private:
    void* const handle_;
};

class LoadedModule : public testing::Test {
  protected:
    LoadedModule() {
        next_layer() = {};
        take_log();
    }

    const conf_dir files;
    const module plugin{PLUGIN_FILE};
    sts_session_def_v7_t session = host_session("host");
};

TEST_F(LoadedModule, BindsToTheNextLayerOfTheProgramThatLoadsIt) {
    EXPECT_EQ(plugin.next_table(), nullptr);
    EXPECT_EQ(plugin.init(12), STS_OK);
    EXPECT_EQ(plugin.next_table(), fake_next_layer::table());
    EXPECT_EQ(plugin.entries().terminate_v7(), STS_OK);
    EXPECT_EQ(plugin.next_table(), nullptr);
    ASSERT_EQ(next_layer().calls.size(), 2U);
    EXPECT_EQ(next_layer().last("stsm_init").arguments[1].content, "/plugins");
}

TEST_F(LoadedModule, ServesAHostsWholeRoad) {
    ASSERT_EQ(plugin.init(12), STS_OK);
    next_layer().take();
    const stspi_ep_t& entries = plugin.entries();
    const char* const name = "CS_throttle:cloud:disk:s3";
    ASSERT_EQ(entries.claim_v7(name), STS_OK);
    throttling_server_s* server = nullptr;
    ASSERT_EQ(entries.open_server_v7(&session, name, nullptr, 7, &server), STS_OK);

    sts_lsu_ref_s lsu = {};
    lsu.server = server;
    strcpy(lsu.name, "lsu1");
    char data[100] = {};
    const auto* const image_def = reinterpret_cast<const sts_image_def_s*>(data);
    next_layer().name(data, "data");
    uint64_t moved = 0;
    next_layer().name(&moved, "moved");
    throttling_image_s* image = nullptr;
    ASSERT_EQ(entries.create_image_v10(&lsu, image_def, 2, &image), STS_OK);
    EXPECT_EQ(entries.write_image_v7(image, 5, data, 100, 200, &moved), STS_OK);
    EXPECT_EQ(entries.close_image_v7(image, 1, 2), STS_OK);
    ASSERT_EQ(entries.open_image_v10(&lsu, image_def, 1, &image), STS_OK);
    EXPECT_EQ(entries.read_image_v7(image, data, 100, 300, &moved), STS_OK);
    EXPECT_EQ(entries.close_server_v7(server), STS_ERR_BUSY);
    EXPECT_EQ(entries.close_image_v7(image, 0, 0), STS_OK);
    EXPECT_EQ(entries.close_server_v7(server), STS_OK);
    EXPECT_EQ(entries.terminate_v7(), STS_OK);

    EXPECT_THAT(next_layer().take(),
                ElementsAre("open_session(session, out)",
                            "open_server(#1, \"disk:s3\", null, 7, out)",
                            "create_image({#2 \"lsu1\"}, data, 2, out)",
                            "write_image(#3, 5, data, 100, 200, moved)", "close_handle(#3, 2)",
                            "open_image({#2 \"lsu1\"}, data, 1, out)",
                            "read_image(#4, data, 100, 300, moved)", "close_handle(#4, 0)",
                            "close_handle(#2, 0)", "close_handle(#1, 0)", "stsm_terminate()"));
    EXPECT_THAT(next_layer().open_handles(), IsEmpty());
    EXPECT_EQ(moved, 100U);
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[throttling_read_image_v7]<-read."));
}

TEST_F(LoadedModule, AnswersNotInitBeforeItsFirstStart) {
    throttling_server_s* server = nullptr;
    EXPECT_EQ(plugin.entries().open_server_v7(&session, "CS_throttle:global:disk:s3", nullptr, 7,
                                              &server),
              STS_ERR_NOT_INIT);
    EXPECT_EQ(server, nullptr);
    EXPECT_EQ(plugin.entries().terminate_v7(), STS_ERR_NOT_INIT);
}

TEST_F(LoadedModule, SecondCopyKeepsAStateOfItsOwn) {
    const std::string copy = files.path() + "/copy.so";
    std::filesystem::copy_file(PLUGIN_FILE, copy);
    const module other(copy);
    ASSERT_EQ(plugin.init(12), STS_OK);
    EXPECT_EQ(other.next_table(), nullptr);
    EXPECT_NE(&other.entries(), &plugin.entries());
    EXPECT_EQ(other.entries().terminate_v7(), STS_ERR_NOT_INIT);
    EXPECT_EQ(plugin.next_table(), fake_next_layer::table());
    EXPECT_EQ(plugin.entries().terminate_v7(), STS_OK);
}

} // namespace
