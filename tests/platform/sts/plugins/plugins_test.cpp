// Plugins of the storage library: loading them, who claims a name, and their servers, opened
// through a tiny plugin (test_plugin.h). That everything is passed on as it should be is the
// conformance suite's.

#include "tests/platform/sts/disk_store.h"
#include "tests/platform/sts/plugins/test_plugin.h"
#include "tests/support/host_session.h"
#include "tests/support/process_state.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::mutex said_guard;
std::vector<std::string> said;

std::vector<std::string> take_said() {
    const std::lock_guard<std::mutex> lock(said_guard);
    return std::exchange(said, {});
}

} // namespace

extern "C" __attribute__((visibility("default"))) void test_plugin_says(const char* line) {
    const std::lock_guard<std::mutex> lock(said_guard);
    said.emplace_back(line);
}

namespace {

/// Stores and plugins in a directory of the test's own. The library isn't started.
class StsPlugins : public testing::Test {
  protected:
    StsPlugins() {
        std::string pattern = (fs::temp_directory_path() / "sts-plugins-XXXXXX").string();
        directory = mkdtemp(pattern.data());
        take_said();
        take_log();
    }
    ~StsPlugins() override {
        close_library();
        unsetenv("VL_STS_PLUGINS");
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }

    std::string path(const std::string& below) const { return directory + "/" + below; }
    /// A copy of the test plugin; its path.
    std::string plugin(const std::string& name) const {
        fs::copy_file(TEST_PLUGIN_FILE, path(name + ".so"), fs::copy_options::skip_existing);
        return path(name + ".so");
    }
    /// Starts the library with a list of plugins; what it wrote to the standard error output.
    std::string start_with(const std::string& list) {
        setenv("VL_STS_PLUGINS", list.c_str(), 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(stsm_init(12, "/host/plugins", &api), STS_OK);
        EXPECT_EQ(api->open_session(&definition, &session), STS_OK);
        return testing::internal::GetCapturedStderr();
    }
    std::string disk_name() const { return "disk:" + path("store"); }
    int open_status(const std::string& name) {
        sts_next_server_s* server = nullptr;
        const int status = api->open_server(session, name.c_str(), nullptr, 0, &server);
        EXPECT_EQ(server != nullptr, status == STS_OK) << name;
        if (server != nullptr) {
            EXPECT_EQ(api->close_handle(server, 0), STS_OK);
        }
        return status;
    }
    sts_next_server_s* open(const std::string& name) {
        sts_next_server_s* server = nullptr;
        EXPECT_EQ(api->open_server(session, name.c_str(), nullptr, 0, &server), STS_OK) << name;
        return server;
    }
    static bool is_loaded(const std::string& file) {
        void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (library != nullptr) {
            dlclose(library);
        }
        return library != nullptr;
    }

    std::string directory;
    const sts_api_t* api = nullptr;
    sts_session_def_v7_t definition = host_session("host");
    sts_next_session_s* session = nullptr;
};

// --- start and stop -----------------------------------------------------------------------------

TEST_F(StsPlugins, StartInTheirOrderAndStopInTheReverse) {
    EXPECT_EQ(start_with(plugin("one") + "::" + plugin("two") + ":"), "");
    EXPECT_THAT(take_said(), ElementsAre("one starts with 12 /host/plugins",
                                         "two starts with 12 /host/plugins"));
    EXPECT_EQ(stsm_terminate(), STS_OK);
    // The last one to let go of the library is told so.
    EXPECT_THAT(take_said(),
                ElementsAre("two stops", "two is told 2060012", "one stops", "one is told 0"));
    EXPECT_FALSE(is_loaded(path("one.so")));
    EXPECT_FALSE(is_loaded(path("two.so")));
    EXPECT_EQ(stsm_terminate(), STS_ERR_NOT_INIT);
}

TEST_F(StsPlugins, AreThereForAsLongAsOneHostIs) {
    start_with(plugin("one"));
    const sts_api_t* second = nullptr;
    ASSERT_EQ(stsm_init(12, "/other", &second), STS_OK);
    EXPECT_EQ(stsm_terminate(), STS_ERR_TERMINATE_IGNORED);
    EXPECT_THAT(take_said(), ElementsAre("one starts with 12 /host/plugins"));
    EXPECT_EQ(open_status("one:" + disk_name()), STS_OK);
    EXPECT_EQ(stsm_terminate(), STS_OK);
    EXPECT_THAT(take_said(), Contains("one stops"));
}

TEST_F(StsPlugins, AreLoadedAfreshAtTheNextStart) {
    start_with(plugin("one"));
    EXPECT_EQ(stsm_terminate(), STS_OK);
    EXPECT_EQ(start_with(plugin("two")), "");
    EXPECT_EQ(open_status("two:" + disk_name()), STS_OK);
    EXPECT_EQ(open_status("one:" + disk_name()), STS_ERR_NOT_CLAIMED);
    EXPECT_EQ(stsm_terminate(), STS_OK);
    EXPECT_EQ(start_with(plugin("one")), "");
    EXPECT_EQ(open_status("one:" + disk_name()), STS_OK);
}

TEST_F(StsPlugins, ThatCantBeUnloadedAreStartedAgainAllTheSame) {
    const std::string file = plugin("one-staying");
    start_with(file);
    EXPECT_EQ(stsm_terminate(), STS_OK);
    EXPECT_TRUE(is_loaded(file));
    EXPECT_EQ(start_with(file), "");
    EXPECT_EQ(open_status("one:" + disk_name()), STS_OK);
}

TEST_F(StsPlugins, ArentLookedForWhereNoneIsListed) {
    EXPECT_EQ(start_with(""), "");
    EXPECT_EQ(open_status(disk_name()), STS_OK);
    EXPECT_EQ(open_status("one:" + disk_name()), STS_ERR_NOT_CLAIMED);
    EXPECT_THAT(take_said(), IsEmpty());
}

TEST_F(StsPlugins, AreLoadedByOneOfManyThreadsThatStartTheLibrary) {
    setenv("VL_STS_PLUGINS", plugin("one").c_str(), 1);
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int each = 0; each < 8; ++each) {
        threads.emplace_back([&] {
            const sts_api_t* table = nullptr;
            sts_next_session_s* own = nullptr;
            sts_next_server_s* server = nullptr;
            failures += stsm_init(12, "/host/plugins", &table) != STS_OK;
            failures += table->open_session(&definition, &own) != STS_OK;
            failures += table->open_server(own, ("one:" + disk_name()).c_str(), nullptr, 0,
                                           &server) != STS_OK;
            failures += table->close_handle(server, 0) != STS_OK;
            failures += table->close_handle(own, 0) != STS_OK;
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    EXPECT_EQ(failures, 0);
    const std::vector<std::string> lines = take_said();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "one starts with 12 /host/plugins"), 1);
    for (int each = 0; each < 7; ++each) {
        EXPECT_EQ(stsm_terminate(), STS_ERR_TERMINATE_IGNORED);
    }
    EXPECT_EQ(stsm_terminate(), STS_OK);
}

// --- those that can't be used -------------------------------------------------------------------

TEST_F(StsPlugins, ThatCantBeUsedAreToldAndPassedOver) {
    std::ofstream(path("text.so")) << "not a library";
    fs::copy_file(VLCOMMON_FILE, path("other.so"));
    const std::pair<std::string, std::string> cases[] = {
        {path("missing.so"), "cannot open shared object file"},
        {path("text.so"), "invalid ELF header"},
        {path("other.so"), "it is no plugin: it has no stspi_init"},
        {plugin("a-refusing"), "its stspi_init answers status 2061013 (Permission denied)"},
        {plugin("b-old"), "its interface has version 10, not 11"},
        {plugin("c-empty"), "its interface has version 11 and no entries, not 11"},
    };
    std::string list;
    for (const auto& each : cases) {
        list += each.first + ":";
    }
    const std::string told = start_with(list + plugin("one"));
    for (const auto& [file, reason] : cases) {
        if (file != path("text.so")) { // some loaders say it in other words
            EXPECT_THAT(told, HasSubstr(reason));
        }
        EXPECT_THAT(told,
                    HasSubstr("libsts: the plugin " + file + " of VL_STS_PLUGINS isn't used: "));
        EXPECT_FALSE(is_loaded(file)) << file;
    }
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 6);
    EXPECT_EQ(open_status("one:" + disk_name()), STS_OK);
    EXPECT_EQ(stsm_terminate(), STS_OK);
}

TEST_F(StsPlugins, ThatTheProcessHasAlreadyCantBeLoadedOnceMore) {
    void* const own = dlopen(plugin("one").c_str(), RTLD_NOW);
    ASSERT_NE(own, nullptr) << dlerror();
    EXPECT_THAT(
        start_with(path("one.so")),
        HasSubstr("one.so of VL_STS_PLUGINS isn't used: this process has loaded it already; "
                  "list a copy of the file under another name"));
    EXPECT_THAT(take_said(), IsEmpty());
    dlclose(own);
}

TEST_F(StsPlugins, ThatAreListedTwiceAreLoadedOnce) {
    EXPECT_THAT(start_with(plugin("one") + ":" + path("one.so")), HasSubstr("it is listed twice"));
    EXPECT_EQ(take_said().size(), 1U);
    EXPECT_EQ(open_status("one:" + disk_name()), STS_OK);
    EXPECT_EQ(stsm_terminate(), STS_OK);
    EXPECT_FALSE(is_loaded(path("one.so")));
}

TEST_F(StsPlugins, ThatArentUsedAreToldToWhoeverMissesThem) {
    start_with(path("missing.so"));
    EXPECT_EQ(open_status("one:x"), STS_ERR_NOT_CLAIMED);
    EXPECT_THAT(take_log(),
                ElementsAre("4 [libsts]no plugin claims the server name one:x",
                            AllOf(HasSubstr("4 [libsts]the plugin " + path("missing.so")),
                                  HasSubstr("isn't used: "))));
    definition.log_mask = STS_LOG_DEBUG | STS_LOG_INFO | STS_LOG_WARN;
    sts_server_info_s info = {};
    EXPECT_EQ(api->get_server_prop_byname(&definition, "one:x", &info), STS_ERR_NOT_CLAIMED);
    EXPECT_THAT(take_log(), IsEmpty());
    EXPECT_EQ(open_status(disk_name()), STS_OK);
    EXPECT_THAT(take_log(), IsEmpty());
}

// --- who claims a name --------------------------------------------------------------------------

TEST_F(StsPlugins, AreAskedInTheirOrderUntilOneClaimsTheName) {
    start_with(plugin("one") + ":" + plugin("two") + ":" + plugin("three"));
    take_said();
    sts_next_server_s* const server = open("two:" + disk_name());
    EXPECT_THAT(take_said(),
                ElementsAre("one is asked for two:" + disk_name(),
                            "two is asked for two:" + disk_name(), "two opens two:" + disk_name()));
    EXPECT_EQ(api->close_handle(server, 0), STS_OK);
    EXPECT_THAT(take_said(), ElementsAre("two closes a server"));
}

TEST_F(StsPlugins, ArentAskedForADisk) {
    start_with(plugin("disk"));
    take_said();
    EXPECT_EQ(open_status(disk_name()), STS_OK);
    EXPECT_THAT(take_said(), IsEmpty());
}

TEST_F(StsPlugins, StandOnOneAnother) {
    start_with(plugin("one") + ":" + plugin("two"));
    take_said();
    const std::string name = "one:two:one:" + disk_name();
    EXPECT_EQ(open_status(name), STS_OK);
    const std::vector<std::string> lines = take_said();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "one opens " + name), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "two opens two:one:" + disk_name()), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "one opens one:" + disk_name()), 1);
}

