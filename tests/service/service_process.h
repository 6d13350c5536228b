// The built vlsld in a process of its own, on free ports.
#pragma once

#include "tests/tools/tool_process.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

class service_process {
  public:
    /// Starts it with `arguments` on top of those that choose free ports and a state of the test's
    /// own, and waits until it answers. Throws std::runtime_error with what it said when it ends
    /// instead. It may have `most_descriptors`; 0: as many as we. `environment` is on top of ours.
    explicit service_process(const std::vector<std::string>& arguments = {},
                             int most_descriptors = 0,
                             const std::map<std::string, std::string>& environment = {});
    /// Stops it unless that was done: the test fails where it ends with an error, such as a leak or
    /// a race that a sanitizer has seen.
    ~service_process();

    int port() const { return port_of("VLSL_PORT"); }
    int tls_port() const { return port_of("VLSL_TLS_PORT"); }
    int http_port() const { return port_of("VLSL_HTTP_PORT"); }

    /// Its control socket, unless `arguments` name another.
    std::string control() const { return directory_ + "/control"; }

    /// The body of a page, which has to be answered with 200.
    std::string get(const std::string& path) const;
    nlohmann::json status() const { return nlohmann::json::parse(get("/status")); }
    /// What /status tells of `storage`; null when it doesn't know it.
    nlohmann::json storage(const std::string& name) const;
    /// A value of /metrics, by its name and labels.
    double metric(const std::string& name) const;

    pid_t pid() const { return process_->pid(); }
    void send(int signal) { process_->send(signal); }
    bool await_log(const std::string& text) { return process_->await_err(text); }
    /// Sends `signal`, and waits for the end.
    ended stop(int signal);

    static const char* program(); ///< the built vlsld
    /// The --state of all that aren't given another, so that one goes on where another ended. For
    /// whoever starts one in another way, too.
    static const std::string& state();

  private:
    int port_of(const std::string& variable) const;

    std::string directory_;
    std::string ports_; ///< what it wrote for whoever started it
    std::optional<tool_process> process_;
    bool is_stopped_ = false;
};
