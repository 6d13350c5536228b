// The first thing that a client of TLS says.
#pragma once

#include "tests/support/giop.h"

/// A greeting that a server answers with its certificate and a signature. `group`: of the key
/// exchange, such as "X25519" or "ffdhe8192", and no other is offered; null for what the library offers
/// by itself.
giop::octets tls_hello(const char* group);

/// Whether the library knows that group.
bool has_group(const char* group);
