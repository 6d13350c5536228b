// Sequences with a form of their own: long double, wide characters, the bounded one; and lengths
// that can't be true.
#include "tests/wire/calls.h"
#include "tests/wire/pattern.h"

#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>

using namespace wire;
namespace CSF = Orvessa::CSF;

namespace {

template <typename Type>
giop::octets marshalled(const Type& value) {
    cdrMemoryStream stream;
    value >>= stream;
    return written(stream);
}

template <typename Type>
void read(Type& value, const giop::octets& octets, bool little_endian = true) {
    cdrMemoryStream stream(const_cast<unsigned char*>(octets.data()), octets.size());
    stream.setByteSwapFlag(little_endian);
    value <<= stream;
}

CSF::LongDoubleSeq one(long double value) {
    CSF::LongDoubleSeq sequence;
    sequence.length(1);
    sequence[0] = value;
    return sequence;
}

} // namespace

TEST(LongDoubleSeq, TravelsAsIeeeBinary128AlignedTo8) {
    EXPECT_TRUE(match("01 00 00 00 .. .. .. .. 00 00 00 00 00 00 00 00 00 00 00 00 00 80 ff 3f",
                      marshalled(one(1.5L))));
    EXPECT_TRUE(match("01 00 00 00 .. .. .. .. 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 c0",
                      marshalled(one(-2))));
    EXPECT_TRUE(match("01 00 00 00 .. .. .. .. 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ff 7f",
                      marshalled(one(HUGE_VALL))));
    EXPECT_TRUE(match("01 00 00 00 .. .. .. .. 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 80",
                      marshalled(one(-0.0L))));
    // The 64 bits of a mantissa that x86 has.
    EXPECT_TRUE(match("01 00 00 00 .. .. .. .. 00 00 00 00 00 00 6a 84 d1 42 44 b5 1f 92 00 40",
                      marshalled(one(0x3.243f6a8885a308d4p0L))));
}

TEST(LongDoubleSeq, IsReadInBothByteOrders) {
    CSF::LongDoubleSeq sequence;
    read(sequence, wire::octets_of(
                       "01 00 00 00 .. .. .. .. 00 00 00 00 00 00 00 00 00 00 00 00 00 80 ff 3f"));
    ASSERT_EQ(sequence.length(), 1u);
    EXPECT_EQ(sequence[0], 1.5L);
    read(sequence,
         wire::octets_of("00 00 00 01 .. .. .. .. 3f ff 80 00 00 00 00 00 00 00 00 00 00 00 00 00"),
         false);
    ASSERT_EQ(sequence.length(), 1u);
    EXPECT_EQ(sequence[0], 1.5L);
}

TEST(LongDoubleSeq, KeepsEveryBitOfWhatItCarries) {
    const long double values[] = {0,
                                  1 / 3.0L,
                                  -LDBL_MAX,
                                  LDBL_MIN,
                                  LDBL_TRUE_MIN,
                                  M_PIl,
                                  -HUGE_VALL,
                                  18446744073709551615.0L};
    CSF::LongDoubleSeq sent;
    sent.length(std::size(values));
    for (CORBA::ULong i = 0; i < sent.length(); ++i) {
        sent[i] = values[i];
    }
    CSF::LongDoubleSeq received;
    read(received, marshalled(sent));
    ASSERT_EQ(received.length(), sent.length());
    for (CORBA::ULong i = 0; i < sent.length(); ++i) {
        EXPECT_EQ(received[i], values[i]) << i;
    }
    CSF::LongDoubleSeq no_number;
    read(no_number, marshalled(one(NAN)));
    EXPECT_TRUE(std::isnan(no_number[0]));
}

TEST(LongDoubleSeq, MayBeEmptyAtTheEndOfAMessage) {
    CSF::LongDoubleSeq sequence = one(1);
    read(sequence, wire::octets_of("00 00 00 00"));
    EXPECT_EQ(sequence.length(), 0u);
    EXPECT_TRUE(match("00 00 00 00", marshalled(sequence)));
}

TEST(LongDoubleSeq, TravelsInAnAnyTheSameWay) {
    CORBA::Any any;
    any <<= one(1.5L);
    CORBA::Any received;
    read(received, marshalled(any));
    const CSF::LongDoubleSeq* held = nullptr;
    ASSERT_TRUE(received >>= held);
    ASSERT_EQ(held->length(), 1u);
    EXPECT_EQ((*held)[0], 1.5L);
    const giop::octets octets = marshalled(received);
    EXPECT_TRUE(match("00 00 00 00 00 00 00 00 00 00 00 00 00 80 ff 3f",
                      giop::octets(octets.end() - 16, octets.end())));
}

TEST(WCharSeq, HasTwoOctetsForEachMostSignificantFirst) {
    CSF::WCharSeq sequence;
    sequence.length(1);
    sequence[0] = L'\u6f22';
    EXPECT_TRUE(match("01 00 00 00 02 6f 22", marshalled(sequence)));
    sequence[0] = L'\U0001f4be';
    EXPECT_THROW(marshalled(sequence), CORBA::DATA_CONVERSION) << "a wchar is one UTF-16 unit";
}

TEST(GuidData, HoldsEightOctets) {
    const giop::octets eight = wire::octets_of("08 00 00 00 01 02 03 04 05 06 07 08");
    CSF::GUID_data4_T data;
    read(data, eight);
    EXPECT_EQ(data.length(), 8u);
    EXPECT_EQ(data[7], 8);
    EXPECT_EQ(marshalled(data), eight);
}

TEST(GuidData, RefusesANinthOctet) {
    CSF::GUID_data4_T data;
    EXPECT_THROW(read(data, wire::octets_of("09 00 00 00 01 02 03 04 05 06 07 08 09")),
                 CORBA::MARSHAL);
    EXPECT_THROW(data.length(9), CORBA::BAD_PARAM);
}

TEST(Sequences, OfALengthThatTheMessageCannotHoldAreRefused) {
    for (int i = 0; i < plain_class_count; ++i) {
        const type& type = types[plain_classes[i].type];
        if (type.kind != kind::sequence) {
            continue;
        }
        for (const uint32_t length : {100u, 0x10000000u, 0x7fffffffu, UINT32_MAX}) {
            SCOPED_TRACE(std::string(type.id) + " of " + std::to_string(length));
            giop::cdr_writer out;
            out.number(length);
            out.raw(giop::octets(20));
            const giop::octets octets = out.bytes();
            cdrMemoryStream stream(const_cast<unsigned char*>(octets.data()), octets.size());
            teller told;
            EXPECT_THROW(plain_classes[i].read(told, stream), CORBA::MARSHAL);
        }
    }
}
