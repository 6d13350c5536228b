// The client over TLS: the same exchanges, with a certificate on both sides.

#include "tests/client/client_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <vlsl.hh>

using testing::ElementsAreArray;

namespace {

/// An authority and one key that it has signed, made when they are first needed and kept for the
/// program's life.
class certificates {
  public:
    explicit certificates(const std::string& name) {
        std::string pattern = (std::filesystem::temp_directory_path() / "tls-XXXXXX").string();
        directory_ = mkdtemp(pattern.data());
        const std::string base = directory_ + "/";
        run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=" + name + "' -keyout " +
            base + "ca.key -out " + base + "ca.pem");
        run("openssl req -newkey rsa:2048 -nodes -subj '/CN=localhost' -keyout " + base +
            "own.key -out " + base + "own.csr");
        run("openssl x509 -req -days 2 -in " + base + "own.csr -CA " + base + "ca.pem -CAkey " +
            base + "ca.key -CAcreateserial -out " + base + "own.crt");
        run("cat " + base + "own.key " + base + "own.crt > " + base + "own.pem");
    }
    ~certificates() {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    certificates(const certificates&) = delete;
    certificates& operator=(const certificates&) = delete;

    tls_files files() const { return {directory_ + "/ca.pem", directory_ + "/own.pem"}; }

  private:
    static void run(const std::string& command) {
        EXPECT_EQ(std::system((command + " 2>/dev/null").c_str()), 0) << command;
    }

    std::string directory_;
};

const certificates& ours() {
    static const certificates made("ours");
    return made;
}
const certificates& strangers() {
    static const certificates made("strangers");
    return made;
}

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
    remote_service service(ours().files());
    const auto client = make(ours().files());
    lines asked = session_and_facets;
    for (const exchange_shape& shape : exchange_shapes) {
        service.answer(shape.asked, returns(0, "answer"));
        EXPECT_EQ(shape.run(*client), STS_OK) << shape.name;
        asked.emplace_back(shape.request);
    }
    EXPECT_THAT(service.take(), ElementsAreArray(asked));
}

TEST_F(Tls, AClientThatDoesNotForceItReachesNoServiceOfIt) {
    remote_service service(ours().files());
    expect_failure(*make(ours().files(), false));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AForcedClientReachesNoServiceWithoutIt) {
    remote_service service;
    expect_failure(*make(ours().files()));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AServiceThatAStrangerSignedIsNotTrusted) {
    remote_service service({ours().files().authority, strangers().files().key});
    expect_failure(*make(ours().files()));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AClientThatAStrangerSignedIsNotTrusted) {
    remote_service service(ours().files());
    expect_failure(*make({ours().files().authority, strangers().files().key}));
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AClientWithoutReadableCertificatesFailsItsExchanges) {
    remote_service service(ours().files());
    expect_failure(*make({"/nowhere/ca.pem", "/nowhere/own.pem"}));
    unsetenv("VLSL_TLS_CA");
    unsetenv("VLSL_TLS_KEY");
    CCloudVLSLClient without(&session, "localhost", true, 0, 10);
    expect_failure(without);
    EXPECT_TRUE(service.take().empty());
}

TEST_F(Tls, AClientAfterOneWithoutReadableCertificatesIsNoneTheWorse) {
    {
        remote_service service(ours().files());
        expect_failure(*make({"/nowhere/ca.pem", "/nowhere/own.pem"}));
        EXPECT_EQ(shape_of("check_connections").run(*make(ours().files())), STS_OK);
    }
    remote_service service;
    EXPECT_EQ(shape_of("check_connections").run(*make(ours().files(), false)), STS_OK);
}

TEST_F(Tls, AClientAfterTheLastForcedOneGoesWithoutIt) {
    {
        remote_service service(ours().files());
        EXPECT_EQ(shape_of("check_connections").run(*make(ours().files())), STS_OK);
    }
    remote_service service;
    EXPECT_EQ(shape_of("check_connections").run(*make(ours().files(), false)), STS_OK);
}

} // namespace
