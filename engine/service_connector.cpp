#include "engine/service_connector.h"

#include "client/CloudVLSLClient.h"
#include "common/onet_proxy_hint.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

using Orvessa::Vaultaro::CCloudVLSLClient;
using Orvessa::Vaultaro::ThrottlingBandwidth_var;

namespace {

constexpr const char* service_host = "localhost"; // never the configured name
constexpr int exchange_timeout = 5;               // seconds

void copy_name(char (&field)[STS_NAME_SIZE], const char* text) {
    strncpy(field, text, STS_NAME_SIZE - 1);
    field[STS_NAME_SIZE - 1] = '\0';
}

/// The session's identifier in a form that can stand in a key: no colons. The caller frees it; null
/// when memory can't be had.
char* session_text(const sts_session_def_v7_t* session) {
    const bool named = session != nullptr && session->session_id != nullptr;
    char* const text = strdup(named ? session->session_id : "no_session_id");
    if (named && text != nullptr) {
        std::replace(text, text + strlen(text), ':', '_');
    }
    return text;
}

/// Null when there is no memory for it, or for the ORB that it uses.
CCloudVLSLClient* make_client(const sts_session_def_v7_t* session) {
    try {
        return new CCloudVLSLClient(session, service_host, false, 0, exchange_timeout);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// Whole seconds that `bytes` take at `rate`. Nothing can be moved at a rate of 0: the process ends
/// with an arithmetic fault, on every processor alike.
uint64_t seconds_for(uint64_t bytes, uint64_t rate) {
    if (rate == 0) {
        std::raise(SIGFPE); // a handler of the host's has its turn
        std::signal(SIGFPE, SIG_DFL);
        sigset_t fault;
        sigemptyset(&fault);
        sigaddset(&fault, SIGFPE);
        pthread_sigmask(SIG_UNBLOCK, &fault, nullptr);
        std::raise(SIGFPE); // where it returned, or the signal was ignored or blocked
        std::abort();
    }
    return bytes / rate;
}

void sleep_for(int64_t seconds) { sleep(static_cast<unsigned>(seconds)); }

void restart(bandwidth_s* sample) {
    sample->start_time = sample->end_time = time(nullptr);
    sample->data_length = 0;
}

} // namespace

// --- lifecycle ---------------------------------------------------------------------------------

ServiceConnector::ServiceConnector(const ServiceConnector& other)
    : throttling_enabled_(other.throttling_enabled_), config_(other.config_),
      status_(other.status_ == STS_OK ? STS_ERR_NOT_INIT : other.status_),
      free_flow_(other.free_flow_), wait_seconds_(other.wait_seconds_),
      current_operation_(other.current_operation_) {
    std::copy(std::begin(other.server_type_), std::end(other.server_type_), server_type_);
    std::copy(std::begin(other.server_name_), std::end(other.server_name_), server_name_);
    std::copy(std::begin(other.connection_counts_), std::end(other.connection_counts_),
              connection_counts_);
    std::copy(std::begin(other.reference_counts_), std::end(other.reference_counts_),
              reference_counts_);
}

int ServiceConnector::init() { return STS_OK; }

int ServiceConnector::terminate() { return STS_OK; }

int ServiceConnector::connect_service(const sts_session_def_v7_t* session, char* server_type,
                                      char* server_name) {
    if (strcmp(server_type, global_server_type) == 0 || server_name[0] == '\0') {
        return status_ = STS_ERR_NO_SERVICE;
    }
    if (status_ == STS_OK) {
        return STS_OK;
    }
    session_ = session;
    copy_name(server_type_, server_type);
    copy_name(server_name_, server_name);
    free(session_id_); // of an earlier attempt that got no client
    session_id_ = session_text(session);
    if (session_id_ == nullptr) {
        return status_ = STS_ERR_NOMEM;
    }
    client_ = make_client(session);
    if (client_ != nullptr) {
        status_ = STS_OK;
    }
    return status_;
}

int ServiceConnector::disconnect_service() {
    free(session_id_);
    session_id_ = nullptr;
    if (client_ == nullptr) {
        return STS_OK;
    }
    CCloudVLSLClient* const client = client_;
    client_ = nullptr;
    delete client;
    status_ = STS_ERR_NOT_INIT;
    return STS_OK;
}

int ServiceConnector::set_config_params(const throttling_config_s* config, int /*is_secure*/) {
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (status_ != STS_OK) {
        return STS_OK;
    }
    config_ = *config;
    char text[STS_CONFIG_SIZE];
    read_config_file_to_buf(session_, text, server_type_, server_name_);
    const int status = client_->set_config_params(text);
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "leaving with status %d", status);
    return status;
}

void ServiceConnector::get_bandwidth_per_second(operation_type_t operation, unsigned long& rate) {
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "Enter.");
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    rate = allowed_rate(config_, operation, local);
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "Leave.");
}

