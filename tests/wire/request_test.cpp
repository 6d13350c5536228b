// The request that carries a bandwidth sample, octet by octet.
#include "tests/wire/pattern.h"
#include "tests/wire/recorder.h"

#include <gtest/gtest.h>

using namespace wire;
namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;

namespace {

/// A listener whose every `check_bandwidth` gives 7 and "wait".
giop::octets answer(const giop::request& request) {
    giop::cdr_writer body;
    body.number<int32_t>(7);
    body.text("wait");
    return giop::make_reply(request.id, giop::reply_status::no_exception, body.bytes());
}

CloudMgmt::CloudQueryFacet_ptr facet_at(const giop::listener& peer) {
    const CORBA::Object_var object =
        orb()->string_to_object(giop::corbaloc(peer.port(), "facet").c_str());
    return CloudMgmt::CloudQueryFacet::_unchecked_narrow(object);
}

CloudMgmt::ThrottlingBandwidth* sample_of(CORBA::ULong operation) {
    return new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(operation, 0x5f000001,
                                                                         0x5f000002, 0x0102030405);
}

} // namespace

TEST(CheckBandwidthRequest, IsTheseOctets) {
    giop::listener peer(giop::answering(answer));
    const CloudMgmt::CloudQueryFacet_var facet = facet_at(peer);
    const CloudMgmt::ThrottlingBandwidth_var sample = sample_of(1);
    CORBA::String_var out;
    EXPECT_EQ(facet->check_bandwidth("w:disk", "s1", sample, out), 7);
    EXPECT_STREQ(out, "wait");

    ASSERT_EQ(peer.messages().size(), 1u);
    EXPECT_TRUE(match(R"(
        47 49 4f 50  01 02 01 00  b4 00 00 00 | GIOP 1.2, little-endian, Request, size
        .. .. .. ..  03 .. .. ..              | id, a response is expected, reserved
        00 00 .. ..  05 00 00 00              | by key
        66 61 63 65  74 .. .. ..              | "facet"
        10 00 00 00  63 68 65 63  6b 5f 62 61 | "check_bandwidth"
        6e 64 77 69  64 74 68 00
        01 00 00 00  01 00 00 00  0c 00 00 00 | one context: code sets
        01 .. .. ..  01 00 01 00  09 01 01 00 | ISO 8859-1, UTF-16
        07 00 00 00  77 3a 64 69  73 6b 00 .. | "w:disk"
        03 00 00 00  73 31 00 ..              | "s1"
        02 ff ff 7f                           | a value with one id, not chunked
        3a 00 00 00  49 44 4c 3a  43 6f 72 76 | its id
        61 6e 65 2f  56 61 75 6c  74 61 72 6f
        2f 53 4c 2f  43 6c 6f 75  64 4d 67 6d
        74 2f 54 68  72 6f 74 74  6c 69 6e 67
        42 61 6e 64  77 69 64 74  68 3a 31 2e
        30 00 .. ..
        01 00 00 00                           | operation_type
        01 00 00 5f  02 00 00 5f              | start_time, end_time
        .. .. .. ..
        05 04 03 02  01 00 00 00              | data_length
        )",
                      peer.messages()[0].bytes));
}

TEST(CheckBandwidthRequest, CarriesANullValueAsZero) {
    giop::listener peer(giop::answering(answer));
    const CloudMgmt::CloudQueryFacet_var facet = facet_at(peer);
    CORBA::String_var out;
    facet->check_bandwidth("", "", nullptr, out);
    EXPECT_TRUE(match("01 00 00 00 00 .. .. ..  01 00 00 00 00 .. .. ..  00 00 00 00",
                      peer.requests().at(0).arguments));
}

TEST(CheckBandwidthRequest, LeavesTheValueWithItsCaller) {
    giop::listener peer(giop::answering(answer));
    const CloudMgmt::CloudQueryFacet_var facet = facet_at(peer);
    const CloudMgmt::ThrottlingBandwidth_var sample = sample_of(0);
    CORBA::String_var out;
    facet->check_bandwidth("a", "b", sample, out);
    EXPECT_EQ(sample->_refcount_value(), 1u);
}

TEST(CheckBandwidthRequest, IsSentOnceOnOneConnection) {
    giop::listener peer(giop::answering(answer));
    const CloudMgmt::CloudQueryFacet_var facet = facet_at(peer);
    const CloudMgmt::ThrottlingBandwidth_var sample = sample_of(0);
    for (std::size_t exchange = 1; exchange <= 3; ++exchange) {
        CORBA::String_var out;
        facet->check_bandwidth("a", "b", sample, out);
        EXPECT_EQ(peer.messages().size(), exchange);
    }
    EXPECT_EQ(peer.connections(), 1);
}

TEST(CheckBandwidthRequest, CarriesTextsOfAnyLengthWhole) {
    giop::listener peer(giop::answering(answer));
    const CloudMgmt::CloudQueryFacet_var facet = facet_at(peer);
    std::string text;
    for (const std::size_t length : {0u, 1u, 8191u, 8192u, 100000u, 1000000u}) {
        text.resize(length, 'x');
        CORBA::String_var out;
        facet->check_bandwidth(text.c_str(), "", nullptr, out);
        giop::cdr_writer expected;
        expected.text(text);
        expected.text("");
        expected.number<uint32_t>(0);
        EXPECT_TRUE(expected.matches(peer.requests().back().arguments)) << length;
    }
}

TEST(CheckBandwidthReply, MayBeOfManyFragments) {
    const std::string text(50000, 'y');
    giop::listener peer([&text](giop::connection& client, const giop::message& message) {
        giop::cdr_writer body;
        body.number<int32_t>(7);
        body.text(text);
        const uint32_t id = giop::parse_request(message).id;
        for (const giop::octets& part : giop::fragments(
                 giop::make_reply(id, giop::reply_status::no_exception, body.bytes()), 4096)) {
            client.send(part);
        }
    });
    const CloudMgmt::CloudQueryFacet_var facet = facet_at(peer);
    CORBA::String_var out;
    EXPECT_EQ(facet->check_bandwidth("", "", nullptr, out), 7);
    EXPECT_EQ(out.in(), text);
}
