// Any text as rows of settings: applied to a record, and set on a global server and on a storage's.
// The text comes back unchanged, what is stored may be stored, and each kind of server changes only
// what is its own.

#include "config/settings.h"
#include "fuzz/support.h"

#include <cstring>

namespace {

constexpr const char* file_before = "THR:READ_BANDWIDTH_PERCENT=70\n"
                                    "THR:s3=4\n"
                                    "THR:other=6\n"
                                    "THR:LOG_LEVEL=2\n"
                                    "THR:CSSC_HOST_NAME=storage.example\n";

throttling_config_s read_file() {
    throttling_config_s config;
    read_config_file_to_var(nullptr, &config);
    return config;
}

/// Sets the text on a server of that type and requires the text to survive.
void set(const sts_session_def_v7_t& session, const std::string& text, char* type, char* name) {
    const std::unique_ptr<char[]> copy = exact_text(text);
    require(write_config_file_from_buf(&session, copy.get(), type, name) == STS_OK,
            "a text can be set");
    require(copy.get() == text, "a text that is set stays as it is");
}

void check_global(const sts_session_def_v7_t& session, const std::string& text,
                  const throttling_config_s& incoming) {
    char type[] = "global";
    char name[] = "";
    const throttling_config_s before = read_file();
    set(session, text, type, name);
    const throttling_config_s after = read_file();
    throttling_config_s expected = incoming;
    expected.connections = before.connections;
    expected.log_level = before.log_level;
    const bool sets = text.find("name=THR") != std::string::npos;
    require(same_settings(after, sets ? expected : before),
            "a global text sets what is shared and nothing else");
}

void check_storage(const sts_session_def_v7_t& session, const std::string& text,
                   const throttling_config_s& incoming) {
    char type[] = "cloud";
    char name[] = "s3";
    throttling_config_s expected = read_file();
    set(session, text, type, name);
    const auto limit = incoming.connections.find(name);
    expected.connections[name] = limit != incoming.connections.end()
                                     ? limit->second
                                     : static_cast<uint32_t>(expected.default_max_connections);
    require(same_settings(read_file(), expected), "a storage's text sets its own limit alone");
}

/// Reads the rows that are formed of the file as any other text.
void check_own_rows(const sts_session_def_v7_t& session) {
    char type[] = "global";
    char name[] = "";
    const std::unique_ptr<char[]> rows(new char[STS_CONFIG_SIZE]);
    memset(rows.get(), 'x', STS_CONFIG_SIZE);
    require(read_config_file_to_buf(&session, rows.get(), type, name) == STS_OK, "rows are formed");
    require(memchr(rows.get(), '\0', STS_CONFIG_SIZE) != nullptr, "the rows end");
    throttling_config_s file = read_file();
    throttling_config_s read;
    read_buf_to_var(&session, rows.get(), &read);
    read.log_level = file.log_level; // neither has a row
    memcpy(read.cssc_host_name, file.cssc_host_name, sizeof read.cssc_host_name);
    require(same_settings(read, file), "the rows say what the file says");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const memory_file file;
    file.serve_as(plugin_config_path);
    file.write(file_before);
    const sts_session_def_v7_t session = watching_session();
    const std::string text = text_of(data, size);

    const std::unique_ptr<char[]> copy = exact_text(text);
    throttling_config_s config;
    require(read_buf_to_var(&session, copy.get(), &config) == STS_OK, "a text is read");
    require(copy.get() == text, "a text that is read stays as it is");
    require_acceptable(config);

    check_storage(session, text, config);
    check_own_rows(session);
    if (strchr(config.cssc_host_name, '\n') != nullptr) {
        return 0; // a host of two lines is two lines of the file
    }
    check_global(session, text, config);
    check_own_rows(session);
    return 0;
}