// --- exchange ----------------------------------------------------------------------------------

std::string ServiceConnector::getCurrentOperation() const {
    switch (current_operation_) {
    case OPERATION_READ:
        return "r:";
    case OPERATION_WRITE:
        return "w:";
    default:
        return "a:";
    }
}

std::string ServiceConnector::flow_key() const { return getCurrentOperation() + server_name_; }

int ServiceConnector::get_msg_value(const std::string& message, const std::string& key,
                                    long& value) {
    const size_t found = message.find(key);
    if (found == std::string::npos) {
        return STS_ERR_INVALID;
    }
    const size_t field = message.find("value=", found);
    const size_t end = message.find(",fixed=", field);
    const size_t start = field + 6;
    value = strtol(message.substr(start, end - start).c_str(), nullptr, 10);
    return STS_OK;
}

/// Takes the service's counts and waits from a good reply; what it doesn't name stays as it was.
/// All or nothing is taken, so that running out of memory on the way leaves no count at 0.
void ServiceConnector::take_reply(const char* who, const std::string& response) {
    int64_t readers = connection_counts_[OPERATION_READ];
    int64_t writers = connection_counts_[OPERATION_WRITE];
    int64_t free_flow = free_flow_;
    int64_t wait_seconds = wait_seconds_;
    get_msg_value(response, "THR_R_CONNECTION_COUNTS", readers);
    get_msg_value(response, "THR_W_CONNECTION_COUNTS", writers);
    get_msg_value(response, "THR_FREE_FLOW", free_flow);
    get_msg_value(response, "THR_WAIT_SECONDS", wait_seconds);
    log_msg(session_, who, 1, STS_SEV_DEBUG,
            "response:%ld,connection# for r:%ld,connection# for w:%ld,free flow:%ld,wait "
            "seconds:%ld",
            static_cast<long>(STS_OK), readers, writers, free_flow, wait_seconds);
    connection_counts_[OPERATION_READ] = readers != 0 ? readers : 1;
    connection_counts_[OPERATION_WRITE] = writers != 0 ? writers : 1;
    free_flow_ = free_flow;
    wait_seconds_ = wait_seconds;
}

/// Sleeps some of the wait that the service asked for.
void ServiceConnector::sleep_for_service(const char* who, int64_t seconds) {
    log_msg(session_, who, 1, STS_SEV_DEBUG, "sleep for last transfer=%ld.", seconds);
    sleep_for(seconds);
}

std::string ServiceConnector::access_uri(const char* operation, int is_secure) {
    std::string uri = is_secure <= 0 ? "http://" : "https://";
    const std::string host = config_.cssc_host_name;
    const bool is_ipv6 = host.find(':') != std::string::npos;
    uri += is_ipv6 ? "[" + host + "]" : host;
    uri += ":" + std::to_string(static_cast<uint32_t>(config_.cssc_port_number));
    uri += std::string("/throttle/") + server_type_ + "/" + flow_key() + "/" + operation + "/";
    return uri + (session_id_ != nullptr ? session_id_ : "");
}

// --- admission ---------------------------------------------------------------------------------

