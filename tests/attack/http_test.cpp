// What a neighbour can do to the page of the service, and to those who look at it.

#include "tests/attack/raw_http.h"
#include "tests/service/service_process.h"
#include "tests/support/process_state.h"

#include "service/http_server.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <thread>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

size_t count(const std::string& text, const std::string& what) {
    size_t found = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++found;
    }
    return found;
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int each = 0; each < times; ++each) {
        all += text;
    }
    return all;
}

/// What an answer's chunks hold together.
std::string body_of(const std::string& answer) {
    std::string body;
    size_t at = answer.find("\r\n\r\n") + 4;
    for (size_t end = answer.find("\r\n", at); end != std::string::npos;
         end = answer.find("\r\n", at)) {
        const size_t size = std::stoul("0" + answer.substr(at, end - at), nullptr, 16);
        body += answer.substr(end + 2, size);
        at = end + 2 + size + 2;
    }
    return body;
}

class AttackOnHttp : public testing::Test {
  protected:
    const service_process service_;

    std::string ask(const std::string& request) const {
        return ::ask(service_.http_port(), request);
    }
    void expect_answers() const {
        EXPECT_THAT(ask(request_for("/status")), StartsWith("HTTP/1.1 200 OK\r\n"));
    }
};

TEST_F(AttackOnHttp, RangesAreIgnored) {
    const std::string whole = body_of(ask(request_for("/")));
    for (const std::string& ranges :
         {std::string("0-0"), std::string("-5"), std::string("1-0"), std::string("x"),
          "0-" + repeated(",0-", 2499), repeated("0-1,", 500) + "9-"}) {
        const std::string answer = ask(request_for("/", "Range: bytes=" + ranges + "\r\n"));
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
        EXPECT_THAT(answer, Not(HasSubstr("Content-Range")));
        EXPECT_EQ(body_of(answer), whole);
    }
    expect_answers();
}

