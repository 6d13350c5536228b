// A service that hands out nothing where it should hand out an object, or objects that aren't there
// any more.

#include "tests/faults/faulty_host.h"
#include "tests/support/scripted_service.h"

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

namespace {

const char* const all_requests[] = {"check_connections", "check_bandwidth",
                                    "update_ThrottleConfigParams", "destroy"};

class MissingObjectRealTime : public FaultyHost {
  protected:
    /// A whole backup, which nothing holds up.
    void expect_flow(const std::string& fault) {
        EXPECT_LT(delay_of("a backup with " + fault, [this] { back_up(); }), slack);
    }
    void expect_told(const std::string& line) { EXPECT_THAT(take_errors(), Contains("4 " + line)); }

    remote_service service;
};

TEST_F(MissingObjectRealTime, NoSession) {
    service.answer("getHostSession", hands_out("nil"));
    expect_flow("a session that is nil");
    expect_told("CCloudVLSLClient::Initialize() Failed to get instance of HostSession");
    EXPECT_THAT(service.take(), testing::Each(new_session[0]));
}

TEST_F(MissingObjectRealTime, NoManager) {
    service.answer("getCloudManager", hands_out("nil"));
    expect_flow("a manager that is nil");
    expect_told("CCloudVLSLClient::InitializeCloudManager() Failed to get instance of CloudManager "
                "from vlsl");
    EXPECT_THAT(service.take(), Not(Contains(StartsWith("check_"))));
}

TEST_F(MissingObjectRealTime, NoQueryFacetLeavesTheSettingsArriving) {
    service.answer("aqueryFacet", hands_out("nil"));
    expect_flow("a query facet that is nil");
    expect_told("[throttling_write_image_v7]fail to check bandwidth from service.");
    EXPECT_THAT(service.take(), Contains(StartsWith("update_ThrottleConfigParams(")));
}

TEST_F(MissingObjectRealTime, NoModifiableFacetLeavesTheConnectionsCounted) {
    service.answer("amodifyFacet", hands_out("nil"));
    expect_flow("a modifiable facet that is nil");
    expect_told("[create_or_open_image_v10]set config params error:2060017.");
    EXPECT_THAT(service.take(),
                testing::IsSupersetOf({"check_connections(\"a:s3\", \"a_b\", 1)",
                                       "check_connections(\"w:s3\", \"a_b\", -1)",
                                       "check_connections(\"a:s3\", \"a_b\", -1)", "destroy()"}));
}

TEST_F(MissingObjectRealTime, AnObjectOfAnotherKindInPlaceOfAFacet) {
    service.answer("aqueryFacet", hands_out("plain"));
    expect_flow("a query facet of another kind");
    expect_told("[throttling_write_image_v7]fail to check bandwidth from service.");
}

TEST_F(MissingObjectRealTime, ASessionThatHasVanished) {
    open_server();
    open();
    image->write();
    service.take();
    for (const char* const each : all_requests) {
        service.answer(each, raises("OBJECT_NOT_EXIST"));
    }
    EXPECT_LT(delay_of("a transfer with a session that has vanished", [this] { image->write(); }),
              slack);
    expect_told("[throttling_write_image_v7]fail to check bandwidth from service.");
    EXPECT_LT(delay_of("the ends with a session that has vanished",
                       [this] {
                           image.reset();
                           server.reset();
                       }),
              slack);
    EXPECT_THAT(service.take(),
                ElementsAre(StartsWith("check_bandwidth"), StartsWith("check_bandwidth"),
                            StartsWith("check_connections"), StartsWith("check_connections"),
                            "destroy()")); // nobody asks for a new session
}

} // namespace
