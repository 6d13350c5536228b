// How a server name is taken apart, and which names are claimed.

#include "tests/log/log_file.h"
#include "tests/plugin/frame.h"

#include "plugin/throttling_log.h"

#include <climits>
#include <cstring>

using testing::Each;

namespace {

/// Field `field` of a name; "#STATUS" when there is none, and then `out` must be as it was.
std::string field_of(const std::string& name, int32_t field) {
    const char* found = untouched<const char>();
    const int status = get_field_ptr_in_name(name.c_str(), field, &found);
    if (status != 0) {
        EXPECT_EQ(found, untouched<const char>());
        return "#" + std::to_string(status);
    }
    return found;
}

TEST(ServerNameField, ZeroIsTheNameItself) {
    EXPECT_EQ(field_of("a:b:c:d", 0), "a:b:c:d");
    EXPECT_EQ(field_of("nothing", 0), "nothing");
}

TEST(ServerNameField, PositiveIsWhatStandsBehindThatManyColons) {
    EXPECT_EQ(field_of("a:b:c:d", 1), "b:c:d");
    EXPECT_EQ(field_of("a:b:c:d", 2), "c:d");
    EXPECT_EQ(field_of("a:b:c:d", 3), "d");
    EXPECT_EQ(field_of("CS_throttle:t1:p2:host", 2), "p2:host");
}

TEST(ServerNameField, MayBeEmptyAndColonsInARowEachCount) {
    EXPECT_EQ(field_of("a:", 1), "");
    EXPECT_EQ(field_of("a::", 2), "");
    EXPECT_EQ(field_of("a::b", 1), ":b");
    EXPECT_EQ(field_of("a::b", 2), "b");
}

TEST(ServerNameField, TooFewColonsAreToldApartFromABadName) {
    EXPECT_EQ(field_of("a:b:c:d", 4), "#-1");
    EXPECT_EQ(field_of("a:b:c:d", INT_MAX), "#-1");
    EXPECT_EQ(field_of("nothing", 1), "#-1");
    EXPECT_EQ(field_of("nothing", -1), "#-1");
}

TEST(ServerNameField, EveryNegativeNumberIsTheLastField) {
    for (const int field : {-1, -2, -3, -100, INT_MIN}) {
        EXPECT_EQ(field_of("a:b:c:d", field), "d") << field;
    }
    EXPECT_EQ(field_of("a:b:", -1), "");
}

TEST(ServerNameField, EmptyNameAndLeadingColonAndNullAreRefused) {
    for (const int field : {0, 1, -1}) {
        EXPECT_EQ(field_of("", field), "#1");
        EXPECT_EQ(field_of(":b:c", field), "#1");
        const char* found = untouched<const char>();
        EXPECT_EQ(get_field_ptr_in_name(nullptr, field, &found), 1);
        EXPECT_EQ(found, untouched<const char>());
        EXPECT_EQ(get_field_ptr_in_name("a:b", field, nullptr), 1);
    }
}

// --- type and storage --------------------------------------------------------------------------

/// The two parts of a name in buffers whose every byte is held.
class ServerNameSplit : public testing::Test {
  protected:
    void split(const std::string& name) {
        memset(server, 0x5a, sizeof server);
        memset(type, 0x5a, sizeof type);
        get_net_server_name_type(name.c_str(), server, type);
        expect_nothing_but_text(server);
        expect_nothing_but_text(type);
    }

    /// A text, zeros to the buffer's end, and nothing behind it.
    static void expect_nothing_but_text(const char* buffer) {
        const std::string all(buffer, STS_NAME_SIZE);
        EXPECT_THAT(all.substr(strnlen(buffer, STS_NAME_SIZE)), Each('\0'));
        EXPECT_EQ(buffer[STS_NAME_SIZE - 1], '\0');
        EXPECT_EQ(buffer[STS_NAME_SIZE], 0x5a);
    }

