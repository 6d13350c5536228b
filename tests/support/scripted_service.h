// A management service in a process of its own, over the real wire. It answers as the test says and
// remembers what it was asked: each request is one line of text, such as
//
//   getHostSession("localhost", "C")
//   check_connections("a:s3", "s", 1)
//   check_bandwidth("r:s3", "s", {0, 100, 130, 5000})
//
// Asking an object for its type isn't kept: an ORB does so when it likes.
#pragma once

#include <cstdio>
#include <initializer_list>
#include <string>
#include <sys/types.h>
#include <vector>

/// How an operation answers. A new one is the status 0, an empty text, the object asked for.
struct scripted_answer {
    long status = 0;    ///< the result, where that is a number
    std::string text;   ///< the out text, or the result where that is a text; any bytes but zero
    long repeat = 1;    ///< so often does the text stand in the answer
    std::string object; ///< instead of the object: "nil", or "plain" for one of another interface
    std::string raises; ///< an exception by its name
    std::vector<int> codes; ///< of a VLSLOpException: the errorCode of each of its records
    long delay = 0;         ///< milliseconds to wait before all else
    std::string fate;       ///< instead of an answer: "die" ends the process, "drop" closes every
                            ///< connection and lives on
};

scripted_answer returns(long status, const std::string& text = "");
scripted_answer returns_text(const std::string& text);
scripted_answer hands_out(const std::string& object);
/// "ActionFailedException" or a system exception: see scripted_service_main.cpp.
scripted_answer raises(const std::string& exception);
scripted_answer raises_operation_failed(const std::vector<int>& codes);
/// Says nothing for so long that every client gives up before.
scripted_answer stays_silent();
scripted_answer dies();
scripted_answer drops_connections();

/// Files of a TLS service and its clients, in PEM form; empty names: no TLS.
struct tls_files {
    std::string authority; ///< certificate of who signs
    std::string key;       ///< key and certificate of one who is signed
};

/// What a client asks before the first request of its own.
inline const std::vector<std::string> new_session = {
    "getHostSession(\"localhost\", \"C\")", "getCloudManager()", "aqueryFacet()", "amodifyFacet()"};

/// Clients of this process look for their service there, on this host, from now on.
void look_for_service_at(int port);

/// The service. Clients of this process find it: VLSL_PORT is set for as long as it lives.
class remote_service {
  public:
    /// Starts it on a free port of 127.0.0.1 and waits until it answers.
    explicit remote_service(const tls_files& tls = {});
    ~remote_service();
    remote_service(const remote_service&) = delete;
    remote_service& operator=(const remote_service&) = delete;

    int port() const { return port_; }

    /// What `operation` answers: these in turn, and from then on the last of them.
    void answer(const std::string& operation, std::initializer_list<scripted_answer> answers);
    void answer(const std::string& operation, const scripted_answer& always) {
        answer(operation, {always});
    }

    /// What it was asked since the last call, in order. Requests that it hasn't answered yet, too.
    std::vector<std::string> take();

    /// Ends the process as a crash does. What it was asked is lost.
    void stop();
    /// Starts it again: same port, same references, nothing scripted.
    void start();

  private:
    pid_t process_ = -1;
    std::FILE* to_ = nullptr;
    std::FILE* from_ = nullptr;
    int port_;
    tls_files tls_;
};

/// A port of 127.0.0.1 that nobody listens on at the moment.
int free_port();
