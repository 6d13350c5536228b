// A process full of clients, for tests that kill it.
//
//   many_clients PORT hold STORAGE SESSIONS   takes a connection in each session, says "holding",
//   and
//                                             waits to be killed
//   many_clients PORT flood                   asks without end on one connection

#include "tests/service/wire_client.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <unistd.h>

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
