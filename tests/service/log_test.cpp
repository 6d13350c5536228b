// The log where nobody reads it, where it can't be written, and where it is rotated.

#include "service/service_log.h"

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/conf_dir.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

class Log : public testing::Test {
  protected:
    std::string directory = (std::filesystem::temp_directory_path() / "log-XXXXXX").string();
    std::string path;

    void SetUp() override {
        ASSERT_NE(mkdtemp(directory.data()), nullptr);
        path = directory + "/log";
    }
    void TearDown() override { std::filesystem::remove_all(directory); }

    /// Waits until `text` stands in a file; a test's time limit is what bounds it.
    static void await(const std::string& file, const std::string& text) {
        while (conf_dir::read(file).find(text) == std::string::npos) {
            usleep(10000);
        }
    }
    static mode_t mode(const std::string& file) {
        struct stat found = {};
        EXPECT_EQ(stat(file.c_str(), &found), 0);
        return found.st_mode & 07777;
    }
};

/// A pipe that holds one page, as a log that nobody reads.
class full_pipe {
  public:
    explicit full_pipe(const std::string& path) {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        reader_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        EXPECT_EQ(fcntl(reader_, F_SETPIPE_SZ, 4096), 4096);
    }
    ~full_pipe() { close(reader_); }

    /// What is there, until nothing has come for a while.
    std::string take() const {
        std::string all;
        char bytes[4096];
        pollfd arrived = {reader_, POLLIN, 0};
        while (poll(&arrived, 1, 500) > 0) {
            const ssize_t count = read(reader_, bytes, sizeof bytes);
            all.append(bytes, static_cast<size_t>(std::max<ssize_t>(count, 0)));
        }
        return all;
    }

  private:
    int reader_;
};

size_t count_lines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST_F(Log, NobodyWaitsForOneThatIsntReadAndWhatIsLeftOutIsTold) {
    const full_pipe unread(path);
    service_log log(path);
    constexpr size_t lines = 20000;
    for (size_t each = 0; each < lines; ++each) {
        log.line(std::string(60, 'x') + std::to_string(100000 + each));
    }
    const std::string first = unread.take();
    log.line("read again");
    const std::string all = first + unread.take();
    EXPECT_THAT(all, HasSubstr("read again\n"));
    const size_t told = all.find(" lines were left out, the log couldn't be written\n");
    ASSERT_NE(told, std::string::npos);
    const size_t left_out = std::stoul(all.substr(all.rfind(' ', told - 1) + 1));
    EXPECT_GT(left_out, 0U);
    EXPECT_EQ(count_lines(all) - 2 + left_out, lines); // the two are the last one, and what tells
    EXPECT_EQ(all.find("were left out", told + 10), std::string::npos);
}

