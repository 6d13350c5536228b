// The service over TLS. A client that speaks TLS is a process of its own, since an ORB has one set
// of certificates: OpenSSL's, which shows that the handshake asks for and checks a certificate.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

/// An authority, a key with its certificate, and one of somebody else's authority.
class Tls : public testing::Test {
  protected:
    void SetUp() override {
        directory_ = (fs::temp_directory_path() / "tls-XXXXXX").string();
        ASSERT_NE(mkdtemp(directory_.data()), nullptr);
        make("own");
        make("foreign");
    }
    void TearDown() override { fs::remove_all(directory_); }

    std::string file(const std::string& name) const { return directory_ + "/" + name; }

    /// NAME-ca.pem, and NAME.pem that it has signed.
    void make(const std::string& name) {
        run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=" + name + "-ca -keyout " +
            name + "-ca.key -out " + name + "-ca.pem");
        run("openssl req -newkey rsa:2048 -nodes -subj /CN=localhost -keyout " + name +
            ".key -out " + name + ".csr");
        run("openssl x509 -req -days 2 -in " + name + ".csr -CA " + name + "-ca.pem -CAkey " +
            name + "-ca.key -CAcreateserial -out " + name + ".crt");
        run("cat " + name + ".key " + name + ".crt > " + name + ".pem");
    }

    ended run(const std::string& line) const {
        ended result = run_process({"/bin/sh", "-c", line}, {{}, directory_, false});
        EXPECT_EQ(result.code, 0) << line << "\n" << result.err;
        return result;
    }

    /// A client process with the certificates of `name`.
    tool_process client(const std::string& name, int port) const {
        return {{MANY_CLIENTS, std::to_string(port), "hold", "s3", "1"},
                {{{"VLSL_TLS_CA", file(name + "-ca.pem")}, {"VLSL_TLS_KEY", file(name + ".pem")}},
                 "",
                 false}};
    }

    std::vector<std::string> tls_arguments() const {
        return {"--tls-ca", file("own-ca.pem"), "--tls-key", file("own.pem")};
    }

    std::string directory_;
};

TEST_F(Tls, AClientWithACertificateIsServed) {
    const service_process service(tls_arguments());
    EXPECT_EQ(service.port(), 0);
    tool_process holder = client("own", service.tls_port());
    EXPECT_TRUE(holder.await_err("holding"));
    EXPECT_EQ(service.storage("s3")["connections"], 1);
}

TEST_F(Tls, ForeignCertificatesAndPlainClientsAreNot) {
    const service_process service(tls_arguments());
    tool_process foreign = client("foreign", service.tls_port());
    EXPECT_THAT(foreign.wait().err, HasSubstr("CORBA::"));
    EXPECT_THROW(remote_session(service.tls_port()), CORBA::SystemException);
    EXPECT_EQ(service.status()["sessions"], 0);
}

TEST_F(Tls, APortOfItsOwnLeavesTheOtherPlain) {
    std::vector<std::string> arguments = tls_arguments();
    arguments.insert(arguments.end(), {"--tls-port", "0"});
    const service_process service(arguments);
    tool_process holder = client("own", service.tls_port());
    EXPECT_TRUE(holder.await_err("holding"));
    const remote_session plain(service.port());
    EXPECT_EQ(plain.check_connections("a:s3", 1).status, 0);
    EXPECT_EQ(service.storage("s3")["connections"], 2);
}

TEST_F(Tls, FilesThatAreNoCertificatesEndItWithAMessage) {
    run("echo rubbish > rubbish.pem");
    const ended result =
        run_process({service_process::program(), "--port", "0", "--no-http", "--tls-ca",
                     file("own-ca.pem"), "--tls-key", file("rubbish.pem")});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("rubbish.pem"));
}

} // namespace
