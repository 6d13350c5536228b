// What the tests of the disk-backed storage library share: a store of the test's own, called at the
// library's table as a host would, and short ways to say the usual things.
#pragma once

#include "platform/sts/sts_records.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

/// A status that a failed call of the system is told as.
constexpr int errno_status(int error) { return sts_status_of_errno(error); }

inline sts_forwarded_t forward(const void* pointer) {
    return reinterpret_cast<sts_forwarded_t>(pointer);
}

/// Fills a field of a record, with a terminator only where there is room for one.
template <size_t size>
void set_field(char (&field)[size], const std::string& text) {
    memset(field, 0, size);
    memcpy(field, text.data(), std::min(text.size(), size));
}

sts_image_def_s image_def(const std::string& name, const std::string& group = "");
sts_lsu_def_s lsu_def(const std::string& name, const std::string& label = "");

class DiskStore : public testing::Test {
  protected:
    /// An empty directory for stores, the library with one user, a session, a server on the root
    /// "store" below that directory, and the LSU "lsu".
    DiskStore();
    /// Closes the library whatever is open.
    ~DiskStore() override;

    std::string server_name(const std::string& root = "store") const;
    std::string path(const std::string& below) const { return directory + "/" + below; }
    sts_next_server_s* open_server(const std::string& root = "store");
    void create_lsu(const std::string& name, const std::string& label = "");
    sts_lsu_ref_s ref(const std::string& lsu = "lsu") const;

    /// Creates an image and leaves it open.
    sts_next_image_s* create(const std::string& name, const std::string& group = "",
                             const std::string& lsu = "lsu");
    sts_next_image_s* open(const std::string& name, uint32_t flags = STS_IMAGE_READ,
                           const std::string& lsu = "lsu");
    /// The status of opening an image, which is closed again.
    int open_status(const std::string& name, uint32_t flags = STS_IMAGE_READ,
                    const std::string& lsu = "lsu");
    void write(sts_next_image_s* image, const std::string& content, uint64_t position = 0);
    std::string read(sts_next_image_s* image, uint64_t length = 1 << 20, uint64_t position = 0);
    int close(void* handle, int32_t mode = STS_CLOSE_COMPLETE) {
        return api->close_handle(handle, mode);
    }
    int delete_image(const std::string& name, const std::string& lsu = "lsu");

    /// Makes a whole image.
    void store(const std::string& name, const std::string& content, const std::string& group = "",
               const std::string& lsu = "lsu");
    /// What a whole image holds.
    std::string content_of(const std::string& name, const std::string& lsu = "lsu");
    std::vector<std::string> image_names(const std::string& lsu = "lsu");
    std::vector<std::string> lsu_names();

    /// Applies settings rows: what a key of ours gets as its value.
    void set(const std::string& key, int value);

    std::string directory;
    const sts_api_t* api = nullptr;
    sts_session_def_v7_t session_def = {};
    sts_next_session_s* session = nullptr;
    sts_next_server_s* server = nullptr;
};

/// Those of the peers that there are, as "SERVER LSU".
template <size_t room>
std::vector<std::string> names_of(const sts_replication_peer_s (&peers)[room]) {
    std::vector<std::string> names;
    for (const sts_replication_peer_s& each : peers) {
        if (each.server_name[0] != '\0') {
            names.push_back(std::string(each.server_name) + " " + each.lsu);
        }
    }
    return names;
}

/// Everything below a directory.
std::vector<std::string> tree_below(const std::string& directory);

/// Calls stsm_terminate until nobody has the library open.
void close_library();

/// Sets or, where `value` is null, unsets a variable of the environment for as long as it lives.
class environment {
  public:
    environment(const char* name, const char* value);
    ~environment();
    environment(const environment&) = delete;
    environment& operator=(const environment&) = delete;

  private:
    std::string name_;
};
