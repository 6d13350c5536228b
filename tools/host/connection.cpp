#include "tools/host/connection.h"

#include "tools/terminal/failure.h"

#include <fmt/format.h>
#include <unistd.h>

namespace {

/// Names this process in the log and to the service; lives as long as the process.
const char* session_id(const std::string& label) {
    static const std::string id =
        fmt::format("{}-{}", label.empty() ? "throttlectl" : label, getpid());
    return id.c_str();
}

} // namespace

connection::connection(const server_options& options, const std::string& label)
    : host(options.plugin),
      server(host, watching_session(session_id(label), options.log), options.server) {}

int ended(host_server& server) {
    server.close();
    return server.passed_over() == 0 ? EXIT_DONE : EXIT_FAILED;
}