TEST_F(StsPlugins, ArentAskedForANameThatIsOnItsWayThroughThem) {
    start_with(plugin("one-circle"));
    take_said();
    EXPECT_EQ(open_status("one:x"), STS_ERR_NOT_CLAIMED);
    EXPECT_THAT(take_said(), ElementsAre("one is asked for one:x", "one opens one:x"));
    EXPECT_EQ(open_status("one:x"), STS_ERR_NOT_CLAIMED); // and it is asked again afterwards
    EXPECT_THAT(take_said(), ElementsAre("one is asked for one:x", "one opens one:x"));
}

TEST_F(StsPlugins, ArentAskedForNamesThatGrowForEver) {
    start_with(plugin("one-growing"));
    EXPECT_EQ(open_status("one:x"), STS_ERR_NOT_CLAIMED);
}

TEST_F(StsPlugins, WithoutAClaimClaimNothing) {
    EXPECT_EQ(start_with(plugin("one-claimless") + ":" + plugin("two")), "");
    EXPECT_EQ(open_status("one:" + disk_name()), STS_ERR_NOT_CLAIMED);
    EXPECT_EQ(open_status("two:" + disk_name()), STS_OK);
}

// --- their servers ------------------------------------------------------------------------------

class StsPluginServer : public StsPlugins {
  protected:
    StsPluginServer() {
        start_with(plugin("one") + ":" + plugin("two"));
        disk = open(disk_name());
        const sts_lsu_def_s definition_of_lsu = lsu_def("lsu");
        void* lsu = nullptr;
        EXPECT_EQ(api->create_lsu(disk, &definition_of_lsu, &lsu), STS_OK);
        server = open("one:" + disk_name());
        take_said();
    }
    static sts_lsu_ref_s ref(sts_next_server_s* of, const std::string& name = "lsu") {
        sts_lsu_ref_s lsu = {};
        lsu.server = of;
        set_field(lsu.name, name);
        return lsu;
    }
    sts_next_image_s* create(const std::string& name, sts_next_server_s* on) {
        const sts_lsu_ref_s lsu = ref(on);
        const sts_image_def_s image = image_def(name);
        sts_next_image_s* made = nullptr;
        EXPECT_EQ(api->create_image(&lsu, &image, STS_IMAGE_WRITE, &made), STS_OK);
        return made;
    }

