// The first thing that a client of TLS says.
#pragma once

#include "tests/support/giop.h"

/// A greeting that a server answers with its certificate and a signature. `group`: of the key
/// exchange, such as "X25519" or "ffdhe8192"; no other is offered.
giop::octets tls_hello(const char* group);
