#include "service/transport/orb_transport.h"

#include <new>
#include <omniORB4/CORBA.h>
#include <omniORB4/giopEndpoint.h>
#include <omniORB4/omniIOR.h>
#include <utility>

namespace transport {

namespace {

constexpr const char* transport_name = "giop:vlsld";

/// As the ORB's own transports call themselves, for whoever reads a peer's address.
std::string prefix(bool has_tls) { return has_tls ? "giop:ssl:" : "giop:tcp:"; }

/// A connection as the ORB sees it.
class orb_connection : public omni::giopConnection {
  public:
    orb_connection(std::shared_ptr<reception> from, reception::guest_ptr guest)
        : from_(std::move(from)), guest_(std::move(guest)),
          own_address_(prefix(guest_->connection.has_tls()) + guest_->connection.own_address()),
          peer_address_(prefix(guest_->connection.has_tls()) + guest_->connection.peer_address()) {
        const std::lock_guard<std::mutex> lock(guest_->watch_mutex);
        guest_->owner = this;
    }

    // The ORB's deadlines are later than the connection's own.
    int Send(void* bytes, size_t size, const omni_time_t& /*deadline*/) override {
        try {
            if (guest_->connection.send(bytes, size)) {
                return static_cast<int>(size);
            }
        } catch (const std::bad_alloc&) {
            guest_->connection.end();
        }
        return failed;
    }

    int Recv(void* to, size_t size, const omni_time_t& /*deadline*/) override {
        const size_t count = guest_->connection.take(to, size);
        return count != 0 ? static_cast<int>(count) : failed;
    }

    void Shutdown() override { guest_->connection.end(); }

    const char* myaddress() override { return own_address_.c_str(); }
    const char* peeraddress() override { return peer_address_.c_str(); }

    // While a thread of the ORB answers a request, the next one of the same client waits. So 0,
    // which asks for watching during the answer, changes nothing.
    void setSelectable(int now, CORBA::Boolean /*data_in_buffer*/) override {
        if (now != 0) {
            from_->watch(guest_);
        }
    }
    void clearSelectable() override { from_->unwatch(*guest_); }
    CORBA::Boolean isSelectable() override { return true; }

    /// Whether the thread that has answered goes on with this connection.
    CORBA::Boolean Peek() override { return from_->linger(*guest_); }

    const std::string& peer_name() const { return guest_->whose->first; }

  private:
    ~orb_connection() override { from_->forget(guest_); }

    static constexpr int failed = -1;

    const std::shared_ptr<reception> from_;
    const reception::guest_ptr guest_;
    const std::string own_address_;
    const std::string peer_address_;
};

/// Of all addresses of this host; known once the ORB has begun to start.
std::string address_for_strangers() {
    const omnivector<const char*>* const all =
        omni::giopTransportImpl::getInterfaceAddress("giop:tcp");
    if (all != nullptr) {
        for (const char* each : *all) {
            const std::string address = each;
            if (address.rfind("127.", 0) != 0 && address != "::1") {
                return address;
            }
        }
    }
    return "127.0.0.1";
}

class endpoint : public omni::giopEndpoint {
  public:
    endpoint(std::shared_ptr<reception> from, std::vector<published_address> published)
        : from_(std::move(from)), published_(std::move(published)) {}

    const char* type() const override { return transport_name; }
    const char* address() const override { return endpoint_name; }
    const omni::orbServer::EndpointList* addresses() const override { return &addresses_; }

    CORBA::Boolean Bind() override { // it listens already
        addresses_.length(static_cast<CORBA::ULong>(published_.size()));
        for (CORBA::ULong each = 0; each < addresses_.length(); ++each) {
            published_address& one = published_[each];
            if (one.host.empty()) {
                one.host = address_for_strangers();
            }
            addresses_[each] = (prefix(one.has_tls) + address_and_port(one.host, one.port)).c_str();
        }
        return true;
    }

    CORBA::Boolean publish(const omni::orbServer::PublishSpecs& /*specs*/,
                           CORBA::Boolean /*all_specs*/, CORBA::Boolean /*all_endpoints*/,
                           omni::orbServer::EndpointList& published) override {
        for (CORBA::ULong each = 0; each < addresses_.length(); ++each) {
            const published_address& one = published_[each];
            IIOP::Address address;
            address.host = one.host.c_str();
            address.port = static_cast<CORBA::UShort>(one.port);
            if (one.has_tls) {
                omniIOR::add_TAG_SSL_SEC_TRANS(address, mutual_tls, mutual_tls, nullptr);
            } else {
                omniIOR::add_IIOP_ADDRESS(address, nullptr);
            }
            published.length(published.length() + 1);
            published[published.length() - 1] = addresses_[each];
        }
        return true;
    }

    omni::giopConnection* AcceptAndMonitor(omni::giopConnection::notifyReadable_t tell,
                                           void* cookie) override {
        for (;;) {
            try {
                reception::guest_ptr guest = from_->run(
                    [&](void* owner) { tell(cookie, static_cast<orb_connection*>(owner)); });
                return guest ? new orb_connection(from_, std::move(guest)) : nullptr;
            } catch (const std::bad_alloc&) {
                // Whoever it was for is ended with what it held.
            }
        }
    }

    void Poke() override { from_->stop(); }
    void Shutdown() override {
        from_->close_all();
        delete this; // it isn't asked for anything from now on
    }

  private:
    /// Integrity, Confidentiality, EstablishTrustInTarget and EstablishTrustInClient of CSIIOP.
    static constexpr CORBA::UShort mutual_tls = 0x02 | 0x04 | 0x20 | 0x40;

    const std::shared_ptr<reception> from_;
    std::vector<published_address> published_;
    omni::orbServer::EndpointList addresses_;
};

/// Where the ORB finds the endpoint by its name. It knows the addresses of nobody.
class implementation : public omni::giopTransportImpl {
  public:
    implementation() : giopTransportImpl(transport_name) {}

    omni::giopEndpoint* toEndpoint(const char* /*name*/) override {
        return next ? new endpoint(std::exchange(next, nullptr), std::move(published)) : nullptr;
    }
    omni::giopAddress* toAddress(const char* /*name*/) override { return nullptr; }
    CORBA::Boolean isValid(const char* /*name*/) override { return true; }
    CORBA::Boolean addToIOR(const char* /*name*/, omni::IORPublish* /*where*/) override {
        return false;
    }
    const omnivector<const char*>* getInterfaceAddress() override { return nullptr; }

    std::shared_ptr<reception> next;
    std::vector<published_address> published;
};

} // namespace

const std::string& peer_name(const omni::giopConnection& connection) {
    return static_cast<const orb_connection&>(connection).peer_name();
}

void set_reception(std::shared_ptr<reception> from, std::vector<published_address> published) {
    static implementation known; // to the ORB, from now on
    known.next = std::move(from);
    known.published = std::move(published);
}

} // namespace transport
