#include "service/service_log.h"

#include <cerrno>
#include <system_error>

namespace {

FILE* open_log(const std::string& path) {
    if (path.empty()) {
        return stderr;
    }
    FILE* const stream = fopen(path.c_str(), "ae");
    if (stream == nullptr) {
        throw std::system_error(errno, std::generic_category(), "--log-file " + path);
    }
    return stream;
}

} // namespace

service_log::service_log(const std::string& path) : stream_(open_log(path)) {}

service_log::~service_log() {
    if (stream_ != stderr) {
        fclose(stream_);
    }
}

void service_log::line(const std::string& text) {
    const std::lock_guard<std::mutex> guard(lock_);
    const time_t now = time(nullptr);
    if (now != second_) {
        if (lines_ > most_lines_a_second) {
            write(now, std::to_string(lines_ - most_lines_a_second) + " lines left out");
        }
        second_ = now;
        lines_ = 0;
    }
    if (++lines_ <= most_lines_a_second) {
        write(now, text);
    }
}

void service_log::write(time_t now, const std::string& text) {
    tm local = {};
    localtime_r(&now, &local);
    char when[32];
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S%z", &local);
    fprintf(stream_, "%s %s\n", when, text.c_str());
    fflush(stream_);
}
