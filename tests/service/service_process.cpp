#include "tests/service/service_process.h"

#include "tests/support/conf_dir.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <httplib.h>
#include <stdexcept>
#include <unistd.h>

namespace {

/// Where the services of this process keep what outlasts them, until it ends.
class state_directory {
  public:
    state_directory() {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
    }
    ~state_directory() { std::filesystem::remove_all(path_); }
    state_directory(const state_directory&) = delete;
    state_directory& operator=(const state_directory&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_ = (std::filesystem::temp_directory_path() / "vlsld-state-XXXXXX").string();
};

} // namespace

const std::string& service_process::state() {
    static const state_directory own;
    return own.path();
}

service_process::service_process(const std::vector<std::string>& arguments, int most_descriptors,
                                 const std::map<std::string, std::string>& environment) {
    directory_ = (std::filesystem::temp_directory_path() / "vlsld-XXXXXX").string();
    if (mkdtemp(directory_.data()) == nullptr) {
        throw std::runtime_error("no temporary directory");
    }
    const std::string port_file = directory_ + "/ports";
    std::vector<std::string> command;
    if (most_descriptors != 0) {
        const std::string limit = "ulimit -n " + std::to_string(most_descriptors);
        command = {"/bin/sh", "-c", limit + "; exec \"$0\" \"$@\""};
    }
    command.insert(command.end(), {program(), "--port-file", port_file});
    const auto has = [&](const char* option) {
        return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
    };
    if (!has("--port")) {
        command.insert(command.end(), {"--port", "0"});
    }
    if (!has("--http-port") && !has("--no-http")) {
        command.insert(command.end(), {"--http-port", "0"});
    }
    if (!has("--state")) {
        std::filesystem::remove(state() + "/book"); // the settings of another test
        command.insert(command.end(), {"--state", state()});
    }
    if (!has("--control")) {
        command.insert(command.end(), {"--control", control()});
    }
    command.insert(command.end(), arguments.begin(), arguments.end());
    process_.emplace(command, process_options{environment, "", false});
    // Where its log goes elsewhere, what it says on standard output is all there is to wait for.
    const bool is_up =
        has("--log-file") ? process_->await_out("web page at") : process_->await_err("is ready");
    while (is_up && !std::filesystem::exists(port_file)) {
        usleep(10000);
    }
    if (!is_up) {
        throw std::runtime_error("vlsld ended: " + process_->wait().err);
    }
    ports_ = conf_dir::read(port_file);
}

service_process::~service_process() {
    if (!is_stopped_) {
        const ended end = stop(SIGTERM);
        EXPECT_EQ(end.code, 0) << end.err;
    }
    std::filesystem::remove_all(directory_);
}

int service_process::port_of(const std::string& variable) const {
    const size_t found = ports_.find(variable + "=");
    return found == std::string::npos ? 0 : std::stoi(ports_.substr(found + variable.size() + 1));
}

std::string service_process::get(const std::string& path) const {
    constexpr int most_attempts = 6; // the service's readers come last where the machine is busy
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        httplib::Client client("127.0.0.1", http_port());
        const auto response = client.Get(path.c_str());
        if (response && response->status == 200) {
            return response->body;
        }
    }
    throw std::runtime_error("no answer for " + path);
}

nlohmann::json service_process::storage(const std::string& name) const {
    const nlohmann::json seen = status();
    for (const nlohmann::json& each : seen["storages"]) {
        if (each["name"] == name) {
            return each;
        }
    }
    return nullptr;
}

double service_process::metric(const std::string& name) const {
    const std::string text = get("/metrics");
    const size_t found = text.find("\n" + name + " ");
    return found == std::string::npos ? -1 : std::stod(text.substr(found + name.size() + 2));
}

ended service_process::stop(int signal) {
    is_stopped_ = true;
    process_->send(signal);
    return process_->wait();
}

const char* service_process::program() { return VLSLD; }
