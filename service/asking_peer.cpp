#include "service/asking_peer.h"

#include "service/peer.h"

#include <memory>
#include <mutex>
#include <omniORB4/CORBA.h>
#include <omniORB4/omniInterceptors.h>
#include <unordered_map>

// Each needs what is above it.
#include <omniORB4/internal/giopStrand.h>

#include <omniORB4/internal/giopStream.h>

#include <omniORB4/internal/GIOP_S.h>

namespace {

using name_ptr = std::shared_ptr<const std::string>;

/// A flag of a connection, which the ORB leaves to its users: its peer has been asked for. A new
/// connection doesn't have it, also where it lies at the address of one that has gone.
constexpr CORBA::ULong is_known = 0x01000000;
constexpr size_t most_known = 65536;

thread_local name_ptr asking;

/// The peers of connections that have sent a request. Those of connections that have gone stay
/// until there are too many; then all are forgotten, and asked for anew.
class known_peers {
  public:
    name_ptr of(omni::giopStrand& connection) {
        if ((__atomic_load_n(&connection.flags, __ATOMIC_ACQUIRE) & is_known) != 0) {
            const std::lock_guard<std::mutex> guard(lock_);
            const auto known = names_.find(&connection);
            if (known != names_.end()) {
                return known->second;
            }
        }
        const peer found =
            find_peer(connection.connection->peeraddress(), connection.connection->myaddress());
        auto name = std::make_shared<const std::string>(found.name());
        const std::lock_guard<std::mutex> guard(lock_);
        if (names_.size() >= most_known) {
            names_.clear();
        }
        names_[&connection] = name;
        __atomic_fetch_or(&connection.flags, is_known, __ATOMIC_RELEASE);
        return name;
    }

  private:
    std::mutex lock_;
    std::unordered_map<const void*, name_ptr> names_;
};

known_peers& known() {
    static known_peers all;
    return all;
}

CORBA::Boolean remember(omni::omniInterceptors::serverReceiveRequest_T::info_T& info) {
    asking = known().of(info.giop_s.strand());
    return true;
}

} // namespace

void watch_who_asks() { omniORB::getInterceptors()->serverReceiveRequest.add(remember); }

const std::string& asking_peer() {
    static const std::string nobody;
    return asking != nullptr ? *asking : nobody;
}
