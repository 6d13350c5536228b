// Texts: narrow ones byte for byte, wide ones as UTF-16 whatever the character.
#include "tests/wire/pattern.h"
#include "tests/wire/recorder.h"

#include <gtest/gtest.h>

using namespace wire;
namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;

namespace {

/// A value with a wide text, sent back and forth.
class Texts : public testing::Test {
  protected:
    Texts() : object_(peer_.object("facet")) {
        facet_ = CloudMgmt::CloudQueryFacet::_unchecked_narrow(object_);
    }

    /// What `getCloudStoreVersion` gives when it is answered so.
    std::string narrow_from(const giop::octets& text) {
        giop::cdr_writer body;
        body.counted(text);
        peer_.answer_with(giop::reply_status::no_exception, body);
        const CORBA::String_var result = facet_->getCloudStoreVersion();
        return result.in();
    }

    /// The octets that carry a text as argument.
    giop::octets narrow_to(const char* text) {
        narrow_from({0});
        const CORBA::String_var answered = facet_->getCloudConfigBlob(text);
        return peer_.last_request().arguments;
    }

    /// The text of a response whose octets, without their count, are these.
    std::wstring wide_from(const giop::octets& text) {
        giop::cdr_writer body;
        body.number(giop::VALUE_TAG_WITH_ID);
        body.text("IDL:Corvane/Vaultaro/SL/CloudMgmt/SDSResponse:1.0");
        body.counted(text);
        body.octet(1);
        peer_.answer_with(giop::reply_status::no_exception, body);
        const CloudMgmt::SDSResponse_var result = facet_->validateReplicationConfig("", "", "", "");
        EXPECT_TRUE(result->success()) << "what follows the text is read from its place";
        return result->response();
    }

    /// The octets of a text as member of a value, its count before them.
    static giop::octets wide_to(const wchar_t* text) {
        cdrMemoryStream stream;
        stream.marshalWString(text);
        return written(stream);
    }

    recorder peer_;
    CORBA::Object_var object_;
    CloudMgmt::CloudQueryFacet_var facet_;
};

} // namespace

TEST_F(Texts, ThatAreNarrowGoByteForByte) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    giop::cdr_writer expected;
    expected.text(all);
    EXPECT_TRUE(expected.matches(narrow_to(all.c_str())));
    giop::octets octets(all.begin(), all.end());
    octets.push_back(0);
    EXPECT_EQ(narrow_from(octets), all);
}

TEST_F(Texts, ThatAreEmptyHaveTheirTerminatingZeroAlone) {
    EXPECT_TRUE(match("01 00 00 00 00", narrow_to("")));
    EXPECT_EQ(narrow_from({0}), "");
}

TEST_F(Texts, WithoutATerminatingZeroAreRefused) {
    EXPECT_THROW(narrow_from({'a', 'b'}), CORBA::MARSHAL);
}

TEST_F(Texts, ThatAreLongerThanTheMessageAreRefused) {
    for (const uint32_t length : {uint32_t{100}, uint32_t{0x7fffffff}, UINT32_MAX}) {
        giop::cdr_writer body;
        body.number(length);
        body.raw(giop::octets(8));
        peer_.answer_with(giop::reply_status::no_exception, body);
        EXPECT_THROW(facet_->getCloudStoreVersion(), CORBA::MARSHAL);
    }
}

TEST_F(Texts, ThatAreWideGoAsUtf16WithAByteOrderMark) {
    EXPECT_TRUE(match("06 00 00 00  ff fe 61 00 22 6f", wide_to(L"a\u6f22")));
    EXPECT_TRUE(match("00 00 00 00", wide_to(L"")));
}

TEST_F(Texts, BeyondTheBasicPlaneGoAsPairsAndKeepTheirEnd) {
    EXPECT_TRUE(match("0a 00 00 00  ff fe 61 00 3d d8 be dc 62 00", wide_to(L"a\U0001f4be"
                                                                            L"b")));
    EXPECT_TRUE(match("06 00 00 00  ff fe ff db ff df", wide_to(L"\U0010ffff")));
}

TEST_F(Texts, BeyondUnicodeAreNotSent) {
    const wchar_t text[] = {0x110000, 0};
    EXPECT_THROW(wide_to(text), CORBA::DATA_CONVERSION);
    const wchar_t negative[] = {-1, 0};
    EXPECT_THROW(wide_to(negative), CORBA::DATA_CONVERSION);
}

TEST_F(Texts, ThatAreWideAreReadInEitherByteOrder) {
    const std::wstring expected = L"a\u6f22\U0001f4be!";
    EXPECT_EQ(wide_from(octets_of("ff fe 61 00 22 6f 3d d8 be dc 21 00")), expected);
    EXPECT_EQ(wide_from(octets_of("fe ff 00 61 6f 22 d8 3d dc be 00 21")), expected);
    EXPECT_EQ(wide_from(octets_of("00 61 6f 22 d8 3d dc be 00 21")), expected);
    EXPECT_EQ(wide_from({}), L"");
}

TEST_F(Texts, KeepHalvesOfPairsThatStandAlone) {
    const wchar_t halves[] = {0xdc00, L'a', 0xd800, L'b', 0xd800, 0};
    EXPECT_TRUE(match("0c 00 00 00  ff fe 00 dc 61 00 00 d8 62 00 00 d8", wide_to(halves)));
    EXPECT_EQ(wide_from(octets_of("dc 00 00 61 d8 00 00 62 d8 00")), halves);
}

TEST_F(Texts, OfHalfAUtf16UnitAreRefused) {
    EXPECT_THROW(wide_from({0}), CORBA::SystemException);
    EXPECT_THROW(wide_from({0, 'a', 0}), CORBA::SystemException);
}
