// Real errors: the system's reasons come back as statuses, damage is found, memory that can't be
// had leaves everything as it was.

#include "tests/platform/sts/disk_store.h"
#include "tests/platform/sts/system_calls.h"
#include "tests/support/fault.h"
#include "tests/support/process_state.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

static_assert(sts_status_of_errno(ENOENT) == 2061002);
static_assert(sts_status_of_errno(ENOSPC) == 2061028);
static_assert(sts_errno_of_status(2061028) == ENOSPC);
static_assert(sts_errno_of_status(STS_OK) == 0);
static_assert(sts_errno_of_status(STS_ERR_NO_EVENT) == 0);
static_assert(sts_errno_of_status(2061000) == 0);
static_assert(sts_errno_of_status(2065096) == 0);

/// A limit of the process for as long as it lives.
class limited {
  public:
    limited(__rlimit_resource_t which, rlim_t limit) : which_(which) {
        getrlimit(which, &before_);
        rlimit wanted = before_;
        wanted.rlim_cur = limit;
        setrlimit(which, &wanted);
    }
    ~limited() { setrlimit(which_, &before_); }
    limited(const limited&) = delete;
    limited& operator=(const limited&) = delete;

  private:
    __rlimit_resource_t which_;
    rlimit before_ = {};
};

class StsErrors : public DiskStore {
  protected:
    StsErrors() { signal(SIGXFSZ, SIG_IGN); }
    ~StsErrors() override {
        signal(SIGXFSZ, SIG_DFL);
        fault::clear();
    }
    std::string image_file(const std::string& image, const std::string& file) const {
        return path("store/lsu/images/" + image + "/" + file);
    }
};

TEST_F(StsErrors, AWriteThatIsStoppedTellsHowFarItCame) {
    sts_next_image_s* const image = create("image");
    const std::string content(16384, 'x');
    uint64_t written = 0;
    {
        const limited file_size(RLIMIT_FSIZE, 8192);
        EXPECT_EQ(api->write_image(image, 0, content.data(), content.size(), 0, &written),
                  errno_status(EFBIG));
        EXPECT_EQ(written, 8192U);
        EXPECT_EQ(api->write_image(image, 0, content.data(), 1, 8192, &written),
                  errno_status(EFBIG));
        EXPECT_EQ(written, 0U);
    }
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), content.substr(0, 8192));
}

TEST_F(StsErrors, ACopyThatIsStoppedTellsWhyAndLeavesNothing) {
    store("image", std::string(16384, 'x'));
    sts_next_image_s* const target = create("target");
    uint64_t copied = 0;
    const limited file_size(RLIMIT_FSIZE, 8192);
    EXPECT_EQ(api->include_in_image(target, 0, open("image"), forward(&copied), 0, 0),
              errno_status(EFBIG));
    EXPECT_EQ(open_status("image", STS_IMAGE_WRITE), errno_status(EFBIG));
    EXPECT_EQ(close(target, STS_CLOSE_ABANDON), STS_OK);
    EXPECT_TRUE(fs::is_empty(path("store/lsu/new")));
}

TEST_F(StsErrors, AnImageThatCantBeCompletedIsGivenUp) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    {
        const limited file_size(RLIMIT_FSIZE, 16); // no room for a header
        EXPECT_EQ(close(image), errno_status(EFBIG));
    }
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    EXPECT_TRUE(fs::is_empty(path("store/lsu/new")));
}

TEST_F(StsErrors, AreToldWhenFileDescriptorsRunOut) {
    store("image", "content");
    const size_t before = descriptors();
    {
        const limited files(RLIMIT_NOFILE, 3);
        EXPECT_EQ(open_status("image"), errno_status(EMFILE));
        EXPECT_EQ(open_status("image", STS_IMAGE_WRITE), errno_status(EMFILE));
        EXPECT_EQ(delete_image("image"), errno_status(EMFILE));
        sts_server_info_s info = {};
        EXPECT_EQ(api->get_server_prop(server, &info), errno_status(EMFILE));
    }
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsErrors, OfEveryFileDescriptorThatRunsOutLeaveNothingOpen) {
    store("image", "content");
    const size_t before = descriptors();
    const auto low = static_cast<rlim_t>(before);
    for (rlim_t limit = low; limit < low + 20; ++limit) {
        const limited files(RLIMIT_NOFILE, limit);
        for (const uint32_t flags : {STS_IMAGE_READ, STS_IMAGE_WRITE}) {
            const sts_lsu_ref_s lsu = ref();
            const sts_image_def_s definition = image_def("image");
            sts_next_image_s* image = nullptr;
            if (api->open_image(&lsu, &definition, flags, &image) == STS_OK) {
                (void)close(image); // completes or gives up
            }
        }
    }
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(content_of("image"), "content");
    EXPECT_EQ(close(open_server()), STS_OK); // removes what could not be removed then
    EXPECT_TRUE(fs::is_empty(path("store/lsu/new")));
}

