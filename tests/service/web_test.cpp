// What the service tells over HTTP, and to whom.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include "service/web_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

using testing::HasSubstr;
using testing::Not;

namespace {

class Web : public testing::Test {
  protected:
    const service_process service_;
    httplib::Client client_{"127.0.0.1", service_.http_port()};
};

TEST_F(Web, EachPathHasItsType) {
    EXPECT_EQ(client_.Get("/")->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(client_.Get("/status")->get_header_value("Content-Type"), "application/json");
    EXPECT_EQ(client_.Get("/metrics")->get_header_value("Content-Type"),
              "text/plain; version=0.0.4; charset=utf-8");
    EXPECT_EQ(client_.Get("/other")->status, 404);
    EXPECT_EQ(client_.Post("/status")->status, 405);
    EXPECT_EQ(client_.Post("/status")->get_header_value("Allow"), "GET, HEAD");
}

TEST_F(Web, StatusGoesWithTheSessions) {
    const remote_session client(service_.port());
    client.check_connections("a:s3", 1);
    const nlohmann::json status = service_.status();
    EXPECT_EQ(status["service"], "vlsld");
    EXPECT_EQ(status["sessions"], 1);
    EXPECT_EQ(status["storages"].at(0)["name"], "s3");
    EXPECT_EQ(service_.metric("vlsld_storage_connections{storage=\"s3\"}"), 1);
}

TEST_F(Web, SinceMayBeAnything) {
    for (const char* since : {"", "x", "-1", "99999999999999999999999", "0;"}) {
        EXPECT_EQ(client_.Get(("/status?since=" + std::string(since)).c_str())->status, 200);
    }
}

TEST_F(Web, ForeignHostsAreRefused) {
    for (const char* host : {"evil.example", "localhost.evil.example", "127.0.0.1.evil.example",
                             "evil.example:80", "", "[evil]"}) {
        const auto response = client_.Get("/status", {{"Host", host}});
        ASSERT_TRUE(response);
        EXPECT_EQ(response->status, 403) << host;
        EXPECT_THAT(response->body, Not(HasSubstr("sessions")));
    }
    EXPECT_EQ(client_.Get("/status", {{"Host", "localhost:80"}})->status, 200);
}

TEST(WebName, OneMoreNameMayBeAskedFor) {
    const service_process service({"--http-host", "backup.example"});
    httplib::Client client("127.0.0.1", service.http_port());
    for (const char* host : {"backup.example", "BACKUP.example:8080", "localhost"}) {
        EXPECT_EQ(client.Get("/status", {{"Host", host}})->status, 200) << host;
    }
    for (const char* host :
         {"evil.example", "backup.example.evil.example", "backup.example.", ""}) {
        EXPECT_EQ(client.Get("/status", {{"Host", host}})->status, 403) << host;
    }
}

TEST_F(Web, NothingOfThePageComesFromElsewhere) {
    const auto response = client_.Get("/");
    EXPECT_THAT(response->get_header_value("Content-Security-Policy"),
                HasSubstr("default-src 'none'"));
    EXPECT_THAT(response->get_header_value("X-Content-Type-Options"), "nosniff");
    for (const char* link : {"src=", "@import", "url(http", "<link rel=\"stylesheet\""}) {
        EXPECT_THAT(response->body, Not(HasSubstr(link)));
    }
    EXPECT_THAT(response->body, Not(HasSubstr("innerHTML")));
}

TEST(OwnHost, IsAnAddressOrANameOfThisMachine) {
    for (const char* own :
         {"localhost", "localhost:8080", "127.0.0.1", "10.1.2.3:80", "[::1]", "[::1]:8080"}) {
        EXPECT_TRUE(is_own_host(own)) << own;
    }
    for (const char* foreign : {"", ":80", "[", "[]", "a.example", "localhost.", "127.0.0.1.x"}) {
        EXPECT_FALSE(is_own_host(foreign)) << foreign;
    }
}

} // namespace
