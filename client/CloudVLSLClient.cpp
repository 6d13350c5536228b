// The client of a machine whose service can't be reached: there is no transport to it yet, so every
// exchange fails as it does against a service that is down, and data flows paced by local settings.

#include "client/CloudVLSLClient.h"

#include "common/onet_proxy_hint.h"

namespace Orvessa::Vaultaro {

CCloudVLSLClient::CCloudVLSLClient(const sts_session_def_v7_t* /*session*/, std::string /*host*/,
                                   bool /*force_oxss_iop*/, unsigned long /*value*/,
                                   int /*timeout_seconds*/) {}

CCloudVLSLClient::~CCloudVLSLClient() = default;

int CCloudVLSLClient::set_config_params(const char* /*params*/) { return STS_ERR_FILE; }

int CCloudVLSLClient::check_connections(const char* /*key*/, const char* /*session_text*/,
                                        int /*delta*/, std::string& /*out*/) {
    return STS_ERR_FILE;
}

int CCloudVLSLClient::check_bandwidth(const char* /*key*/, const char* /*session_text*/,
                                      ThrottlingBandwidth_var /*value*/, std::string& /*out*/) {
    return STS_ERR_FILE;
}

} // namespace Orvessa::Vaultaro
