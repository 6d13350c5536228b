// How values are picked out of the service's replies, good and hostile, and the address form of the
// service.

#include "tests/engine/engine_fixture.h"

#include <climits>
#include <cstring>
#include <stdexcept>

using testing::HasSubstr;

namespace {

/// What get_msg_value stores, having started from -99; it must answer `status`.
long value_in(const std::string& message, const std::string& key, int status = STS_OK) {
    long value = -99;
    EXPECT_EQ(ServiceConnector::get_msg_value(message, key, value), status) << message;
    return value;
}

// --- get_msg_value

TEST(MessageValue, IsTheNumberBehindTheKey) {
    EXPECT_EQ(value_in("THR_WAIT_SECONDS,value=7,fixed=y", "THR_WAIT_SECONDS"), 7);
}

TEST(MessageValue, MayStandFurtherOn) {
    EXPECT_EQ(value_in("name=K,description=a text, of any kind;type=int,value=12,fixed=n", "K"),
              12);
}

TEST(MessageValue, OfAKeyThatComesTwiceIsTheFirst) {
    EXPECT_EQ(value_in("K,value=1,fixed=y;K,value=2,fixed=y", "K"), 1);
}

TEST(MessageValue, OfAKeyWithinALongerOneIsThatOnes) {
    EXPECT_EQ(value_in("MY_KEYS,value=1,fixed=y;KEY,value=2,fixed=y", "KEY"), 1);
}

TEST(MessageValue, OfARowWithoutOneIsThatOfTheNextRow) {
    EXPECT_EQ(value_in("A,fixed=y;B,value=5,fixed=y", "A"), 5);
}

TEST(MessageValue, BeforeTheKeyDoesNotCount) {
    EXPECT_EQ(value_in("value=3,fixed=y;K,value=4,fixed=y", "K"), 4);
}

TEST(MessageValue, CanBeNegative) { EXPECT_EQ(value_in("K,value=-5,fixed=y", "K"), -5); }

TEST(MessageValue, OfAnAbsentKeyIsLeftAlone) {
    EXPECT_EQ(value_in("L,value=7,fixed=y", "K", STS_ERR_INVALID), -99);
    EXPECT_EQ(value_in("", "K", STS_ERR_INVALID), -99);
    EXPECT_EQ(value_in("THR_WAIT_SECOND,value=7,fixed=y", "THR_WAIT_SECONDS", STS_ERR_INVALID),
              -99);
}

TEST(MessageValue, WithoutAnEndRunsToTheFirstThatIsNoDigit) {
    EXPECT_EQ(value_in("K,value=12", "K"), 12);
    EXPECT_EQ(value_in("K,value=12;value=13", "K"), 12);
}

TEST(MessageValue, IsReadAsADecimalNumber) {
    EXPECT_EQ(value_in("K,value=,fixed=y", "K"), 0);
    EXPECT_EQ(value_in("K,value=", "K"), 0);
    EXPECT_EQ(value_in("K,value=abc,fixed=y", "K"), 0);
    EXPECT_EQ(value_in("K,value= +8 ,fixed=y", "K"), 8);
    EXPECT_EQ(value_in("K,value=0x10,fixed=y", "K"), 0);
    EXPECT_EQ(value_in("K,value=010,fixed=y", "K"), 10);
    EXPECT_EQ(value_in("K,value=1.9,fixed=y", "K"), 1);
    EXPECT_EQ(value_in(std::string("K,value=1\0002,fixed=y", 20), "K"), 1);
}

TEST(MessageValue, BeyondTheRangeIsTheRangesEnd) {
    EXPECT_EQ(value_in("K,value=99999999999999999999,fixed=y", "K"), LONG_MAX);
    EXPECT_EQ(value_in("K,value=-99999999999999999999,fixed=y", "K"), LONG_MIN);
}

TEST(MessageValue, WithoutTheWordValueIsReadFromOffset5OfTheMessage) {
    EXPECT_EQ(value_in("K1234567,fixed=y", "K"), 567);
    EXPECT_EQ(value_in("value=8 K", "K"), 0); // offset 5 is the "="
    EXPECT_EQ(value_in("12345678K", "K"), 678);
}

TEST(MessageValue, WithoutTheWordValueInAShortMessageThrowsOutOfRange) {
    EXPECT_EQ(value_in("Kabcd", "K"), 0); // five characters leave an empty text
    long value = -99;
    try {
        ServiceConnector::get_msg_value("Kabc", "K", value);
        FAIL() << "no exception";
    } catch (const std::out_of_range& error) {
        EXPECT_THAT(error.what(), HasSubstr("basic_string::substr"));
    }
    EXPECT_EQ(value, -99);
}

// --- whole replies

class Reply : public engine_test {
  protected:
    void SetUp() override {
        start();
        service().usual.out = "a reply that names nothing";
    }

