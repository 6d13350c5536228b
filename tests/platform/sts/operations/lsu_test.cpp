// LSUs of the storage library.

#include "tests/platform/sts/disk_store.h"
#include "tests/platform/sts/system_calls.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

class StsLsu : public DiskStore {
  protected:
    int status_of_creating(const std::string& name) {
        sts_lsu_def_s definition = {};
        memcpy(definition.name, name.data(), std::min(name.size(), sizeof definition.name));
        void* lsu = nullptr;
        return api->create_lsu(server, &definition, &lsu);
    }
    int remove(const std::string& name) {
        const sts_lsu_ref_s lsu = ref(name);
        return api->delete_lsu(&lsu);
    }
    sts_lsu_info_s info_of(const std::string& name) {
        const sts_lsu_ref_s lsu = ref(name);
        sts_lsu_info_s info = {};
        EXPECT_EQ(api->get_lsu_prop_byname(&lsu, &info), STS_OK);
        return info;
    }
};

TEST_F(StsLsu, IsADirectoryOfTheRoot) {
    create_lsu("second");
    EXPECT_TRUE(fs::is_directory(path("store/second")));
    EXPECT_THAT(lsu_names(), ElementsAre("lsu", "second"));
}

TEST_F(StsLsu, IsAlsoADirectoryThatAnOperatorMade) {
    fs::create_directory(path("store/by hand"));
    store("image", "content", "", "by hand");
    EXPECT_EQ(content_of("image", "by hand"), "content");
    EXPECT_THAT(lsu_names(), ElementsAre("by hand", "lsu"));
}

TEST_F(StsLsu, IsNoHiddenDirectoryFileOrLinkOfTheRoot) {
    fs::create_directory(path("store/.hidden"));
    fs::create_directory(path("store/lost+found"));
    fs::create_directory_symlink(path("store/lsu"), path("store/link"));
    std::ofstream(path("store/file")) << "x";
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));
    for (const char* const name : {".hidden", ".server", "lost+found"}) {
        EXPECT_EQ(status_of_creating(name), STS_ERR_INVALID) << name;
        EXPECT_EQ(open_status("x", STS_IMAGE_READ, name), STS_ERR_INVALID) << name;
    }
}

TEST_F(StsLsu, IsntCreatedTwice) { EXPECT_EQ(status_of_creating("lsu"), errno_status(EEXIST)); }

TEST_F(StsLsu, TellsItsProperties) {
    create_lsu("second", "a label");
    store("a", "12345", "", "second");
    store("b", "123", "", "second");
    const sts_lsu_info_s info = info_of("second");
    EXPECT_STREQ(info.name, "second");
    EXPECT_STREQ(info.label, "a label");
    EXPECT_STREQ(info.server_name, server_name().c_str());
    EXPECT_EQ(info.image_count, 2U);
    EXPECT_EQ(info.used, 8U);
    EXPECT_GT(info.capacity, 0U);
    EXPECT_LE(info.free, info.capacity);
}

TEST_F(StsLsu, CountsNoImageThatIsBeingWritten) {
    sts_next_image_s* const image = create("a");
    write(image, "12345");
    EXPECT_EQ(info_of("lsu").image_count, 0U);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(info_of("lsu").image_count, 1U);
}

TEST_F(StsLsu, TakesANewLabel) {
    const sts_lsu_ref_s lsu = ref();
    EXPECT_STREQ(info_of("lsu").label, "");
    ASSERT_EQ(api->label_lsu(&lsu, forward("first")), STS_OK);
    ASSERT_EQ(api->label_lsu(&lsu, forward("second")), STS_OK);
    EXPECT_STREQ(info_of("lsu").label, "second");
    ASSERT_EQ(api->label_lsu(&lsu, forward("")), STS_OK);
    EXPECT_STREQ(info_of("lsu").label, "");
}

TEST_F(StsLsu, RefusesALabelThatIsTooLong) {
    const sts_lsu_ref_s lsu = ref();
    const std::string longest(511, 'x');
    EXPECT_EQ(api->label_lsu(&lsu, forward((longest + "x").c_str())), STS_ERR_INVALID);
    EXPECT_EQ(api->label_lsu(&lsu, forward(longest.c_str())), STS_OK);
    EXPECT_EQ(info_of("lsu").label, longest);
    EXPECT_EQ(api->label_lsu(&lsu, 0), STS_ERR_INVALID);
}

