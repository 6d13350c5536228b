#include "fuzz/support.h"

#include "platform/common/vlcommon.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <tuple>
#include <unistd.h>

namespace {

constexpr size_t longest_message = 4095;

void watch(const char*, const char* message, sts_severity_v7_t severity) {
    require(strnlen(message, longest_message + 1) <= longest_message, "a message ends in time");
    require(severity >= STS_SEV_INFO && severity <= STS_SEV_HOST, "a severity is a known one");
}

bool within(int32_t value, int32_t low, int32_t high) { return low <= value && value <= high; }

bool is_percent(int32_t value) { return within(value, 0, 100); }

bool is_hour(int32_t value) { return within(value, 0, 23); }

bool is_day(int32_t value) { return within(value, 1, 7); }

auto fields_of(const throttling_config_s& config) {
    return std::tie(config.read_bandwidth_percent, config.write_bandwidth_percent,
                    config.default_max_connections, config.connections, config.avail_bandwidth,
                    config.work_time_start, config.work_time_end,
                    config.work_time_bandwidth_percent, config.off_time_start, config.off_time_end,
                    config.off_time_bandwidth_percent, config.weekend_start, config.weekend_end,
                    config.weekend_bandwidth_percent, config.sample_interval, config.log_level);
}

} // namespace

void require(bool holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "this doesn't hold: %s\n", what);
        abort();
    }
}

memory_file::memory_file()
    : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    require(descriptor_ >= 0, "a file in memory can be had");
}

memory_file::~memory_file() { close(descriptor_); }

void memory_file::write(const void* bytes, size_t size) const {
    require(ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
    require(pwrite(descriptor_, bytes, size, 0) == static_cast<ssize_t>(size),
            "a file in memory can be written");
}

std::string memory_file::read() const {
    std::string text(static_cast<size_t>(lseek(descriptor_, 0, SEEK_END)), '\0');
    require(pread(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
            "a file in memory can be read");
    return text;
}

void memory_file::serve_as(char (&path)[4096]) const {
    snprintf(path, sizeof path, "%s", path_.c_str());
}

sts_session_def_v7_t watching_session() {
    sts_session_def_v7_t session = {};
    session.session_id = "fuzz:1";
    session.log = watch;
    session.log_mask = UINT16_MAX;
    return session;
}

std::unique_ptr<char[]> exact_text(const std::string& text) {
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

std::string text_of(const uint8_t* data, size_t size) {
    const auto* const text = reinterpret_cast<const char*>(data);
    return std::string(text, strnlen(text, size));
}

void require_acceptable(const throttling_config_s& config) {
    require(is_percent(config.read_bandwidth_percent) &&
                is_percent(config.write_bandwidth_percent) &&
                is_percent(config.work_time_bandwidth_percent) &&
                is_percent(config.off_time_bandwidth_percent) &&
                is_percent(config.weekend_bandwidth_percent),
            "a percent is 0 to 100");
    require(is_hour(config.work_time_start) && is_hour(config.work_time_end) &&
                is_hour(config.off_time_start) && is_hour(config.off_time_end),
            "an hour is 0 to 23");
    require(is_day(config.weekend_start) && is_day(config.weekend_end), "a day is 1 to 7");
    require(!is_overlap(config.work_time_start, config.work_time_end, config.off_time_start,
                        config.off_time_end),
            "the two windows don't overlap");
    require(config.default_max_connections > 0, "the default limit is above 0");
    for (const auto& storage : config.connections) {
        require(static_cast<int32_t>(storage.second) > 0, "a storage's limit is above 0");
    }
    require(static_cast<int64_t>(config.avail_bandwidth) > 0, "the bandwidth is above 0");
    require(config.sample_interval >= 0, "the sample interval isn't negative");
    require(within(config.log_level, 0, 5), "the log level is 0 to 5");
    require(config.cssc_port_number >= 0, "the port isn't negative");
    require(config.cssc_host_name[0] != '\0' &&
                memchr(config.cssc_host_name, '\0', sizeof config.cssc_host_name) != nullptr,
            "the host has a name that ends");
}

bool same_settings(const throttling_config_s& left, const throttling_config_s& right) {
    return fields_of(left) == fields_of(right) &&
           strcmp(left.cssc_host_name, right.cssc_host_name) == 0;
}

/// In the platform library's place, which asks the machine's user database at every write.
int onet_chown_service_user_if_root(const char*, int) { return 0; }
