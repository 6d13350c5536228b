// Peers that begin something and don't go on. They cost the service what they hold, and nobody
// else anything.

#include "tests/attack/crowd.h"
#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/certificates.h"
#include "tests/support/process_state.h"
#include "tests/support/tls_hello.h"

#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

giop::octets first_of(const giop::octets& message, size_t count) {
    return {message.begin(), message.begin() + static_cast<std::ptrdiff_t>(count)};
}

giop::octets long_question() {
    return giop::make_request(1, "HSFactory", "getHostSession", giop::octets(4096));
}

struct kind {
    const char* name;
    giop::octets sent;
};

std::ostream& operator<<(std::ostream& out, const kind& which) { return out << which.name; }

const kind unfinished[] = {
    {"TwentyBytes", first_of(question(), 20)},
    {"HalfABody", first_of(long_question(), 2000)},
    {"AFragment", giop::fragments(long_question(), 1024)[0]},
    {"HalfAFragment", first_of(giop::fragments(long_question(), 1024)[0], 700)},
    {"AnAnswerAndTwentyBytes", [] {
         giop::octets bytes = question();
         const giop::octets more = first_of(question(2), 20);
         bytes.insert(bytes.end(), more.begin(), more.end());
         return bytes;
     }()}};
const kind idle[] = {{"NoByte", {}}, {"AnUnreadAnswer", question()}};

std::string name_of(const testing::TestParamInfo<kind>& info) { return info.param.name; }

class StalledPeers : public testing::TestWithParam<kind> {};

TEST_P(StalledPeers, KeepNoNewClientWaitingForASecondInRealTime) {
    const service_process service({"--no-http"});
    const crowd stalled(service.port(), 5000);
    stalled.send(GetParam().sent);
    EXPECT_LT(answer_time(service.port()), at_once);
}

INSTANTIATE_TEST_SUITE_P(Unfinished, StalledPeers, testing::ValuesIn(unfinished), name_of);
INSTANTIATE_TEST_SUITE_P(Idle, StalledPeers, testing::ValuesIn(idle), name_of);

/// For those that ask and ask and read nothing: an answer that is longer than the question.
const giop::octets long_answer = giop::make_request(1, "?", "_non_existent", {});

TEST(StalledReaders, KeepNoNewClientWaitingForASecondInRealTime) {
    const service_process service({"--no-http"});
    const crowd mute(service.port(), 400, "127.0.0.1", true);
    mute.keep_sending(long_answer, milliseconds(1500));
    EXPECT_LT(answer_time(service.port()), at_once);
}

