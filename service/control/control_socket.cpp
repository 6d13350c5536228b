#include "service/control/control_socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw control_socket_error(fmt::format("control socket {}: {}", path, why));
}

[[noreturn]] void fail_with_errno(const std::string& path) { fail(path, strerror(errno)); }

sockaddr_un address_of(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fail(path, fmt::format("the path is too long, at most {} bytes are possible",
                               sizeof address.sun_path - 1));
    }
    memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

descriptor new_socket(const std::string& path) {
    descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made.is_open()) {
        fail_with_errno(path);
    }
    return made;
}

/// The lock tells whether the socket's owner is alive, and that only one service takes its place.
descriptor take_lock(const std::string& path) {
    const std::string name = path + ".lock";
    descriptor lock(open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                         S_IRUSR | S_IWUSR));
    if (!lock.is_open()) {
        fail_with_errno(name);
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            fail(path, "another service has it, which is running; name another one with --control");
        }
        fail_with_errno(name);
    }
    return lock;
}

/// Makes room where a service that is gone has left its socket.
void remove_stale(const std::string& path, const sockaddr_un& address) {
    struct stat found = {};
    if (lstat(path.c_str(), &found) != 0) {
        if (errno != ENOENT) {
            fail_with_errno(path);
        }
        return;
    }
    if (!S_ISSOCK(found.st_mode)) {
        fail(path, "there is something else, which is no socket; it isn't replaced");
    }
    const descriptor probe = new_socket(path);
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno != ECONNREFUSED) {
        fail(path, "another program answers there; name another one with --control");
    }
    if (unlink(path.c_str()) != 0) {
        fail_with_errno(path);
    }
}

} // namespace

control_socket::control_socket(const std::string& path) : path_(path) {
    const sockaddr_un address = address_of(path);
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 &&
        mkdir(path.substr(0, slash).c_str(), S_IRWXU | S_IRGRP | S_IXGRP) != 0 && errno != EEXIST) {
        fail_with_errno(path.substr(0, slash));
    }
    lock_ = take_lock(path);
    remove_stale(path, address);
    socket_ = new_socket(path);
    const mode_t before = umask(S_IXUSR | S_IXGRP | S_IRWXO); // so that it is 0660 from its start
    const bool is_bound =
        bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    umask(before);
    struct stat made = {};
    if (!is_bound || listen(socket_.get(), SOMAXCONN) != 0 || lstat(path.c_str(), &made) != 0) {
        fail_with_errno(path);
    }
    device_ = made.st_dev;
    inode_ = made.st_ino;
}

control_socket::~control_socket() {
    struct stat found = {};
    if (lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_) {
        unlink(path_.c_str());
    }
}