TEST_F(AttackOnHttp, AMethodOtherThanGetAndHeadIsNotAllowed) {
    for (const char* method : {"POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "X"}) {
        const std::string answer = ask(request_for("/status", "", method));
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 ")) << method;
        EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n"));
    }
    const std::string head = ask(request_for("/status", "", "HEAD"));
    EXPECT_THAT(head, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(head, testing::EndsWith("\r\n\r\n"));
    EXPECT_EQ(count(head, "\r\n\r\n"), 1U); // no body
}

TEST_F(AttackOnHttp, NoOtherPathIsThere) {
    for (const char* path : {"/x", "//", "/status/", "/../etc/passwd", "/%73tatus", "/status%00",
                             "/status%00.html", "*", "http://localhost/status", "/./status"}) {
        const std::string answer = ask(request_for(path));
        EXPECT_THAT(answer, Not(HasSubstr(" 200 OK"))) << path;
        EXPECT_THAT(answer, Not(HasSubstr("sessions"))) << path;
    }
    expect_answers();
}

TEST_F(AttackOnHttp, OneHostThatIsOursMustBeNamed) {
    const std::string line = "GET /status HTTP/1.1\r\n";
    for (const char* hosts :
         {"", "Host:\r\n", "Host: evil.example\r\n", "Host: localhost\r\nHost: evil.example\r\n",
          "Host: evil.example\r\nHost: localhost\r\n", "Host: localhost\r\nhost: localhost\r\n",
          "Host: localhost.evil.example\r\n", "Host: 127.0.0.1@evil.example\r\n"}) {
        const std::string answer = ask(line + hosts + "\r\n");
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 40")) << hosts;
        EXPECT_THAT(answer, Not(HasSubstr("sessions"))) << hosts;
    }
    expect_answers();
}

TEST_F(AttackOnHttp, WhatFollowsARequestIsNeverRead) {
    const std::string next = request_for("/metrics");
    const std::string hidden = "0\r\n\r\n" + next;
    for (const std::string& requests :
         {request_for("/status") + next, repeated(request_for("/status"), 1000),
          request_for("/status", "Content-Length: 5\r\n") + hidden,
          request_for("/status", "Content-Length: 4\r\nTransfer-Encoding: chunked\r\n", "POST") +
              hidden,
          request_for("/status", "Transfer-Encoding: chunked\r\nContent-Length: 0\r\n") + hidden,
          request_for("/status", "Transfer-Encoding: chunked\r\n") + hidden,
          request_for("/status", "Transfer-Encoding: xchunked\r\n") + hidden,
          request_for("/status", "Transfer-Encoding : chunked\r\n") + hidden,
          request_for("/status", "Content-Length: 0\r\nContent-Length: 900\r\n") + hidden,
          request_for("/status", "Connection: keep-alive\r\n") + next}) {
        const std::string answer = ask(requests);
        EXPECT_LE(count(answer, "HTTP/1.1 "), 1U) << requests.substr(0, 200);
        EXPECT_THAT(answer, Not(HasSubstr("vlsld_uptime_seconds")));
    }
    expect_answers();
}

TEST_F(AttackOnHttp, RubbishIsRefusedAndHarmsNobody) {
    const std::string nul(1, '\0');
    const std::string line = "GET /status HTTP/1.1\r\nHost: localhost\r\n";
    for (const std::string& rubbish :
         {std::string(),
          std::string("\r\n\r\n\r\n"),
          std::string(100000, '\0'),
          std::string(100000, '\xff'),
          std::string(100000, '\n'),
          std::string(100000, 'A'),
          std::string("GET\r\n\r\n"),
          std::string("GET /status\r\n\r\n"),
          std::string("GET  /status  HTTP/1.1\r\nHost: localhost\r\n\r\n"),
          std::string("GET /status HTTP/9.9\r\nHost: localhost\r\n\r\n"),
          std::string("GET /status HTTP/1.1 HTTP/1.1\r\nHost: localhost\r\n\r\n"),
          std::string("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"),
          std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11),
          "GET /status" + nul + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
          "GET /sta" + nul + "tus HTTP/1.1\r\nHost: local" + nul + "host\r\n\r\n",
          "GET /" + std::string(100000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
          "GET /status?" + repeated("a=b&", 50000) + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
          std::string(100000, 'G') + " /status HTTP/1.1\r\nHost: localhost\r\n\r\n",
          line + repeated("A: b\r\n", 20000) + "\r\n",
          line + "A: " + std::string(1000000, 'b'),
          line + repeated("Cookie: a=b; c\r\n", 5000) + "\r\n",
          line + "no colon\r\n\r\n",
          line + " folded: header\r\n\r\n",
          line + ": no name\r\n\r\n",
          line + "A: b\rC: d\r\n\r\n",
          line + "Content-Length: -1\r\n\r\n",
          line + "Content-Length: 1x\r\n\r\n",
          line + "Content-Length: 99999999999999999999999999\r\n\r\n",
          line + "Content-Length: 1000000000\r\n\r\n" + std::string(1000000, 'x'),
          line + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n" + std::string(1000, 'x'),
          line + "Transfer-Encoding: chunked\r\n\r\n-1\r\n\r\n",
          line + "Expect: 100-continue\r\n\r\n",
          line + "Upgrade: websocket\r\nConnection: Upgrade\r\n\r\n"}) {
        const raw_http connection(service_.http_port());
        connection.send(rubbish);
        connection.send(std::string()); // and what is answered isn't even looked at
    }
    expect_answers();
    EXPECT_LT(service_.metric("process_resident_memory_bytes"), 512 << 20);
}

TEST_F(AttackOnHttp, TooMuchOfARequestIsRefused) {
    const std::string line = "GET /status HTTP/1.1\r\nHost: localhost\r\n";
    for (const std::string& request :
         {"GET /" + std::string(40000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
          line + repeated("A: b\r\n", 20000) + "\r\n", line + "A: " + std::string(40000, 'b')}) {
        EXPECT_THAT(ask(request), Not(HasSubstr(" 200 OK")));
    }
    expect_answers();
}

TEST_F(AttackOnHttp, WhoeverIsSlowIsCutAfterFiveSecondsInAllInRealTime) {
    const auto start = std::chrono::steady_clock::now();
    const int port = service_.http_port();
    const raw_http silent(port);
    const raw_http drips(port); // a byte of a header that never ends, every second
    const raw_http sends(port); // of a body
    const raw_http half(port);
    sends.send(request_for("/x", "Content-Length: 1000\r\n", "POST"));
    drips.send("GET /status HTTP/1.1\r\nHost: localhost\r\nA: ");
    half.send("GET /sta");
    double over = 0;
    while (!silent.is_over() || !drips.is_over() || !half.is_over()) {
        ASSERT_LT(seconds_since(start), 9);
        drips.send("b");
        sends.send("b");
        const auto asked = std::chrono::steady_clock::now();
        expect_answers();
        EXPECT_LT(seconds_since(asked), 2 * at_once); // nobody else waits for them
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        over = seconds_since(start);
    }
    EXPECT_GT(over, 4);
    EXPECT_TRUE(sends.is_over());
}

TEST_F(AttackOnHttp, ThousandsOfStalledConnectionsKeepNobodyOutInRealTime) {
    const int port = service_.http_port();
    std::list<raw_http> stalled;
    for (int each = 0; each < 5000; ++each) {
        stalled.emplace_back(port).send("GET /status HTTP/1.1\r\nHost: ");
        if (each % 1000 == 999) {
            const auto asked = std::chrono::steady_clock::now();
            expect_answers();
            EXPECT_LT(seconds_since(asked), at_once);
        }
    }
    EXPECT_LE(service_.metric("process_open_fds"), 400);
}

TEST_F(AttackOnHttp, ANeighboursTooManyConnectionsAreTheirOwnLoss) {
    const int port = service_.http_port();
    const raw_http slow(port); // longer there than all others
    slow.send("GET /status HTTP/1.1\r\n");
    std::list<raw_http> flood;
    for (size_t each = 0; each < 2 * most_web_connections; ++each) {
        flood.emplace_back(port, "127.0.0.2").send("GET ");
    }
    EXPECT_TRUE(flood.front().take().empty()); // cut
    EXPECT_FALSE(slow.is_over());
    slow.send("Host: localhost\r\n\r\n");
    EXPECT_THAT(slow.take(), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(AttackOnTheEnd, ReadersAndHalfSentRequestsDontHoldItUpInRealTime) {
    service_process service;
    const int port = service.http_port();
    std::list<raw_http> readers;
    for (int each = 0; each < 100; ++each) {
        readers.emplace_back(port, "127.0.0.1", 1024).send(request_for("/"));
        readers.emplace_back(port).send("GET / HTTP");
    }
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
    EXPECT_LT(seconds_since(asked), 5);
}

} // namespace
