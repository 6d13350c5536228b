#include "service/key_secret.h"

#include <cerrno>
#include <charconv>
#include <fmt/format.h>
#include <optional>
#include <sys/random.h>
#include <system_error>

namespace {

constexpr const char* file_name = "secret";
constexpr size_t file_size = 2 * key_secret().size() + 1; ///< digits and a line's end

std::string text_of(const key_secret& secret) {
    std::string text;
    for (const unsigned char byte : secret) {
        text += fmt::format("{:02x}", byte);
    }
    return text + '\n';
}

std::optional<key_secret> parse(const std::string& text) {
    key_secret secret;
    if (text.size() != file_size || text.back() != '\n') {
        return std::nullopt;
    }
    for (size_t byte = 0; byte < secret.size(); ++byte) {
        const char* const digits = text.data() + 2 * byte;
        const auto [end, error] = std::from_chars(digits, digits + 2, secret[byte], 16);
        if (error != std::errc() || end != digits + 2) {
            return std::nullopt;
        }
    }
    return secret;
}

/// None when there is no such file.
std::optional<key_secret> read_secret(const state_directory& directory) {
    const std::optional<std::string> text = directory.read(file_name, file_size + 1);
    if (!text) {
        return std::nullopt;
    }
    const std::optional<key_secret> secret = parse(*text);
    if (!secret) {
        throw state_error(
            fmt::format("{}: is damaged: {} bytes, not {} hexadecimal digits and a line's end; "
                        "bring back the right one, or remove it and a new one is made",
                        directory.path_of(file_name), text->size(), file_size - 1));
    }
    return secret;
}

} // namespace

key_secret new_secret() {
    key_secret secret;
    if (getrandom(secret.data(), secret.size(), 0) != static_cast<ssize_t>(secret.size())) {
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    }
    return secret;
}

key_secret kept_secret(const state_directory& directory) {
    std::optional<key_secret> secret = read_secret(directory);
    if (!secret) {
        directory.write_first(file_name, text_of(new_secret()));
        secret = read_secret(directory); // whoever's was first
    }
    if (!secret) {
        throw state_error(directory.path_of(file_name) + ": was removed as soon as it was made");
    }
    return *secret;
}