TEST_F(Log, ItsEndWaitsASecondForOneThatIsntReadInRealTime) {
    const full_pipe unread(path);
    const auto start = std::chrono::steady_clock::now();
    {
        service_log log(path);
        for (int each = 0; each < 1000; ++each) {
            log.line(std::string(60, 'x') + std::to_string(each));
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST_F(Log, AFullDiskLosesLinesThatAreCounted) {
    {
        service_log log("/dev/full");
        log.line("lost");
    } // no hang, no crash
    // A file that may not grow, until it may.
    signal(SIGXFSZ, SIG_IGN);
    rlimit old = {};
    getrlimit(RLIMIT_FSIZE, &old);
    {
        service_log log(path);
        const rlimit tiny = {40, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tiny);
        log.line("a line that is cut short by what the file may hold");
        await(path, "T");
        usleep(100000);
        log.line("another");
        usleep(100000);
        setrlimit(RLIMIT_FSIZE, &old);
        log.line("goes on");
    }
    EXPECT_THAT(conf_dir::read(path),
                ContainsRegex("\n[^\n]* goes on\n[^\n]* 2 lines were left out, [^\n]*\n$"));
}

TEST_F(Log, ANewFileIsNotForEverybody) {
    const mode_t mask = umask(0);
    { service_log log(path); }
    umask(mask);
    EXPECT_EQ(mode(path), 0640U);
}

TEST_F(Log, ALineStaysOneLineOfBoundedLength) {
    {
        service_log log(path);
        log.line("two\nlines");
        log.line(std::string(100000, 'x'));
    }
    const std::string text = conf_dir::read(path);
    EXPECT_EQ(count_lines(text), 2U);
    EXPECT_THAT(text, HasSubstr(" two lines\n"));
    EXPECT_LT(text.size(), 2 * longest_line);
}

TEST_F(Log, GoesOnInTheFileThatIsAtThePathWhenAsked) {
    service_log log(path);
    log.line("before");
    await(path, "before");
    std::filesystem::rename(path, path + ".1");
    log.line("between");
    await(path + ".1", "between");
    log.reopen();
    await(path, "SIGHUP: the log was opened anew");
    log.line("after");
    await(path, "after");
    EXPECT_THAT(conf_dir::read(path + ".1"), Not(HasSubstr("after")));
    EXPECT_EQ(mode(path) & 0137, 0U);
}

TEST_F(Log, GoesOnInTheOldFileWhenThereCanBeNoNewOne) {
    service_log log(path);
    std::filesystem::rename(path, path + ".1");
    std::filesystem::create_directory(path);
    log.reopen();
    await(path + ".1", "SIGHUP: " + path + " can't be opened anew, the old log goes on: Is a dir");
    log.line("after");
    await(path + ".1", "after");
}

TEST_F(Log, ManyThreadsWriteWholeLines) {
    {
        service_log log(path);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 8; ++thread) {
            threads.emplace_back([&, thread] {
                for (int each = 0; each < 500; ++each) {
                    log.line("thread " + std::to_string(thread) + " line " + std::to_string(each));
                    if (each % 100 == 0) {
                        log.reopen();
                    }
                }
            });
        }
        for (std::thread& each : threads) {
            each.join();
        }
    }
    std::istringstream text(conf_dir::read(path));
    size_t lines = 0;
    for (std::string each; std::getline(text, each);) {
        if (each.find("SIGHUP") == std::string::npos) {
            EXPECT_THAT(each, MatchesRegex("20[-+:T0-9]+ thread [0-9] line [0-9]+"));
            ++lines;
        }
    }
    EXPECT_EQ(lines, 4000U);
}

// --- the program ---

TEST_F(Log, TheProgramOpensItsFileAnewOnSighup) {
    service_process service({"--log-file", path});
    EXPECT_EQ(mode(path) & 0137, 0U); // 0640, less what the user takes off
    std::filesystem::rename(path, path + ".1");
    service.send(SIGHUP);
    await(path, "SIGHUP: the log was opened anew");
    const remote_session client(service.port());
    await(path, ": opened");
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
    EXPECT_THAT(conf_dir::read(path), HasSubstr(" stopped\n"));
    EXPECT_THAT(conf_dir::read(path + ".1"), Not(HasSubstr("stop")));
}

TEST_F(Log, TheProgramGoesOnAfterSighupWithoutAFile) {
    service_process service;
    service.send(SIGHUP);
    EXPECT_TRUE(service.await_log("SIGHUP: the log goes to standard error"));
    EXPECT_EQ(service.status()["service"], "vlsld");
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
}

TEST_F(Log, AFloodOfRubbishIsDescribedInFewLines) {
    service_process service({"--log-file", path});
    const remote_session client(service.port());
    for (int each = 0; each < 2000; ++each) {
        client.check_connections("rubbish " + std::to_string(each), 1);
        client.check_connections("rubbish", 1);
    }
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
    const std::string text = conf_dir::read(path);
    EXPECT_LT(text.size(), 20000U);
    EXPECT_THAT(text, ContainsRegex("[0-9]+ more refusals were left out, the last: session "));
}

/// The program with a standard error that nobody reads.
TEST_F(Log, AStandardErrorThatNobodyReadsStopsNeitherClientsNorTheEndInRealTime) {
    int unread[2];
    ASSERT_EQ(pipe2(unread, O_CLOEXEC), 0);
    fcntl(unread[0], F_SETPIPE_SZ, 4096);
    const std::string ports = directory + "/ports";
    const pid_t service = fork();
    if (service == 0) {
        dup2(unread[1], STDERR_FILENO);
        execl(service_process::program(), "vlsld", "--port", "0", "--http-port", "0", "--port-file",
              ports.c_str(), nullptr);
        _exit(127);
    }
    close(unread[1]);
    await(ports, "VLSL_HTTP_PORT=");
    const std::string text = conf_dir::read(ports);
    const int port = std::stoi(text.substr(text.find("VLSL_PORT=") + 10));
    const auto factory = find_factory(port);
    for (int each = 0; each < 300; ++each) { // some 30 KB of lines
        const remote_session client(factory);
        EXPECT_EQ(client.check_connections("a:s3", -1).status, 0);
        client.session->destroy();
    }
    CORBA::release(factory);
    const auto asked = std::chrono::steady_clock::now();
    kill(service, SIGTERM);
    int status = 0;
    waitpid(service, &status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(5));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    close(unread[0]);
}

} // namespace
