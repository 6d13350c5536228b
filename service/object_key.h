// The keys of the objects that clients are handed: whose session it is, and what proves that this
// service made the key.
//
//   0123456789abcdef 00112233445566778899aabbccddeeff      (without the blank)
//   the number       128 bits of HMAC-SHA-256 over the kind of object and the number
//
// The kind is in the proof, so that the key of a manager is no key of its session.
#pragma once

#include "service/key_secret.h"
#include "service/ledger.h"

#include <cstdint>
#include <memory>
#include <openssl/evp.h>
#include <optional>
#include <string>
#include <string_view>

/// The kinds of objects that there is one of for each session.
enum object_kind { session_kind, manager_kind, query_kind, modify_kind, object_kinds };

/// Makes keys and reads them. From any thread.
class object_keys {
  public:
    /// Throws std::runtime_error when the library of ciphers can't do it.
    explicit object_keys(const key_secret& secret);

    std::string make(object_kind kind, session_number number) const;
    /// The session's number; none when this isn't what `make` makes of it. How long it takes says
    /// nothing about the proof that is expected.
    std::optional<session_number> read(object_kind kind, std::string_view key) const;

  private:
    struct end_of_mac {
        void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
    };
    using mac = std::unique_ptr<EVP_MAC_CTX, end_of_mac>;

    EVP_MAC_CTX* context() const;

    const uint64_t id_; ///< among all that the process ever had
    mac keyed_;         ///< has the secret, and is copied for each thread
};