    /// What the connector has taken from `reply`, as it logs it.
    std::string taken_from(const std::string& reply) {
        service().replies.push_back({STS_OK, reply});
        take_log();
        EXPECT_EQ(connector.check_connections(OPERATION_READ, -1, 0), STS_OK);
        const std::string line = take_log().at(2);
        return line.substr(strlen("3 [check_connections]"));
    }

    static std::string values(long readers, long writers, long free_flow, long wait_seconds) {
        return "response:0,connection# for r:" + std::to_string(readers) +
               ",connection# for w:" + std::to_string(writers) +
               ",free flow:" + std::to_string(free_flow) +
               ",wait seconds:" + std::to_string(wait_seconds);
    }
};

/// What a good reply's value is when only `length` bytes of it arrive: nothing new while its name
/// is cut, 0 until its digits begin (the text read instead is the first row's name), and then the
/// digits that are there.
long value_within(const std::string& whole, size_t length, const std::string& name, long before) {
    const size_t name_end = whole.find(name) + name.size();
    const size_t digits = whole.find("value=", name_end) + strlen("value=");
    if (length < name_end) {
        return before;
    }
    return length < digits ? 0 : strtol(whole.substr(digits, length - digits).c_str(), nullptr, 10);
}

TEST_F(Reply, EveryTruncationOfAGoodOneGivesWhatItStillSays) {
    const std::string whole = reply_text(12, 345, 6789, -12);
    for (size_t length = 0; length <= whole.size(); ++length) {
        taken_from(reply_text(2, 3, 4, -5));
        EXPECT_EQ(taken_from(whole.substr(0, length)),
                  values(value_within(whole, length, "THR_R_CONNECTION_COUNTS", 2),
                         value_within(whole, length, "THR_W_CONNECTION_COUNTS", 3),
                         value_within(whole, length, "THR_FREE_FLOW", 4),
                         value_within(whole, length, "THR_WAIT_SECONDS", -5)))
            << length;
    }
}

TEST_F(Reply, EveryTruncationOfItsFrontIsTakenWithoutACrash) {
    const std::string whole = reply_text(12, 345, 6789, -12);
    for (size_t first = 0; first <= whole.size(); ++first) {
        taken_from(whole.substr(first));
    }
    EXPECT_EQ(taken_from(whole), values(12, 345, 6789, -12));
}

TEST_F(Reply, MayNameItsValuesInAnyOrder) {
    EXPECT_EQ(taken_from("THR_WAIT_SECONDS,value=-1,fixed=y;THR_FREE_FLOW,value=2,fixed=y;"
                         "THR_W_CONNECTION_COUNTS,value=3,fixed=y;"
                         "THR_R_CONNECTION_COUNTS,value=4,fixed=y;"),
              values(4, 3, 2, -1));
}

TEST_F(Reply, OfJunkChangesNothing) {
    taken_from(reply_text(2, 3, 4, -5));
    for (const std::string& junk :
         {std::string(), std::string(1, '\0'), std::string("value=9,fixed=y"), std::string("THR_"),
          std::string(1'000'000, 'T'), std::string("\xff\xfe\x80%s%n%d")}) {
        EXPECT_EQ(taken_from(junk), values(2, 3, 4, -5));
    }
}

TEST_F(Reply, OfNamesWithoutValuesReadsWhatStandsAtOffset5) {
    EXPECT_EQ(taken_from("-----7THR_R_CONNECTION_COUNTS THR_W_CONNECTION_COUNTS THR_FREE_FLOW"),
              values(7, 7, 7, 0));
}

TEST_F(Reply, OfAMegabyteIsTaken) {
    const std::string padding(1'000'000, ' ');
    EXPECT_EQ(taken_from(padding + reply_text(2, 3, 4, -5) + padding), values(2, 3, 4, -5));
}

TEST_F(Reply, WithNumbersBeyondTheRangeGivesTheRangesEnds) {
    EXPECT_EQ(taken_from("THR_R_CONNECTION_COUNTS,value=99999999999999999999,fixed=y;"
                         "THR_WAIT_SECONDS,value=-99999999999999999999,fixed=y;"),
              values(LONG_MAX, 1, 0, LONG_MIN));
}

TEST_F(Reply, OfFailureIsLoggedAsItIsAndFormatsNothing) {
    service().replies.push_back({STS_ERR_FILE, "%s%n%d 100%"});
    EXPECT_EQ(connector.check_connections(OPERATION_READ, -1, 0), STS_ERR_FILE);
    EXPECT_EQ(take_log().back(), "3 [check_connections]leaving with return value =2060017, "
                                 "response recived =%s%n%d 100%");
}

// --- the address form

class Address : public engine_test {
  protected:
    /// Connects a server of type "cloud" named "s3" in a session "x", the service being at `host`.
    void start_at(const char* host, int port = 5637) {
        session = host_session("x");
        ASSERT_EQ(connect(connector, &session), STS_OK);
        strcpy(config.cssc_host_name, host);
        config.cssc_port_number = port;
        ASSERT_EQ(connector.set_config_params(&config, 0), STS_OK);
        connector.check_connections(OPERATION_READ, -1, 0); // the operation is a read
    }
};

TEST_F(Address, OfASecureServiceOnIPv6) {
    start_at("::1");
    EXPECT_EQ(connector.access_uri("bw", 1), "https://[::1]:5637/throttle/cloud/r:s3/bw/x");
}

TEST_F(Address, IsPlainWhereSecurityIs0OrNegative) {
    start_at("localhost");
    EXPECT_EQ(connector.access_uri("bw", 0), "http://localhost:5637/throttle/cloud/r:s3/bw/x");
    EXPECT_EQ(connector.access_uri("bw", -1), "http://localhost:5637/throttle/cloud/r:s3/bw/x");
    EXPECT_EQ(connector.access_uri("bw", 2), "https://localhost:5637/throttle/cloud/r:s3/bw/x");
}

TEST_F(Address, CarriesThePrefixOfTheOperationInProgress) {
    start_at("h");
    connector.check_connections(OPERATION_WRITE, -1, 0);
    EXPECT_EQ(connector.access_uri("", 0), "http://h:5637/throttle/cloud/w:s3//x");
    connector.check_connections(OPERATION_READ_WRITE, -1, 0);
    EXPECT_EQ(connector.access_uri("", 0), "http://h:5637/throttle/cloud/a:s3//x");
}

TEST_F(Address, TakesThePortAsUnsigned) {
    start_at("h", -1);
    EXPECT_EQ(connector.access_uri("bw", 0), "http://h:4294967295/throttle/cloud/r:s3/bw/x");
}

TEST_F(Address, OfAConnectorThatNeverConnectedHasEmptyParts) {
    EXPECT_EQ(connector.access_uri("bw", 0), "http://localhost:5637/throttle//r:/bw/");
}

} // namespace
