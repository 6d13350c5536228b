// The client over TLS: the same exchanges, with a certificate on both sides.

#include "tests/client/client_fixture.h"
#include "tests/support/certificates.h"

#include <cstdlib>
#include <vlsl.hh>

using testing::ElementsAreArray;

namespace {

/// Made when they are first needed and kept for the program's life.
const certificates& ours() {
    static const certificates made("ours");
    return made;
}
const certificates& strangers() {
    static const certificates made("strangers");
    return made;
}

tls_files our_files() { return {ours().authority(), ours().key()}; }
tls_files files_of_a_stranger() { return {ours().authority(), strangers().key()}; }

class Tls : public testing::Test {
  protected:
    Tls() { take_log(); }
    ~Tls() override {
        unsetenv("VLSL_TLS_CA");
        unsetenv("VLSL_TLS_KEY");
    }

    /// A client with those files.
    std::unique_ptr<CCloudVLSLClient> make(const tls_files& files, bool forced = true) {
        setenv("VLSL_TLS_CA", files.authority.c_str(), 1);
        setenv("VLSL_TLS_KEY", files.key.c_str(), 1);
        return std::make_unique<CCloudVLSLClient>(&session, "localhost", forced, 0UL, 10);
    }
    void expect_failure(CCloudVLSLClient& client) {
        EXPECT_EQ(shape_of("check_connections").run(client), failed_exchange);
        EXPECT_EQ(take_log().back(), shape_of("check_connections").corba_line());
    }

    sts_session_def_v7_t session = host_session("s", 0);
};

TEST_F(Tls, ExchangesGoOverItWhereItIsForced) {
    remote_service service(our_files());
    const auto client = make(our_files());
    lines asked = new_session;
    for (const exchange_shape& shape : exchange_shapes) {
        service.answer(shape.asked, returns(0, "answer"));
        EXPECT_EQ(shape.run(*client), STS_OK) << shape.name;
        asked.emplace_back(shape.request);
    }
    EXPECT_THAT(service.take(), ElementsAreArray(asked));
}

TEST_F(Tls, AClientThatDoesNotForceItReachesNoServiceOfIt) {
    remote_service service(our_files());
    expect_failure(*make(our_files(), false));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AForcedClientReachesNoServiceWithoutIt) {
    remote_service service;
    expect_failure(*make(our_files()));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AServiceThatAStrangerSignedIsNotTrusted) {
    remote_service service(files_of_a_stranger());
    expect_failure(*make(our_files()));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AClientThatAStrangerSignedIsNotTrusted) {
    remote_service service(our_files());
    expect_failure(*make(files_of_a_stranger()));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AClientWithoutReadableCertificatesFailsItsExchanges) {
    remote_service service(our_files());
    expect_failure(*make({"/nowhere/ca.pem", "/nowhere/own.pem"}));
    unsetenv("VLSL_TLS_CA");
    unsetenv("VLSL_TLS_KEY");
    CCloudVLSLClient without(&session, "localhost", true, 0, 10);
    expect_failure(without);
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AClientAfterOneWithoutReadableCertificatesIsNoneTheWorse) {
    {
        remote_service service(our_files());
        expect_failure(*make({"/nowhere/ca.pem", "/nowhere/own.pem"}));
        EXPECT_EQ(shape_of("check_connections").run(*make(our_files())), STS_OK);
    }
    remote_service service;
    EXPECT_EQ(shape_of("check_connections").run(*make(our_files(), false)), STS_OK);
}

TEST_F(Tls, AClientAfterTheLastForcedOneGoesWithoutIt) {
    {
        remote_service service(our_files());
        EXPECT_EQ(shape_of("check_connections").run(*make(our_files())), STS_OK);
    }
    remote_service service;
    EXPECT_EQ(shape_of("check_connections").run(*make(our_files(), false)), STS_OK);
}

} // namespace
