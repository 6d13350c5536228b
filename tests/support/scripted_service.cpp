#include "tests/support/scripted_service.h"

#include "tests/support/scripted_service_channel.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

scripted_answer returns(long status, const std::string& text) {
    scripted_answer answer;
    answer.status = status;
    answer.text = text;
    return answer;
}

scripted_answer returns_text(const std::string& text) { return returns(0, text); }

scripted_answer hands_out(const std::string& object) {
    scripted_answer answer;
    answer.object = object;
    return answer;
}

scripted_answer raises(const std::string& exception) {
    scripted_answer answer;
    answer.raises = exception;
    return answer;
}

scripted_answer raises_operation_failed(const std::vector<int>& codes) {
    scripted_answer answer = raises("VLSLOpException");
    answer.codes = codes;
    return answer;
}

scripted_answer stays_silent() {
    scripted_answer answer;
    answer.delay = 600'000;
    return answer;
}

scripted_answer dies() {
    scripted_answer answer;
    answer.fate = "die";
    return answer;
}

scripted_answer drops_connections() {
    scripted_answer answer;
    answer.fate = "drop";
    return answer;
}

int free_port() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool bound = bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                       getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    close(listener);
    if (!bound) {
        throw std::runtime_error("no free port");
    }
    return ntohs(address.sin_port);
}

void look_for_service_at(int port) { setenv("VLSL_PORT", std::to_string(port).c_str(), 1); }

remote_service::remote_service(const tls_files& tls) : port_(free_port()), tls_(tls) {
    start();
    look_for_service_at(port_);
}

remote_service::~remote_service() {
    unsetenv("VLSL_PORT");
    stop();
}

void remote_service::start() {
    int orders[2];
    int replies[2];
    if (pipe2(orders, O_CLOEXEC) != 0 || pipe2(replies, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const std::string port = std::to_string(port_);
    process_ = fork();
    if (process_ == 0) {
        dup2(orders[0], STDIN_FILENO);
        dup2(replies[1], STDOUT_FILENO);
        execl(SCRIPTED_SERVICE_PROGRAM, SCRIPTED_SERVICE_PROGRAM, port.c_str(),
              tls_.authority.c_str(), tls_.key.c_str(), nullptr);
        _exit(127);
    }
    close(orders[0]);
    close(replies[1]);
    to_ = fdopen(orders[1], "w");
    from_ = fdopen(replies[0], "r");
    std::signal(SIGPIPE, SIG_IGN); // orders to a process that has died
    if (receive_value(from_) != true) {
        throw std::runtime_error("the scripted service doesn't start on port " + port);
    }
}

void remote_service::stop() {
    if (process_ == -1) {
        return;
    }
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
    fclose(to_);
    fclose(from_);
}

void remote_service::answer(const std::string& operation,
                            std::initializer_list<scripted_answer> answers) {
    send_value(to_, {{"operation", operation}, {"answers", std::vector<scripted_answer>(answers)}});
    if (receive_value(from_) != true) {
        throw std::runtime_error("the scripted service has gone");
    }
}

std::vector<std::string> remote_service::take() {
    send_value(to_, "take");
    const nlohmann::json requests = receive_value(from_);
    if (requests.is_discarded()) {
        throw std::runtime_error("the scripted service has gone");
    }
    return requests.get<std::vector<std::string>>();
}
