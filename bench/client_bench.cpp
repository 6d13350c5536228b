// What an exchange with the service takes, beside a bare _non_existent over the same connection, in
// turns with it. Prints a Markdown table.
//
//   client_bench VLSLD    the service's program

#include "bench/service_child.h"
#include "client/CloudVLSLClient.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;

double seconds_of(const std::function<void()>& work) {
    const auto start = steady::now();
    work();
    return std::chrono::duration<double>(steady::now() - start).count();
}

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(part * static_cast<double>(values.size() - 1))];
}

void require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void print_row(const char* name, const std::vector<double>& taken) {
    printf("| %s | %.1f | %.1f |\n", name, quantile(taken, 0.5) * 1e6, quantile(taken, 0.99) * 1e6);
}

void print_exchanges(const service_child& service) {
    constexpr int turns = 20'000;
    using Orvessa::Vaultaro::CCloudVLSLClient;
    setenv("VLSL_PORT", std::to_string(service.port()).c_str(), 1);
    CCloudVLSLClient client(nullptr, "localhost", false, 0, 5);
    require(client.Initialize(), "the service gives no session");
    const Orvessa::Vaultaro::CloudManager_var manager = client.GetCloudManager();
    std::vector<double> exchanges;
    std::vector<double> bare;
    std::string answer;
    for (int turn = 0; turn < turns; ++turn) {
        exchanges.push_back(seconds_of([&] {
            const int status = client.check_bandwidth(
                "w:bench", "bench",
                new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(1, 0, 30, 1000000),
                answer);
            require(status == STS_OK, "an exchange failed");
        }));
        bare.push_back(seconds_of([&] { manager->_non_existent(); }));
    }
    printf("| Call over loopback | Median, us | 99th percentile, us |\n| --- | ---: | ---: |\n");
    print_row("`check_bandwidth`", exchanges);
    print_row("bare `_non_existent`", bare);
    printf("| ratio | %.2f | %.2f |\n", quantile(exchanges, 0.5) / quantile(bare, 0.5),
           quantile(exchanges, 0.99) / quantile(bare, 0.99));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: client_bench VLSLD\n");
        return 2;
    }
    try {
        print_exchanges(service_child(argv[1]));
        return EXIT_SUCCESS;
    } catch (const CORBA::Exception& error) {
        fprintf(stderr, "client_bench: CORBA::%s\n", error._name());
    } catch (const std::exception& error) {
        fprintf(stderr, "client_bench: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
