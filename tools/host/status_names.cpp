#include "tools/host/status_names.h"

#include "platform/sts/sts_records.h"
#include "plugin/stsapi.h"
#include "tools/terminal/printable.h"

#include <cstring>
#include <fmt/format.h>

namespace {

struct status_row {
    int status;
    const char* name;
    const char* meaning;
};

#define ROW(name, meaning)                                                                         \
    { name, #name, meaning }
constexpr status_row rows[] = {
    ROW(STS_OK, "success"),
    ROW(STS_ERR_INVALID, "an argument or name isn't valid, or nothing by that name is there"),
    ROW(STS_ERR_NOMEM, "memory can't be had"),
    ROW(STS_ERR_BUSY, "images or lists of the server are still open"),
    ROW(STS_ERR_VERSION, "the storage library is asked for a version other than 12"),
    ROW(STS_ERR_PLUGIN_VERSION, "the plugin is asked for a version below 11"),
    ROW(STS_ERR_NOT_CLAIMED,
        "neither the plugin, whose names begin with \"CS_throttle:\", nor a plugin of "
        "VL_STS_PLUGINS claims the name"),
    ROW(STS_ERR_NOT_INIT, "no storage library is bound below the plugin"),
    ROW(STS_ERR_TERMINATE_IGNORED, "the storage library stays up for others"),
    ROW(STS_ERR_END_OF_LIST, "no more entries, or the configuration file can't be written"),
    ROW(STS_ERR_NOT_SUPPORTED, "the plugin doesn't implement this operation"),
    ROW(STS_ERR_FILE, "a file operation or an exchange with the service failed"),
    ROW(STS_ERR_OPEN, "the log file can't be opened: its directory must exist, or set "
                      "THR:LOG_LEVEL=0"),
    ROW(STS_ERR_MAX_CONNECTIONS, "the service refuses one more connection to this storage"),
    ROW(STS_ERR_NO_SERVICE, "the server needs no service"),
    ROW(STS_ERR_BUFFER_SPACE, "the caller's buffer can't hold what there is"),
    ROW(STS_ERR_NO_EVENT, "no event is waiting"),
};
#undef ROW

} // namespace

std::string status_text(int status) {
    for (const status_row& row : rows) {
        if (row.status == status) {
            return fmt::format("{} ({}): {}", row.name, status, row.meaning);
        }
    }
    if (const int error = sts_errno_of_status(status)) {
        return fmt::format("status {}: the storage says: {}", status, strerror(error));
    }
    return fmt::format("status {}: the storage library's own", status);
}

status_failure failed(const std::string& operation, const std::string& object, int status) {
    return status_failure(
        fmt::format("{} \"{}\" failed: {}", operation, printable(object), status_text(status)),
        status);
}

status_failure failed(const std::string& operation, const std::string& object,
                      const std::string& server, int status) {
    return status_failure(fmt::format("{} \"{}\" of the server \"{}\" failed: {}", operation,
                                      printable(object), printable(server), status_text(status)),
                          status);
}

void require_ok(int status, const std::string& operation, const std::string& object) {
    if (status != STS_OK) {
        throw failed(operation, object, status);
    }
}

void require_ok(int status, const std::string& operation, const std::string& object,
                const std::string& server) {
    if (status != STS_OK) {
        throw failed(operation, object, server, status);
    }
}