TEST_F(StsLsu, IsFoundByItsLabel) {
    create_lsu("b", "wanted");
    create_lsu("c", "wanted");
    create_lsu("d", "other");
    sts_lsu_entry_s found = {};
    ASSERT_EQ(api->find_lsu(server, forward("wanted"), forward(&found), 0, 0, 0), STS_OK);
    EXPECT_STREQ(found.name, "b");
    EXPECT_EQ(api->find_lsu(server, forward("none"), forward(&found), 0, 0, 0),
              errno_status(ENOENT));
    EXPECT_STREQ(found.name, "b");
    EXPECT_EQ(api->find_lsu(server, 0, forward(&found), 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->find_lsu(server, forward("wanted"), 0, 0, 0, 0), STS_ERR_INVALID);
}

TEST_F(StsLsu, WithADamagedLabelIsPassedOverByTheSearchAndCanBeDeleted) {
    create_lsu("a");
    create_lsu("b", "wanted");
    std::ofstream(path("store/a/label")) << std::string(512, 'x');
    sts_lsu_entry_s found = {};
    ASSERT_EQ(api->find_lsu(server, forward("wanted"), forward(&found), 0, 0, 0), STS_OK);
    EXPECT_STREQ(found.name, "b");
    EXPECT_EQ(remove("a"), STS_OK);
    EXPECT_THAT(lsu_names(), ElementsAre("b", "lsu"));
}

TEST_F(StsLsu, IsDeletedWithItsLabel) {
    create_lsu("second", "a label");
    store("a", "x", "", "second");
    EXPECT_EQ(delete_image("a", "second"), STS_OK);
    EXPECT_EQ(remove("second"), STS_OK);
    EXPECT_FALSE(fs::exists(path("store/second")));
    EXPECT_EQ(remove("second"), errno_status(ENOENT));
    create_lsu("second");
    EXPECT_STREQ(info_of("second").label, "");
}

TEST_F(StsLsu, IsntDeletedWithAnImageInIt) {
    store("a", "content");
    EXPECT_EQ(remove("lsu"), errno_status(ENOTEMPTY));
    EXPECT_EQ(content_of("a"), "content");
}

TEST_F(StsLsu, IsntDeletedWhileAnImageIsBeingWritten) {
    sts_next_image_s* const image = create("a");
    write(image, "content");
    EXPECT_EQ(remove("lsu"), errno_status(ENOTEMPTY));
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("a"), "content");
}

TEST_F(StsLsu, IsntDeletedWithAnythingForeignInIt) {
    create_lsu("second", "a label");
    const std::string foreign = path("store/second/");
    std::ofstream(foreign + "mine") << "x";
    EXPECT_EQ(remove("second"), errno_status(ENOTEMPTY));
    EXPECT_TRUE(fs::remove(foreign + "mine"));
    for (const char* const each : {"mine", "replication", "label.new"}) {
        fs::create_directory(foreign + each);
        EXPECT_EQ(remove("second"), errno_status(ENOTEMPTY)) << each;
        EXPECT_TRUE(fs::remove(foreign + each));
    }
    for (const char* const each : {"new", "images"}) {
        fs::remove(foreign + each);
        std::ofstream(foreign + each) << "x";
        EXPECT_EQ(remove("second"), errno_status(ENOTEMPTY)) << each;
        EXPECT_TRUE(fs::remove(foreign + each));
    }
    EXPECT_STREQ(info_of("second").label, "a label");
    EXPECT_EQ(remove("second"), STS_OK);
}

TEST_F(StsLsu, ThatIsForeignAmongThoseThatAreMadeStays) {
    std::ofstream(path("store/.new/mine")) << "x";
    fs::create_directories(path("store/.new/directory"));
    std::ofstream(path("store/.new/directory/mine")) << "x";
    EXPECT_EQ(close(open_server()), STS_OK);
    EXPECT_TRUE(fs::exists(path("store/.new/mine")));
    EXPECT_TRUE(fs::exists(path("store/.new/directory/mine")));
}

