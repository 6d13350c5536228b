// Whether the service expects TLS, as its own file says.

#include "tests/config/config_fixture.h"

#include <cerrno>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char* const enter = "3 [get_cssc_security]enter.";
const char* const invalid = "2 [get_cssc_security]invalid cssc_is_secure, set to default";

class Security : public ConfigTest {
  protected:
    int security_of(const std::string& text) {
        files.write_service_file(text);
        return get_cssc_security(&session);
    }
};

TEST_F(Security, NoFileIsSecureWithAWarning) {
    EXPECT_EQ(get_cssc_security(&session), 1);
    EXPECT_THAT(take_log(), ElementsAre(enter, "2 [get_cssc_security]file " + files.service_file() +
                                                   " not found, use default issecure value."));
}

TEST_F(Security, FileThatCanNotBeOpenedIsSecureWithTheSameWarning) {
    files.write_service_file("CSSC_IS_SECURE=0\n");
    fault::fail("fopen", EACCES);
    EXPECT_EQ(get_cssc_security(&warned), 1);
    EXPECT_THAT(take_log(), ElementsAre("2 [get_cssc_security]file " + files.service_file() +
                                        " not found, use default issecure value."));
}

TEST_F(Security, FileWithoutTheKeyIsSecureWithoutAWarning) {
    EXPECT_EQ(security_of("CSSC_PORT=80\nTHR:s3=1\n"), 1);
    EXPECT_THAT(take_log(), ElementsAre(enter));
    EXPECT_EQ(security_of(""), 1);
    EXPECT_THAT(take_log(), ElementsAre(enter));
}

TEST_F(Security, ValueOfTheKeyIsGivenAsItIs) {
    const struct {
        const char* value;
        int security;
    } cases[] = {{"0", 0},          {"1", 1},
                 {"2", 2},          {"2147483647", 2147483647},
                 {"", 0},           {"yes", 0},
                 {" 3x", 3},        {"0=1", 0},
                 {"1\r", 1},        {"-0", 0},
                 {"+4", 4},         {"4294967296", 0},
                 {"4294967297", 1}, {"-99999999999999999999", 0}};
    for (const auto& each : cases) {
        EXPECT_EQ(security_of("CSSC_IS_SECURE=" + std::string(each.value) + "\n"), each.security)
            << each.value;
        EXPECT_THAT(take_log(), ElementsAre(enter));
    }
}

TEST_F(Security, NegativeValueIsSecureWithAWarning) {
    for (const char* value : {"-1", "-2147483648", "2147483648", "99999999999999999999"}) {
        EXPECT_EQ(security_of("CSSC_IS_SECURE=" + std::string(value) + "\n"), 1) << value;
        EXPECT_THAT(take_log(), ElementsAre(enter, invalid));
    }
}

TEST_F(Security, KeyOnALastLineWithoutANewlineIsIgnored) {
    EXPECT_EQ(security_of("CSSC_IS_SECURE=0"), 1);
    EXPECT_THAT(take_log(),
                ElementsAre(enter, "2 [get_cssc_security]Ignore item:CSSC_IS_SECURE=0."));
}

TEST_F(Security, FirstLineWithTheKeyDecides) {
    EXPECT_EQ(security_of("CSSC_IS_SECURE=0\nCSSC_IS_SECURE=1\nnonsense\n"), 0);
    EXPECT_THAT(take_log(), ElementsAre(enter));
    EXPECT_EQ(security_of("CSSC_IS_SECURE=-5\nCSSC_IS_SECURE=0\n"), 1);
}

TEST_F(Security, KeyMustBeExact) {
    EXPECT_EQ(security_of("CSSC_IS_SECURE =0\n CSSC_IS_SECURE=0\ncssc_is_secure=0\n"
                          "THR:CSSC_IS_SECURE=0\nCSSC_IS_SECURED=0\nCSSC_IS_SECUR=0\n=0\n"),
              1);
    EXPECT_THAT(take_log(), ElementsAre(enter));
}

TEST_F(Security, CommentsAndOtherLinesAreLoggedByTheRulesOfTheFile) {
    EXPECT_EQ(security_of("# CSSC_IS_SECURE=0\nnonsense\nCSSC_PORT=1\nCSSC_IS_SECURE=3\n"), 3);
    EXPECT_THAT(take_log(), ElementsAre(enter, "3 [get_cssc_security]Comment:# CSSC_IS_SECURE=0\n",
                                        "2 [get_cssc_security]Ignore item:nonsense\n."));
}

TEST_F(Security, ItsFileIsClosed) {
    for (const char* text : {"CSSC_IS_SECURE=0\n", "CSSC_IS_SECURE=-1\n", ""}) {
        files.write_service_file(text);
        fault::watch_calls();
        get_cssc_security(nullptr);
        EXPECT_THAT(fault::take_calls(),
                    ElementsAre("fopen " + files.service_file() + " r", "fclose"));
    }
}

TEST_F(Security, OurOwnFileIsNotAsked) {
    files.write_plugin_file("CSSC_IS_SECURE=0\n");
    files.write_service_file("");
    EXPECT_EQ(get_cssc_security(nullptr), 1);
    EXPECT_THAT(take_log(), IsEmpty());
}

} // namespace
