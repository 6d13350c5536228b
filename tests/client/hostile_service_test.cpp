// A service that answers what no service should: each exchange fails, and the client lives on.

#include "tests/client/client_fixture.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vlsl.hh>

namespace {

/// Answers whatever arrives on a connection with the same bytes, and closes it.
class raw_service {
  public:
    explicit raw_service(std::string answer)
        : answer_(std::move(answer)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int port = free_port();
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 16), 0);
        setenv("VLSL_PORT", std::to_string(port).c_str(), 1);
        server_ = std::thread([this] { serve(); });
    }
    ~raw_service() {
        shutdown(listener_, SHUT_RDWR);
        server_.join();
        close(listener_);
    }
    raw_service(const raw_service&) = delete;
    raw_service& operator=(const raw_service&) = delete;

    int connections() const { return connections_; }

  private:
    void serve() {
        for (;;) {
            const int connection = accept(listener_, nullptr, nullptr);
            if (connection == -1) {
                return;
            }
            ++connections_;
            std::array<char, 4096> request;
            if (recv(connection, request.data(), request.size(), 0) > 0) {
                send(connection, answer_.data(), answer_.size(), MSG_NOSIGNAL);
            }
            shutdown(connection, SHUT_WR);
            while (recv(connection, request.data(), request.size(), 0) > 0) {
            }
            close(connection);
        }
    }

    const std::string answer_;
    const int listener_;
    std::atomic<int> connections_{0};
    std::thread server_;
};

/// A message of the protocol: its version, type (1 answer, 5 close, 6 error, 7 fragment), the
/// length that it says it has, little-endian, and what follows.
std::string message(char major, char minor, char type, uint32_t length, const std::string& body) {
    std::string text = "GIOP";
    text += {major, minor, '\1', type};
    for (int shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>(length >> shift);
    }
    return text + body;
}

struct odd_answer {
    const char* name;
    std::string bytes;
};

void PrintTo(const odd_answer& answer, std::ostream* out) { *out << answer.name; }

class HostileService : public testing::TestWithParam<odd_answer> {
  protected:
    HostileService() { take_log(); }
    ~HostileService() override { unsetenv("VLSL_PORT"); }
    sts_session_def_v7_t session = host_session("s", 0);
};

INSTANTIATE_TEST_SUITE_P(
    Answering, HostileService,
    testing::Values(odd_answer{"Nothing", ""}, odd_answer{"OneByte", "G"},
                    odd_answer{"SomethingElse", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi"},
                    odd_answer{"Zeros", std::string(4096, '\0')},
                    odd_answer{"AnotherVersion", message(9, 9, 1, 12, std::string(12, '\0'))},
                    odd_answer{"AnOlderVersion", message(1, 0, 1, 12, std::string(12, '\0'))},
                    odd_answer{"AnUnknownType", message(1, 2, 99, 0, "")},
                    odd_answer{"ALengthWithoutItsBytes", message(1, 2, 1, 1000, "")},
                    odd_answer{"AnImpossibleLength",
                               message(1, 2, 1, 0xffffffff, std::string(64, 'x'))},
                    odd_answer{"AnswersToOthers", message(1, 2, 1, 12, std::string(12, '\x7f'))},
                    odd_answer{"AFragmentOfNothing", message(1, 2, 7, 4, std::string(4, '\x7f'))},
                    odd_answer{"AnError", message(1, 2, 6, 0, "")},
                    odd_answer{"AClose", message(1, 2, 5, 0, "")}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(HostileService, FailsEachExchangeAndSparesTheClient) {
    const raw_service service(GetParam().bytes);
    CCloudVLSLClient client(&session, "localhost", false, 0, 2);
    for (const exchange_shape& shape : exchange_shapes) {
        std::string out;
        EXPECT_EQ(shape.run(client, out), shape.corba_status) << shape.name;
        EXPECT_EQ(out, "");
        EXPECT_EQ(take_log().back(), shape.corba_line());
    }
    EXPECT_EQ(service.connections(), 6); // one for each: none is tried again
}

class HostileAnswer : public Client {};

TEST_F(HostileAnswer, ATextOf64MegabytesFailsAtMostItsExchange) {
    const auto client = make_connected();
    scripted_answer huge = returns(0, std::string(1 << 20, 'x'));
    huge.repeat = 64;
    service.answer("check_connections", {huge, returns(0, "short")});
    std::string out = "as it was";
    const int status = shape_of("check_connections").run(*client, out);
    if (status == STS_OK) {
        EXPECT_EQ(out.size(), 64U << 20);
    } else {
        EXPECT_EQ(status, failed_exchange);
        EXPECT_EQ(out, "as it was");
    }
    EXPECT_EQ(shape_of("check_connections").run(*client, out), STS_OK);
    EXPECT_EQ(out, "short");
}

} // namespace
