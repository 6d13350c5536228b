// A process full of clients, for tests that kill it.
//
//   many_clients PORT hold STORAGE SESSIONS   takes a connection in each session, says "holding",
//                                             and waits to be killed
//   many_clients PORT flood                   asks without end on one connection
//   many_clients PORT greedy CONNECTIONS      asks without end on many, never waiting for an
//                                             answer: the quickest questions, those that take
//                                             longest, new sessions and false keys
//   many_clients PORT greeting CONNECTIONS    begins as many handshakes of TLS at once, and again
//                                             as soon as all are answered
//   many_clients PORT silent CONNECTIONS      connects, and says nothing
//   many_clients PORT idle CONNECTIONS        asks once on each
//   many_clients PORT stalled CONNECTIONS     sends 200 kB on each, but for the last byte

#include "tests/service/wire_client.h"

#include "tests/support/giop.h"
#include "tests/support/process_state.h"
#include "tests/support/tls_hello.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

std::string key_of(CORBA::Object_ptr object) {
    const CORBA::String_var ior = client_orb()->object_to_string(object);
    return giop::parse_reference(ior.in()).object_key;
}

giop::octets texts(std::initializer_list<std::string> all) {
    giop::cdr_writer out;
    for (const std::string& each : all) {
        out.text(each);
    }
    return out.bytes();
}

/// Settings as long as they may be, with names that no other turn has. A sanitizer's service would be
/// at one text for seconds.
std::string settings(int turn) {
    constexpr size_t longest = has_memory_of_its_own ? 65000 : 2000;
    std::string text;
    for (int each = 0; text.size() < longest; ++each) {
        text += "name=THR:g" + std::to_string(turn) + "_" + std::to_string(each) + ",value=3,";
    }
    return text;
}

/// A request of each kind.
std::vector<giop::octets> requests(const remote_session& session) {
    giop::cdr_writer question;
    question.text("r:flooded");
    question.text("h");
    question.number<int32_t>(1);
    std::vector<giop::octets> all = {
        giop::make_request(1, key_of(session.query), "check_connections", question.bytes()),
        giop::make_request(1, "HSFactory", "getHostSession", texts({"localhost", "C"})),
        giop::make_request(1, key_of(session.session) + "0", "getCloudManager", {})};
    for (int turn = 0; turn < 4; ++turn) {
        all.push_back(giop::make_request(1, key_of(session.modify), "update_ThrottleConfigParams",
                                         texts({settings(turn)})));
    }
    return all;
}

/// A connection that sends the same without end, and throws away what it is answered.
struct flooding {
    int socket;
    const giop::octets& bytes;
    size_t next = 0;

    void go_on() {
        char answers[65536];
        while (recv(socket, answers, sizeof answers, MSG_DONTWAIT) > 0) {
        }
        const ssize_t sent =
            send(socket, &bytes[next], bytes.size() - next, MSG_DONTWAIT | MSG_NOSIGNAL);
        next = (next + static_cast<size_t>(std::max(sent, ssize_t{0}))) % bytes.size();
    }
};

int connected(int port) {
    const int result = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in where = {};
    where.sin_family = AF_INET;
    where.sin_port = htons(static_cast<uint16_t>(port));
    where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(result, reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) {
        perror("connect");
    }
    return result;
}

giop::octets repeated(std::initializer_list<giop::octets> messages) {
    giop::octets many;
    while (many.size() < 65536) {
        for (const giop::octets& each : messages) {
            many.insert(many.end(), each.begin(), each.end());
        }
    }
    return many;
}

void flood(int port, int connections, const remote_session& session) {
    const std::vector<giop::octets> all = requests(session);
    const giop::octets quick[] = {repeated({all[0]}), repeated({all[1]}), repeated({all[2]})};
    const giop::octets slow[] = {repeated({all[3], all[5]}), repeated({all[4], all[6]})};
    std::vector<flooding> each;
    for (int number = 0; number < connections; ++number) {
        const int turn = number / 2;
        each.push_back({connected(port), number % 2 == 0 ? quick[turn % 3] : slow[turn % 2]});
    }
    const auto start = std::chrono::steady_clock::now();
    for (bool is_told = false;;) {
        for (flooding& one : each) {
            one.go_on();
        }
        if (!is_told && std::chrono::steady_clock::now() - start > std::chrono::seconds(1)) {
            is_told = fputs("flooding\n", stderr) >= 0; // all are at it
        }
    }
}

void greet(int port, int connections) {
    const giop::octets hello = tls_hello("P-384");
    for (;;) {
        std::vector<int> sockets;
        for (int each = 0; each < connections; ++each) {
            sockets.push_back(connected(port));
            send(sockets.back(), hello.data(), hello.size(), MSG_NOSIGNAL);
        }
        fputs("flooding\n", stderr);
        for (const int each : sockets) {
            char answer[4096];
            recv(each, answer, sizeof answer, 0);
            close(each);
        }
    }
}

/// Connections that send that once, and are answered if they are to be.
void stay(int port, int connections, const giop::octets& bytes, bool is_answered) {
    for (int each = 0; each < connections; ++each) {
        const int socket = connected(port);
        char answer[256];
        send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (is_answered) {
            recv(socket, answer, sizeof answer, 0);
        }
    }
    fputs("connected\n", stderr);
    pause();
}

void raise_descriptor_limit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main(int argc, char** argv) {
    raise_descriptor_limit();
    try {
        if (strcmp(argv[2], "greeting") == 0) {
            greet(atoi(argv[1]), atoi(argv[3]));
        }
        const Orvessa::Vaultaro::HostSessionFactory_var factory = find_factory(atoi(argv[1]));
        if (strcmp(argv[2], "flood") == 0) {
            const remote_session session(factory);
            fputs("flooding\n", stderr);
            for (;;) {
                session.report("w:flooded", 1000, 1);
                session.check_connections("rubbish", 1);
            }
        }
        if (strcmp(argv[2], "greedy") == 0) {
            flood(atoi(argv[1]), atoi(argv[3]), remote_session(factory));
        }
        if (strcmp(argv[2], "silent") == 0) {
            stay(atoi(argv[1]), atoi(argv[3]), {}, false);
        }
        if (strcmp(argv[2], "idle") == 0) {
            stay(atoi(argv[1]), atoi(argv[3]),
                 giop::make_request(1, "HSFactory", "getInactivityTimeout", {}), true);
        }
        if (strcmp(argv[2], "stalled") == 0) {
            giop::octets bytes =
                giop::make_request(1, "HSFactory", "getHostSession", giop::octets(200000));
            bytes.pop_back();
            stay(atoi(argv[1]), atoi(argv[3]), bytes, false);
        }
        const std::string storage = argv[3];
        std::list<remote_session> sessions;
        for (int count = argc > 4 ? atoi(argv[4]) : 1; count > 0; --count) {
            if (sessions.emplace_back(factory).check_connections("a:" + storage, 1).status != 0) {
                fputs("refused\n", stderr);
            }
        }
        fputs("holding\n", stderr);
        pause();
    } catch (const CORBA::Exception& error) {
        fprintf(stderr, "CORBA::%s\n", error._name());
    }
    return EXIT_FAILURE;
}
