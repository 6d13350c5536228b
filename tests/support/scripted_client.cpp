#include "tests/support/scripted_client.h"

#include <new>
#include <utility>

scripted_service& service() {
    static scripted_service the_service;
    return the_service;
}

std::vector<exchange> scripted_service::take() { return std::exchange(exchanges, {}); }

std::string reply_text(long readers, long writers, long free_flow, long wait_seconds) {
    const auto row = [](const char* name, long value) {
        return std::string("name=") + name +
               ",description=x,type=int,value=" + std::to_string(value) + ",fixed=y;";
    };
    return row("THR_R_CONNECTION_COUNTS", readers) + row("THR_W_CONNECTION_COUNTS", writers) +
           row("THR_FREE_FLOW", free_flow) + row("THR_WAIT_SECONDS", wait_seconds);
}

namespace {

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
    exchange arrived;
    arrived.call = "check_connections";
    arrived.key = text_of(key);
    arrived.session_text = text_of(session_text);
    arrived.delta = delta;
    return answer(arrived, out);
}

int CCloudVLSLClient::check_bandwidth(const char* key, const char* session_text,
                                      ThrottlingBandwidth_var value, std::string& out) {
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
