// Others on the same machine: what they can read of a store, the locks that they hold, and what
// they put in the place of its files.
//
// The waits for locks last half a minute, on a clock that the tests let run a hundred times as
// fast.

#include "tests/platform/sts/disk_store.h"
#include "tests/platform/sts/system_calls.h"
#include "tests/support/host_session.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class StsNeighbours : public DiskStore {
  protected:
    StsNeighbours() { host_log().clear(); }

    /// What the session of a server that is opened anew is told.
    std::vector<std::string> told_at_open(uint16_t mask = STS_LOG_WARN | STS_LOG_ERROR) {
        use_session(mask);
        (void)take_log();
        EXPECT_EQ(close(open_server()), STS_OK);
        return take_log();
    }
    /// From here on `session` is one that keeps what it is told.
    void use_session(uint16_t mask = STS_LOG_WARN | STS_LOG_ERROR) {
        const sts_session_def_v7_t definition = host_session("s", mask);
        EXPECT_EQ(api->open_session(&definition, &session), STS_OK);
    }
    /// A store with some of everything in it.
    void fill_store() {
        create_lsu("other", "label");
        sts_next_image_s* const image = create("image");
        write(image, "content");
        uint64_t count = 0;
        EXPECT_EQ(api->write_image_meta(image, forward("meta"), 4, 0, forward(&count), 0), STS_OK);
        EXPECT_EQ(close(image), STS_OK);
        EXPECT_EQ(copy_status("copy"), STS_OK);
        set("STS:EVENTS_KEPT", 100);
    }
    sts_next_operation_s* start_copy(const std::string& name) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s source = image_def("image");
        sts_copy_target_s target = {};
        set_field(target.lsu, "other");
        set_field(target.image, name);
        sts_next_operation_s* copy = nullptr;
        EXPECT_EQ(
            api->async_copy_image(nullptr, forward(&source), &lsu, forward(&target), &copy, 0, {}),
            STS_OK);
        return copy;
    }
    int result_of(sts_next_operation_s* copy) {
        sts_async_status_s last = {};
        EXPECT_EQ(api->async_wait(nullptr, copy, -1, &last), STS_OK);
        return last.result;
    }
    int copy_status(const std::string& name) { return result_of(start_copy(name)); }
    int label(const char* text) {
        const sts_lsu_ref_s lsu = ref();
        return api->label_lsu(&lsu, forward(text));
    }
};

// --- what others can read -----------------------------------------------------------------------

class permissive_umask {
  public:
    permissive_umask() : before_(umask(0)) {}
    ~permissive_umask() { umask(before_); }
    permissive_umask(const permissive_umask&) = delete;
    permissive_umask& operator=(const permissive_umask&) = delete;

  private:
    mode_t before_;
};

TEST_F(StsNeighbours, CantReadWhatTheLibraryMakes) {
    const permissive_umask any;
    server = open_server("fresh");
    create_lsu("lsu");
    fill_store();
    sts_next_image_s* const half = create("half");
    size_t files = 0;
    const auto mode_of = [](const fs::path& path) {
        struct stat found = {};
        EXPECT_EQ(lstat(path.c_str(), &found), 0);
        return found.st_mode & 07777;
    };
    EXPECT_EQ(mode_of(path("fresh")), 0700U);
    for (const fs::directory_entry& each : fs::recursive_directory_iterator(path("fresh"))) {
        EXPECT_EQ(mode_of(each.path()), each.is_directory() ? 0700U : 0600U) << each.path();
        ++files;
    }
    EXPECT_GT(files, 20U);
    EXPECT_EQ(close(half, STS_CLOSE_ABANDON), STS_OK);
}

TEST_F(StsNeighbours, ThatCanReadAnOlderStoreAreWarnedOf) {
    fill_store();
    fs::permissions(path("store"), fs::perms(0755));
    fs::permissions(path("store/lsu"), fs::perms(0755));
    fs::permissions(path("store/.server"), fs::perms(0750));
    const std::string root = path("store");
    EXPECT_THAT(told_at_open(),
                ElementsAre("2 [libsts]others than the owner can get into " + root +
                            " and read .server (mode 0750), lsu (mode 0755); \"chmod 700 " + root +
                            "\" keeps them out"));
    EXPECT_EQ(fs::status(path("store")).permissions(), fs::perms(0755)); // used as it is
    EXPECT_EQ(fs::status(path("store/lsu")).permissions(), fs::perms(0755));
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsNeighbours, ThatCanReadManyLsusAreWarnedOfInAFewWords) {
    for (int number = 0; number < 200; ++number) {
        fs::create_directory(path("store/lsu" + std::to_string(number)));
        fs::permissions(path("store/lsu" + std::to_string(number)), fs::perms(0755));
    }
    fs::permissions(path("store"), fs::perms(0711));
    const std::vector<std::string> told = told_at_open();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_THAT(told[0], HasSubstr(" more; "));
    EXPECT_LT(told[0].size(), 1000U);
}

