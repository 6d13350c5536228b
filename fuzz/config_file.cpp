// Any bytes as a settings file. Whatever is in it, what is read may be stored, and what is written
// of it reads back the same.

#include "config/settings.h"
#include "fuzz/support.h"

#include <cstring>

namespace {

constexpr const char* absent_file = "/proc/self/fd/none";

/// Writes the record as our file and reads it again, the port from no file.
void check_round_trip(const sts_session_def_v7_t& session, const throttling_config_s& config,
                      const memory_file& file) {
    require(write_config_file_from_var(&session, &config) == STS_OK, "settings can be written");
    const std::string text = file.read();
    require(text.size() < STS_CONFIG_SIZE, "a settings file has at most 10239 bytes");
    if (text.size() == STS_CONFIG_SIZE - 1) {
        return; // cut: what is behind the cut is lost
    }
    throttling_config_s again;
    require(read_config_file_to_var(&session, &again) == STS_OK, "both files are read");
    require(same_settings(config, again), "settings written and read are the same");
    require(again.cssc_port_number == throttling_config_s().cssc_port_number,
            "the port comes from the service's file alone");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const memory_file file;
    const sts_session_def_v7_t session = watching_session();
    file.write(data, size);

    throttling_config_s config;
    require(read_config_file_to_var(&session, &config, file.path().c_str()) == STS_OK,
            "a file that can be opened is read");
    require_acceptable(config);
    for (const auto& storage : config.connections) {
        require(storage.first.find_first_of("=\n") == std::string::npos,
                "a storage's name is in one line");
    }

    file.serve_as(cloudstore_config_path);
    require(get_cssc_security(&session) >= 0, "the security flag isn't negative");
    strcpy(cloudstore_config_path, absent_file);

    file.serve_as(plugin_config_path);
    throttling_config_s started;
    require(config_init(&started) == STS_OK, "a start reads the file");
    require(same_settings(config, started), "a start reads what a read reads");

    check_round_trip(session, config, file);
    return 0;
}
