#include "tests/support/scripted_client.h"

#include <new>
#include <utility>

scripted_service& service() {
    static scripted_service the_service;
    return the_service;
}

std::vector<exchange> scripted_service::take() { return std::exchange(exchanges, {}); }

namespace {

/// While one lives the client works for the test alone, or for its caller again.
class aside {
  public:
    explicit aside(bool for_test) : for_test_(for_test) { tell(for_test_); }
    ~aside() { tell(!for_test_); }
    aside(const aside&) = delete;
    aside& operator=(const aside&) = delete;

  private:
    static void tell(bool for_test) {
        if (service().on_aside) {
            service().on_aside(for_test);
        }
    }

    const bool for_test_;
};

void take_in(const exchange& arrived) {
    service().exchanges.push_back(arrived);
    if (service().on_exchange) {
        service().on_exchange(arrived);
    }
}

int answer(const exchange& arrived, std::string& out) {
    take_in(arrived);
    scripted_service& s = service();
    scripted_reply reply = s.usual;
    if (!s.replies.empty()) {
        reply = s.replies.front();
        s.replies.pop_front();
    }
    if (reply.throws) {
        throw std::bad_alloc();
    }
    if (reply.filled) {
        const aside callers_own(false);
        out = reply.out;
    }
    return reply.status;
}

std::string text_of(const char* text) { return text != nullptr ? text : "(null)"; }

} // namespace

namespace Orvessa::Vaultaro {

CCloudVLSLClient::CCloudVLSLClient(const sts_session_def_v7_t* session, std::string host,
                                   bool force_oxss_iop, unsigned long value, int timeout_seconds) {
    scripted_service& s = service();
    ++s.clients_made;
    ++s.clients_alive;
    s.session = session;
    s.host = std::move(host);
    s.force_oxss_iop = force_oxss_iop;
    s.value = value;
    s.timeout_seconds = timeout_seconds;
}

CCloudVLSLClient::~CCloudVLSLClient() { --service().clients_alive; }

int CCloudVLSLClient::set_config_params(const char* params) {
    const aside for_test(true);
    exchange arrived;
    arrived.call = "set_config_params";
    arrived.key = text_of(params);
    take_in(arrived);
    if (service().params_reply.throws) {
        throw std::bad_alloc();
    }
    return service().params_reply.status;
}

int CCloudVLSLClient::check_connections(const char* key, const char* session_text, int delta,
                                        std::string& out) {
    const aside for_test(true);
    exchange arrived;
    arrived.call = "check_connections";
    arrived.key = text_of(key);
    arrived.session_text = text_of(session_text);
    arrived.delta = delta;
    return answer(arrived, out);
}

int CCloudVLSLClient::check_bandwidth(const char* key, const char* session_text,
                                      ThrottlingBandwidth_var value, std::string& out) {
    const aside for_test(true);
    exchange arrived;
    arrived.call = "check_bandwidth";
    arrived.key = text_of(key);
    arrived.session_text = text_of(session_text);
    arrived.operation_type = value->operation_type();
    arrived.start_time = value->start_time();
    arrived.end_time = value->end_time();
    arrived.data_length = value->data_length();
    return answer(arrived, out);
}

} // namespace Orvessa::Vaultaro