TEST_F(StsNeighbours, ThatAreKeptOutAreNotWarnedOf) {
    EXPECT_THAT(told_at_open(), IsEmpty());
    fs::permissions(path("store"), fs::perms(0755)); // its LSUs aren't open
    EXPECT_THAT(told_at_open(), IsEmpty());
    fs::permissions(path("store"), fs::perms(0700));
    fs::permissions(path("store/lsu"), fs::perms(0755)); // nobody gets there
    EXPECT_THAT(told_at_open(), IsEmpty());
}

TEST_F(StsNeighbours, AreNotWarnedOfToASessionThatTakesNoWarnings) {
    fs::permissions(path("store"), fs::perms(0755));
    fs::permissions(path("store/lsu"), fs::perms(0755));
    EXPECT_THAT(told_at_open(STS_LOG_ERROR | STS_LOG_INFO | STS_LOG_DEBUG), IsEmpty());
}

// --- locks that others hold ---------------------------------------------------------------------

/// Holds the lock of a directory of the store as a stranger does, who may only read it.
class stranger {
  public:
    explicit stranger(const std::string& path) : opened_(::open(path.c_str(), O_RDONLY)) {
        EXPECT_EQ(flock(opened_, LOCK_EX), 0) << path;
    }
    ~stranger() { ::close(opened_); }
    stranger(const stranger&) = delete;
    stranger& operator=(const stranger&) = delete;

  private:
    int opened_;
};

void do_nothing(int /*signal*/) {}

/// Lets SIGUSR1 interrupt calls, or have them made again.
class handled_signal {
  public:
    explicit handled_signal(int flags) {
        struct sigaction wanted = {};
        wanted.sa_handler = do_nothing;
        wanted.sa_flags = flags;
        sigaction(SIGUSR1, &wanted, &before_);
    }
    ~handled_signal() { sigaction(SIGUSR1, &before_, nullptr); }
    handled_signal(const handled_signal&) = delete;
    handled_signal& operator=(const handled_signal&) = delete;

  private:
    struct sigaction before_ = {};
};

class StsStranger : public StsNeighbours {
  protected:
    StsStranger() {
        fill_store();
        use_session();
        server = open_server();
        (void)take_log();
    }
    ~StsStranger() override { system_calls::clear(); }

    int create_status(const std::string& name = "new") {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s definition = image_def(name);
        sts_next_image_s* image = nullptr;
        const int status = api->create_image(&lsu, &definition, 0, &image);
        return status != STS_OK ? status : close(image);
    }
    int create_lsu_status() {
        const sts_lsu_def_s definition = lsu_def("fresh");
        void* made = nullptr;
        return api->create_lsu(server, &definition, &made);
    }
    int delete_lsu_status() {
        const sts_lsu_ref_s lsu = ref();
        return api->delete_lsu(&lsu);
    }
    int set_status() {
        char error[256] = {};
        return api->set_server_config(server, "name=STS:EVENTS_KEPT,value=7;", error, sizeof error);
    }
    std::string waiting_for(const std::string& below) const {
        return "2 [libsts]waiting for another process, which holds the lock of " + path(below);
    }
    std::string given_up(const std::string& below) const {
        return "4 [libsts]given up: another process has held the lock of " + path(below) +
               " for 30 seconds";
    }
    void expect_end(const std::string& below, const std::function<int()>& call) {
        const stranger holds(path(below));
        EXPECT_EQ(call(), errno_status(EBUSY)) << below;
        EXPECT_THAT(take_log(), ElementsAre(waiting_for(below), given_up(below)));
    }
};

TEST_F(StsStranger, WhoHoldsALockIsToldOfAndWaitedForHalfAMinute) {
    system_calls::speed_up(100);
    expect_end("store/lsu", [&] { return create_status(); });
    expect_end("store/lsu", [&] { return open_status("image", STS_IMAGE_WRITE); });
    expect_end("store/lsu", [&] { return delete_lsu_status(); });
    expect_end("store/lsu", [&] { return label("new"); });
    expect_end("store/.new", [&] { return create_lsu_status(); });
    expect_end("store/.server", [&] { return set_status(); });
    EXPECT_EQ(content_of("image"), "content");
    EXPECT_EQ(create_status(), STS_OK);
}

