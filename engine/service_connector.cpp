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

std::string key_prefix(operation_type_t operation) {
    switch (operation) {
    case OPERATION_READ:
        return "r:";
    case OPERATION_WRITE:
        return "w:";
    default:
        return "a:";
    }
}

void sleep_for(int64_t seconds) { sleep(static_cast<unsigned>(seconds)); }

/// Which sample a thread has looked at: even while it runs, odd while a thread reports it.
using sample_number = shared_value<uint64_t>;

/// The right to restart a sample: one thread's at a time, and only for the sample that it has
/// looked at. Nobody waits for it.
class restart_right {
  public:
    restart_right(sample_number& number, uint64_t looked_at)
        : number_(number), next_(looked_at + 2),
          had_(looked_at % 2 == 0 && number.replace(looked_at, looked_at + 1)) {}
    ~restart_right() {
        if (had_) {
            number_ = next_;
        }
    }
    restart_right(const restart_right&) = delete;
    restart_right& operator=(const restart_right&) = delete;

    bool had() const { return had_; }

  private:
    sample_number& number_;
    const uint64_t next_;
    const bool had_;
};

/// Takes `told` bytes off, and no more: what other threads have moved meanwhile belongs to the new
/// sample. The bytes go first, and a reader looks at the start first: it never charges the old
/// sample's bytes to the time of the new one.
void restart(bandwidth_s* sample, unsigned long told) {
    const time_t now = time(nullptr);
    sample->data_length -= told;
    sample->start_time = now;
    sample->end_time = now;
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
    if (!(config_ == *config)) { // at every open of an image, while others transfer
        config_ = *config;
    }
    char text[STS_CONFIG_SIZE];
    read_config_file_to_buf(session_, text, server_type_, server_name_);
    const int status = client_->set_config_params(text);
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "leaving with status %d", status);
    return status;
}

void ServiceConnector::get_bandwidth_per_second(operation_type_t operation, unsigned long& rate) {
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "Enter.");
    rate = allowed_rate(config_, operation, local_time());
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "Leave.");
}

/// The present hour and day of the week. localtime_r takes a lock of the whole process, so what it
/// gave is kept for its second: as the second, the day in three bits and the hour in five.
tm ServiceConnector::local_time() {
    const time_t now = time(nullptr);
    const uint64_t second = static_cast<uint64_t>(now) << 8U;
    const uint64_t kept = local_hour_;
    tm local = {};
    local.tm_hour = static_cast<int>(kept & 31U);
    local.tm_wday = static_cast<int>(kept >> 5U & 7U);
    if ((kept & ~uint64_t{255}) != second || local.tm_wday == 7) { // 7: nothing is kept yet
        localtime_r(&now, &local);
        local_hour_ = second | static_cast<uint64_t>(local.tm_wday) << 5U |
                      static_cast<uint64_t>(local.tm_hour);
    }
    return local;
}

// --- exchange ----------------------------------------------------------------------------------

std::string ServiceConnector::getCurrentOperation() const { return key_prefix(current_operation_); }

/// The flow of that operation, whatever exchange another thread begins meanwhile.
std::string ServiceConnector::flow_key(operation_type_t operation) const {
    return key_prefix(operation) + server_name_;
}

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
    uri += std::string("/throttle/") + server_type_ + "/" + flow_key(current_operation_) + "/" +
           operation + "/";
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
    const int status =
        client_->check_connections(flow_key(operation).c_str(), session_id_, delta, response);
    if (status != STS_OK) {
        log_msg(session_, __func__, 1, STS_SEV_DEBUG,
                "leaving with return value =%d, response recived =%s", status, response.c_str());
        return status;
    }
    take_reply(__func__, response);
    if (const int64_t owed = wait_seconds_; owed > 0) {
        sleep_for_service(__func__, owed);
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
    const uint64_t number = numbers_[operation];
    // The start before the bytes: see restart.
    const auto gap_seconds = static_cast<int64_t>(difftime(time(nullptr), bandwidth->start_time));
    const int64_t interval = config_.sample_interval != 0 ? config_.sample_interval : 1;

    unsigned long rate = 0;
    get_bandwidth_per_second(operation, rate);
    const int64_t sharing = connection_counts_[operation];
    rate /= static_cast<uint64_t>(sharing); // a negative count leaves a rate of 0
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "bandwidth_per_second=%lu,conne#=%ld.", rate,
            sharing);
    const uint64_t moved = bandwidth->data_length;
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "gap_seconds=%ld,bandwidth->data_length=%ld.",
            gap_seconds, static_cast<long>(moved));

    // What the sample should have taken less what it has taken; negative when it is behind its
    // rate.
    const auto wait =
        static_cast<int64_t>(seconds_for(moved, rate) - static_cast<uint64_t>(gap_seconds));
    if (wait > 0) {
        log_msg(session_, __func__, 1, STS_SEV_DEBUG, "sleep locally=%ld.", wait);
        sleep_for(wait);
    }
    const int64_t owed = wait_seconds_;
    log_msg(session_, __func__, 1, STS_SEV_DEBUG, "wait_seconds_=%ld.", owed);
    if (owed > 0) {
        const int64_t part = owed / std::max(config_.sample_interval / 60, 1);
        sleep_for_service(__func__, part);
        wait_seconds_ -= part;
    }

    if (force == 0 && interval > gap_seconds) {
        return STS_OK;
    }
    if (status_ != STS_OK) {
        if (const restart_right right(numbers_[operation], number); right.had()) {
            restart(bandwidth, moved);
        }
        return STS_OK;
    }
    if (const int64_t rest = wait_seconds_; rest > 0) {
        sleep_for_service(__func__, rest);
        wait_seconds_ = 0;
    }
    const restart_right right(numbers_[operation], number);
    if (right.had()) {
        bandwidth->end_time = time(nullptr);
        return report(__func__, bandwidth, moved, true);
    }
    // Another thread has restarted the sample, or is about to: it isn't due any more. A report that
    // is asked for tells of the flow alone.
    return force != 0 ? report(__func__, bandwidth, 0, false) : STS_OK;
}

/// Tells the service of the sample and takes its answer; then restarts the sample, if that is this
/// thread's to do, whatever came of it.
int ServiceConnector::report(const char* who, bandwidth_s* bandwidth, unsigned long moved,
                             bool restarts) {
    const operation_type_t operation = bandwidth->operation_type;
    current_operation_ = operation;

    const ThrottlingBandwidth_var value =
        new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(
            static_cast<uint32_t>(operation), static_cast<uint32_t>(bandwidth->start_time),
            static_cast<uint32_t>(bandwidth->end_time), moved);

    std::string response;
    const int status =
        client_->check_bandwidth(flow_key(operation).c_str(), session_id_, value, response);
    if (status != STS_OK) {
        log_msg(session_, who, 1, STS_SEV_DEBUG, "response recived =%s", response.c_str());
    } else {
        take_reply(who, response);
    }
    if (restarts) {
        restart(bandwidth, moved);
    }
    log_msg(session_, who, 1, STS_SEV_DEBUG, "leaving with return vale %d", status);
    return status;
}
