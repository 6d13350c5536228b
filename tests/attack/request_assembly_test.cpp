// How messages are put together, without a connection.

#include "service/transport/request_assembly.h"

#include "tests/support/giop.h"

#include <gtest/gtest.h>

namespace {

using giop::octets;
using transport::request_assembly;
using state = request_assembly::state;
using time_point = transport::clock::time_point;

constexpr size_t longest_message = 65536;
const time_point beginning{std::chrono::hours(1)};

state give(request_assembly& to, const octets& bytes, time_point now = beginning) {
    to.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return to.look(now);
}

octets taken(request_assembly& from, size_t at_most = 1 << 20) {
    octets bytes(at_most);
    bytes.resize(from.take(bytes.data(), bytes.size()));
    return bytes;
}

octets request(uint32_t id, size_t size = 2000) {
    return giop::make_request(id, "HSFactory", "operation", octets(size, 7));
}

TEST(RequestAssembly, TakesAMessageInPiecesOfAnySize) {
    const octets message = request(1);
    for (size_t piece = 1; piece <= message.size(); ++piece) {
        request_assembly requests(longest_message);
        for (size_t at = 0; at < message.size(); at += piece) {
            const size_t end = std::min(at + piece, message.size());
            const octets part(message.begin() + static_cast<std::ptrdiff_t>(at),
                              message.begin() + static_cast<std::ptrdiff_t>(end));
            EXPECT_EQ(give(requests, part),
                      end == message.size() ? state::whole : state::incomplete);
        }
        EXPECT_EQ(taken(requests, 100).size(), 100U);
        EXPECT_EQ(taken(requests).size(), message.size() - 100);
        EXPECT_EQ(requests.look(beginning), state::incomplete);
        EXPECT_EQ(requests.held(), 0U);
    }
}

TEST(RequestAssembly, GivesOneMessageAfterTheOther) {
    request_assembly requests(longest_message);
    octets both = request(1);
    const octets second = request(2);
    both.insert(both.end(), second.begin(), second.end());
    EXPECT_EQ(give(requests, both), state::whole);
    EXPECT_EQ(taken(requests), request(1));
    EXPECT_TRUE(taken(requests).empty());
    EXPECT_EQ(requests.look(beginning), state::whole);
    EXPECT_EQ(taken(requests), second);
}

TEST(RequestAssembly, MakesFragmentsOneMessage) {
    const octets message = request(1, 5000);
    for (size_t size = 32; size < 5000; size += 488) {
        request_assembly requests(longest_message);
        for (const octets& each : giop::fragments(message, size)) {
            give(requests, each);
        }
        EXPECT_EQ(requests.look(beginning), state::whole);
        EXPECT_EQ(taken(requests), message);
        EXPECT_EQ(requests.held(), 0U);
    }
}

TEST(RequestAssembly, GivesTheFragmentsOfGiop11OneByOne) {
    request_assembly requests(longest_message);
    octets first = giop::make_message(giop::message_type::request, octets(33), true, 1);
    first[6] |= giop::MORE_FRAGMENTS_FLAG;
    const octets second = giop::make_message(giop::message_type::fragment, octets(5), true, 1);
    EXPECT_EQ(give(requests, first), state::incomplete);
    EXPECT_EQ(give(requests, second), state::whole);
    EXPECT_EQ(taken(requests), first);
    EXPECT_EQ(taken(requests), second);
    EXPECT_TRUE(taken(requests).empty());
}

TEST(RequestAssembly, KnowsSinceWhenSomethingIsUnfinished) {
    using std::chrono::seconds;
    request_assembly requests(longest_message);
    EXPECT_FALSE(requests.begun().has_value());
    const std::vector<octets> parts = giop::fragments(request(1), 1024);
    give(requests, parts[0], beginning);
    EXPECT_EQ(requests.begun(), beginning);
    // What is finished in between doesn't make it younger.
    EXPECT_EQ(give(requests, request(2), beginning + seconds(1)), state::whole);
    EXPECT_EQ(requests.begun(), beginning);
    taken(requests);
    give(requests, {'G'}, beginning + seconds(2));
    EXPECT_EQ(requests.begun(), beginning);
    EXPECT_EQ(give(requests, {'H'}, beginning + seconds(2)), state::refused);

    request_assembly other(longest_message);
    give(other, {'G', 'I'}, beginning + seconds(3));
    give(other, {'O'}, beginning + seconds(4));
    EXPECT_EQ(other.begun(), beginning + seconds(3));
}

TEST(RequestAssembly, HoldsNoMoreThanItMay) {
    request_assembly one(longest_message);
    EXPECT_EQ(give(one, giop::with_length(request(1), longest_message - 12)), state::incomplete);
    request_assembly other(longest_message);
    EXPECT_EQ(give(other, giop::with_length(request(1), longest_message - 11)), state::refused);

    request_assembly many(longest_message);
    state last = state::incomplete;
    uint32_t sent = 0;
    while (last == state::incomplete) {
        last = give(many, giop::fragments(request(++sent, 60000), 8192)[0]);
    }
    EXPECT_EQ(last, state::refused);
    EXPECT_EQ(sent, longest_message / 8192 + 1);

    request_assembly endless(longest_message);
    const std::vector<octets> parts = giop::fragments(request(1, 100000), 8192);
    give(endless, parts[0]);
    last = state::incomplete;
    for (sent = 1; last == state::incomplete; ++sent) {
        last = give(endless, parts[1]);
    }
    EXPECT_EQ(last, state::refused);
    EXPECT_LE(sent, longest_message / 8176 + 1);
}

TEST(RequestAssembly, StaysRefused) {
    request_assembly requests(longest_message);
    EXPECT_EQ(give(requests, {'x'}), state::refused);
    EXPECT_EQ(give(requests, request(1)), state::refused);
    EXPECT_TRUE(taken(requests).empty());
}

} // namespace