TEST(StalledPeersAreCut, FiveSecondsAfterTheirFirstByteInRealTime) {
    const service_process service({"--no-http"});
    std::list<crowd> stalled;
    const auto start = steady_clock::now();
    for (const kind& each : unfinished) {
        stalled.emplace_back(service.port(), 300).send(each.sent);
    }
    const crowd silent(service.port(), 300);
    const crowd answered(service.port(), 300);
    answered.send(question());
    // A byte a moment isn't going on.
    const crowd dripping(service.port(), 1);
    const giop::octets drops = long_question();
    for (size_t each = 0; dripping.closed() == 0 && each < 100; ++each) {
        dripping.send({drops[each]});
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    for (const crowd& each : stalled) {
        EXPECT_EQ(each.await_closed(300, seconds(5)), 300U);
    }
    const std::chrono::duration<double> taken = steady_clock::now() - start;
    EXPECT_GT(taken.count(), 4.9);
    EXPECT_LT(taken.count(), 8);
    EXPECT_EQ(silent.closed(), 0U);
    EXPECT_EQ(answered.closed(), 0U);
}

TEST(StalledPeersAreCut, WhenTheyDontTakeTheirAnswersInRealTime) {
    const service_process service({"--no-http"});
    const crowd mute(service.port(), 20, "127.0.0.1", true);
    mute.keep_sending(long_answer, milliseconds(2500));
    EXPECT_EQ(mute.closed(), 0U);
    EXPECT_EQ(mute.await_closed(20, seconds(8)), 20U);
}

TEST(StalledPeersLose, WhenDescriptorsRunOut) {
    const service_process service({"--no-http"}, 300);
    const int port = service.port();
    giop::connection regular = giop::connection::to(static_cast<uint16_t>(port));
    regular.send(question());
    EXPECT_TRUE(is_answered(regular, 1));
    const crowd silent(port, 1000);
    EXPECT_LT(answer_time(port), 5);
    const crowd stalled(port, 1000);
    stalled.send(unfinished[0].sent);
    EXPECT_LT(answer_time(port), 5);
    // Who has finished what it began doesn't lose.
    regular.send(question(2));
    EXPECT_TRUE(is_answered(regular, 2));
}

TEST(StalledPeersEnd, WithTheServiceWithinFiveSecondsInRealTime) {
    service_process service({"--no-http"});
    std::list<crowd> all;
    for (const kind& each : unfinished) {
        all.emplace_back(service.port(), 500).send(each.sent);
    }
    for (const kind& each : idle) {
        all.emplace_back(service.port(), 500).send(each.sent);
    }
    all.emplace_back(service.port(), 100, "127.0.0.1", true)
        .keep_sending(long_answer, milliseconds(500));
    const remote_session client(service.port());
    const auto start = steady_clock::now();
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
    EXPECT_LT(steady_clock::now() - start, seconds(5));
}

// --- TLS ---

class StalledTls : public testing::Test {
  protected:
    const certificates own{"own"};
    service_process service{
        {"--no-http", "--tls-ca", own.authority(), "--tls-key", own.key(), "--tls-port", "0"}};

    tool_process client() const {
        return {{MANY_CLIENTS, std::to_string(service.tls_port()), "hold", "s3", "1"},
                {{{"VLSL_TLS_CA", own.authority()}, {"VLSL_TLS_KEY", own.key()}}, "", false}};
    }
};

const giop::octets half_a_hello = {0x16, 0x03, 0x01, 0x02, 0x00, 0x01, 0x00};

TEST_F(StalledTls, HandshakesKeepNobodyOut) {
    const crowd silent(service.tls_port(), 2000);
    const crowd begun(service.tls_port(), 2000);
    begun.send(half_a_hello);
    EXPECT_LT(answer_time(service.port()), at_once);
    tool_process holder = client();
    EXPECT_TRUE(holder.await_err("holding"));
    // Nobody had to be cut for that.
    EXPECT_EQ(begun.closed(), 0U);
    EXPECT_EQ(silent.closed(), 0U);
}

/// Handshakes without end: as soon as all have been answered, which costs the service a signature
/// each, new ones begin.
class handshake_flood {
  public:
    handshake_flood(int port, size_t connections)
        : thread_([=] {
              const giop::octets hello = tls_hello("P-384");
              while (!is_over_) {
                  const crowd all(port, connections);
                  all.send(hello);
                  rounds_ += all.await_answers();
              }
          }) {}
    ~handshake_flood() {
        is_over_ = true;
        thread_.join();
        EXPECT_GT(rounds_, 0);
    }
    handshake_flood(const handshake_flood&) = delete;
    handshake_flood& operator=(const handshake_flood&) = delete;

  private:
    std::atomic<bool> is_over_ = false;
    std::atomic<int> rounds_ = 0;
    std::thread thread_;
};

TEST_F(StalledTls, AFloodOfHandshakesKeepsNoPlainClientWaitingForASecondInRealTime) {
    const handshake_flood flood(service.tls_port(), 400);
    const auto start = steady_clock::now();
    double longest = 0;
    while (steady_clock::now() - start < seconds(2)) {
        longest = std::max(longest, longest_answer_time(service.port()));
    }
    RecordProperty("longest_ms", static_cast<int>(longest * 1000));
    EXPECT_LT(longest, at_once);
}

TEST_F(StalledTls, APeerDoesntChooseAKeyExchangeThatTakesLong) {
    constexpr char handshake = 0x16;
    constexpr char alert = 0x15;
    for (const char* const group : {"X25519", "P-256", "P-384", "P-521", "X448"}) {
        EXPECT_EQ(crowd(service.tls_port(), 1).ask(tls_hello(group))[0], handshake) << group;
    }
    for (const char* const group : {"ffdhe2048", "ffdhe4096", "ffdhe8192"}) {
        EXPECT_EQ(crowd(service.tls_port(), 1).ask(tls_hello(group))[0], alert) << group;
    }
}

TEST_F(StalledTls, APeerThatCanDoItAgreesOnAKeyThatAQuantumComputerDoesNotUndo) {
    using std::string_literals::operator""s;
    const auto key_share_of_1120_octets = "\x00\x33\x04\x64\x11\xec"s; // of X25519MLKEM768
    const auto key_share_of_32_octets = "\x00\x33\x00\x24\x00\x1d"s;   // of X25519
    EXPECT_THAT(
        crowd(service.tls_port(), 1).ask(tls_hello(nullptr)),
        HasSubstr(has_group("X25519MLKEM768") ? key_share_of_1120_octets : key_share_of_32_octets));
}

TEST_F(StalledTls, HandshakesTakeFiveSecondsAtMostInRealTime) {
    const crowd silent(service.tls_port(), 100);
    const crowd begun(service.tls_port(), 100);
    begun.send(half_a_hello);
    const crowd rubbish(service.tls_port(), 100);
    rubbish.send(question());
    EXPECT_EQ(rubbish.await_closed(100, seconds(2)), 100U);
    EXPECT_EQ(silent.await_closed(100, seconds(8)), 100U);
    EXPECT_EQ(begun.await_closed(100, seconds(1)), 100U);
}

TEST_F(StalledTls, HandshakesEndWithTheServiceInRealTime) {
    const crowd begun(service.tls_port(), 500);
    begun.send(half_a_hello);
    tool_process holder = client();
    EXPECT_TRUE(holder.await_err("holding"));
    const auto start = steady_clock::now();
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
    EXPECT_LT(steady_clock::now() - start, seconds(5));
}

} // namespace
