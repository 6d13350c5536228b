#include "service/supervisor.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>

supervisor::supervisor() {
    const char* const address = getenv("NOTIFY_SOCKET");
    if (address != nullptr && (address[0] == '/' || address[0] == '@') &&
        strlen(address) < sizeof(sockaddr_un::sun_path)) {
        address_ = address;
        socket_ = descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    }
    is_watched_ = getenv("WATCHDOG_USEC") != nullptr;
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
}

void supervisor::is_ready() const { tell("READY=1"); }

void supervisor::reloads() const {
    timespec up = {};
    clock_gettime(CLOCK_MONOTONIC, &up);
    tell(fmt::format("RELOADING=1\nMONOTONIC_USEC={}",
                     int64_t{up.tv_sec} * 1000000 + up.tv_nsec / 1000));
}

void supervisor::stops() const { tell("STOPPING=1"); }

void supervisor::lives() const {
    if (is_watched_) {
        tell("WATCHDOG=1");
    }
}

/// Never waits: what can't be taken now is lost.
void supervisor::tell(const std::string& state) const {
    if (address_.empty() || !socket_.is_open()) {
        return;
    }
    sockaddr_un to = {};
    to.sun_family = AF_UNIX;
    memcpy(to.sun_path, address_.data(), address_.size());
    if (address_[0] == '@') {
        to.sun_path[0] = '\0'; // a name that is no file's
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    sendto(socket_.get(), state.data(), state.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&to), size);
}
