// The control socket: who may ask and change what, what is there before and after, and that what
// is sent to it is bounded.

#include "tests/service/service_process.h"
#include "tests/service/unix_client.h"
#include "tests/service/wire_client.h"

#include "service/control/control_server.h"
#include "service/control/control_socket.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace fs = std::filesystem;

namespace {

ended throttlectl(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {THROTTLECTL, "service"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_process(command);
}

class control_directory {
  public:
    control_directory() {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
    }
    ~control_directory() { fs::remove_all(path_); }
    control_directory(const control_directory&) = delete;
    control_directory& operator=(const control_directory&) = delete;

    std::string path(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_ = (fs::temp_directory_path() / "control-XXXXXX").string();
};

std::string refusal_at(const std::string& path) {
    try {
        const control_socket none(path);
        return "";
    } catch (const control_socket_error& error) {
        return error.what();
    }
}

void leave_socket_at(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const descriptor left(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(left.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

// --- the socket --------------------------------------------------------------------------------

TEST(ControlSocket, IsItsOwnersAndItsGroups) {
    const control_directory directory;
    const control_socket made(directory.path("below/control"));
    struct stat found = {};
    ASSERT_EQ(stat(directory.path("below/control").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode, S_IFSOCK | 0660U);
    ASSERT_EQ(stat(directory.path("below").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0750U);
}

TEST(ControlSocket, OneOfADeadServiceIsReplacedAndALivingOneIsNot) {
    const control_directory directory;
    const std::string path = directory.path("control");
    leave_socket_at(path);
    const control_socket living(path);
    EXPECT_EQ(refusal_at(path), "control socket " + path +
                                    ": another service has it, which is running; name another one "
                                    "with --control");
    EXPECT_TRUE(fs::exists(path));
}

TEST(ControlSocket, WhatAnotherProgramHasIsNotReplaced) {
    const control_directory directory;
    const std::string path = directory.path("control");
    const control_socket other(path);
    fs::remove(path + ".lock"); // as of a program that has none
    EXPECT_THAT(refusal_at(path), HasSubstr("another program answers there"));
    std::ofstream(directory.path("file")) << "text";
    EXPECT_EQ(refusal_at(directory.path("file")),
              "control socket " + directory.path("file") +
                  ": there is something else, which is no socket; it isn't replaced");
    EXPECT_EQ(fs::file_size(directory.path("file")), 4);
    fs::create_symlink(directory.path("file"), directory.path("link"));
    EXPECT_THAT(refusal_at(directory.path("link")), HasSubstr("which is no socket"));
}

TEST(ControlSocket, ItsPathIsNamedWhereItCanNotBe) {
    EXPECT_EQ(refusal_at("/no/such/control"), "control socket /no/such: No such file or directory");
    EXPECT_THAT(refusal_at("/tmp/" + std::string(200, 'x')),
                EndsWith("the path is too long, at most 107 bytes are possible"));
}

TEST(ControlSocket, IsRemovedAtTheEndUnlessAnotherTookItsPlace) {
    const control_directory directory;
    const std::string path = directory.path("control");
    std::optional<control_socket> first(path);
    first.reset();
    EXPECT_FALSE(fs::exists(path));
    first.emplace(path);
    fs::remove(path);
    leave_socket_at(path);
    first.reset();
    EXPECT_TRUE(fs::exists(path));
}

// --- who may ----------------------------------------------------------------------------------

TEST(ControlUser, RootAndTheServicesOwnMayChange) {
    EXPECT_TRUE(may_change(0, 1000));
    EXPECT_TRUE(may_change(1000, 1000));
    EXPECT_FALSE(may_change(1001, 1000));
    EXPECT_FALSE(may_change(std::nullopt, 0));
}

/// A site on a Unix socket that repeats what it was asked to change.
class ControlSite : public testing::Test {
  protected:
    static http_answer repeat(const http_request& request) {
        return short_answer(200, (request.user ? std::to_string(*request.user) : "nobody") + ":" +
                                     request.body);
    }

    const control_directory directory_;
    const std::string path_ = directory_.path("control");
    const control_socket socket_{path_};
    const http_server server_{{socket_.get()},
                              {{},
                               [](const http_request& request) {
                                   return request.query.count("no") != 0
                                              ? std::optional<http_answer>(short_answer(403, "No."))
                                              : std::nullopt;
                               },
                               {{"/page", repeat}},
                               {{"/change", repeat}}}};
};

TEST_F(ControlSite, TheKernelSaysWhoAsks) {
    const std::string me = std::to_string(geteuid());
    EXPECT_THAT(answer_at(path_, get_request("/page")), HasSubstr("\r\n" + me + ":\n"));
    EXPECT_THAT(answer_at(path_, post_request("/change", "abc")), HasSubstr(me + ":abc\n"));
}

TEST_F(ControlSite, AChangeIsPostedAndAPageIsNot) {
    EXPECT_THAT(answer_at(path_, get_request("/change")),
                AllOf(StartsWith("HTTP/1.1 405"), HasSubstr("Allow: POST\r\n")));
    EXPECT_THAT(answer_at(path_, post_request("/page", "x")),
                AllOf(StartsWith("HTTP/1.1 405"), HasSubstr("Allow: GET, HEAD\r\n")));
    EXPECT_THAT(answer_at(path_, post_request("/other", "x")), StartsWith("HTTP/1.1 404"));
}

TEST_F(ControlSite, BodiesAreBounded) {
    const std::string largest(longest_body, 'x');
    EXPECT_THAT(answer_at(path_, post_request("/change", largest)), StartsWith("HTTP/1.1 200"));
    EXPECT_THAT(answer_at(path_, post_request("/change", largest + "x")),
                StartsWith("HTTP/1.1 413"));
    for (const char* length : {"99999999999999999999999", "18446744073709551615"}) {
        EXPECT_THAT(answer_at(path_, "POST /change HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                                         std::string(length) + "\r\n\r\n"),
                    AllOf(StartsWith("HTTP/1.1 4")));
    }
    EXPECT_THAT(answer_at(path_, "POST /change HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked"
                                 "\r\n\r\n1\r\nx\r\n0\r\n\r\n"),
                StartsWith("HTTP/1.1 411"));
}

TEST_F(ControlSite, WhoIsRefusedIsSoBeforeABodyIsRead) {
    EXPECT_THAT(
        answer_at(path_, "POST /change?no HTTP/1.1\r\nHost: h\r\nContent-Length: 9\r\n\r\n"),
        StartsWith("HTTP/1.1 403"));
}

TEST_F(ControlSite, OneThatNeverEndsItsBodyIsCutAndKeepsNobodyWaiting) {
    const descriptor slow(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(connect(slow.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const std::string head = "POST /change HTTP/1.1\r\nHost: h\r\nContent-Length: 9\r\n\r\nab";
    ASSERT_EQ(send(slow.get(), head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
    EXPECT_THAT(answer_at(path_, post_request("/change", "abc")), HasSubstr(":abc\n"));
} // and the server's end doesn't wait for it

// --- the program ------------------------------------------------------------------------------

TEST(Control, StatusIsThatOfThePage) {
    const service_process service;
    const remote_session client(service.port());
    client.check_connections("a:s3", 1);
    const ended json = throttlectl({"status", "--json", "--control", service.control()});
    EXPECT_EQ(json.code, 0) << json.err;
    nlohmann::json told = nlohmann::json::parse(json.out);
    EXPECT_EQ(told["service"], "vlsld");
    EXPECT_EQ(told["sessions"], 1);
    EXPECT_EQ(told["storages"].at(0)["name"], "s3");
    const ended text = throttlectl({"--control", service.control(), "status"});
    EXPECT_EQ(text.code, 0) << text.err;
    EXPECT_THAT(text.out, AllOf(StartsWith("Up for "), HasSubstr("1 session,"),
                                HasSubstr("\ns3       1 of 10      0        -        -\n")));
}

TEST(Control, TheSocketGoesWithTheService) {
    std::optional<service_process> service(std::in_place);
    const std::string path = service->control();
    EXPECT_TRUE(fs::is_socket(path));
    service->stop(SIGTERM);
    EXPECT_FALSE(fs::exists(path));
    const ended gone = throttlectl({"status", "--control", path});
    EXPECT_EQ(gone.code, 1);
    EXPECT_EQ(gone.err, "throttlectl: the service's control socket " + path +
                            ": No such file or directory; is vlsld running, with its socket "
                            "there? (--control PATH)\n");
}

TEST(Control, ASecondServiceSaysThatTheFirstHasIt) {
    const service_process service;
    const ended second =
        run_process({service_process::program(), "--port", "0", "--no-http", "--state",
                     service_process::state(), "--control", service.control()});
    EXPECT_EQ(second.code, 1);
    EXPECT_EQ(second.err, "vlsld: control socket " + service.control() +
                              ": another service has it, which is running; name another one with "
                              "--control\n");
    EXPECT_EQ(throttlectl({"status", "--control", service.control()}).code, 0);
}

TEST(Control, OneThatWasKilledLeavesASocketThatTheNextReplaces) {
    const control_directory directory;
    const std::string path = directory.path("control");
    std::optional<tool_process> killed(
        std::in_place,
        std::vector<std::string>{service_process::program(), "--port", "0", "--no-http", "--state",
                                 service_process::state(), "--control", path},
        process_options());
    ASSERT_TRUE(killed->await_err("is ready"));
    killed->send(SIGKILL);
    killed->wait();
    ASSERT_TRUE(fs::is_socket(path));
    const service_process next({"--control", path});
    EXPECT_EQ(throttlectl({"status", "--control", path}).code, 0);
}

TEST(Control, TheUsualPlaceIsTheRuntimeDirectory) {
    const control_directory directory;
    const std::map<std::string, std::string> environment = {
        {"RUNTIME_DIRECTORY", directory.path("run") + ":" + directory.path("other")}};
    tool_process service({service_process::program(), "--port", "0", "--no-http", "--state",
                          service_process::state()},
                         {environment, "", false});
    ASSERT_TRUE(service.await_err("is ready"));
    EXPECT_TRUE(fs::is_socket(directory.path("run/control")));
    const ended status = run_process({THROTTLECTL, "service", "status"}, {environment, "", false});
    EXPECT_EQ(status.code, 0) << status.err;
    service.send(SIGTERM);
    EXPECT_EQ(service.wait().code, 0);
}

TEST(Control, WithoutAUsualPlaceTheServiceRunsAndSaysSo) {
    const control_directory directory;
    std::ofstream(directory.path("file")) << "text";
    tool_process service({service_process::program(), "--port", "0", "--no-http", "--state",
                          service_process::state()},
                         {{{"RUNTIME_DIRECTORY", directory.path("file")}}, "", false});
    ASSERT_TRUE(service.await_err("is ready"));
    service.send(SIGTERM);
    const ended end = service.wait();
    EXPECT_EQ(end.code, 0);
    EXPECT_THAT(end.err, HasSubstr("warning: \"throttlectl service\" can't ask or steer this "
                                   "service: control socket " +
                                   directory.path("file")));
}

TEST(Control, ReadingIsForTheGroupAlone) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be somebody else";
    }
    constexpr uid_t other = 65534;
    const control_directory directory;
    fs::permissions(directory.path(""), fs::perms(0711));
    const std::string path = directory.path("control");
    const service_process service({"--control", path});
    ASSERT_EQ(chown(path.c_str(), 0, 4242), 0);
    EXPECT_THAT(answer_to_user(other, other, path, get_request("/status")),
                "errno " + std::to_string(EACCES));
    EXPECT_THAT(answer_to_user(other, 4242, path, get_request("/status")),
                StartsWith("HTTP/1.1 200"));
}

} // namespace
