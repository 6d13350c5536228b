// No request is sent twice, whatever becomes of the first: a connection that counts twice would be
// one too many.

#include "tests/client/client_fixture.h"

#include <algorithm>
#include <vlsl.hh>

using testing::ElementsAre;

namespace {

class Resend : public EachExchange {};

INSTANTIATE_TEST_SUITE_P(Each, Resend, each_exchange(), exchange_name);

TEST_P(Resend, DoesNotFollowAConnectionThatClosesInsteadOfAnAnswer) {
    const auto client = make_connected();
    service.answer(shape.asked, {drops_connections(), {}});
    EXPECT_EQ(shape.run(*client), shape.corba_status);
    EXPECT_THAT(service.take(), ElementsAre(shape.request));
    EXPECT_EQ(shape.run(*client), STS_OK); // the next one makes a connection of its own
    EXPECT_THAT(service.take(), ElementsAre(shape.request));
}

TEST_P(Resend, DoesNotFollowAnExceptionThatInvitesToTryAgain) {
    const auto client = make_connected();
    for (const char* const exception : {"TRANSIENT", "COMM_FAILURE", "OBJECT_NOT_EXIST"}) {
        service.answer(shape.asked, {raises(exception), {}});
        EXPECT_EQ(shape.run(*client), shape.corba_status);
        EXPECT_THAT(service.take(), ElementsAre(shape.request)) << exception;
    }
}

class ResendOfAClient : public Client {
  protected:
    /// How often the service was asked `request` since the last time.
    long asked(const std::string& request) {
        const lines all = service.take();
        return std::count(all.begin(), all.end(), request);
    }
};

TEST_F(ResendOfAClient, DoesNotAskForASecondSessionByItself) {
    service.answer("getHostSession",
                   {drops_connections(), raises("TRANSIENT"), raises("COMM_FAILURE"), {}});
    const auto client = make();
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_THROW(client->Initialize(), CORBA::SystemException);
        EXPECT_EQ(asked(new_session.front()), 1);
    }
    EXPECT_TRUE(client->Initialize());
}

TEST_F(ResendOfAClient, EndsASessionOnce) {
    auto client = make_connected();
    service.answer("destroy", drops_connections());
    client.reset();
    EXPECT_EQ(asked("destroy()"), 1);
}

} // namespace
