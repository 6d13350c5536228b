#include "tests/engine/engine_fixture.h"

#include <cctype>

engine_test::engine_test() {
    config_set_path(nullptr);
    config.sample_interval = 30;
    config.avail_bandwidth = 1000;
    service() = {};
    service().on_exchange = [](const exchange& arrived) {
        const bool keyed = arrived.call != "set_config_params";
        host_log().push_back(
            {0, keyed ? arrived.call + "(" + arrived.key + ")" : arrived.call, ""});
    };
    clock.on_sleep = [](unsigned seconds) {
        host_log().push_back({0, "sleep(" + std::to_string(seconds) + ")", ""});
    };
    take_log();
}

engine_test::~engine_test() {
    connector.disconnect_service();
    service() = {};
}

int engine_test::connect(ServiceConnector& target, const sts_session_def_v7_t* host,
                         std::string type, std::string name) {
    const int status = target.connect_service(host, type.data(), name.data());
    type.assign(type.size(), '?');
    name.assign(name.size(), '?');
    return status;
}

void engine_test::start() {
    ASSERT_EQ(connect(connector, &session), STS_OK);
    ASSERT_EQ(connector.set_config_params(&config, 0), STS_OK);
    take_log();
    service().take();
    clock.take_sleeps();
    clock.reads = 0;
}

bandwidth_s engine_test::sample(operation_type_t operation, time_t age, unsigned long bytes) const {
    return {operation, clock.now() - age, clock.now() - age, bytes};
}

void engine_test::tell(long readers, long writers, long wait_seconds) {
    service().replies.push_back({STS_OK, reply_text(readers, writers, 0, wait_seconds)});
    bandwidth_s empty = sample(OPERATION_READ, 0, 0);
    ASSERT_EQ(connector.check_bandwidth(&empty, 0, 1), STS_OK);
    take_log();
    service().take();
    clock.take_sleeps();
    clock.reads = 0;
}

exchange engine_test::only_exchange() {
    const std::vector<exchange> arrived = service().take();
    EXPECT_EQ(arrived.size(), 1U);
    return arrived.empty() ? exchange() : arrived.back();
}

std::vector<std::string> log_of(const std::string& who, const std::vector<std::string>& texts) {
    std::vector<std::string> lines;
    for (const std::string& text : texts) {
        const bool whole = std::isdigit(static_cast<unsigned char>(text[0])) != 0;
        lines.push_back(whole ? text : "3 [" + who + "]" + text);
    }
    return lines;
}

std::vector<std::string> pacing_log(unsigned long rate, long sharing, long gap_seconds, long bytes,
                                    const std::vector<std::string>& rest) {
    std::vector<std::string> texts = {
        "enter.",
        "3 [get_bandwidth_per_second]Enter.",
        "3 [get_bandwidth_per_second]Leave.",
        "bandwidth_per_second=" + std::to_string(rate) + ",conne#=" + std::to_string(sharing) + ".",
        "gap_seconds=" + std::to_string(gap_seconds) +
            ",bandwidth->data_length=" + std::to_string(bytes) + ".",
    };
    texts.insert(texts.end(), rest.begin(), rest.end());
    return log_of("check_bandwidth", texts);
}
