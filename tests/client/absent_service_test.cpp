// A service that isn't there, comes up, goes away and comes back.

#include "tests/client/client_fixture.h"

#include <vlsl.hh>

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

namespace {

class AbsentService : public EachExchange {};

INSTANTIATE_TEST_SUITE_P(Each, AbsentService, each_exchange(), exchange_name);

TEST_P(AbsentService, FailsAnExchangeAndTellsOfIt) {
    service.stop();
    const auto client = make();
    EXPECT_EQ(shape.run(*client, out), shape.corba_status);
    if (shape.corba_status == failed_exchange) {
        EXPECT_EQ(out, "as it was");
    }
    EXPECT_EQ(take_log().back(), shape.corba_line());
    EXPECT_EQ(client->getSessionID(), 0);
}

TEST_P(AbsentService, IsTriedAgainByEachExchangeAndFoundOnceItIsThere) {
    service.stop();
    const auto client = make();
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_EQ(shape.run(*client, out), shape.corba_status);
    }
    service.start();
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    lines asked = new_session;
    asked.emplace_back(shape.request);
    EXPECT_THAT(service.take(), ElementsAreArray(asked));
    EXPECT_EQ(client->getSessionID(), 1);
}

TEST_P(AbsentService, FailsEachExchangeFromTheTimeThatItGoesAway) {
    const auto client = make_connected();
    service.stop();
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(shape.run(*client, out), shape.corba_status);
        EXPECT_THAT(take_log(), ElementsAre(shape.corba_line()));
    }
    EXPECT_EQ(client->getSessionID(), 1);
}

TEST_P(AbsentService, IsFoundAgainUnderTheSameReferencesWithoutANewSession) {
    const auto client = make_connected();
    service.stop();
    EXPECT_EQ(shape.run(*client, out), shape.corba_status);
    service.start();
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre(shape.request));
    EXPECT_EQ(client->getSessionID(), 1);
}

TEST_P(AbsentService, WhoDiesOverAnExchangeFailsIt) {
    const auto client = make_connected();
    service.answer(shape.asked, dies());
    EXPECT_EQ(shape.run(*client, out), shape.corba_status);
    EXPECT_THAT(take_log(), ElementsAre(shape.corba_line()));
}

class AbsentServiceOfAClient : public Client {};

TEST_F(AbsentServiceOfAClient, PassesASystemExceptionOutOfTheCallsThatHaveNoStatus) {
    service.stop();
    const auto client = make();
    EXPECT_THROW(client->Initialize(), CORBA::SystemException);
    EXPECT_THROW(client->InitializeCloudManager(), CORBA::SystemException);
    EXPECT_THROW(client->GetCloudManager(), CORBA::SystemException);
    EXPECT_THROW(client->getInactivityTimeout(), CORBA::SystemException);
    client->Shutdown();
}

TEST_F(AbsentServiceOfAClient, LetsAClientGoWithoutAWord) {
    auto client = make_connected();
    service.stop();
    client.reset();
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(AbsentServiceOfAClient, HearsOfANewSessionWhenItIsBack) {
    const auto client = make_connected();
    service.stop();
    client->newSession("localhost", 0, false, 10);
    EXPECT_EQ(shape_of("check_connections").run(*client), failed_exchange);
    service.start();
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
    EXPECT_THAT(service.take(), Contains(new_session.front()));
    EXPECT_EQ(client->getSessionID(), 2);
}

TEST_F(AbsentServiceOfAClient, HasNothingToDoWithASecondClientsSession) {
    const auto first = make_connected();
    const auto second = make();
    second->newSession("localhost", 0, false, 10);
    second->Initialize();
    second->Shutdown();
    service.take();
    EXPECT_EQ(shape_of("check_connections").run(*first), STS_OK);
    EXPECT_THAT(service.take(), Not(Contains(new_session.front())));
}

} // namespace
