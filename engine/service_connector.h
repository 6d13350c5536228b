// The throttling engine of one server handle: who may connect, and how fast data may flow.
//
//   image open      connect_service, set_config_params, check_connections(a, +1)   may be refused
//   each transfer   check_bandwidth(sample): sleeps while the sample is ahead of its rate, and
//                   tells the service of it once in a sample interval
//   server close    check_connections(a, -1), disconnect_service
//
// Without a service data keeps flowing, paced by what is configured here. Several images of one
// server share its samples and counts without a lock: each value is read and written whole, and a
// sample loses no byte, since whoever restarts it takes off what it tells and no more. The host
// sees to it that opens and closes come one at a time.
#pragma once

#include "config/allowed_rate.h"
#include "config/throttling_util.h"
#include "engine/shared_value.h"

#include <cstdint>
#include <ctime>
#include <string>

namespace Orvessa::Vaultaro {
class CCloudVLSLClient;
}

/// One sample of data moved in one direction.
struct bandwidth_s {
    operation_type_t operation_type;
    shared_value<time_t> start_time;         ///< when the sample began, seconds
    shared_value<time_t> end_time;           ///< when it was last reported, seconds
    shared_value<unsigned long> data_length; ///< bytes moved since start_time
};
static_assert(sizeof(bandwidth_s) == 32);

class ServiceConnector {
  public:
    /// Not connected, with the default settings.
    ServiceConnector() = default;

    /// A copy for a second server handle: settings, names and counts are the source's. It has no
    /// client and no session of its own yet and connects when it is first asked to, so nothing is
    /// owned twice.
    ServiceConnector(const ServiceConnector& other);
    ServiceConnector& operator=(const ServiceConnector&) = delete;

    /// Leaves the client alone: disconnect_service is called first where throttling is on.
    ~ServiceConnector() = default;

    /// Start and stop for the whole process. They have nothing to do, and answer 0.
    static int init();
    static int terminate();

    /// Non-zero turns throttling on.
    void set_throttling_enabled(int32_t enabled) { throttling_enabled_ = enabled; }
    /// 1 if throttling is on, else 0.
    int is_throttling_enabled() const { return throttling_enabled_ != 0 ? 1 : 0; }

    /// Makes the client; nothing remote happens yet. `session` is borrowed until disconnect_service
    /// and may be null, the texts are copied. 0: connected, now or before. STS_ERR_NO_SERVICE: a
    /// global or unnamed server needs none. STS_ERR_NOMEM: no memory for the session's identifier.
    int connect_service(const sts_session_def_v7_t* session, char* server_type, char* server_name);

    /// Gives up the client and the session's identifier. Always 0.
    int disconnect_service();

    /// Takes over the settings and sends the files' row text to the service. Does nothing while not
    /// connected. 0 or the status of the exchange. `is_secure` isn't read, here and below.
    int set_config_params(const throttling_config_s* config, int is_secure);

    /// Bytes per second allowed now to this process in one direction, before sharing.
    void get_bandwidth_per_second(operation_type_t operation, unsigned long& rate);

    /// Key prefix of the operation in progress: "r:", "w:" or "a:".
    std::string getCurrentOperation() const;

    /// Counts a use of the storage (`delta` 1) or its end (-1), and asks the service where the
    /// count calls for it. Sleeps what the service asks for. STS_ERR_MAX_CONNECTIONS: refused; any
    /// other status: the exchange failed.
    int check_connections(operation_type_t operation, int delta, int is_secure);

    /// Paces one sample: sleeps as long as it is ahead of its share of the allowed rate, pays off
    /// what the service asked for, and reports and restarts the sample when it is due or `force`
    /// isn't 0. A rate of 0 ends the process by an arithmetic fault. 0 or the status of the
    /// exchange.
    int check_bandwidth(bandwidth_s* bandwidth, int is_secure, int force);

    /// Reads the number that follows `key` in a reply. STS_ERR_INVALID: no such key, `value` is as
    /// it was.
    static int get_msg_value(const std::string& message, const std::string& key, long& value);

    /// The address form of the service: http[s]://HOST:PORT/throttle/TYPE/KEY/OPERATION/SESSION.
    __attribute__((visibility("default"))) std::string access_uri(const char* operation,
                                                                  int is_secure);

  private:
    std::string flow_key(operation_type_t operation) const;
    void take_reply(const char* who, const std::string& response);
    void sleep_for_service(const char* who, int64_t seconds);
    tm local_time();
    int report(const char* who, bandwidth_s* bandwidth, unsigned long moved, bool restarts);

    shared_value<int32_t> throttling_enabled_ = 0;
    throttling_config_s config_;
    const sts_session_def_v7_t* session_ = nullptr; ///< borrowed
    char* session_id_ = nullptr; ///< owned; the identifier with "_" for every ":"
    char server_type_[STS_NAME_SIZE] = {};
    char server_name_[STS_NAME_SIZE] = {};
    shared_value<int32_t> status_ = STS_ERR_NOT_INIT;       ///< 0 when connected
    shared_value<int64_t> connection_counts_[2] = {1, 1};   ///< sharing each, never left at 0
    shared_value<int64_t> free_flow_ = 0;                   ///< logged only
    shared_value<int64_t> wait_seconds_ = 0;                ///< asked for and not yet waited
    shared_value<int32_t> reference_counts_[3] = {0, 0, 0}; ///< by operation_type_t
    shared_value<operation_type_t> current_operation_ = OPERATION_READ;
    Orvessa::Vaultaro::CCloudVLSLClient* client_ = nullptr; ///< owned
    shared_value<uint64_t> local_hour_ = ~uint64_t{0};      ///< see local_time
    shared_value<uint64_t> numbers_[2] = {0, 0};            ///< of the samples, see restart_right
};