TEST_F(StsErrors, AreToldWhenTheLsuIsTakenAwayFromUnderAWriter) {
    create_lsu("second");
    sts_next_image_s* const image = create("image", "", "second");
    write(image, "content");
    fs::remove_all(path("store/second"));
    EXPECT_EQ(close(image), errno_status(ENOENT));
    EXPECT_FALSE(fs::exists(path("store/second")));
}

TEST_F(StsErrors, AreToldWhenTheRootIsTakenAway) {
    fs::remove_all(path("store"));
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    sts_lsu_def_s definition = {};
    definition.name[0] = 'x';
    void* lsu = nullptr;
    EXPECT_EQ(api->create_lsu(server, &definition, &lsu), errno_status(ENOENT));
    EXPECT_THAT(lsu_names(), IsEmpty());
}

// --- transfers that fall short

/// The system's calls as they are on a bad day.
class StsShortTransfers : public StsErrors {
  protected:
    ~StsShortTransfers() override { system_calls::clear(); }

    const std::string content = std::string(3000, 'x') + std::string(2000, 'y') + "end";
};

TEST_F(StsShortTransfers, AndInterruptionsAreMadeUpFor) {
    system_calls::cut_transfers(700);
    store("image", content);
    EXPECT_EQ(content_of("image"), content);
    sts_next_image_s* const image = open("image");
    EXPECT_EQ(read(image, 10000, 2999), content.substr(2999));
}

