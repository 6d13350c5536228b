// A process full of clients, for tests that kill it.
//
//   many_clients PORT hold STORAGE SESSIONS   takes a connection in each session, says "holding",
//                                             and waits to be killed
//   many_clients PORT flood                   asks without end on one connection
//   many_clients PORT greedy CONNECTIONS      asks without end on many, never waiting for an
//   answer:
//                                             the quickest questions, those that take longest,
//                                             new sessions and false keys

#include "tests/service/wire_client.h"

#include "tests/support/giop.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <thread>
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

/// Settings as long as they may be, with names that no other turn has.
std::string settings(int turn) {
    std::string text;
    for (int each = 0; text.size() < 65000; ++each) {
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

void ask_without_end(int port, const giop::octets& first, const giop::octets& second) {
    giop::connection to = giop::connection::to(static_cast<uint16_t>(port));
    std::thread([&] {
        while (to.receive()) {
        }
    }).detach();
    giop::octets many;
    while (many.size() < 65536) {
        many.insert(many.end(), first.begin(), first.end());
        many.insert(many.end(), second.begin(), second.end());
    }
    while (to.send(many)) {
    }
    pause();
}

void flood(int port, int connections, const remote_session& session) {
    static const std::vector<giop::octets> all = requests(session);
    for (int each = 0; each < connections; ++each) {
        // The quick ones and those that take long, each on connections of their own.
        const size_t first = each % 2 == 0 ? static_cast<size_t>(each / 2 % 3)
                                           : 3 + static_cast<size_t>(each / 2 % 2);
        const size_t second = first < 3 ? first : first + 2;
        std::thread(ask_without_end, port, all[first], all[second]).detach();
    }
    sleep(1); // until all are at it
    fputs("flooding\n", stderr);
    pause();
}

} // namespace

int main(int argc, char** argv) {
    try {
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
