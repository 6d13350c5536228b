#include "tests/support/certificates.h"

#include "tests/support/conf_dir.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

certificates::certificates(const std::string& name)
    : directory_((fs::temp_directory_path() / "tls-XXXXXX").string()) {
    EXPECT_NE(mkdtemp(directory_.data()), nullptr);
    const std::string commands =
        "cd " + directory_ + " && exec 2>log && " +
        "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=" + name +
        " -keyout ca.key -out ca.pem && "
        "openssl req -newkey rsa:2048 -nodes -subj /CN=localhost -keyout own.key -out own.csr && "
        "openssl x509 -req -days 2 -in own.csr -CA ca.pem -CAkey ca.key -CAcreateserial"
        " -out own.crt && "
        "cat own.key own.crt > own.pem";
    EXPECT_EQ(std::system(commands.c_str()), 0) << commands << conf_dir::read(directory_ + "/log");
}

certificates::~certificates() {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}