    sts_next_server_s* disk = nullptr;
    sts_next_server_s* server = nullptr;
};

TEST_F(StsPluginServer, AnswersWhatThePluginDoes) {
    sts_server_info_s info = {};
    EXPECT_EQ(api->get_server_prop(server, &info), 1234567);
}

TEST_F(StsPluginServer, DoesntSupportWhatThePluginHasNoEntryFor) {
    const sts_lsu_ref_s lsu = ref(server);
    const sts_lsu_def_s definition_of_lsu = lsu_def("x");
    const sts_image_def_s image = image_def("image");
    const sts_copy_target_s target = {};
    sts_next_lsu_list_s* list = nullptr;
    sts_next_image_s* opened = nullptr;
    sts_next_operation_s* copy = nullptr;
    void* made = nullptr;
    char text[10] = {};
    uint32_t used = 0;
    EXPECT_EQ(api->open_lsu_list(server, 0, &list), STS_ERR_NOT_SUPPORTED);
    EXPECT_EQ(api->open_image(&lsu, &image, 0, &opened), STS_ERR_NOT_SUPPORTED);
    EXPECT_EQ(api->get_server_config(server, text, sizeof text, &used), STS_ERR_NOT_SUPPORTED);
    EXPECT_EQ(api->create_lsu(server, &definition_of_lsu, &made), STS_ERR_NOT_SUPPORTED);
    EXPECT_EQ(api->delete_lsu(&lsu), STS_ERR_NOT_SUPPORTED);
    EXPECT_EQ(api->async_copy_image(nullptr, forward(&image), &lsu, forward(&target), &copy, 0, {}),
              STS_ERR_NOT_SUPPORTED);
    sts_next_evchannel_s* channel = nullptr;
    sts_event_source_s source = {};
    ASSERT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
    EXPECT_EQ(api->add_evsource(channel, 0, 0, ("one:" + disk_name()).c_str(), &source, 0),
              STS_ERR_NOT_SUPPORTED);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(made, nullptr);
}