int ServiceConnector::check_connections(operation_type_t operation, int delta, int /*is_secure*/) {
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (status_ != STS_OK) {
        return STS_OK;
    }
    const int32_t count = reference_counts_[operation] += delta;
    if (operation == OPERATION_READ_WRITE) {
        if (delta == 1 && count >= 2) {
            log_msg(session_, __func__, 1, STS_SEV_DEBUG,
                    "Has check reference count for r+w == %d, so leave.", count);
            return STS_OK;
        }
    } else if (delta == 1) {
        log_msg(session_, __func__, 1, STS_SEV_DEBUG, "Add reference count for r/w == %d, leave.",
                count);
        return STS_OK;
    } else if (delta == -1 && count > 0) {
        log_msg(session_, __func__, 1, STS_SEV_DEBUG,
                "Dec reference count for r/w == %d, so leave.", count);
        return STS_OK;
    }

    current_operation_ = operation;
    std::string response;
    const int status = client_->check_connections(flow_key().c_str(), session_id_, delta, response);
    if (status != STS_OK) {
        log_msg(session_, __func__, 1, STS_SEV_DEBUG,
                "leaving with return value =%d, response recived =%s", status, response.c_str());
        return status;
    }
    take_reply(__func__, response);
    if (wait_seconds_ > 0) {
        sleep_for_service(__func__, wait_seconds_);
        wait_seconds_ = 0;
    }
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "leaving with return value =%d", status);
    return status;
}

// --- pacing ------------------------------------------------------------------------------------

int ServiceConnector::check_bandwidth(bandwidth_s* bandwidth, int /*is_secure*/, int force) {
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "enter.");
    if (force == 0 && bandwidth->data_length == 0) {
        return STS_OK;
    }
    const operation_type_t operation = bandwidth->operation_type;
    const auto gap_seconds = static_cast<int64_t>(difftime(time(nullptr), bandwidth->start_time));
    const int64_t interval = config_.sample_interval != 0 ? config_.sample_interval : 1;

    unsigned long rate = 0;
    get_bandwidth_per_second(operation, rate);
    const int64_t sharing = connection_counts_[operation];
    rate /= static_cast<uint64_t>(sharing); // a negative count leaves a rate of 0
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "bandwidth_per_second=%lu,conne#=%ld.", rate,
            sharing);
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "gap_seconds=%ld,bandwidth->data_length=%ld.",
            gap_seconds, static_cast<long>(bandwidth->data_length));

    // What the sample should have taken less what it has taken; negative when it is behind its
    // rate.
    const auto wait = static_cast<int64_t>(seconds_for(bandwidth->data_length, rate) -
                                           static_cast<uint64_t>(gap_seconds));
    if (wait > 0) {
        log_msg(session_, __func__, 1, STS_SEV_DEBUG, "sleep locally=%ld.", wait);
        sleep_for(wait);
    }
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "wait_seconds_=%ld.", wait_seconds_);
    if (wait_seconds_ > 0) {
        const int64_t part = wait_seconds_ / std::max(config_.sample_interval / 60, 1);
        sleep_for_service(__func__, part);
        wait_seconds_ -= part;
    }

    if (force == 0 && interval > gap_seconds) {
        return STS_OK;
    }
    if (status_ != STS_OK) {
        restart(bandwidth);
        return STS_OK;
    }
    if (wait_seconds_ > 0) {
        sleep_for_service(__func__, wait_seconds_);
        wait_seconds_ = 0;
    }
    return report(__func__, bandwidth);
}

/// Tells the service of the sample, takes its answer and restarts the sample, whatever came of it.
int ServiceConnector::report(const char* who, bandwidth_s* bandwidth) {
    bandwidth->end_time = time(nullptr);
    current_operation_ = bandwidth->operation_type;

    const ThrottlingBandwidth_var value =
        new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(
            static_cast<uint32_t>(bandwidth->operation_type),
            static_cast<uint32_t>(bandwidth->start_time),
            static_cast<uint32_t>(bandwidth->end_time), bandwidth->data_length);

    std::string response;
    const int status = client_->check_bandwidth(flow_key().c_str(), session_id_, value, response);
    if (status != STS_OK) {
        log_msg(session_, who, 1, STS_SEV_DEBUG, "response recived =%s", response.c_str());
    } else {
        take_reply(who, response);
    }
    restart(bandwidth);
    log_msg(session_, who, 1, STS_SEV_DEBUG, "leaving with return vale %d", status);
    return status;
}
