#include "tests/tools/tool_process.h"

#include "tests/support/conf_dir.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string new_file() {
    std::string path = (std::filesystem::temp_directory_path() / "tool-output-XXXXXX").string();
    close(mkstemp(path.data()));
    return path;
}

void drop_privileges() {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(unprivileged_user) != 0 ||
                           setuid(unprivileged_user) != 0)) {
        _exit(127);
    }
}

[[noreturn]] void run_child(const std::vector<std::string>& command, const process_options& options,
                            int out, int err) {
    prctl(PR_SET_PDEATHSIG, SIGKILL); // it doesn't outlive a test that crashes
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    for (const auto& [name, value] : options.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if (!options.directory.empty() && chdir(options.directory.c_str()) != 0) {
        _exit(127);
    }
    if (options.unprivileged) {
        drop_privileges();
    }
    std::vector<char*> arguments;
    for (const std::string& each : command) {
        arguments.push_back(const_cast<char*>(each.c_str()));
    }
    arguments.push_back(nullptr);
    execv(arguments.front(), arguments.data());
    _exit(127);
}

} // namespace

tool_process::tool_process(const std::vector<std::string>& command, const process_options& options)
    : out_path_(new_file()), err_path_(new_file()) {
    const int out = open(out_path_.c_str(), O_WRONLY | O_CLOEXEC);
    const int err = open(err_path_.c_str(), O_WRONLY | O_CLOEXEC);
    pid_ = fork();
    if (pid_ == 0) {
        run_child(command, options, out, err);
    }
    close(out);
    close(err);
}

tool_process::~tool_process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    std::remove(out_path_.c_str());
    std::remove(err_path_.c_str());
}

void tool_process::send(int signal) const { kill(pid_, signal); }

bool tool_process::await_err(const std::string& text) const { return await(err_path_, text); }

bool tool_process::await_out(const std::string& text) const { return await(out_path_, text); }

bool tool_process::await(const std::string& file, const std::string& text) const {
    const auto is_shown = [&] { return conf_dir::read(file).find(text) != std::string::npos; };
    while (!is_shown()) {
        siginfo_t end = {};
        waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT);
        if (end.si_pid != 0) {
            return is_shown();
        }
        usleep(50000);
    }
    return true;
}

ended tool_process::wait() {
    int status = 0;
    rusage used = {};
    wait4(pid_, &status, 0, &used);
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), conf_dir::read(out_path_),
            conf_dir::read(err_path_), used.ru_maxrss};
}

ended run_process(const std::vector<std::string>& command, const process_options& options) {
    return tool_process(command, options).wait();
}
