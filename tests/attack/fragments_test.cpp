// Requests in fragments, whole and not, and messages that lie about what they are.

#include "tests/attack/crowd.h"
#include "tests/service/service_process.h"
#include "tests/support/process_state.h"

#include <gtest/gtest.h>

namespace {

using giop::message_type;
using giop::octets;

/// A request that can be cut into many fragments; it is answered like `question`.
octets long_question(uint32_t id) {
    return giop::make_request(id, "HSFactory", "getInactivityTimeout", {}, {{77, octets(2000)}});
}

octets cancel(uint32_t id) {
    giop::cdr_writer body;
    body.number(id);
    return giop::make_message(message_type::cancel_request, body.bytes());
}

class Fragments : public testing::Test {
  protected:
    giop::connection client() const {
        return giop::connection::to(static_cast<uint16_t>(service.port()));
    }
    const service_process service;
};

TEST_F(Fragments, OfSeveralRequestsMayBeInterleaved) {
    giop::connection one = client();
    constexpr uint32_t requests = 16;
    std::vector<std::vector<octets>> parts;
    for (uint32_t id = 1; id <= requests; ++id) {
        parts.push_back(giop::fragments(long_question(id), 256));
    }
    for (size_t part = 0; part < parts[0].size(); ++part) {
        for (const std::vector<octets>& each : parts) {
            one.send(each[part]);
        }
    }
    for (uint32_t id = 1; id <= requests; ++id) {
        EXPECT_TRUE(is_answered(one, id)) << id;
    }
}

TEST_F(Fragments, AWholeRequestMayComeInBetween) {
    giop::connection one = client();
    const std::vector<octets> parts = giop::fragments(long_question(1), 1024);
    one.send(parts[0]);
    one.send(question(2));
    EXPECT_TRUE(is_answered(one, 2));
    for (size_t part = 1; part < parts.size(); ++part) {
        one.send(parts[part]);
    }
    EXPECT_TRUE(is_answered(one, 1));
}

TEST_F(Fragments, OfACancelledRequestAreDropped) {
    giop::connection one = client();
    const std::vector<octets> parts = giop::fragments(long_question(1), 1024);
    one.send(parts[0]);
    one.send(cancel(1));
    one.send(cancel(77)); // of which nobody has heard
    one.send(question(2));
    EXPECT_TRUE(is_answered(one, 2));
    one.send(parts[1]); // of nothing now
    EXPECT_TRUE(is_refused(one));
}

/// What was written behind a header's place, as a message of GIOP 1.1.
octets version_1_1(message_type type, const giop::cdr_writer& written, bool has_more) {
    const octets body(written.bytes().begin() + giop::HEADER_SIZE, written.bytes().end());
    octets message = giop::make_message(type, body, true, 1);
    message[6] |= has_more ? giop::MORE_FRAGMENTS_FLAG : 0;
    return message;
}

TEST_F(Fragments, OfGiop11FollowEachOther) {
    // Fragments have no id there, and each is aligned by itself.
    giop::cdr_writer first;
    first.raw(octets(giop::HEADER_SIZE));
    for (const uint32_t each : {1U, 77U, 150U}) { // one context, and its length
        first.number(each);
    }
    first.raw(octets(100));
    giop::cdr_writer second;
    second.raw(octets(giop::HEADER_SIZE + 50));
    second.number<uint32_t>(7); // the request's id
    second.octet(1);
    second.raw(octets(3));
    giop::cdr_writer third;
    third.raw(octets(giop::HEADER_SIZE));
    const std::string key = "HSFactory";
    third.counted(octets(key.begin(), key.end()));
    third.text("getInactivityTimeout");
    third.number<uint32_t>(0); // principal
    giop::connection one = client();
    one.send(version_1_1(message_type::request, first, true));
    one.send(version_1_1(message_type::fragment, second, true));
    one.send(version_1_1(message_type::fragment, third, false));
    const std::optional<giop::message> answer = one.receive();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->type(), message_type::reply);
    one.send(question(8));
    EXPECT_TRUE(is_answered(one, 8));
}

