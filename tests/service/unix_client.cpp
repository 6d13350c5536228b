#include "tests/service/unix_client.h"

#include "common/descriptor.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace {

std::string read_all(int from) {
    std::string text;
    char buffer[4096];
    ssize_t size = 0;
    while ((size = read(from, buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(size));
    }
    return text;
}

} // namespace

std::string answer_at(const std::string& path, const std::string& request) {
    const descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return "errno " + std::to_string(errno);
    }
    send(client.get(), request.data(), request.size(), MSG_NOSIGNAL);
    return read_all(client.get());
}

std::string answer_to_user(uid_t user, gid_t group, const std::string& path,
                           const std::string& request) {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        const bool is_other = setgroups(0, nullptr) == 0 && setgid(group) == 0 && setuid(user) == 0;
        const std::string text = is_other ? answer_at(path, request) : "no other user";
        _exit(write(ends[1], text.data(), text.size()) < 0 ? 1 : 0);
    }
    close(ends[1]);
    const descriptor from(ends[0]);
    std::string text = read_all(from.get());
    waitpid(child, nullptr, 0);
    return text;
}

std::string get_request(const std::string& page) {
    return "GET " + page + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

std::string post_request(const std::string& page, const std::string& body) {
    return "POST " + page +
           " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}
