// The service that is measured.
#pragma once

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

/// The service as a child of ours, on a free port.
class service_child {
  public:
    explicit service_child(const char* program) {
        int from[2];
        if (pipe(from) != 0) {
            perror("pipe");
            exit(EXIT_FAILURE);
        }
        if (mkdtemp(state_.data()) == nullptr) {
            perror(state_.c_str());
            exit(EXIT_FAILURE);
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(from[1], STDOUT_FILENO);
            execl(program, program, "--port", "0", "--no-http", "--log-file", "/dev/null",
                  "--state", state_.c_str(), nullptr);
            perror(program);
            _exit(127);
        }
        close(from[1]);
        FILE* const lines = fdopen(from[0], "r");
        if (fscanf(lines, "listening on 127.0.0.1:%d", &port_) != 1) {
            fprintf(stderr, "%s didn't say where it listens\n", program);
            exit(EXIT_FAILURE);
        }
        fclose(lines);
    }
    ~service_child() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        std::filesystem::remove_all(state_);
    }
    service_child(const service_child&) = delete;
    service_child& operator=(const service_child&) = delete;

    int port() const { return port_; }
    double resident_bytes() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/statm");
        double size = 0;
        double resident = 0;
        file >> size >> resident;
        return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
    }

  private:
    std::string state_ = (std::filesystem::temp_directory_path() / "vlsld-XXXXXX").string();
    pid_t pid_;
    int port_ = 0;
};
