// Memory that runs out in the client.

#include "tests/client/client_fixture.h"
#include "tests/support/fault.h"

#include <cerrno>
#include <memory>
#include <vlsl.hh>

namespace {

class ClientMemory : public Client {
  protected:
    ~ClientMemory() override { fault::clear(); }
};

const CORBA::Any* reason_of(const Orvessa::Vaultaro::ActionFailedEvent& event) {
    return std::addressof(event.msg_info.unknownError());
}

TEST_F(ClientMemory, AFailedActionWhoseReasonCannotBeCopiedHasAllButTheReason) {
    const auto client = make();
    Orvessa::Vaultaro::ActionFailedEventSeq_var events =
        new Orvessa::Vaultaro::ActionFailedEventSeq;
    events->length(1);
    Orvessa::Vaultaro::ActionFailedEvent event;
    fault::take_allocations();
    {
        event.hostName = ""; // what is allocated before the copy
        event.serviceName = "";
        event.locale = "";
        CORBA::Any reason;
        reason <<= "Corba error";
    }
    const long before_the_copy = fault::take_allocations();
    errno = 0;
    fault::fail_new_after(static_cast<int>(before_the_copy));
    client->InitializeActionFailedException(events);
    fault::clear();
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(events[0].id.domain, 4);
    EXPECT_EQ(events[0].id.number, 195);
    EXPECT_EQ(events[0].msg_info._d(), 0);
    EXPECT_EQ(reason_of(events[0]), nullptr);
}

TEST_F(ClientMemory, SoDoesTheOneThatInitializeThrows) {
    service.answer("getHostSession", hands_out("nil"));
    const auto client = make();
    const auto attempt = [&](int after) {
        fault::take_allocations();
        fault::fail_new_after(after);
        errno = 0;
        try {
            client->Initialize();
        } catch (const Orvessa::Vaultaro::ActionFailedException& failed) {
            fault::clear();
            EXPECT_EQ(failed.eventSeq.length(), 1U);
            EXPECT_EQ(failed.eventSeq[0].id.number, 195);
            EXPECT_EQ(failed.eventSeq[0].msg_info._d(), 0);
            return reason_of(failed.eventSeq[0]) == nullptr && errno == ENOMEM;
        }
        return false;
    };
    EXPECT_FALSE(attempt(-1));
    bool failed_then = false;
    for (int round = 0; round < 10 && !failed_then;
         ++round) { // a thread of the ORB's may allocate, too
        EXPECT_FALSE(attempt(-1));
        const long all = fault::take_allocations();
        CORBA::Any reason;
        reason <<= "Corba error";
        fault::take_allocations();
        const std::unique_ptr<CORBA::Any> copy(new CORBA::Any(reason));
        const long of_the_copy = fault::take_allocations(); // the last of all
        failed_then = attempt(static_cast<int>(all - of_the_copy));
    }
    EXPECT_TRUE(failed_then);
}

TEST_F(ClientMemory, AnExchangeWithoutMemoryForTheTextOfTheAnswerFails) {
    service.answer("check_connections", returns_text(std::string(100, 'x')));
    service.answer("check_bandwidth", returns_text(std::string(100, 'x')));
    const auto client = make_connected();
    for (const char* const name : {"check_connections", "check_bandwidth"}) {
        const exchange_shape& shape = shape_of(name);
        std::string out;
        EXPECT_EQ(shape.run(*client, out), STS_OK);
        fault::take_allocations();
        shape.run(*client);
        const long allocations = fault::take_allocations();
        out.clear();
        out.shrink_to_fit();
        fault::fail_new_after(static_cast<int>(allocations) - 1); // the last one is `out`
        const int status = shape.run(*client, out);
        fault::clear();
        EXPECT_EQ(status, failed_exchange);
        EXPECT_EQ(take_log().back(), shape.other_line());
        EXPECT_EQ(shape.run(*client, out), STS_OK);
    }
}

} // namespace
