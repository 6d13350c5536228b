// Any text as the service's reply. The input's first line is a key to look up in the rest, which
// then answers a whole claim and two reports. Time is the fuzzer's own: nothing sleeps.

#include "engine/service_connector.h"
#include "fuzz/support.h"
#include "tests/support/scripted_client.h"

#include <ctime>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

/// Time for the thread that fuzzes; other threads of the process keep the real one.
struct own_time {
    time_t now = 1'700'000'000;
    std::vector<unsigned> sleeps = {};
};
thread_local own_time* current = nullptr;

time_t real_time() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

} // namespace

extern "C" {

time_t time(time_t* out) noexcept {
    const time_t now = current != nullptr ? current->now : real_time();
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

unsigned sleep(unsigned seconds) {
    if (current != nullptr) {
        current->sleeps.push_back(seconds);
        current->now += seconds;
    } else {
        const timespec duration = {static_cast<time_t>(seconds), 0};
        nanosleep(&duration, nullptr);
    }
    return 0;
}

} // extern "C"

namespace {

constexpr long unset = std::numeric_limits<long>::min() + 1;

/// Looks up a value. A text of fewer than five characters may end the search with the standard
/// exception, and no other text.
void check_lookup(const std::string& message, const std::string& key) {
    long value = unset;
    try {
        const int status = ServiceConnector::get_msg_value(message, key, value);
        const bool named = message.find(key) != std::string::npos;
        require(status == (named ? STS_OK : STS_ERR_INVALID), "a key is found where it stands");
        require(named || value == unset, "a key that isn't there leaves the value alone");
    } catch (const std::out_of_range&) {
        require(message.size() < 5, "only a short text is out of range");
    }
}

/// What the engine makes of one name in the reply.
long value_of(const std::string& reply, const std::string& name, long otherwise) {
    ServiceConnector::get_msg_value(reply, name, otherwise);
    return otherwise;
}

/// Whether the engine can divide its rate by the reply's counts: a rate of 0 ends the process.
bool leaves_a_rate(const std::string& reply, uint64_t rate) {
    for (const char* name : {"THR_R_CONNECTION_COUNTS", "THR_W_CONNECTION_COUNTS"}) {
        const long count = value_of(reply, name, 1);
        if (count < 0 || static_cast<uint64_t>(count) > rate) {
            return false;
        }
    }
    return true;
}

void check_exchanges(const std::string& reply) {
    own_time clock;
    current = &clock;
    service() = {};
    service().usual.out = reply;
    const sts_session_def_v7_t session = watching_session();
    throttling_config_s config;
    config.sample_interval = 30;
    ServiceConnector connector;
    char type[] = "cloud";
    char name[] = "s3";
    require(connector.connect_service(&session, type, name) == STS_OK, "it connects");
    require(connector.set_config_params(&config, 0) == STS_OK, "it takes settings");

    require(connector.check_connections(OPERATION_READ_WRITE, 1, 0) == STS_OK, "it is admitted");
    const long wait = value_of(reply, "THR_WAIT_SECONDS", 0);
    const std::vector<unsigned> slept =
        wait > 0 ? std::vector<unsigned>{static_cast<unsigned>(wait)} : std::vector<unsigned>{};
    require(clock.sleeps == slept, "a claim waits once for what the reply asks, if above 0");

    if (leaves_a_rate(reply, config.avail_bandwidth)) {
        clock.sleeps.clear();
        bandwidth_s sample = {OPERATION_WRITE, clock.now, clock.now, 0};
        require(connector.check_bandwidth(&sample, 0, 1) == STS_OK, "a report goes out");
        require(clock.sleeps.empty(), "a first report owes nothing");
        sample.data_length = 1;
        sample.start_time -= config.sample_interval;
        require(connector.check_bandwidth(&sample, 0, 0) == STS_OK, "a sample that is due is told");
        require(clock.sleeps == slept, "the next call pays what the report before it asked for");
        require(sample.data_length == 0, "a sample that was told starts again");
    }
    connector.disconnect_service();
    current = nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t line = input.find('\n');
    const std::string key = input.substr(0, line);
    const std::string reply = line != std::string::npos ? input.substr(line + 1) : "";
    check_lookup(reply, key);
    check_exchanges(reply);
    return 0;
}
