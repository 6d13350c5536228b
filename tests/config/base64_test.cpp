// The encoding helper, against vectors and without memory.

#include "config/throttling_util.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <string>

namespace {

int allocations_left = -1; // negative: as many as are asked for

/// Whether one more allocation may succeed.
bool may_allocate() {
    if (allocations_left == 0) {
        return false;
    }
    if (allocations_left > 0) {
        --allocations_left;
    }
    return true;
}

extern "C" {

void* __real_malloc(size_t size);
// Called by the encoder in place of malloc: the linker is told so.
void* __wrap_malloc(size_t size) { return may_allocate() ? __real_malloc(size) : nullptr; }

} // extern "C"

// The encryption library's own memory. It can be replaced only before it is first used.
const int replaced = CRYPTO_set_mem_functions(
    [](size_t size, const char*, int) { return may_allocate() ? malloc(size) : nullptr; },
    [](void* memory, size_t size, const char*, int) {
        return may_allocate() ? realloc(memory, size) : nullptr;
    },
    [](void* memory, const char*, int) { free(memory); });

/// "(null)" for none.
std::string encoded(const std::string& text) {
    char* const result = encodeBase64(text.c_str());
    std::string copy = result != nullptr ? result : "(null)";
    free(result);
    return copy;
}

/// The same by the bits: six at a time, and a break after every 64 characters but the last.
std::string reference(const std::string& text) {
    const char* const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string all;
    for (size_t start = 0; start < text.size(); start += 3) {
        if (start != 0 && start % 48 == 0) {
            all += '\n';
        }
        unsigned bits = 0;
        for (size_t each = start; each < start + 3; ++each) {
            bits = bits << 8 | (each < text.size() ? static_cast<unsigned char>(text[each]) : 0U);
        }
        const size_t bytes = std::min<size_t>(3, text.size() - start);
        for (size_t digit = 0; digit < 4; ++digit) {
            all += digit <= bytes ? alphabet[bits >> (18 - 6 * digit) & 63U] : '=';
        }
    }
    return all;
}

TEST(Base64, KnownVectorsAreEncoded) {
    EXPECT_EQ(encoded("abc"), "YWJj");
    EXPECT_EQ(encoded("f"), "Zg=="); // these six are RFC 4648's
    EXPECT_EQ(encoded("fo"), "Zm8=");
    EXPECT_EQ(encoded("foo"), "Zm9v");
    EXPECT_EQ(encoded("foob"), "Zm9vYg==");
    EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
    EXPECT_EQ(encoded("\xff\xfe\xfd"), "//79");
    EXPECT_EQ(encoded("\n"), "Cg==");
}

TEST(Base64, FortyEightBytesFillOneLine) {
    EXPECT_EQ(encoded(std::string(48, 'a')), reference(std::string(48, 'a')));
    EXPECT_EQ(encoded(std::string(48, 'a')).find('\n'), std::string::npos);
}

TEST(Base64, MoreThanFortyEightBytesGiveLineBreaksInside) {
    std::string line;
    for (int each = 0; each < 16; ++each) {
        line += "YWFh";
    }
    EXPECT_EQ(encoded(std::string(49, 'a')), line + "\nYQ==");
    EXPECT_EQ(encoded(std::string(96, 'a')), line + "\n" + line);
    EXPECT_EQ(encoded(std::string(97, 'a')), line + "\n" + line + "\nYQ==");
}

TEST(Base64, EveryLengthAgreesWithTheBits) {
    std::string text;
    for (int length = 1; length < 5000; ++length) {
        text += static_cast<char>(1 + length * 37 % 255);
        ASSERT_EQ(encoded(text), reference(text)) << length;
    }
}

TEST(Base64, MegabyteIsEncoded) {
    const std::string text(1 << 20, '\xa5');
    EXPECT_EQ(encoded(text), reference(text));
}

TEST(Base64, MissingMemoryGivesNullAtEveryStep) {
    ASSERT_EQ(replaced, 1);
    for (const size_t length : {3U, 100U, 100000U}) {
        const std::string text(length, 'a');
        const std::string whole = encoded(text);
        int failures = 0;
        std::string result = "(null)";
        while (result == "(null)" && failures < 1000) {
            allocations_left = failures++;
            char* const memory = encodeBase64(text.c_str());
            allocations_left = -1;
            result = memory != nullptr ? memory : "(null)";
            free(memory);
        }
        EXPECT_GE(failures, 4) << "the filter, the sink and the copy can fail at least";
        EXPECT_EQ(result, whole);
    }
}

} // namespace
