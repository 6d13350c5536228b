#include "tools/host/connection.h"

#include "tools/terminal/failure.h"

#include <fmt/format.h>
#include <unistd.h>

namespace {

/// Names this process in the log and to the service; lives as long as the process.
const char* session_id() {
    static const std::string id = fmt::format("throttlectl-{}", getpid());
    return id.c_str();
}

} // namespace

connection::connection(const server_options& options)
    : host(options.plugin),
      server(host, watching_session(session_id(), options.log), options.server) {}

int ended(host_server& server) {
    server.close();
    return server.passed_over() == 0 ? EXIT_DONE : EXIT_FAILED;
}
