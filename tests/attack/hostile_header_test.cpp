// What stands before the arguments: keys, names of operations, service contexts. Whatever is there,
// the service answers or closes that connection, keeps nothing of it, and goes on as before.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/giop.h"
#include "tests/support/process_state.h"

#include <functional>
#include <gtest/gtest.h>

using giop::cdr_writer;
using giop::octets;

namespace {

constexpr uint32_t CODE_SETS = 1; // ids of service contexts
constexpr uint32_t BI_DIR_IIOP = 5;
constexpr size_t large = 30'000; // octets, in a message that isn't too long

struct odd_header {
    const char* name;
    std::function<octets(uint32_t id, uint32_t round)> make; ///< no two rounds are the same
};

octets request(uint32_t id, const giop::service_contexts& contexts, const std::string& key,
               const std::string& operation = "getInactivityTimeout") {
    return giop::make_request(id, key, operation, {}, contexts);
}

octets encapsulated(const std::function<void(cdr_writer&)>& put) {
    cdr_writer out = cdr_writer::encapsulation();
    put(out);
    return out.bytes();
}

/// A request's header with a count of service contexts that it hasn't.
octets with_context_count(uint32_t id, uint32_t count) {
    cdr_writer out;
    out.raw(octets(giop::HEADER_SIZE));
    out.number(id);
    out.octet(3);
    out.raw(octets(3));
    out.number<uint16_t>(0); // addressed by a key
    out.counted({'H', 'S', 'F', 'a', 'c', 't', 'o', 'r', 'y'});
    out.text("getInactivityTimeout");
    out.number(count);
    out.raw(octets(large));
    const octets body(out.bytes().begin() + giop::HEADER_SIZE, out.bytes().end());
    return giop::make_message(giop::message_type::request, body);
}

octets locate(uint32_t id, const std::string& key) {
    cdr_writer out;
    out.raw(octets(giop::HEADER_SIZE));
    out.number(id);
    out.number<uint16_t>(0);
    out.counted(octets(key.begin(), key.end()));
    const octets body(out.bytes().begin() + giop::HEADER_SIZE, out.bytes().end());
    return giop::make_message(giop::message_type::locate_request, body);
}

/// Unlike all others.
std::string text_of(uint32_t round, size_t size) {
    return std::to_string(round) + std::string(size, 'x');
}

const odd_header headers[] = {
    {"AKeyThatNobodyHas",
     [](uint32_t id, uint32_t round) { return request(id, {}, text_of(round, 20)); }},
    {"ALargeKey",
     [](uint32_t id, uint32_t round) { return request(id, {}, text_of(round, large)); }},
    {"AKeyOfManyNames",
     [](uint32_t id, uint32_t round) {
         return request(id, {}, std::string(1000, '\xff') + std::to_string(round));
     }},
    {"ALargeName",
     [](uint32_t id, uint32_t round) {
         return request(id, {}, "HSFactory", text_of(round, large));
     }},
    {"AContextThatNobodyKnows",
     [](uint32_t id, uint32_t round) {
         return request(id, {{0x10000 + round, octets(large, 'x')}}, "HSFactory");
     }},
    {"ManyContexts",
     [](uint32_t id, uint32_t round) {
         giop::service_contexts contexts;
         for (uint32_t i = 0; i < 100; ++i) {
             contexts[0x10000 + 100 * (round % 1000) + i] = octets(4, 'x');
         }
         return request(id, contexts, "HSFactory");
     }},
    {"4GContexts", [](uint32_t id, uint32_t) { return with_context_count(id, 0xffffffff); }},
    {"1GContexts", [](uint32_t id, uint32_t) { return with_context_count(id, 0x40000000); }},
    {"AsManyContextsAsOctets",
     [](uint32_t id, uint32_t) { return with_context_count(id, large - 8); }},
    {"AnEmptyContextOfCodeSets",
     [](uint32_t id, uint32_t) {
         return request(id, {{CODE_SETS, {}}}, "HSFactory");
     }},
    {"CodeSetsThatArent",
     [](uint32_t id, uint32_t round) {
         return request(id, {{CODE_SETS, encapsulated([round](cdr_writer& out) {
                                  out.number<uint32_t>(0x77000000 + round);
                                  out.number<uint32_t>(0x66000000 + round);
                              })}},
                        "HSFactory");
     }},
    {"ConnectionsBackTo4GPlaces",
     [](uint32_t id, uint32_t) {
         return request(id, {{BI_DIR_IIOP, encapsulated([](cdr_writer& out) {
                                  out.number<uint32_t>(0xffffffff);
                              })}},
                        "HSFactory");
     }},
    {"AConnectionBack",
     [](uint32_t id, uint32_t round) {
         return request(id, {{BI_DIR_IIOP, encapsulated([round](cdr_writer& out) {
                                  out.number<uint32_t>(1);
                                  out.text(text_of(round, 100));
                                  out.number<uint16_t>(7);
                              })}},
                        "HSFactory");
     }},
    {"AQuestionWhereAnObjectIs",
     [](uint32_t id, uint32_t round) { return locate(id, text_of(round, large)); }},
};

class HostileHeader : public testing::Test {
  protected:
    /// Sends messages, each on the same connection for as long as that lasts.
    void send(const odd_header& header, uint32_t from, uint32_t count) {
        std::optional<giop::connection> peer;
        for (uint32_t round = from; round < from + count; ++round) {
            if (!peer) {
                peer.emplace(giop::connection::to(static_cast<uint16_t>(service_.port())));
            }
            if (!peer->send(header.make(2 * round, round)) || !peer->receive()) {
                peer.reset();
            }
        }
    }
    double memory() const { return service_.metric("process_resident_memory_bytes"); }

    service_process service_;
};

TEST_F(HostileHeader, OfEachKindChangesNothing) {
    const Orvessa::Vaultaro::HostSessionFactory_var factory = find_factory(service_.port());
    for (const odd_header& header : headers) {
        SCOPED_TRACE(header.name);
        send(header, 0, 3);
        EXPECT_EQ(factory->getInactivityTimeout(), 3600);
    }
}

TEST_F(HostileHeader, OfEachKindLeavesNothingBehind) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "the memory measured would be the sanitizer's";
    }
    for (const odd_header& header : headers) {
        SCOPED_TRACE(header.name);
        send(header, 0, 300); // the threads' heaps have grown
        const double before = memory();
        send(header, 300, 600);
        EXPECT_LT(memory() - before, 1 << 21); // three and a half kilobytes for each would show
    }
}

} // namespace
