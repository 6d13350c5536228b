// The six exchanges: what each sends, what it makes of the answer, and what each kind of failure
// comes out as. Every exchange goes through the whole list of cases.

#include "tests/client/client_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

namespace {

class Exchange : public EachExchange {
  protected:
    /// What `out` holds when the exchange failed.
    std::string out_of_failure() const {
        return std::string(shape.name) == "getStorageServerConfig" ? "" : "as it was";
    }
    std::string no_facet_line() const {
        return "4 Unknown CORBA exception occured while processing " + std::string(shape.asked) +
               ", return code =2060017";
    }
};

INSTANTIATE_TEST_SUITE_P(All, Exchange, each_exchange(), exchange_name);

// --- answers

TEST_P(Exchange, SendsOneRequestWithItsArguments) {
    const auto client = make_connected();
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre(shape.request));
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_P(Exchange, MakesTheSessionAndItsFacetsBeforeItsFirstRequestAlone) {
    const auto client = make();
    lines asked = new_session;
    asked.push_back(shape.request);
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_THAT(service.take(), ElementsAreArray(asked));
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre(shape.request));
    EXPECT_EQ(client->getSessionID(), 1);
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_P(Exchange, PassesTheStatusAndTheTextOfTheServiceOn) {
    const auto client = make_connected();
    for (const int status : {0, 1, -1, 2060017, 2060020, INT32_MAX, INT32_MIN}) {
        service.answer(shape.asked, returns(status, "an answer \xe9\x80\x01"));
        out = "as it was";
        EXPECT_EQ(shape.run(*client, out), shape.passes_status ? status : 0);
        EXPECT_EQ(out, shape.fills_out ? "an answer \xe9\x80\x01" : "as it was");
    }
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_P(Exchange, TakesAnEmptyTextForAnAnswer) {
    const auto client = make_connected();
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_EQ(out, shape.fills_out ? "" : "as it was");
}

// --- failures

TEST_P(Exchange, TellsOfAnExceptionOfTheServiceWithTheCodeOfItsFirstRecord) {
    const auto client = make_connected();
    service.answer(shape.asked, raises_operation_failed({1234, 99}));
    EXPECT_EQ(shape.run(*client, out), shape.passes_code ? 1234 : failed_exchange);
    EXPECT_EQ(out, out_of_failure());
    EXPECT_THAT(take_log(), ElementsAre(shape.raised_line(1234)));
}

TEST_P(Exchange, DoesNotTakeAnExceptionWithTheCodeOfARefusalForOne) {
    const auto client = make_connected();
    service.answer(shape.asked, raises_operation_failed({STS_ERR_MAX_CONNECTIONS}));
    EXPECT_EQ(shape.run(*client, out),
              shape.passes_code ? STS_ERR_MAX_CONNECTIONS : failed_exchange);
    EXPECT_THAT(take_log(), ElementsAre(shape.raised_line(STS_ERR_MAX_CONNECTIONS)));
}

TEST_P(Exchange, SurvivesAnExceptionOfTheServiceWithoutRecords) {
    const auto client = make_connected();
    service.answer(shape.asked, raises_operation_failed({}));
    EXPECT_EQ(shape.run(*client, out), failed_exchange);
    EXPECT_EQ(out, out_of_failure());
    EXPECT_THAT(take_log(), ElementsAre(shape.raised_line(0)));
}

TEST_P(Exchange, TellsOfASystemExceptionAsAnUnknownOne) {
    const auto client = make_connected();
    for (const char* const exception : {"NO_RESOURCES", "OBJECT_NOT_EXIST", "UNKNOWN"}) {
        service.answer(shape.asked, raises(exception));
        EXPECT_EQ(shape.run(*client, out), shape.corba_status) << exception;
        EXPECT_EQ(out, out_of_failure());
        EXPECT_THAT(take_log(), ElementsAre(shape.corba_line()));
    }
}

TEST_P(Exchange, TellsOfAnExceptionThatTheOperationDoesNotDeclareAsAnUnknownOne) {
    const auto client = make_connected();
    service.answer(shape.asked, raises("ActionFailedException"));
    EXPECT_EQ(shape.run(*client, out), shape.corba_status);
    EXPECT_THAT(take_log(), ElementsAre(shape.corba_line()));
}

TEST_P(Exchange, TellsOfAConnectionThatCannotBeMadeLikeOfACallThatFails) {
    service.answer("getHostSession", hands_out("nil"));
    const auto client = make();
    EXPECT_EQ(shape.run(*client, out), shape.corba_status);
    EXPECT_EQ(out, out_of_failure());
    EXPECT_THAT(
        take_log(),
        ElementsAre("4 CCloudVLSLClient::Initialize() Failed to get instance of HostSession",
                    shape.corba_line()));
}

TEST_P(Exchange, TellsOfWhatIsNoExceptionOfTheOrbByALineOfItsOwn) {
    const auto client = make_connected();
    {
        const odd_requests while_it_runs;
        EXPECT_EQ(shape.run(*client, out), shape.other_status);
    }
    EXPECT_EQ(out, out_of_failure());
    EXPECT_THAT(take_log(), ElementsAre(shape.other_line()));
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre(shape.request));
}

TEST_P(Exchange, GoesOnWithTheSameReferencesAfterAFailure) {
    const auto client = make_connected();
    service.answer(shape.asked, {raises("OBJECT_NOT_EXIST"), raises_operation_failed({5}),
                                 returns(0, "well again")});
    EXPECT_NE(shape.run(*client, out), STS_OK);
    EXPECT_NE(shape.run(*client, out), STS_OK);
    EXPECT_EQ(shape.run(*client, out), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre(shape.request, shape.request, shape.request));
    EXPECT_EQ(client->getSessionID(), 1);
}

TEST_P(Exchange, AnswersAFailureWhereTheServiceHasNoSuchFacet) {
    service.answer("aqueryFacet", hands_out("nil"));
    service.answer("amodifyFacet", hands_out("nil"));
    const auto client = make();
    EXPECT_EQ(shape.run(*client, out), failed_exchange);
    EXPECT_EQ(out, out_of_failure());
    EXPECT_THAT(take_log(), ElementsAre(no_facet_line()));
    // A facet that is missing is asked for again, the session and the manager are not.
    service.take();
    EXPECT_EQ(shape.run(*client, out), failed_exchange);
    EXPECT_THAT(service.take(), ElementsAre("aqueryFacet()", "amodifyFacet()"));
    service.answer("aqueryFacet", {});
    service.answer("amodifyFacet", {});
    EXPECT_EQ(shape.run(*client, out), STS_OK);
}

TEST_P(Exchange, AnswersAFailureWhereTheFacetIsOfAnotherInterface) {
    service.answer("aqueryFacet", hands_out("plain"));
    service.answer("amodifyFacet", hands_out("plain"));
    const auto client = make();
    EXPECT_EQ(shape.run(*client, out), failed_exchange);
    EXPECT_EQ(out, out_of_failure());
    EXPECT_THAT(service.take(), Not(Contains(shape.request)));
    EXPECT_THAT(take_log(), ElementsAre(no_facet_line()));
}

} // namespace
