#include "tools/run/files/random_number.h"

#include "tools/terminal/failure.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/random.h>

uint64_t random_number() {
    uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
        throw failure(std::string("the system gives no random number: ") + strerror(errno));
    }
    return number;
}