TEST_F(StsPluginServer, PassesTheModeOfAClose) {
    EXPECT_EQ(api->close_handle(create("image", server), STS_CLOSE_ABANDON), STS_OK);
    EXPECT_EQ(api->close_handle(create("image", server), STS_CLOSE_COMPLETE), STS_OK);
    EXPECT_EQ(api->close_handle(create("other", server), 9), STS_ERR_INVALID);
    EXPECT_THAT(take_said(),
                ElementsAre("one closes an image with mode 1", "one closes an image with mode 0",
                            "one closes an image with mode 9"));
}

TEST_F(StsPluginServer, ClosesWhatThePluginGaveForACallThatFailed) {
    const sts_lsu_ref_s lsu = ref(server, "missing");
    const sts_image_def_s image = image_def("image");
    sts_next_image_s* made = nullptr;
    EXPECT_EQ(api->create_image(&lsu, &image, STS_IMAGE_WRITE, &made), errno_status(ENOENT));
    EXPECT_EQ(made, nullptr);
    EXPECT_THAT(take_said(), ElementsAre("one closes an image with mode 1"));
    EXPECT_EQ(api->close_handle(server, 0), STS_OK);
}

TEST_F(StsPluginServer, IsBusyWhileAnImageIsOpenOnIt) {
    sts_next_image_s* const image = create("image", server);
    EXPECT_EQ(api->close_handle(server, 0), STS_ERR_BUSY);
    EXPECT_THAT(take_said(), IsEmpty()); // the plugin, which doesn't count, isn't asked
    EXPECT_EQ(api->close_handle(image, 0), STS_OK);
    EXPECT_EQ(api->close_handle(server, 0), STS_OK);
}