    char server[STS_NAME_SIZE + 1];
    char type[STS_NAME_SIZE + 1];
};

TEST_F(ServerNameSplit, TypeIsTheSecondFieldAndStorageTheLast) {
    split("CS_throttle:t1:p2:host");
    EXPECT_STREQ(type, "t1");
    EXPECT_STREQ(server, "host");
    split("CS_throttle:global:");
    EXPECT_STREQ(type, "global");
    EXPECT_STREQ(server, "");
    split("CS_throttle::host");
    EXPECT_STREQ(type, "");
    EXPECT_STREQ(server, "host");
}

TEST_F(ServerNameSplit, WithoutASecondColonTheTypeIsEmpty) {
    split("CS_throttle:host");
    EXPECT_STREQ(type, "");
    EXPECT_STREQ(server, "host");
    split("no colon at all");
    EXPECT_STREQ(type, "");
    EXPECT_STREQ(server, "");
    split("");
    EXPECT_STREQ(type, "");
    EXPECT_STREQ(server, "");
}

TEST_F(ServerNameSplit, SecondColonWithinThePrefixGivesAnEmptyType) {
    for (const char* name : {"a:b:host", "a::host", "0123456789::host"}) {
        split(name);
        EXPECT_STREQ(type, "") << name;
    }
    split("0123456789:a:host"); // the second colon at position 12, so nothing is before it
    EXPECT_STREQ(type, "");
    split("0123456789:ab:host");
    EXPECT_STREQ(type, "b");
}

TEST_F(ServerNameSplit, LongestTypeIsOneWhoseColonStandsAtByte511) {
    const std::string fits(499, 't');
    split("CS_throttle:" + fits + ":host");
    EXPECT_EQ(type, fits);
    split("CS_throttle:" + fits + "t:host");
    EXPECT_STREQ(type, "");
    EXPECT_STREQ(server, "host");
    split("CS_throttle:" + std::string(4096, 't') + ":host");
    EXPECT_STREQ(type, "");
    EXPECT_STREQ(server, "host");
}

TEST_F(ServerNameSplit, StorageIsCutTo511Characters) {
    for (const size_t length : {511UL, 512UL, 513UL, 4096UL}) {
        split("CS_throttle:t:" + std::string(length, 's'));
        EXPECT_EQ(server, std::string(511, 's')) << length;
        EXPECT_STREQ(type, "t");
    }
}

TEST_F(ServerNameSplit, BytesOfNoEncodingAreTakenAsTheyAre) {
    split("CS_throttle:\xff\xfe:\x80:\xc3\x28");
    EXPECT_STREQ(type, "\xff\xfe");
    EXPECT_STREQ(server, "\xc3\x28");
}

// --- claims ------------------------------------------------------------------------------------

TEST(Claim, TakesNamesThatBeginWithThePrefix) {
    EXPECT_EQ(throttling_claim_v7("CS_throttle:"), STS_OK);
    EXPECT_EQ(throttling_claim_v7("CS_throttle:cloud:disk:s3"), STS_OK);
}

TEST(Claim, LeavesEveryOtherNameToOthers) {
    for (const char* name : {"", "C", "CS_throttle", "CS_throttl:x:y", "cs_throttle:x:y",
                             " CS_throttle:x:y", "disk:s3"}) {
        EXPECT_EQ(throttling_claim_v7(name), STS_ERR_NOT_CLAIMED) << name;
    }
    EXPECT_EQ(throttling_claim_v7(nullptr), STS_ERR_NOT_CLAIMED);
}

TEST(Claim, NameShorterThanThePrefixIsNotReadBeyondItsEnd) {
    const std::unique_ptr<char[]> name(new char[4]{'C', 'S', '_', '\0'});
    EXPECT_EQ(throttling_claim_v7(name.get()), STS_ERR_NOT_CLAIMED);
}

TEST_F(Frame, ClaimLogsItsEntryWithoutASessionAndNoEnd) {
    const log_file log;
    ASSERT_EQ(log_init(5), STS_OK);
    throttling_claim_v7("CS_throttle:cloud:disk:s3");
    throttling_claim_v7("disk:s3");
    log_shutdown();
    const std::string enter = "[DEBUG] [no session][throttling_claim_v7]enter.";
    EXPECT_EQ(log.entries(), (lines{enter, enter}));
    EXPECT_EQ(take_whole_story(), lines{});
}

} // namespace
