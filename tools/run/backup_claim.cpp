#include "tools/run/backup_claim.h"

#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <ctime>
#include <fmt/format.h>
#include <unistd.h>

namespace {

constexpr size_t longest_owner = 512;

std::string owner_text() {
    std::array<char, HOST_NAME_MAX + 1> host = {};
    (void)gethostname(host.data(), host.size() - 1);
    return fmt::format("process {} on {} since {}", getpid(), host.data(),
                       time_text(time(nullptr)));
}

/// Whose the claim is, in words.
std::string owner_of(const host_server& server, const std::string& lsu, const std::string& image) {
    try {
        host_image claim = server.open_image(lsu, image);
        std::string owner(longest_owner, '\0');
        uint64_t length = 0;
        if (claim.read_meta(owner.data(), owner.size(), 0, length) != STS_OK) {
            length = 0;
        }
        owner.resize(std::min<uint64_t>(length, owner.size()));
        return owner.empty() ? "somebody" : printable(owner);
    } catch (const status_failure&) {
        return "somebody"; // who may have ended by now
    }
}

void make_claim(const host_server& server, const std::string& lsu, const std::string& image) {
    const std::string owner = owner_text();
    host_image claim = server.create_image(lsu, image, "");
    uint64_t written = 0;
    (void)claim.write_meta(owner.data(), owner.size(), 0, written); // a claim without a name holds
    claim.close(STS_CLOSE_COMPLETE);
}

} // namespace

backup_claim::backup_claim(const plugin_host& host, const host_server& server, std::string lsu,
                           const std::string& backup)
    : server_(server), lsu_(std::move(lsu)), image_(backup + ".lock") {
    // The service counts the opens of images until their server is closed: this one's is, at once.
    host_server own(host, server.session(), server.name());
    try {
        make_claim(own, lsu_, image_);
        is_held_ = true;
    } catch (const status_failure& failed) {
        if (sts_errno_of_status(failed.status) != EEXIST) {
            throw;
        }
        throw failure(fmt::format(
            "a backup \"{0}\" is being made in the LSU \"{1}\" by {2}; if it was killed, "
            "\"throttlectl image delete\" of \"{3}\" frees the name",
            printable(backup), printable(lsu_), owner_of(own, lsu_, image_), printable(image_)));
    }
    own.close();
}

void backup_claim::release() {
    if (is_held_) {
        is_held_ = false;
        server_.discard_image(lsu_, image_);
    }
}