TEST_F(StsShortTransfers, ArentAllThatSignalsInterrupt) {
    system_calls::interrupt_calls();
    EXPECT_EQ(close(open_server("other")), STS_OK);
    create_lsu("second", "label");
    sts_next_image_s* const image = create("image", "", "second");
    write(image, content);
    EXPECT_EQ(api->flush(image, 0, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(api->delete_files(image, STS_FILES_DATA, 0, 0, 0, 0), STS_OK);
    write(image, content);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image", "second"), content);
    EXPECT_EQ(delete_image("image", "second"), STS_OK);
    const sts_lsu_ref_s lsu = ref("second");
    EXPECT_EQ(api->delete_lsu(&lsu), STS_OK);
}

TEST_F(StsShortTransfers, DontKeepACopyFromGoingThroughMemory) {
    store("image", content);
    for (const int error : {EXDEV, EINVAL, ENOSYS, EOPNOTSUPP}) {
        system_calls::fail_copies(error);
        system_calls::cut_transfers(700);
        sts_next_image_s* const target = create("target" + std::to_string(error));
        uint64_t copied = 0;
        EXPECT_EQ(api->copy_extent(target, 5, open("image"), 1, 4000, forward(&copied), 0), STS_OK);
        EXPECT_EQ(copied, 4000U);
        EXPECT_EQ(read(target, 10000, 5), content.substr(1, 4000));
        EXPECT_EQ(api->copy_extent(target, 0, open("image"), 4000, 4000, forward(&copied), 0),
                  STS_OK);
        EXPECT_EQ(copied, content.size() - 4000);
    }
    sts_next_image_s* const again = open("image", STS_IMAGE_WRITE);
    EXPECT_EQ(read(again, 10000), content);
}

TEST_F(StsShortTransfers, DontKeepALargeCopyFromGoingThroughMemory) {
    std::string large;
    for (int number = 0; large.size() < (3U << 20U); ++number) {
        large += std::to_string(number);
    }
    store("image", large);
    system_calls::fail_copies(EXDEV);
    sts_next_image_s* const again = open("image", STS_IMAGE_WRITE);
    EXPECT_TRUE(read(again, large.size() + 1) == large);
}

TEST_F(StsShortTransfers, OfACopyThatFailsForAnotherReasonAreTold) {
    store("image", content);
    system_calls::fail_copies(EIO);
    EXPECT_EQ(open_status("image", STS_IMAGE_WRITE), errno_status(EIO));
}

// --- what is on the disk

/// That a call has synced what it made before it came back.
class StsSynced : public StsErrors {
  protected:
    template <typename Call>
    std::vector<std::string> synced_by(Call call) {
        system_calls::watch_synced();
        call();
        return system_calls::take_synced();
    }
};

TEST_F(StsSynced, IsANewRootWithItsName) {
    EXPECT_THAT(synced_by([&] { open_server("fresh"); }), Contains(directory));
    EXPECT_THAT(synced_by([&] { open_server("fresh"); }), IsEmpty());
}

TEST_F(StsSynced, IsANewLsuWithItsNameAndItsLabel) {
    const std::vector<std::string> synced = synced_by([&] { create_lsu("second", "label"); });
    EXPECT_THAT(synced, Contains(path("store")));
    EXPECT_THAT(synced, Contains(MatchesRegex(path("store/.new/") + ".*/label.new")));
}

TEST_F(StsSynced, IsAWholeImageWithItsNameUnlessTheSettingsSayOtherwise) {
    const auto store_one = [&](const std::string& name) {
        return synced_by([&] { store(name, "content"); });
    };
    const std::vector<std::string> synced = store_one("image");
    EXPECT_THAT(synced, Contains(MatchesRegex(path("store/lsu/new/") + "[^/]*/data")));
    EXPECT_THAT(synced, Contains(MatchesRegex(path("store/lsu/new/") + "[^/]*/header.new")));
    EXPECT_THAT(synced, Contains(MatchesRegex(path("store/lsu/new/") + "[^/]*")));
    EXPECT_EQ(synced.back(), path("store/lsu/images"));
    set("STS:SYNC_AT_CLOSE", 0);
    EXPECT_THAT(store_one("second"), IsEmpty());
}

// --- damage

TEST_F(StsErrors, AnImageWithADamagedHeaderIsToldAndCanBeDeleted) {
    const std::function<void(const std::string&)> damages[] = {
        [](const std::string& file) { fs::remove(file); },
        [](const std::string& file) { fs::resize_file(file, 0); },
        [](const std::string& file) { fs::resize_file(file, fs::file_size(file) - 1); },
        [](const std::string& file) { fs::resize_file(file, fs::file_size(file) + 1); },
        [](const std::string& file) { std::ofstream(file) << std::string(288, 'x'); },
        [](const std::string& file) { std::ofstream(file) << "STSIMAG1" << std::string(280, 'x'); },
        [](const std::string& file) {
            fs::remove(file);
            fs::create_directory(file);
        },
        [](const std::string& file) { // a pipe that nobody writes to
            fs::remove(file);
            mkfifo(file.c_str(), 0666);
        },
    };
    for (const auto& damage : damages) {
        store("image", "content", "group");
        ASSERT_EQ(fs::file_size(image_file("image", "header")), 288U);
        damage(image_file("image", "header"));
        EXPECT_EQ(open_status("image"), errno_status(EBADMSG));
        EXPECT_EQ(open_status("image", STS_IMAGE_WRITE), errno_status(EBADMSG));
        fs::is_directory(image_file("image", "header")) &&
            fs::remove(image_file("image", "header"));
        EXPECT_EQ(delete_image("image"), STS_OK);
    }
}

TEST_F(StsErrors, AnImageWhoseDataIsntWholeIsTold) {
    const std::function<void(const std::string&)> damages[] = {
        [](const std::string& file) { fs::remove(file); },
        [](const std::string& file) { fs::resize_file(file, 6); },
        [](const std::string& file) { fs::resize_file(file, 8); },
        [](const std::string& file) {
            fs::remove(file);
            mkfifo(file.c_str(), 0666);
        },
    };
    for (const auto& damage : damages) {
        store("image", "content");
        damage(image_file("image", "data"));
        EXPECT_EQ(open_status("image"), errno_status(EBADMSG));
        EXPECT_EQ(delete_image("image"), STS_OK);
    }
}

TEST_F(StsErrors, APipeInPlaceOfAnEmptyImagesDataIsTold) {
    store("image", "");
    fs::remove(image_file("image", "data"));
    ASSERT_EQ(mkfifo(image_file("image", "data").c_str(), 0666), 0);
    EXPECT_EQ(open_status("image"), errno_status(EBADMSG));
}

TEST_F(StsErrors, AnEmptyDirectoryAmongTheImagesIsADamagedOne) {
    store("image", "content");
    fs::create_directory(path("store/lsu/images/empty"));
    std::ofstream(path("store/lsu/images/file")) << "x";
    EXPECT_EQ(open_status("empty"), errno_status(EBADMSG));
    EXPECT_EQ(open_status("file"), errno_status(ENOTDIR));
    const sts_lsu_ref_s lsu = ref();
    const auto info = std::make_unique<sts_lsu_info_s>();
    ASSERT_EQ(api->get_lsu_prop_byname(&lsu, info.get()), STS_OK);
    EXPECT_EQ(info->image_count, 1U);
}

TEST_F(StsErrors, ADamagedListOfPeersIsTold) {
    const sts_lsu_ref_s lsu = ref();
    const std::string no_role(sizeof(uint64_t) + sizeof(sts_replication_peer_s), '\0');
    std::string unterminated(no_role.size(), 'x');
    unterminated.replace(0, 8, std::string("\1\0\0\0\0\0\0\0", 8));
    for (const std::string& damage : {std::string("x"), no_role, unterminated}) {
        std::ofstream(path("store/lsu/replication")) << damage;
        EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 0, nullptr, 0, nullptr),
                  errno_status(EBADMSG));
    }
}