TEST_F(Fragments, LeaveNothingBehindWhenTheirConnectionCloses) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "the memory measured would be the sanitizer's";
    }
    // Cut within the arguments, where the ORB has begun to answer.
    octets first = giop::fragments(
        giop::make_request(1, "HSFactory", "getHostSession", octets(2000)), 1024)[0];
    const octets whole = question(2); // whose answer shows that the other one was read
    first.insert(first.end(), whole.begin(), whole.end());
    double resident = 0;
    const auto come_and_go = [&](int rounds) {
        for (; rounds > 0; --rounds) {
            const crowd leaving(service.port(), 100);
            leaving.send(first);
            ASSERT_TRUE(leaving.await_answers());
        }
        giop::connection last = client();
        last.send(question());
        EXPECT_TRUE(is_answered(last, 1));
        resident = service.metric("process_resident_memory_bytes");
    };
    come_and_go(20);
    const double before = resident;
    come_and_go(200);
    EXPECT_LT(resident - before,
              24 << 20); // of 20,000: the requests alone are 20 MB, and what they left was 90
}

TEST_F(Fragments, OfMoreThanAConnectionMayHoldAreRefused) {
    giop::connection many = client();
    for (uint32_t id = 1; id <= 17; ++id) {
        many.send(giop::fragments(long_question(id), 256)[0]);
    }
    EXPECT_TRUE(is_refused(many));
    giop::connection large = client();
    const octets endless =
        giop::make_request(1, "HSFactory", "getInactivityTimeout", octets(1 << 20));
    for (const octets& each : giop::fragments(endless, 65536)) {
        if (!large.send(each)) {
            break;
        }
    }
    EXPECT_NO_THROW(while (large.receive()){}); // it is cut off
    EXPECT_LT(service.metric("process_resident_memory_bytes"), 256 << 20);
}

struct lie {
    const char* what;
    octets sent;
};

TEST_F(Fragments, AndWhatIsNoMessageGetAMessageErrorAndTheEnd) {
    const octets good = question();
    const octets part = giop::fragments(long_question(1), 1024)[0];
    octets odd_part = giop::fragments(long_question(1), 1024)[0];
    odd_part.resize(odd_part.size() - 4);
    odd_part = giop::with_length(odd_part, static_cast<uint32_t>(odd_part.size() - 12));
    octets twice = part;
    twice.insert(twice.end(), part.begin(), part.end());
    const lie lies[] = {
        {"magic", giop::with_octet(good, 0, 'H')},
        {"a web browser", {'G', 'E', 'T', ' ', '/'}},
        {"major version", giop::with_octet(good, 4, 2)},
        {"minor version", giop::with_octet(good, 5, 3)},
        {"flags", giop::with_octet(good, 6, 0x81)},
        {"fragments in 1.0", giop::with_octet(giop::with_octet(good, 5, 0), 6, 3)},
        {"a reply", giop::with_octet(good, 7, 1)},
        {"a locate reply", giop::with_octet(good, 7, 4)},
        {"no type", giop::with_octet(good, 7, 8)},
        {"a length of 4 GiB", giop::with_length(good, 0xffffffff)},
        {"a length of 1 MiB", giop::with_length(good, 1 << 20)},
        {"a fragment of nothing", giop::with_octet(good, 7, 7)},
        {"a fragment without an id",
         giop::with_octet(giop::make_message(message_type::request, {0}), 6, 3)},
        {"a cut that misaligns", odd_part},
        {"the same id twice", twice},
        {"no body", giop::make_message(message_type::request, {})},
    };
    for (const lie& each : lies) {
        SCOPED_TRACE(each.what);
        giop::connection one = client();
        one.send(each.sent);
        EXPECT_TRUE(is_refused(one));
    }
    // These aren't answered.
    for (const message_type type : {message_type::close_connection, message_type::message_error}) {
        giop::connection one = client();
        one.send(giop::make_message(type, {}));
        EXPECT_FALSE(one.receive().has_value());
    }
    EXPECT_LT(answer_time(service.port()), 5);
}

TEST_F(Fragments, LengthsThatLieWithinAMessageHarmNobody) {
    const octets good = long_question(1);
    for (size_t at = giop::HEADER_SIZE; at + 4 <= 100; at += 4) {
        for (const unsigned char value : giop::octets{0x7f, 0xff}) {
            octets lying = good;
            std::fill_n(lying.begin() + static_cast<std::ptrdiff_t>(at), 4, value);
            giop::connection one = client();
            one.send(lying);
            one.send(giop::make_message(message_type::close_connection, {}));
            EXPECT_NO_THROW(while (one.receive()){}) << at;
        }
    }
    EXPECT_LT(answer_time(service.port()), 5);
}

} // namespace
