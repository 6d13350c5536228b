// Every structure, union, exception, sequence and value of the interface, written and read by the
// stubs beside the tables that tell its wire form.
#include "tests/wire/calls.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>

using namespace wire;

namespace {

constexpr uint64_t ROUNDS = 8;
constexpr uint16_t A_PORT = 5000; // of references that nobody follows

/// The same row of values for whoever asks.
sampler sampled(int type, uint64_t round) {
    return sampler(static_cast<uint64_t>(type) * ROUNDS + round, A_PORT);
}

void expect_written(const giop::cdr_writer& expected, cdrMemoryStream& stream) {
    const giop::octets octets = written(stream);
    EXPECT_TRUE(expected.matches(octets)) << "expected:\n"
                                          << giop::hex(expected.bytes()) << "\nwritten:\n"
                                          << giop::hex(octets);
}

cdrMemoryStream* reader_of(const giop::octets& octets) {
    return new cdrMemoryStream(const_cast<unsigned char*>(octets.data()), octets.size());
}

owned_value filled(const value_class& of_class, uint64_t round) {
    owned_value value(of_class.make());
    sampler values = sampled(of_class.type, round);
    const sampler::nested deeper(values);
    of_class.fill(values, value.in());
    return value;
}

template <typename Body>
void for_each_value(Body body) {
    for (int i = 0; i < value_class_count; ++i) {
        for (uint64_t round = 0; round < ROUNDS; ++round) {
            SCOPED_TRACE(std::string(types[value_classes[i].type].id) + " " +
                         std::to_string(round));
            body(value_classes[i], round);
        }
    }
}

} // namespace

TEST(Types, ThatAreNoValuesAreWrittenAsTheirTablesSay) {
    for (int i = 0; i < plain_class_count; ++i) {
        const int type = plain_classes[i].type;
        for (uint64_t round = 0; round < ROUNDS; ++round) {
            SCOPED_TRACE(std::string(types[type].id) + " " + std::to_string(round));
            giop::cdr_writer expected;
            sampler values = sampled(type, round);
            writer(values, expected).put(type);
            cdrMemoryStream stream;
            sampler same_values = sampled(type, round);
            plain_classes[i].write(same_values, stream);
            expect_written(expected, stream);
        }
    }
}

TEST(Types, ThatAreNoValuesAreReadInBothByteOrders) {
    for (int i = 0; i < plain_class_count; ++i) {
        const int type = plain_classes[i].type;
        for (uint64_t round = 0; round < 2 * ROUNDS; ++round) {
            SCOPED_TRACE(std::string(types[type].id) + " " + std::to_string(round));
            const bool little_endian = round % 2 == 0;
            giop::cdr_writer out(little_endian);
            sampler values = sampled(type, round);
            writer model(values, out);
            model.put(type);
            const std::unique_ptr<cdrMemoryStream> in(reader_of(out.bytes()));
            in->setByteSwapFlag(little_endian);
            teller told;
            plain_classes[i].read(told, *in);
            EXPECT_EQ(told.text(), model.told());
        }
    }
}

TEST(Types, ValuesAlwaysTravelWithTheirIdAndTheirAncestorsMembersFirst) {
    for_each_value([](const value_class& of_class, uint64_t round) {
        giop::cdr_writer expected;
        sampler values = sampled(of_class.type, round);
        writer(values, expected).put_value(of_class.type);
        const owned_value value = filled(of_class, round);
        // Declared as its own type and as each of its ancestors'.
        for (int formal = of_class.type; formal >= 0; formal = types[formal].element) {
            cdrMemoryStream stream;
            class_of(types[formal].id).write(value.in(), stream);
            expect_written(expected, stream);
        }
    });
}

TEST(Types, ValuesAreReadAsWhatTheyAreWhereAnAncestorIsDeclared) {
    for_each_value([](const value_class& of_class, uint64_t round) {
        giop::cdr_writer out;
        sampler values = sampled(of_class.type, round);
        writer model(values, out);
        model.put_value(of_class.type);
        for (int formal = of_class.type; formal >= 0; formal = types[formal].element) {
            const std::unique_ptr<cdrMemoryStream> in(reader_of(out.bytes()));
            const owned_value value(class_of(types[formal].id).read(*in));
            teller told;
            tell_value(told, value.in());
            EXPECT_EQ(told.text(), model.told());
        }
    });
}

TEST(Types, ValuesDoNotPassForTypesThatTheyDoNotDeriveFrom) {
    int refused = 0;
    for (int i = 0; i < value_class_count; ++i) {
        const type& formal = types[value_classes[i].type];
        const value_class& other = value_classes[(i + 1) % value_class_count];
        const int* const end = formal.versions + formal.version_count;
        if (std::find(formal.versions, end, other.type) != end) {
            continue;
        }
        SCOPED_TRACE(formal.id);
        giop::cdr_writer out;
        sampler values = sampler::of_nothing();
        writer(values, out).put_value(other.type);
        const std::unique_ptr<cdrMemoryStream> in(reader_of(out.bytes()));
        EXPECT_ANY_THROW(value_classes[i].read(*in));
        ++refused;
    }
    EXPECT_GT(refused, 0);
}

TEST(Types, DefaultBuiltValuesHaveEmptyTextsZerosAndNulls) {
    mallopt(M_PERTURB, 0xa5); // what isn't set shows
    for (int i = 0; i < value_class_count; ++i) {
        const value_class& of_class = value_classes[i];
        SCOPED_TRACE(types[of_class.type].id);
        giop::cdr_writer expected;
        sampler nothing = sampler::of_nothing();
        writer model(nothing, expected);
        model.put_value(of_class.type);
        const owned_value value(of_class.make());
        teller told;
        tell_value(told, value.in());
        EXPECT_EQ(told.text(), model.told());
        cdrMemoryStream stream;
        of_class.write(value.in(), stream);
        expect_written(expected, stream);
    }
    mallopt(M_PERTURB, 0);
}

TEST(Types, EachSequenceOfValuesHoldsEveryVersionANullAndTheSameValueTwice) {
    int versions = 0;
    for (int i = 0; i < value_sequence_count; ++i) {
        const value_sequence& sequence = value_sequences[i];
        const type& element = types[sequence.element];
        SCOPED_TRACE(element.id);
        std::vector<CORBA::ValueBase*> sent;
        std::vector<owned_value> owners;
        for (int j = 0; j < element.version_count; ++j, ++versions) {
            owners.push_back(filled(class_of(types[element.versions[j]].id), 1));
            sent.push_back(owners.back().in());
        }
        sent.push_back(nullptr);
        sent.push_back(sent.front());

        cdrMemoryStream stream;
        sequence.write(sent, stream);
        const giop::octets octets = written(stream);
        const std::unique_ptr<cdrMemoryStream> in(reader_of(octets));
        const std::vector<CORBA::ValueBase*> read = sequence.read(*in);

        ASSERT_EQ(read.size(), sent.size());
        for (std::size_t j = 0; j < read.size(); ++j) {
            teller of_sent;
            teller of_read;
            tell_value(of_sent, sent[j]);
            tell_value(of_read, read[j]);
            EXPECT_EQ(of_read.text(), of_sent.text());
        }
        EXPECT_EQ(read.back(), read.front()) << "the same value is one object again";
        for (CORBA::ValueBase* const value : read) {
            CORBA::remove_ref(value);
        }
    }
    EXPECT_GT(versions, value_sequence_count) << "some have more than one version";
}
