// What the tests of the real client share: a scripted service, and a session whose log mask lets
// nothing through, which the client's lines don't mind.
#pragma once

#include "client/CloudVLSLClient.h"
#include "tests/support/host_session.h"
#include "tests/support/scripted_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#ifdef HAS_LEAK_SANITIZER
#include <sanitizer/lsan_interface.h>
using leaks_on_purpose = __lsan::ScopedDisabler;
#else
struct leaks_on_purpose {};
#endif

using Orvessa::Vaultaro::CCloudVLSLClient;
using Orvessa::Vaultaro::MeteringDataInfo;
using Orvessa::Vaultaro::MeteringDataInfo_var;
using Orvessa::Vaultaro::ThrottlingBandwidth;
using Orvessa::Vaultaro::ThrottlingBandwidth_var;
using lines = std::vector<std::string>;

constexpr int failed_exchange = STS_ERR_FILE;

/// One exchange with fixed arguments, as the service sees it and as its failures are told.
struct exchange_shape {
    const char* name;    ///< of the client's operation
    const char* asked;   ///< of the service's operation
    const char* request; ///< as the service's record shows it
    bool fills_out;      ///< has an `out`
    bool passes_status;  ///< the service's result is the client's
    bool passes_code;    ///< so is the code of what it raises
    int corba_status;    ///< where another CORBA exception is raised
    int other_status;    ///< where what is thrown is no CORBA exception
    int other_number;    ///< in the line about that
    const char* raised;  ///< start of the line about what the service raises

    /// Makes the exchange.
    int run(CCloudVLSLClient& client, std::string& out) const;
    int run(CCloudVLSLClient& client) const;

    std::string raised_line(long code) const;
    std::string corba_line() const;
    std::string other_line() const;
};

extern const std::vector<exchange_shape> exchange_shapes;
/// The shape of that name.
const exchange_shape& shape_of(std::string_view name);

/// Prints a shape by its name.
void PrintTo(const exchange_shape& shape, std::ostream* out);

ThrottlingBandwidth_var some_sample();
MeteringDataInfo_var some_meter();

class Client : public testing::Test {
  protected:
    Client() { take_log(); }

    std::unique_ptr<CCloudVLSLClient> make(int timeout_seconds = 10) {
        return std::make_unique<CCloudVLSLClient>(&session, "localhost", false, 0UL,
                                                  timeout_seconds);
    }
    /// One with session and facets; what that asked is forgotten.
    std::unique_ptr<CCloudVLSLClient> make_connected(int timeout_seconds = 10) {
        auto client = make(timeout_seconds);
        EXPECT_TRUE(client->Initialize());
        service.take();
        take_log();
        return client;
    }

    remote_service service;
    sts_session_def_v7_t session = host_session("s", 0);
};

/// Each request fails by what is no exception of the ORB's while one lives.
struct odd_requests {
    odd_requests();
    ~odd_requests();
};

/// Goes through all exchanges: INSTANTIATE_TEST_SUITE_P(Each, SUITE, each_exchange(),
/// exchange_name).
class EachExchange : public Client, public testing::WithParamInterface<exchange_shape> {
  protected:
    const exchange_shape& shape = GetParam();
    std::string out = "as it was";
};

inline auto each_exchange() { return testing::ValuesIn(exchange_shapes); }
inline std::string exchange_name(const testing::TestParamInfo<exchange_shape>& test) {
    return test.param.name;
}