TEST_F(StsStranger, IsntToldOfAWaitThatIsShort) {
    auto holds = std::make_unique<stranger>(path("store/lsu"));
    const unsigned before = system_calls::locks_asked_for();
    std::thread letting_go([&] {
        while (system_calls::locks_asked_for() == before) {
            std::this_thread::yield();
        }
        holds.reset();
    });
    EXPECT_EQ(create_status(), STS_OK);
    letting_go.join();
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(StsStranger, WhoLetsGoInTimeIsToldOfAndStopsNothing) {
    system_calls::speed_up(100);
    auto holds = std::make_unique<stranger>(path("store/lsu"));
    std::thread letting_go([&] {
        while (!has_logged(STS_SEV_WARN, waiting_for("store/lsu").substr(2))) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        holds.reset();
    });
    EXPECT_EQ(create_status(), STS_OK);
    letting_go.join();
    EXPECT_THAT(take_log(), ElementsAre(waiting_for("store/lsu")));
}

TEST_F(StsStranger, WhoHoldsTheEventsCostsTheEventAndNotTheImage) {
    system_calls::speed_up(100);
    {
        const stranger holds(path("store/.server"));
        EXPECT_EQ(create_status(), STS_OK);
    }
    EXPECT_THAT(take_log(), ElementsAre(waiting_for("store/.server"), given_up("store/.server")));
    EXPECT_EQ(content_of("new"), "");
}

/// Sends this thread SIGUSR1 until the end.
class poke {
  public:
    poke()
        : thread_([this, waiting = pthread_self()] {
              while (!done_) {
                  pthread_kill(waiting, SIGUSR1);
                  std::this_thread::sleep_for(std::chrono::milliseconds(5));
              }
          }) {}
    ~poke() {
        done_ = true;
        thread_.join();
    }
    poke(const poke&) = delete;
    poke& operator=(const poke&) = delete;

  private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

TEST_F(StsStranger, IsWaitedForNoLongerOnceASignalInterrupts) {
    const stranger holds(path("store/lsu"));
    const handled_signal interrupting(0);
    const poke poked;
    EXPECT_EQ(create_status(), errno_status(EINTR));
    EXPECT_EQ(delete_lsu_status(), errno_status(EINTR));
    EXPECT_EQ(label("new"), errno_status(EINTR));
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(StsStranger, IsWaitedForWhenASignalIsntToInterrupt) {
    system_calls::speed_up(100);
    const stranger holds(path("store/lsu"));
    const handled_signal restarting(SA_RESTART);
    const poke poked;
    EXPECT_EQ(create_status(), errno_status(EBUSY));
}

TEST_F(StsStranger, KeepsNoCopyFromBeingCancelled) {
    const stranger holds(path("store/other"));
    sts_next_operation_s* const copy = start_copy("second");
    EXPECT_EQ(api->async_cancel(nullptr, copy), STS_OK);
    EXPECT_EQ(result_of(copy), errno_status(ECANCELED));
    EXPECT_THAT(image_names("other"), ElementsAre("copy"));
}

TEST_F(StsStranger, OfTheEventsKeepsNoCopyFromBeingCancelledOrWhole) {
    const stranger holds(path("store/.server"));
    sts_next_operation_s* const copy = start_copy("second");
    EXPECT_EQ(api->async_cancel(nullptr, copy), STS_OK);
    if (result_of(copy) == STS_OK) { // it was whole before
        EXPECT_THAT(image_names("other"), ElementsAre("copy", "second"));
    } else {
        EXPECT_THAT(image_names("other"), ElementsAre("copy"));
    }
}

TEST_F(StsStranger, KeepsNoCopyAliveWhenTheLibraryStops) {
    const stranger holds(path("store/other"));
    (void)start_copy("second");
    const auto start = std::chrono::steady_clock::now();
    close_library();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

// --- what others put in the place of files ------------------------------------------------------

/// What is written under a name of its own before it takes its place.
class StsFreshFile : public StsNeighbours {
  protected:
    StsFreshFile() {
        fill_store();
        std::ofstream(path("victim")) << "precious";
    }
    /// That each of the calls goes well although `put` has put something in the way of its file,
    /// and leaves the victim alone.
    void expect_writes(const std::function<void(const std::string& in_the_way)>& put) {
        put(path("store/lsu/label.new"));
        EXPECT_EQ(label("new"), STS_OK);
        put(path("store/.server/settings.new"));
        set("STS:EVENTS_KEPT", 50);
        put(path("store/.server/event.new"));
        put(path("store/.server/sequence.new"));
        store("second", "content");
        create_lsu("another");
        put(path("store/lsu/replication.new"));
        put(path("store/other/replication.new"));
        fs::remove(path("store/other/replication"));
        EXPECT_EQ(copy_status("copy" + std::to_string(++copies)), STS_OK);
        EXPECT_EQ(delete_image("second"), STS_OK);
        const sts_lsu_ref_s lsu = ref("another");
        EXPECT_EQ(api->delete_lsu(&lsu), STS_OK);
        std::string content;
        std::ifstream(path("victim")) >> content;
        EXPECT_EQ(content, "precious");
        struct stat found = {};
        EXPECT_EQ(stat(path("store/lsu/label").c_str(), &found), 0);
        EXPECT_TRUE(S_ISREG(found.st_mode) && found.st_nlink == 1);
    }
    int copies = 0;
};

TEST_F(StsFreshFile, TakesThePlaceOfAnotherNameOfAFile) {
    expect_writes([&](const std::string& name) { fs::create_hard_link(path("victim"), name); });
}

TEST_F(StsFreshFile, TakesThePlaceOfALink) {
    expect_writes([&](const std::string& name) { fs::create_symlink(path("victim"), name); });
}

TEST_F(StsFreshFile, TakesThePlaceOfAPipe) {
    expect_writes([&](const std::string& name) { ASSERT_EQ(mkfifo(name.c_str(), 0666), 0); });
}

TEST_F(StsFreshFile, TakesThePlaceOfAFileThatSomebodyHasOpen) {
    expect_writes([&](const std::string& name) { std::ofstream(name) << "stale"; });
}

} // namespace
