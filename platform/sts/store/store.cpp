// Stores: from a server name to a directory, and from there to the LSUs.

#include "platform/sts/store/store.h"

#include "platform/sts/caller/failure.h"
#include "platform/sts/store/image_files.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace disk {

namespace {

constexpr std::string_view disk_prefix = "disk:";
constexpr const char* control_name = ".server";

/// Where the root of a name of ours is: absolute as it is, else below VL_STS_ROOT.
std::string root_path(std::string_view server_name) {
    std::string root(server_name.substr(disk_prefix.size()));
    require(!root.empty());
    if (root.front() == '/') {
        return root;
    }
    const char* const above = getenv("VL_STS_ROOT");
    require(is_plain_name(root) && above != nullptr && above[0] == '/');
    return std::string(above) + "/" + root;
}

} // namespace

bool is_disk_name(const char* server_name) {
    return strncmp(server_name, disk_prefix.data(), disk_prefix.size()) == 0;
}

std::shared_ptr<store> open_store(const char* server_name, missing_root treatment,
                                  const lock_waiter& waiter) {
    require(server_name != nullptr);
    if (!is_disk_name(server_name)) {
        fail(STS_ERR_NOT_CLAIMED);
    }
    const std::string path = root_path(server_name);
    const bool is_new = treatment == missing_root::is_made && mkdir(path.c_str(), 0700) == 0;
    if (treatment == missing_root::is_made && !is_new && errno != EEXIST) {
        fail_errno(errno);
    }
    auto opened = std::make_shared<store>();
    opened->server_name = server_name;
    opened->waiter = waiter;
    opened->directory = unique_fd(
        uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (is_new) {
        sync_file(open_directory(opened->directory.get(), "..").get());
    }
    return opened;
}

std::shared_ptr<store> open_store(const store& files, const lock_waiter& waiter) {
    auto opened = std::make_shared<store>();
    opened->server_name = files.server_name;
    opened->waiter = waiter;
    opened->directory = open_directory(files.directory.get(), ".");
    return opened;
}

bool is_lsu_name(const std::string& name) {
    return is_plain_name(name) && name.front() != '.' && name != "lost+found";
}

std::vector<std::string> lsu_names(const store& files) {
    std::vector<std::string> names;
    for (std::string& each : directories_in(files.directory.get())) {
        if (is_lsu_name(each)) {
            names.push_back(std::move(each));
        }
    }
    return names;
}

std::vector<std::string> names_open_to_others(const store& files) {
    constexpr mode_t enter = S_IXGRP | S_IXOTH;
    constexpr mode_t others = S_IRWXG | S_IRWXO;
    std::vector<std::string> open;
    struct stat found = {};
    checked(fstat(files.directory.get(), &found));
    if ((found.st_mode & enter) == 0) {
        return open; // nobody gets any further
    }
    for (const std::string& each : names_in(files.directory.get())) {
        const bool is_data = is_lsu_name(each) || each == control_name;
        if (is_data &&
            fstatat(files.directory.get(), each.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(found.st_mode) && (found.st_mode & others) != 0) {
            char mode[8];
            (void)snprintf(mode, sizeof mode, "%04o", found.st_mode & 07777U);
            open.push_back(each + " (mode " + mode + ")");
        }
    }
    return open;
}

lsu_place open_lsu(std::shared_ptr<store> files, std::string name) {
    require(is_lsu_name(name));
    unique_fd directory = open_directory(files->directory.get(), name);
    return {std::move(files), std::move(name), std::move(directory)};
}

void require_in_place(const store& files, const std::string& name, int lsu) {
    if (!is_same_directory(files.directory.get(), name, lsu)) {
        fail_errno(ENOENT);
    }
}

unique_fd make_control_directory(const store& files) {
    return make_directory(files.directory.get(), control_name);
}

unique_fd find_control_directory(const store& files) {
    return is_directory(files.directory.get(), control_name)
               ? open_directory(files.directory.get(), control_name)
               : unique_fd();
}

space space_of(int directory) {
    struct statvfs found = {};
    uninterrupted([&] { return fstatvfs(directory, &found); });
    return {found.f_blocks * found.f_frsize, found.f_bavail * found.f_frsize};
}

} // namespace disk
