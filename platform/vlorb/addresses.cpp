#include "platform/vlorb/addresses.h"

#include <algorithm>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>

namespace {

constexpr size_t most_addresses = 16;

} // namespace

std::vector<std::string> addresses_of(const std::string& host) {
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC; // AI_ADDRCONFIG would leave out ::1 where only loopback has IPv6
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) {
        return {};
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
    std::vector<std::string> all;
    for (const addrinfo* each = list; each != nullptr && all.size() < most_addresses;
         each = each->ai_next) {
        char text[NI_MAXHOST];
        if (getnameinfo(each->ai_addr, each->ai_addrlen, text, sizeof text, nullptr, 0,
                        NI_NUMERICHOST) == 0 &&
            std::find(all.begin(), all.end(), text) == all.end()) {
            all.emplace_back(text);
        }
    }
    return all;
}
