// What it takes to check and copy a message before the ORB reads it, beside the ORB's reading alone, in
// turns with it. Prints a Markdown table.

#include "interfaces/checked_copy.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>
#include <vlsl.hh>

namespace {

namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;
using steady = std::chrono::steady_clock;

/// The nanoseconds that one of many calls takes.
double nanoseconds_of(const std::function<void()>& work) {
    constexpr int calls = 1000;
    const auto start = steady::now();
    for (int call = 0; call < calls; ++call) {
        work();
    }
    return std::chrono::duration<double, std::nano>(steady::now() - start).count() / calls;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void read_arguments(cdrStream& from) {
    const CORBA::String_var key = from.unmarshalString(0);
    const CORBA::String_var session = from.unmarshalString(0);
    const CloudMgmt::ThrottlingBandwidth_var sample =
        CloudMgmt::ThrottlingBandwidth::_NP_unmarshal(from);
}

} // namespace

int main() {
    constexpr int turns = 500;
    int count = 0;
    const CORBA::ORB_var orb = CORBA::ORB_init(count, nullptr);
    const CORBA::ValueFactoryBase_var earlier = orb->register_value_factory(
        CloudMgmt::ThrottlingBandwidth::_PD_repoId, new CloudMgmt::ThrottlingBandwidth_init());

    // The arguments of check_bandwidth.
    cdrMemoryStream message;
    message.marshalString("w:storage", 0);
    message.marshalString("session", 0);
    const CloudMgmt::ThrottlingBandwidth_var sample =
        new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(1, 0, 30, 1000000);
    CloudMgmt::ThrottlingBandwidth::_NP_marshal(sample.in(), message);
    static const CORBA::TypeCode_ptr* const types[] = {&CORBA::_tc_string, &CORBA::_tc_string,
                                                       &CloudMgmt::_tc_ThrottlingBandwidth};

    std::vector<double> alone;
    std::vector<double> checked;
    for (int turn = 0; turn < turns; ++turn) {
        alone.push_back(nanoseconds_of([&] {
            cdrMemoryStream received(message.bufPtr(), message.bufSize());
            read_arguments(received);
        }));
        checked.push_back(nanoseconds_of([&] {
            cdrMemoryStream received(message.bufPtr(), message.bufSize());
            vlsl_support::CheckedCopy copy(received, types);
            read_arguments(copy);
        }));
    }
    printf("| Reading `check_bandwidth`'s arguments | Median, ns |\n| --- | ---: |\n");
    printf("| the ORB alone | %.0f |\n", median(alone));
    printf("| checked and copied first | %.0f |\n", median(checked));
    printf("| ratio | %.2f |\n", median(checked) / median(alone));
}