// --- one that goes while somebody waits for its lock --------------------------------------------

/// Holds the lock of "lsu" as another process would.
class StsLsuLocked : public StsLsu {
  protected:
    StsLsuLocked() : locked(::open(path("store/lsu").c_str(), O_RDONLY | O_DIRECTORY)) {
        EXPECT_EQ(flock(locked, LOCK_EX), 0);
    }
    /// Runs `call` up to where it waits for the lock, then takes the LSU out of its place, as a
    /// delete does, and lets go of the lock. The call's status.
    int status_when_taken_away(const std::function<int()>& call,
                               const std::function<void()>& afterwards) {
        const unsigned before = system_calls::locks_asked_for();
        int status = STS_OK;
        std::thread waiting([&] { status = call(); });
        while (system_calls::locks_asked_for() == before) {
            std::this_thread::yield();
        }
        fs::rename(path("store/lsu"), path("gone"));
        afterwards();
        ::close(locked);
        waiting.join();
        return status;
    }

    int locked;
};

TEST_F(StsLsuLocked, IsntDeletedInPlaceOfOneThatWasMadeAnewMeanwhile) {
    EXPECT_EQ(status_when_taken_away([&] { return remove("lsu"); },
                                     [&] { fs::create_directory(path("store/lsu")); }),
              errno_status(ENOENT));
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));
}

TEST_F(StsLsuLocked, TakesNoImageOnceItHasGone) {
    sts_next_image_s* image = nullptr;
    const auto create_one = [&] {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s definition = image_def("image");
        return api->create_image(&lsu, &definition, 0, &image);
    };
    EXPECT_EQ(status_when_taken_away(create_one, [] {}), errno_status(ENOENT));
    EXPECT_EQ(image, nullptr);
    EXPECT_TRUE(fs::is_empty(path("gone/new")));
}

TEST_F(StsLsu, HasNoPropertiesWhenItIsntThere) {
    const sts_lsu_ref_s lsu = ref("none");
    sts_lsu_info_s info = {};
    EXPECT_EQ(api->get_lsu_prop_byname(&lsu, &info), errno_status(ENOENT));
    EXPECT_EQ(api->label_lsu(&lsu, forward("x")), errno_status(ENOENT));
    EXPECT_EQ(api->get_lsu_prop_byname(&lsu, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->get_lsu_prop_byname(nullptr, &info), STS_ERR_INVALID);
    EXPECT_EQ(api->delete_lsu(nullptr), STS_ERR_INVALID);
}

TEST_F(StsLsu, HandleIsClosedAlsoAfterTheLsuIsGone) {
    sts_lsu_def_s definition = {};
    strcpy(definition.name, "second");
    void* lsu = nullptr;
    ASSERT_EQ(api->create_lsu(server, &definition, &lsu), STS_OK);
    ASSERT_EQ(remove("second"), STS_OK);
    EXPECT_EQ(close(lsu), STS_OK);
    EXPECT_EQ(close(lsu), STS_ERR_INVALID);
    EXPECT_EQ(api->create_lsu(server, nullptr, &lsu), STS_ERR_INVALID);
    EXPECT_EQ(api->create_lsu(server, &definition, nullptr), STS_ERR_INVALID);
    EXPECT_FALSE(fs::exists(path("store/second")));
}

TEST_F(StsLsu, HasNoReplicationPeersAtFirst) {
    const sts_lsu_ref_s lsu = ref();
    sts_replication_peer_s sources[2];
    sts_replication_peer_s targets[2];
    memset(sources, 'x', sizeof sources);
    memset(targets, 'x', sizeof targets);
    ASSERT_EQ(api->get_lsu_replication_prop(&lsu, 2, sources, 2, targets), STS_OK);
    EXPECT_STREQ(sources[0].server_name, "");
    EXPECT_STREQ(targets[1].server_name, "");
    EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 0, nullptr, 0, nullptr), STS_OK);
    EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 1, nullptr, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 0, nullptr, 1, nullptr), STS_ERR_INVALID);
}

} // namespace
