// The service over TLS. A client that speaks TLS is a process of its own, since an ORB has one set
// of certificates: OpenSSL's, which shows that the handshake asks for and checks a certificate.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/certificates.h"
#include "tests/support/conf_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

class Tls : public testing::Test {
  protected:
    /// A client process with those certificates.
    static tool_process client(const certificates& files, int port) {
        return {{MANY_CLIENTS, std::to_string(port), "hold", "s3", "1"},
                {{{"VLSL_TLS_CA", files.authority()}, {"VLSL_TLS_KEY", files.key()}}, "", false}};
    }

    std::vector<std::string> tls_arguments() const {
        return {"--tls-ca", own.authority(), "--tls-key", own.key()};
    }

    const certificates own{"own"};
};

TEST_F(Tls, AClientWithACertificateIsServed) {
    const service_process service(tls_arguments());
    EXPECT_EQ(service.port(), 0);
    tool_process holder = client(own, service.tls_port());
    EXPECT_TRUE(holder.await_err("holding"));
    EXPECT_EQ(service.storage("s3")["connections"], 1);
}

TEST_F(Tls, ForeignCertificatesAndPlainClientsAreNot) {
    const service_process service(tls_arguments());
    const certificates foreign("foreign");
    tool_process stranger = client(foreign, service.tls_port());
    EXPECT_THAT(stranger.wait().err, HasSubstr("CORBA::"));
    EXPECT_THROW(remote_session(service.tls_port()), CORBA::SystemException);
    EXPECT_EQ(service.status()["sessions"], 0);
}

TEST_F(Tls, APortOfItsOwnLeavesTheOtherPlain) {
    std::vector<std::string> arguments = tls_arguments();
    arguments.insert(arguments.end(), {"--tls-port", "0"});
    const service_process service(arguments);
    tool_process holder = client(own, service.tls_port());
    EXPECT_TRUE(holder.await_err("holding"));
    const remote_session plain(service.port());
    EXPECT_EQ(plain.check_connections("a:s3", 1).status, 0);
    EXPECT_EQ(service.storage("s3")["connections"], 2);
}

TEST_F(Tls, FilesThatAreNoCertificatesEndItWithAMessage) {
    const conf_dir files;
    const std::string rubbish = files.path() + "/rubbish.pem";
    conf_dir::write(rubbish, "rubbish\n");
    const ended result =
        run_process({service_process::program(), "--state", service_process::state(), "--port", "0",
                     "--no-http", "--tls-ca", own.authority(), "--tls-key", rubbish});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr(rubbish));
}

} // namespace