TEST_F(StsErrors, ALabelThatIsTooLongToBeOursIsTold) {
    std::ofstream(path("store/lsu/label")) << "x";
    fs::resize_file(path("store/lsu/label"), uintmax_t{1} << 40U); // a hole of 1 TiB
    const sts_lsu_ref_s lsu = ref();
    const auto info = std::make_unique<sts_lsu_info_s>();
    EXPECT_EQ(api->get_lsu_prop_byname(&lsu, info.get()), errno_status(EBADMSG));
    EXPECT_EQ(api->label_lsu(&lsu, forward("new")), STS_OK);
    EXPECT_EQ(api->get_lsu_prop_byname(&lsu, info.get()), STS_OK);
}

TEST_F(StsErrors, AnLsuThatCantHaveItsLabelIsntMade) {
    sts_lsu_def_s definition = {};
    strcpy(definition.name, "second");
    strcpy(definition.label, "label");
    void* lsu = nullptr;
    {
        const limited file_size(RLIMIT_FSIZE, 2);
        EXPECT_EQ(api->create_lsu(server, &definition, &lsu), errno_status(EFBIG));
    }
    EXPECT_EQ(lsu, nullptr);
    EXPECT_FALSE(fs::exists(path("store/second")));
}

TEST_F(StsErrors, ForeignFilesAmongTheDraftsStay) {
    store("image", "content");
    std::ofstream(path("store/lsu/new/mine")) << "x";
    open_server();
    EXPECT_TRUE(fs::exists(path("store/lsu/new/mine")));
}

// --- memory

/// A call with every one of its allocations failing in turn: it says so, or it works.
class StsMemory : public StsErrors {
  protected:
    void expect_no_memory(const std::string& what, const std::function<int()>& call,
                          const std::function<void()>& undo) {
        const size_t open_before = descriptors();
        bool worked = false;
        bool failed = false;
        for (int count = 0; !worked; ++count) {
            ASSERT_LT(count, 500) << what;
            fault::fail_new_after(count);
            const int status = call();
            fault::fail_new_after(-1);
            worked = status == STS_OK;
            failed = failed || !worked;
            EXPECT_TRUE(worked || status == STS_ERR_NOMEM) << what << ": " << status;
        }
        EXPECT_TRUE(failed) << what << " allocates nothing";
        undo();
        EXPECT_EQ(descriptors(), open_before) << what;
    }
};

