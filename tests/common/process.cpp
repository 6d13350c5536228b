#include "tests/common/process.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

process::process(const std::function<int()>& work) : id_(fork()) {
    if (id_ == 0) {
        _exit(work());
    }
    if (id_ == -1) {
        throw std::runtime_error("no process");
    }
}

process::~process() {
    if (id_ != -1) {
        send(SIGKILL);
        wait();
    }
}

void process::send(int signal) const {
    if (id_ == -1) {
        throw std::logic_error("the process was waited for");
    }
    kill(id_, signal);
}

int process::wait() {
    int status = 0;
    while (waitpid(id_, &status, 0) == -1 && errno == EINTR) {
    }
    id_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