TEST_F(StsPluginServer, IsRefusedOnceItIsClosed) {
    sts_next_image_s* const image = create("image", server);
    EXPECT_EQ(api->close_handle(image, 0), STS_OK);
    EXPECT_EQ(api->close_handle(server, 0), STS_OK);
    take_said();
    uint64_t moved = 0;
    const sts_lsu_ref_s lsu = ref(server);
    const sts_image_def_s definition_of_image = image_def("image");
    sts_server_info_s info = {};
    sts_next_image_s* made = nullptr;
    EXPECT_EQ(api->write_image(image, 0, "x", 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_prop(server, &info), STS_ERR_INVALID);
    EXPECT_EQ(api->create_image(&lsu, &definition_of_image, 0, &made), STS_ERR_INVALID);
    EXPECT_EQ(api->close_handle(image, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->close_handle(server, 0), STS_ERR_INVALID);
    EXPECT_THAT(take_said(), IsEmpty());
}

TEST_F(StsPluginServer, IsNoImageAndItsImageNoServer) {
    sts_next_image_s* const image = create("image", server);
    sts_server_info_s info = {};
    uint64_t moved = 0;
    auto* const server_as_image = reinterpret_cast<sts_next_image_s*>(server);
    auto* const image_as_server = reinterpret_cast<sts_next_server_s*>(image);
    const sts_lsu_ref_s lsu = ref(image_as_server);
    const sts_image_def_s definition_of_image = image_def("other");
    sts_next_image_s* made = nullptr;
    EXPECT_EQ(api->write_image(server_as_image, 0, "x", 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(api->get_server_prop(image_as_server, &info), STS_ERR_INVALID);
    EXPECT_EQ(api->create_image(&lsu, &definition_of_image, 0, &made), STS_ERR_INVALID);
    EXPECT_EQ(api->close_handle(image, 0), STS_OK);
}

TEST_F(StsPluginServer, SharesNoImageWithAnother) {
    sts_next_server_s* const other = open("two:" + disk_name());
    sts_next_image_s* const image = create("a", server);
    uint64_t copied = 0;
    const auto copy_from = [&](sts_next_image_s* from) {
        const int status = api->copy_extent(image, 0, from, 0, 1, forward(&copied), 0);
        EXPECT_EQ(api->close_handle(from, STS_CLOSE_ABANDON), STS_OK);
        return status;
    };
    EXPECT_EQ(copy_from(create("b", server)), STS_OK);
    EXPECT_EQ(copy_from(create("b", other)), STS_ERR_INVALID);
    EXPECT_EQ(copy_from(create("b", disk)), STS_ERR_INVALID);
    EXPECT_EQ(api->close_handle(image, 0), STS_OK);
}

TEST_F(StsPluginServer, IsOpenedAsTheTargetOfADisk) {
    sts_next_server_s* target = nullptr;
    const std::string name = "two:" + disk_name();
    EXPECT_EQ(api->open_target_server(disk, forward(name.c_str()), 0, 0, &target), STS_OK);
    EXPECT_THAT(take_said(), Contains("two opens " + name));
    EXPECT_EQ(api->close_handle(target, 0), STS_OK);
}

TEST_F(StsPluginServer, IsGivenUpAtTheLastTerminateWithAllThatIsOpenOnIt) {
    sts_next_server_s* const stacked = open("two:one:" + disk_name());
    create("image", stacked);
    create("other", server);
    take_said();
    const size_t before = descriptors();
    EXPECT_EQ(stsm_terminate(), STS_OK);
    // The youngest goes first, and what is open on something before it.
    EXPECT_THAT(take_said(),
                ElementsAre("one closes an image with mode 1", "two closes an image with mode 1",
                            "one closes an image with mode 1", "two closes a server",
                            "one closes a server", "one closes a server", "two stops",
                            "two is told 2060012", "one stops", "one is told 0"));
    EXPECT_LT(descriptors(), before);
    EXPECT_FALSE(fs::exists(path("store/lsu/images/image")));
    EXPECT_EQ(api->close_handle(stacked, 0), STS_ERR_INVALID);
}

TEST_F(StsPluginServer, IsUsedByManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int each = 0; each < 4; ++each) {
        threads.emplace_back([&, each] {
            for (int turn = 0; turn < 20; ++turn) {
                sts_next_server_s* own = nullptr;
                sts_next_image_s* image = nullptr;
                uint64_t moved = 0;
                const std::string name = (turn % 2 == 0 ? "one:" : "two:one:") + disk_name();
                failures += api->open_server(session, name.c_str(), nullptr, 0, &own) != STS_OK;
                const sts_lsu_ref_s lsu = ref(own);
                const sts_image_def_s definition_of_image =
                    image_def(std::to_string(each) + "-" + std::to_string(turn));
                failures += api->create_image(&lsu, &definition_of_image, STS_IMAGE_WRITE,
                                              &image) != STS_OK;
                failures += api->write_image(image, 0, "abc", 3, 0, &moved) != STS_OK || moved != 3;
                failures += api->close_handle(image, STS_CLOSE_ABANDON) != STS_OK;
                failures += api->close_handle(own, 0) != STS_OK;
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    EXPECT_EQ(failures, 0);
}

} // namespace
