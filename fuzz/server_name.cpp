// Any text as a server's name: taken apart, claimed, and opened over a next layer that accepts
// everything.

#include "config/settings.h"
#include "fuzz/support.h"
#include "plugin/throttling.h"

#include <algorithm>
#include <cstring>

namespace {

char anything; // what every handle of the next layer points to
std::string opened_below;

int open_session(const sts_session_def_v7_t*, sts_next_session_s** session) {
    *session = reinterpret_cast<sts_next_session_s*>(&anything);
    return STS_OK;
}

int open_server(sts_next_session_s*, const char* name, const sts_server_def_s*, sts_forwarded_t,
                sts_next_server_s** server) {
    opened_below = name;
    *server = reinterpret_cast<sts_next_server_s*>(&anything);
    return STS_OK;
}

int get_server_prop(sts_next_server_s*, sts_server_info_s*) { return STS_OK; }

int close_handle(void*, int32_t) { return STS_OK; }

sts_api_t accepting_layer() {
    sts_api_t table = {};
    table.open_session = open_session;
    table.open_server = open_server;
    table.get_server_prop = get_server_prop;
    table.close_handle = close_handle;
    return table;
}

void check_field(const char* name, int32_t field) {
    const char* const untouched = &anything;
    const char* found = untouched;
    const int status = get_field_ptr_in_name(name, field, &found);
    if (status != 0) {
        const bool unusable = name[0] == '\0' || name[0] == ':';
        require(status == (unusable ? 1 : -1), "a field isn't there for one of two reasons");
        require(found == untouched, "a field that isn't there is left alone");
        return;
    }
    require(name <= found && found <= name + strlen(name), "a field is inside its name");
    require(found == name || found[-1] == ':', "a field begins behind a colon");
    if (field < 0) {
        require(strchr(found, ':') == nullptr, "a negative field is the last one");
    } else {
        require(std::count(name, found, ':') == field, "a field is behind as many colons");
    }
}

/// Requires that a buffer of 512 bytes holds `expected`, cut to 511, and then zeros.
void check_padded(const char* buffer, const std::string& expected, const char* what) {
    std::string whole = expected.substr(0, STS_NAME_SIZE - 1);
    whole.resize(STS_NAME_SIZE);
    require(memcmp(buffer, whole.data(), STS_NAME_SIZE) == 0, what);
}

/// What is behind the name's last colon; a name that begins with a colon has no fields.
std::string storage_of(const std::string& name) {
    const size_t colon = name.rfind(':');
    return colon == std::string::npos || name[0] == ':' ? "" : name.substr(colon + 1);
}

/// What is between the prefix and the second colon, if that is where a type could stand.
std::string type_of(const std::string& name) {
    const size_t first = name.find(':');
    const size_t second = first != std::string::npos ? name.find(':', first + 1) : first;
    const bool typed = second != std::string::npos && name[0] != ':' &&
                       second >= server_prefix_length && second < STS_NAME_SIZE;
    return typed ? name.substr(server_prefix_length, second - server_prefix_length) : "";
}

void check_split(const char* name) {
    const std::unique_ptr<char[]> server(new char[STS_NAME_SIZE]);
    const std::unique_ptr<char[]> type(new char[STS_NAME_SIZE]);
    memset(server.get(), 'x', STS_NAME_SIZE);
    memset(type.get(), 'x', STS_NAME_SIZE);
    get_net_server_name_type(name, server.get(), type.get());
    check_padded(server.get(), storage_of(name), "the storage is behind the last colon");
    check_padded(type.get(), type_of(name), "the type is between prefix and second colon");
}

void check_open(const char* name) {
    const sts_session_def_v7_t session = watching_session();
    throttling_server_s* server = nullptr;
    opened_below.clear();
    const char* next_name = nullptr;
    const bool named = get_field_ptr_in_name(name, 2, &next_name) == 0;
    const int status = throttling_open_server_v7(&session, name, nullptr, 0, &server);
    require(status == (named ? STS_OK : STS_ERR_INVALID), "a name with two colons opens");
    if (!named) {
        require(server == nullptr, "a refused open hands nothing out");
        return;
    }
    require(opened_below == next_name, "the next layer sees all of its own name");
    check_padded(server->server_name, name, "the handle keeps the name");
    check_padded(server->next_server_name, next_name, "the handle keeps the next layer's name");
    const std::unique_ptr<char[]> info(new char[STS_NAME_SIZE]);
    const int told =
        throttling_get_server_prop_v8(server, reinterpret_cast<sts_server_info_s*>(info.get()));
    require(told == (next_name[0] != '\0' ? STS_OK : STS_ERR_INVALID),
            "properties are those of a next layer");
    if (told == STS_OK) {
        check_padded(info.get(), name, "properties carry the whole name");
    }
    require(throttling_close_server_v7(server) == STS_OK, "a server with nothing open closes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const memory_file file;
    static const sts_api_t next_layer = accepting_layer();
    file.write("THR:s3=4\n");
    file.serve_as(plugin_config_path);
    sts_api = &next_layer;

    const std::unique_ptr<char[]> name = exact_text(text_of(data, size));
    for (int32_t field = -3; field <= 5; ++field) {
        check_field(name.get(), field);
    }
    check_split(name.get());
    const bool ours = strncmp(name.get(), server_prefix, server_prefix_length) == 0;
    require(throttling_claim_v7(name.get()) == (ours ? STS_OK : STS_ERR_NOT_CLAIMED),
            "a name is ours by its prefix");
    check_open(name.get());
    return 0;
}
