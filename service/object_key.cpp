#include "service/object_key.h"

#include <array>
#include <atomic>
#include <charconv>
#include <fmt/format.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/params.h>
#include <stdexcept>

namespace {

constexpr size_t number_digits = 16;
constexpr size_t proof_digits = 32;

std::atomic<uint64_t> last_id = 0;

[[noreturn]] void fail() { throw std::runtime_error("OpenSSL can't make an HMAC-SHA-256"); }

} // namespace

object_keys::object_keys(const key_secret& secret) : id_(++last_id) {
    const std::unique_ptr<EVP_MAC, decltype(&EVP_MAC_free)> algorithm(
        EVP_MAC_fetch(nullptr, "HMAC", nullptr), EVP_MAC_free);
    keyed_.reset(EVP_MAC_CTX_new(algorithm.get()));
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_end()};
    if (keyed_ == nullptr ||
        EVP_MAC_init(keyed_.get(), secret.data(), secret.size(), parameters) != 1) {
        fail();
    }
}

/// This thread's own, since to begin one anew takes half of the time that to copy one does.
EVP_MAC_CTX* object_keys::context() const {
    thread_local uint64_t owner = 0;
    thread_local mac own;
    if (owner != id_) {
        own.reset(EVP_MAC_CTX_dup(keyed_.get()));
        owner = id_;
    }
    return own != nullptr && EVP_MAC_init(own.get(), nullptr, 0, nullptr) == 1 ? own.get()
                                                                               : nullptr;
}

std::string object_keys::make(object_kind kind, session_number number) const {
    std::array<unsigned char, 1 + sizeof number> proven;
    proven[0] = static_cast<unsigned char>(kind);
    for (size_t byte = 0; byte < sizeof number; ++byte) {
        proven[1 + byte] = static_cast<unsigned char>(number >> 8 * byte);
    }
    EVP_MAC_CTX* const own = context();
    std::array<unsigned char, EVP_MAX_MD_SIZE> proof;
    size_t size = 0;
    if (own == nullptr || EVP_MAC_update(own, proven.data(), proven.size()) != 1 ||
        EVP_MAC_final(own, proof.data(), &size, proof.size()) != 1 || size < proof_digits / 2) {
        fail();
    }
    constexpr const char* digits = "0123456789abcdef";
    std::string key = fmt::format("{:016x}", number);
    for (size_t byte = 0; byte < proof_digits / 2; ++byte) {
        key += digits[proof[byte] >> 4];
        key += digits[proof[byte] & 0xf];
    }
    return key;
}

std::optional<session_number> object_keys::read(object_kind kind, std::string_view key) const {
    if (key.size() != number_digits + proof_digits) {
        return std::nullopt;
    }
    session_number number = 0;
    const char* const end = key.data() + number_digits;
    const auto [behind, error] = std::from_chars(key.data(), end, number, 16);
    if (error != std::errc() || behind != end) {
        return std::nullopt;
    }
    const std::string expected = make(kind, number); // which has one form alone
    return CRYPTO_memcmp(expected.data(), key.data(), key.size()) == 0 ? std::optional(number)
                                                                       : std::nullopt;
}
