// The one class through which the throttling engine reaches the management service.
#pragma once

#include "client/ThrottlingBandwidth.h"
#include "plugin/stsapi.h"

#include <string>

namespace Orvessa::Vaultaro {

using Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth;
using Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth_var;

/// A client of the management service. It connects at its first exchange, and tries again at each
/// later one as long as it isn't connected. No exception leaves an exchange. Exchanges of one
/// client must not overlap; making and deleting clients must be serialised.
///
/// An exchange answers the service's own status unchanged, 0 for a valid answer; or STS_ERR_FILE
/// when the call failed in any way, and then leaves `out` as it was.
class CCloudVLSLClient {
  public:
    /// Nothing remote happens. `session` is borrowed for the client's life and may be null; each
    /// exchange gives up after `timeout_seconds`.
    CCloudVLSLClient(const sts_session_def_v7_t* session, std::string host, bool force_oxss_iop,
                     unsigned long value, int timeout_seconds);
    ~CCloudVLSLClient();
    CCloudVLSLClient(const CCloudVLSLClient&) = delete;
    CCloudVLSLClient& operator=(const CCloudVLSLClient&) = delete;

    /// Sends the whole configuration in its row form.
    int set_config_params(const char* params);

    /// Adds (+1) or gives back (-1) a connection of the flow `key`. STS_ERR_MAX_CONNECTIONS is the
    /// service's refusal.
    int check_connections(const char* key, const char* session_text, int delta, std::string& out);

    /// Reports one sample of the flow `key`.
    int check_bandwidth(const char* key, const char* session_text, ThrottlingBandwidth_var value,
                        std::string& out);
};

} // namespace Orvessa::Vaultaro
