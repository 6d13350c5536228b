// Values that no client of good will sends: each is answered with CORBA::MARSHAL, and the service
// goes on as before.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/hostile_values.h"
#include "tests/support/process_state.h"

#include <gtest/gtest.h>

using giop::cdr_writer;

namespace {

const giop::value_type sample = {"IDL:Corvane/Vaultaro/SL/CloudMgmt/ThrottlingBandwidth:1.0",
                                 [](cdr_writer& out) {
                                     out.number<uint32_t>(1); // a write
                                     out.number<uint32_t>(0);
                                     out.number<uint32_t>(1);
                                     out.number<uint64_t>(1000);
                                 }};

/// The service, and a connection to it on which a session's facet is asked by hand.
class HostileValue : public testing::Test {
  protected:
    HostileValue()
        : client_(service_.port()), query_(reference_of(client_.query)),
          modify_(reference_of(client_.modify)),
          peer_(giop::connection::to(static_cast<uint16_t>(service_.port()))) {}

    static giop::reference reference_of(CORBA::Object_ptr object) {
        const CORBA::String_var text = client_orb()->object_to_string(object);
        return giop::parse_reference(text.in());
    }
    giop::reply ask(const giop::reference& facet, const std::string& operation,
                    const cdr_writer& arguments) {
        const uint32_t id = ++last_id_;
        EXPECT_TRUE(
            peer_.send(giop::make_request(id, facet.object_key, operation, arguments.bytes())));
        const auto answer = peer_.receive();
        if (!answer) {
            throw std::runtime_error("the service closed the connection");
        }
        return giop::parse_reply(*answer);
    }
    giop::reply report(const giop::odd_value& value) {
        cdr_writer arguments;
        arguments.text("w:s3");
        arguments.text("host_1");
        value.put(arguments);
        return ask(query_, "check_bandwidth", arguments);
    }
    static std::string exception_of(const giop::reply& reply) {
        if (reply.status != giop::reply_status::system_exception) {
            return "no system exception";
        }
        return giop::cdr_reader(reply.body, reply.little_endian).text();
    }
    void expect_refused(const giop::odd_value& value) {
        EXPECT_EQ(exception_of(report(value)), "IDL:omg.org/CORBA/MARSHAL:1.0");
    }
    void expect_as_before() const {
        EXPECT_EQ(client_.check_connections("a:s3", 1).status, 0);
        EXPECT_EQ(client_.check_connections("a:s3", -1).status, 0);
    }
    double memory() const { return service_.metric("process_resident_memory_bytes"); }

    service_process service_;
    remote_session client_;
    giop::reference query_;
    giop::reference modify_;
    giop::connection peer_;
    uint32_t last_id_ = 0;
};

TEST_F(HostileValue, IsRefusedInEachOfItsForms) {
    for (const giop::odd_value& value : giop::hostile_values(sample)) {
        SCOPED_TRACE(value.name);
        expect_refused(value);
        expect_as_before();
    }
}

TEST_F(HostileValue, IsNoneInEachFormThatIsLegal) {
    for (const giop::odd_value& value : giop::legal_values(sample)) {
        SCOPED_TRACE(value.name);
        const giop::reply reply = report(value);
        ASSERT_EQ(reply.status, giop::reply_status::no_exception) << exception_of(reply);
        EXPECT_EQ(giop::cdr_reader(reply.body, reply.little_endian).number<int32_t>(), 0);
    }
    EXPECT_EQ(service_.storage("s3")["write"]["measured"], 1000);
}

TEST_F(HostileValue, LeavesNothingBehind) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "the memory measured would be the sanitizer's";
    }
    const giop::odd_value nested = {
        "", [](cdr_writer& out) { giop::put_nested_chunks(out, sample, 20); }};
    const giop::odd_value longer = {"",
                                    [](cdr_writer& out) { giop::put_with_remainder(out, sample); }};
    const auto send = [&](int count) {
        for (int i = 0; i < count; ++i) {
            expect_refused(i % 2 == 0 ? nested : longer);
        }
        return memory();
    };
    const double before = send(2000);
    EXPECT_LT(send(20'000) - before, 1 << 20);
}

TEST_F(HostileValue, OfAnOperationThatIsRefusedIsNotRead) {
    for (const giop::odd_value& value : giop::hostile_values(sample)) {
        SCOPED_TRACE(value.name);
        cdr_writer arguments;
        arguments.text("a:s3");
        arguments.text("host_1");
        value.put(arguments);
        EXPECT_EQ(exception_of(ask(modify_, "update_MeteringData", arguments)),
                  "IDL:omg.org/CORBA/NO_IMPLEMENT:1.0");
    }
    expect_as_before();
}

TEST_F(HostileValue, MayAsWellBeAText) {
    for (const uint32_t length : {5U, 1000U, 0x7fffffffU, 0xffffffffU}) {
        SCOPED_TRACE(length);
        cdr_writer arguments;
        arguments.number(length);
        arguments.raw({'w', ':', 's', '3', 'x', 'y', 'z', 'x'});
        EXPECT_EQ(exception_of(ask(query_, "check_bandwidth", arguments)),
                  "IDL:omg.org/CORBA/MARSHAL:1.0");
    }
}

} // namespace
