#include "tests/client/client_fixture.h"

#include <omniORB4/CORBA.h>
#include <omniORB4/omniInterceptors.h>
#include <stdexcept>

OMNI_USING_NAMESPACE(omni)

namespace {

CORBA::Boolean throw_a_number(omniInterceptors::clientSendRequest_T::info_T&) { throw 7; }

const char* const while_processing = "VLSLOpException while processing ";
const char* const occured = "VLSLOpException occured while processing ";

} // namespace

const std::vector<exchange_shape> exchange_shapes = {
    {"set_config_params", "update_ThrottleConfigParams",
     "update_ThrottleConfigParams(\"name=THR:s3,\")", false, true, false, STS_ERR_FILE,
     STS_ERR_FILE, STS_ERR_FILE, while_processing},
    {"check_bandwidth", "check_bandwidth",
     "check_bandwidth(\"w:s3\", \"s_1\", {1, 2, 4000000000, 1099511627776})", true, true, false,
     STS_ERR_FILE, STS_ERR_FILE, STS_ERR_FILE, while_processing},
    {"check_connections", "check_connections", "check_connections(\"a:s3\", \"s_1\", -1)", true,
     true, false, STS_ERR_FILE, STS_ERR_FILE, STS_ERR_FILE, while_processing},
    {"send_meter", "update_MeteringData",
     "update_MeteringData(\"a:s3\", \"s_1\", {1, 2, 3, 4, 5, 6, 7, 18446744073709551615}, true)",
     false, true, true, STS_ERR_MAX_CONNECTIONS, STS_ERR_MAX_CONNECTIONS, STS_ERR_MAX_CONNECTIONS,
     while_processing},
    {"getStorageServerConfig", "getCloudConfigBlob", "getCloudConfigBlob(\"s3\")", true, false,
     true, STS_ERR_MAX_CONNECTIONS, STS_ERR_MAX_CONNECTIONS, 0, occured},
    {"setStorageServerConfig", "setCloudConfigBlob", "setCloudConfigBlob(\"s3\", \"rows\")", false,
     false, true, STS_ERR_MAX_CONNECTIONS, -1, 0, occured},
};

const exchange_shape& shape_of(std::string_view name) {
    for (const exchange_shape& each : exchange_shapes) {
        if (each.name == name) {
            return each;
        }
    }
    throw std::invalid_argument(std::string(name));
}

void PrintTo(const exchange_shape& shape, std::ostream* out) { *out << shape.name; }

ThrottlingBandwidth_var some_sample() {
    return new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(1, 2, 4'000'000'000,
                                                                         1ULL << 40);
}

MeteringDataInfo_var some_meter() {
    return new OBV_Corvane::Vaultaro::SL::CloudMgmt::MeteringDataInfo(1, 2, 3, 4, 5, 6, 7,
                                                                      UINT64_MAX);
}

int exchange_shape::run(CCloudVLSLClient& client, std::string& out) const {
    const std::string which = name;
    if (which == "set_config_params") {
        return client.set_config_params("name=THR:s3,");
    }
    if (which == "check_bandwidth") {
        return client.check_bandwidth("w:s3", "s_1", some_sample(), out);
    }
    if (which == "check_connections") {
        return client.check_connections("a:s3", "s_1", -1, out);
    }
    if (which == "send_meter") {
        return client.send_meter("a:s3", "s_1", some_meter(), true);
    }
    if (which == "getStorageServerConfig") {
        [[maybe_unused]] const leaks_on_purpose the_text; // it stays allocated
        return client.getStorageServerConfig("s3", out);
    }
    return client.setStorageServerConfig("s3", "rows");
}

int exchange_shape::run(CCloudVLSLClient& client) const {
    std::string out;
    return run(client, out);
}

std::string exchange_shape::raised_line(long code) const {
    return "4 " + std::string(raised) + asked + ", return code =" + std::to_string(code);
}

std::string exchange_shape::corba_line() const {
    return "4 Unknown CORBA exception occured while processing " + std::string(asked) +
           ", return code =" + std::to_string(corba_status);
}

std::string exchange_shape::other_line() const {
    return "4 Unknown exception occured while processing " + std::string(asked) +
           ", return code =" + std::to_string(other_number);
}

odd_requests::odd_requests() { omniORB::getInterceptors()->clientSendRequest.add(throw_a_number); }

odd_requests::~odd_requests() {
    omniORB::getInterceptors()->clientSendRequest.remove(throw_a_number);
}
