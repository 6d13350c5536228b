// Keys of objects: only those that were made with the secret are read, as what they were made for.

#include "service/object_key.h"

#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>

namespace {

key_secret secret_of(unsigned char byte) {
    key_secret secret;
    secret.fill(byte);
    return secret;
}

class ObjectKey : public testing::Test {
  protected:
    static constexpr session_number number = 0x0123456789abcdef;
    const object_keys keys{secret_of(1)};
};

TEST_F(ObjectKey, IsReadAsWhatItWasMadeFor) {
    for (const object_kind kind : {session_kind, manager_kind, query_kind, modify_kind}) {
        for (const session_number each : {number, session_number{0}, ~session_number{0}}) {
            EXPECT_EQ(keys.read(kind, keys.make(kind, each)), each);
        }
    }
}

TEST_F(ObjectKey, IsTheHmacOfKindAndNumber) {
    // python3: hmac.new(b"\x01" * 32, b"\x02" + number.to_bytes(8, "little"), "sha256").hexdigest()
    EXPECT_EQ(keys.make(query_kind, number), "0123456789abcdef"
                                             "2893683547109e3c4de33db93d1e49ca");
}

TEST_F(ObjectKey, IsTheSameInAllThreads) {
    std::string there;
    std::thread([&] { there = keys.make(session_kind, number); }).join();
    EXPECT_EQ(there, keys.make(session_kind, number));
    EXPECT_EQ(object_keys(secret_of(1)).make(session_kind, number), there);
}

TEST_F(ObjectKey, OfOneKindIsNoneOfAnother) {
    for (int made = 0; made < object_kinds; ++made) {
        const std::string key = keys.make(static_cast<object_kind>(made), number);
        for (int read = 0; read < object_kinds; ++read) {
            EXPECT_EQ(keys.read(static_cast<object_kind>(read), key).has_value(), read == made);
        }
    }
}

TEST_F(ObjectKey, OfAnotherSecretIsFalse) {
    const object_keys others(secret_of(2));
    EXPECT_FALSE(keys.read(session_kind, others.make(session_kind, number)));
}

TEST_F(ObjectKey, WithAnyDigitChangedIsFalse) {
    const std::string key = keys.make(session_kind, number);
    for (size_t place = 0; place < key.size(); ++place) {
        for (const char other : {'0', '1', 'f', 'F', 'g', ' ', '\0', '\xff'}) {
            std::string changed = key;
            changed[place] = other;
            EXPECT_EQ(keys.read(session_kind, changed).has_value(), changed == key) << changed;
        }
    }
}

TEST_F(ObjectKey, OfAnotherLengthIsFalse) {
    const std::string key = keys.make(session_kind, number);
    for (size_t length = 0; length < key.size(); ++length) {
        EXPECT_FALSE(keys.read(session_kind, key.substr(0, length)));
    }
    EXPECT_FALSE(keys.read(session_kind, key + "0"));
    EXPECT_FALSE(keys.read(session_kind, std::string(1000000, '0')));
    EXPECT_FALSE(keys.read(session_kind, "-" + key.substr(1)));
}

TEST_F(ObjectKey, InventedOnesAreFalse) {
    std::mt19937_64 random(4711);
    for (int each = 0; each < 20000; ++each) {
        std::string key;
        while (key.size() < 48) {
            key += "0123456789abcdef"[random() % 16];
        }
        ASSERT_FALSE(keys.read(session_kind, key)) << key;
    }
}

TEST_F(ObjectKey, IsNotCalledByWhatItIs) {
    std::set<std::string> names;
    for (session_number each = 0; each < 1000; ++each) {
        names.insert(short_name(each));
        EXPECT_EQ(short_name(each).size(), 8U);
    }
    EXPECT_GT(names.size(), 998U);
    const std::string name = short_name(number);
    EXPECT_EQ(keys.make(session_kind, number).find(name), std::string::npos);
    EXPECT_FALSE(keys.read(session_kind, name));
}

} // namespace
