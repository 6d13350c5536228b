// What the tests of the suite share: the stack, started, and a store of the test's own.
#pragma once

#include "tests/conformance/rules.h"
#include "tests/conformance/stack.h"
#include "tests/platform/sts/disk_store.h"
#include "tests/support/host_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class Storage : public testing::Test {
  protected:
    /// The stack, started; an empty directory; a server on the root "store" below it, with the LSU
    /// "lsu".
    void SetUp() override;
    /// Closes that server, unless the test has, and stops the stack.
    void TearDown() override;

    /// As the storage names the server on a root.
    std::string storage_name(const std::string& root = "store") const {
        return "disk:" + directory + "/" + root;
    }
    /// As the host names it.
    std::string server_name(const std::string& root = "store") const {
        return stack::current().server_name(storage_name(root));
    }
    std::string path(const std::string& below) const { return directory + "/" + below; }
    handle open_server(const std::string& root = "store");
    /// Releases what it is given.
    int create_lsu(const std::string& name, const std::string& label = "") {
        return create_lsu_on(server, name, label);
    }
    static int create_lsu_on(handle where, const std::string& name, const std::string& label = "");
    sts_lsu_ref_s ref(const std::string& lsu = "lsu") const { return ref_on(server, lsu); }
    static sts_lsu_ref_s ref_on(handle where, const std::string& lsu = "lsu");

    /// Creates an image and leaves it open.
    handle create(const std::string& name, const std::string& group = "",
                  const std::string& lsu = "lsu");
    handle open(const std::string& name, uint32_t flags = STS_IMAGE_READ,
                const std::string& lsu = "lsu");
    /// The status of opening an image that can't be opened.
    int open_status(const std::string& name, const std::string& lsu = "lsu");
    void write(handle image, const std::string& content, uint64_t position = 0);
    std::string read(handle image, uint64_t length = 1 << 20, uint64_t position = 0);
    int close(handle image, int32_t mode = STS_CLOSE_COMPLETE) {
        return call::close_image(image, mode);
    }
    int delete_image(const std::string& name, const std::string& lsu = "lsu");

    /// Makes a whole image.
    void store(const std::string& name, const std::string& content, const std::string& group = "",
               const std::string& lsu = "lsu");
    /// What a whole image holds.
    std::string content_of(const std::string& name, const std::string& lsu = "lsu");
    std::vector<std::string> image_names(const std::string& lsu = "lsu");
    std::vector<std::string> lsu_names();

    std::string directory;
    sts_session_def_v7_t session = host_session("host", 0);
    handle server;                  ///< null once the test has closed it
    int status_of_closing = STS_OK; ///< what closing it at the end must answer
};