TEST_F(StsMemory, ThatCantBeHadIsToldByWhatHandsOutAHandle) {
    store("image", "content", "group");
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s old_def = image_def("image");
    const sts_image_def_s new_def = image_def("fresh");
    const std::string name = server_name();
    void* handle = nullptr;
    const auto undo = [&] { EXPECT_EQ(close(handle, STS_CLOSE_ABANDON), STS_OK); };
    const auto out = [&](auto* kind) { return reinterpret_cast<decltype(kind)*>(&handle); };
    sts_next_session_s* a_session = nullptr;
    sts_next_server_s* a_server = nullptr;
    sts_next_image_s* an_image = nullptr;
    sts_next_image_list_s* a_list = nullptr;
    sts_next_lsu_list_s* an_lsu_list = nullptr;
    sts_next_evchannel_s* a_channel = nullptr;
    expect_no_memory(
        "open_session", [&] { return api->open_session(&session_def, out(a_session)); }, undo);
    expect_no_memory(
        "open_server",
        [&] { return api->open_server(session, name.c_str(), nullptr, 0, out(a_server)); }, undo);
    expect_no_memory(
        "open_target_server",
        [&] { return api->open_target_server(server, 0, 0, 0, out(a_server)); }, undo);
    expect_no_memory(
        "create_image", [&] { return api->create_image(&lsu, &new_def, 0, out(an_image)); }, undo);
    expect_no_memory(
        "open_image", [&] { return api->open_image(&lsu, &old_def, 0, out(an_image)); }, undo);
    expect_no_memory(
        "open_image to write",
        [&] { return api->open_image(&lsu, &old_def, STS_IMAGE_WRITE, out(an_image)); }, undo);
    expect_no_memory(
        "open_image_list", [&] { return api->open_image_list(&lsu, 0, out(a_list)); }, undo);
    expect_no_memory(
        "open_image_group_list",
        [&] { return api->open_image_group_list(&lsu, 0, 0, out(a_list)); }, undo);
    expect_no_memory(
        "open_lsu_list", [&] { return api->open_lsu_list(server, 0, out(an_lsu_list)); }, undo);
    expect_no_memory(
        "open_evchannel", [&] { return api->open_evchannel(session, 0, 0, out(a_channel)); }, undo);
    EXPECT_TRUE(fs::is_empty(path("store/lsu/new")));

    sts_lsu_def_s lsu_def = {};
    strcpy(lsu_def.name, "second");
    strcpy(lsu_def.label, "label");
    expect_no_memory(
        "create_lsu", [&] { return api->create_lsu(server, &lsu_def, &handle); }, undo);
}

TEST_F(StsMemory, ThatCantBeHadIsToldByWhatFillsARecord) {
    store("image", "content", "group");
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s definition = image_def("image");
    const auto nothing = [] {};
    const auto image_info = std::make_unique<sts_image_info_s>();
    const auto lsu_info = std::make_unique<sts_lsu_info_s>();
    sts_server_info_s server_info = {};
    sts_image_group_s group = {};
    expect_no_memory(
        "get_image_prop_byname",
        [&] { return api->get_image_prop_byname(&lsu, &definition, image_info.get()); }, nothing);
    expect_no_memory(
        "get_lsu_prop_byname", [&] { return api->get_lsu_prop_byname(&lsu, lsu_info.get()); },
        nothing);
    expect_no_memory(
        "get_server_prop", [&] { return api->get_server_prop(server, &server_info); }, nothing);
    expect_no_memory(
        "get_image_group_byname",
        [&] { return api->get_image_group_byname(&lsu, forward("group"), forward(&group)); },
        nothing);
    char error[100];
    expect_no_memory(
        "set_server_config",
        [&] {
            return api->set_server_config(server, "name=STS:EVENTS_KEPT,value=3;", error,
                                          sizeof error);
        },
        nothing);
}

TEST_F(StsMemory, ThatCantBeHadGivesAnImageUpAtItsClose) {
    for (int count = 0;; ++count) {
        ASSERT_LT(count, 500);
        sts_next_image_s* const image = create("image");
        fault::fail_new_after(count);
        const int status = close(image);
        fault::fail_new_after(-1);
        if (status == STS_OK) {
            break;
        }
        EXPECT_EQ(status, STS_ERR_NOMEM);
        EXPECT_EQ(open_status("image"), errno_status(ENOENT));
        EXPECT_TRUE(fs::is_empty(path("store/lsu/new")));
    }
    EXPECT_THAT(image_names(), ElementsAre("image"));
}

TEST_F(StsMemory, IsntAskedForByReadsAndWrites) {
    sts_next_image_s* const image = create("image");
    char buffer[100] = {};
    uint64_t count = 0;
    fault::take_allocations();
    EXPECT_EQ(api->write_image(image, 0, buffer, sizeof buffer, 0, &count), STS_OK);
    EXPECT_EQ(api->read_image(image, buffer, sizeof buffer, 0, &count), STS_OK);
    EXPECT_EQ(fault::take_allocations(), 0);
}

} // namespace
