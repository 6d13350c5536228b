// Runs the tool as a process of its own.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

/// Who runs what is run unprivileged by root.
constexpr uid_t unprivileged_user = 65534;

/// What a process left behind.
struct ended {
    int code = -1; ///< exit code; negative: the signal that ended it
    std::string out;
    std::string err;
    long most_memory = 0; ///< KiB resident at once
};

struct process_options {
    std::map<std::string, std::string> environment; ///< on top of our own
    std::string directory;                          ///< to run in; empty: ours
    bool unprivileged = false; ///< where we are root: as another user, who may not read all
};

/// A process that was started.
class tool_process {
  public:
    tool_process(const std::vector<std::string>& command, const process_options& options);
    ~tool_process();
    tool_process(const tool_process&) = delete;
    tool_process& operator=(const tool_process&) = delete;

    pid_t pid() const { return pid_; } ///< until it has been waited for
    void send(int signal) const;
    /// Waits until `text` stands on its standard error. False when it ends before.
    bool await_err(const std::string& text) const;
    bool await_out(const std::string& text) const; ///< the same on its standard output
    /// Waits for its end.
    ended wait();

  private:
    bool await(const std::string& file, const std::string& text) const;

    pid_t pid_;
    std::string out_path_;
    std::string err_path_;
};

/// Starts and waits.
ended run_process(const std::vector<std::string>& command, const process_options& options = {});
