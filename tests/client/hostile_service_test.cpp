// A service that answers what no service should: each exchange fails, and the client lives on.

#include "tests/client/client_fixture.h"
#include "tests/support/giop.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <vlsl.hh>

using giop::make_message;
using giop::make_reply;
using giop::octets;
using giop::with_length;
using giop::with_octet;

namespace {

/// With the service at `port`; `and_then` looks at each.
void expect_each_exchange_fails(
    const sts_session_def_v7_t* session, int port,
    const std::function<void(const exchange_shape&)>& and_then = [](const exchange_shape&) {}) {
    look_for_service_at(port);
    CCloudVLSLClient client(session, "localhost", false, 0, 2);
    for (const exchange_shape& shape : exchange_shapes) {
        std::string out;
        EXPECT_EQ(shape.run(client, out), shape.corba_status) << shape.name;
        EXPECT_EQ(out, "");
        EXPECT_EQ(take_log().back(), shape.corba_line());
        and_then(shape);
    }
}

octets octets_of(const std::string& text) { return {text.begin(), text.end()}; }

struct odd_answer {
    const char* name;
    octets bytes;
    int sendings = 1; ///< of a request that is answered so
};

void PrintTo(const odd_answer& answer, std::ostream* out) { *out << answer.name; }

const octets reply = make_message(giop::message_type::reply, octets(12));

const odd_answer odd_answers[] = {
    {"Nothing", {}},
    {"OneByte", octets_of("G")},
    {"SomethingElse", octets_of("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi")},
    {"Zeros", octets(4096)},
    {"AnotherVersion", with_octet(with_octet(reply, 4, 9), 5, 9)},
    {"AnOlderVersion", with_octet(reply, 5, 0)},
    {"AnUnknownType", with_octet(make_message(giop::message_type::reply, {}), 7, 99)},
    {"ALengthWithoutItsBytes", with_length(make_message(giop::message_type::reply, {}), 1000)},
    {"AnImpossibleLength",
     with_length(make_message(giop::message_type::reply, octets(64, 'x')), 0xffffffff)},
    {"AnswersToOthers", make_message(giop::message_type::reply, octets(12, 0x7f))},
    {"AFragmentOfNothing", make_message(giop::message_type::fragment, octets(4, 0x7f))},
    {"AnError", make_message(giop::message_type::message_error, {})},
    {"AClose", make_message(giop::message_type::close_connection, {}), 2},
};

class HostileService : public testing::TestWithParam<odd_answer> {
  protected:
    HostileService() { take_log(); }
    ~HostileService() override { unsetenv("VLSL_PORT"); }
    sts_session_def_v7_t session = host_session("s", 0);
};

INSTANTIATE_TEST_SUITE_P(Answering, HostileService, testing::ValuesIn(odd_answers),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(HostileService, FailsEachExchangeAndSparesTheClient) {
    const giop::listener service([](giop::connection& peer, const giop::message&) {
        peer.send(GetParam().bytes);
        peer.shut_down();
    });
    expect_each_exchange_fails(&session, service.port());
    EXPECT_EQ(service.connections(), 6 * GetParam().sendings);
}

class HostileAnswer : public Client {};

TEST_F(HostileAnswer, ATextOf64MegabytesFailsItsExchangeOnly) {
    const auto client = make_connected();
    scripted_answer huge = returns(0, std::string(1 << 20, 'x'));
    huge.repeat = 64;
    service.answer("check_connections", {huge, returns(0, "short")});
    std::string out = "as it was";
    EXPECT_EQ(shape_of("check_connections").run(*client, out), failed_exchange);
    EXPECT_EQ(out, "as it was");
    EXPECT_EQ(shape_of("check_connections").run(*client, out), STS_OK);
    EXPECT_EQ(out, "short");
}

struct lying_exception {
    const char* name;
    std::function<void(giop::cdr_writer&)> put_records; ///< and what is before them
};

void PrintTo(const lying_exception& lie, std::ostream* out) { *out << lie.name; }

const lying_exception lying_exceptions[] = {
    {"Of4GRecords",
     [](giop::cdr_writer& out) {
         out.text("host");
         out.number<uint32_t>(0xffffffff);
     }},
    {"OfMoreRecordsThanItHas",
     [](giop::cdr_writer& out) {
         out.text("host");
         out.number<uint32_t>(2);
         out.number<int32_t>(1);
         out.number<int32_t>(1);
         out.wide_text(u"");
         out.wide_text(u"");
     }},
    {"OfAHostOf4GB", [](giop::cdr_writer& out) { out.number<uint32_t>(0xffffffff); }},
    {"OfAMessageOf4GB",
     [](giop::cdr_writer& out) {
         out.text("host");
         out.number<uint32_t>(1);
         out.number<int32_t>(1);
         out.number<int32_t>(1);
         out.number<uint32_t>(0xfffffffe);
     }},
};

class LyingException : public testing::TestWithParam<lying_exception> {
  protected:
    LyingException() { take_log(); }
    ~LyingException() override { unsetenv("VLSL_PORT"); }

    /// A session with all its objects, whose exchanges raise the exception.
    static octets answer(const giop::request& request, uint16_t port) {
        namespace SL = Corvane::Vaultaro::SL;
        static const std::map<std::string, std::string> objects = {
            {"getHostSession", Orvessa::Vaultaro::HostSession::_PD_repoId},
            {"getCloudManager", SL::CloudMgmt::CloudManager::_PD_repoId},
            {"aqueryFacet", SL::CloudMgmt::CloudQueryFacet::_PD_repoId},
            {"amodifyFacet", SL::CloudMgmt::CloudModifiableFacet::_PD_repoId}};
        giop::cdr_writer body;
        if (request.operation == "_is_a") {
            body.octet(1);
            return make_reply(request.id, giop::reply_status::no_exception, body.bytes());
        }
        const auto object = objects.find(request.operation);
        if (object != objects.end()) {
            put_reference(body, {object->second, port, request.operation});
            return make_reply(request.id, giop::reply_status::no_exception, body.bytes());
        }
        body.text(SL::VLSLOpException::_PD_repoId);
        body.number<int32_t>(1);
        body.number<int32_t>(2);
        GetParam().put_records(body);
        return make_reply(request.id, giop::reply_status::user_exception, body.bytes());
    }

    sts_session_def_v7_t session = host_session("s", 0);
};

INSTANTIATE_TEST_SUITE_P(Raised, LyingException, testing::ValuesIn(lying_exceptions),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(LyingException, FailsEachExchangeAndSparesTheClient) {
    std::atomic<uint16_t> port{0};
    const giop::listener service(
        giop::answering([&](const giop::request& request) { return answer(request, port); }));
    port = service.port();
    expect_each_exchange_fails(&session, service.port(), [&](const exchange_shape& shape) {
        EXPECT_EQ(service.requests().back().operation, shape.asked);
    });
}

} // namespace
