// What the stubs read of arguments, results and exceptions before the ORB does: `any`s and their
// type codes, sequences, texts, references, and values in each other. Values of each form alone are
// in tests/attack, which needs the same of the service as a whole.
#include "interfaces/checked_copy.h"
#include "interfaces/type_shape.h"
#include "tests/support/hostile_values.h"
#include "tests/wire/calls.h"
#include "tests/wire/pattern.h"
#include "tests/wire/recorder.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace wire;
namespace ApplianceMgmt = Corvane::Vaultaro::SL::ApplianceMgmt;
namespace SL = Corvane::Vaultaro::SL;
namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;
using giop::cdr_writer;

namespace {

const char PAIR[] = "IDL:Corvane/Vaultaro/SL/CloudMgmt/SRKeyValuePair:1.0";
const char METER[] = "IDL:Corvane/Vaultaro/SL/CloudMgmt/MeteringDataInfo:1.0";

/// Reads one value of `type` as the stubs do. Throws what they throw.
giop::octets checked(const CORBA::TypeCode_ptr& type, const cdr_writer& message) {
    std::vector<uint64_t> aligned((message.size() + 7) / 8);
    std::memcpy(aligned.data(), message.bytes().data(), message.size());
    cdrMemoryStream stream(aligned.data(), message.size());
    stream.setByteSwapFlag(message.little_endian());
    stream.TCS_W(omni::omniCodeSet::getTCS_W(omni::omniCodeSet::ID_UTF_16, {1, 2}));
    const CORBA::TypeCode_ptr* const types[] = {&type};
    vlsl_support::CheckedCopy copy(stream, types);
    return written(copy);
}

cdr_writer octets_of(cdrMemoryStream& stream) {
    cdr_writer out;
    const auto* const start = static_cast<const unsigned char*>(stream.bufPtr());
    out.raw(giop::octets(start, start + stream.bufSize()));
    return out;
}

using put = std::function<void(cdr_writer&)>;

struct odd {
    const char* name;
    put message;
};

void expect_refused(const CORBA::TypeCode_ptr& type, const std::vector<odd>& messages) {
    for (const odd& each : messages) {
        SCOPED_TRACE(each.name);
        for (const bool little_endian : {true, false}) {
            cdr_writer message(little_endian);
            each.message(message);
            EXPECT_THROW(checked(type, message), CORBA::MARSHAL);
        }
    }
}

// --- type codes --------------------------------------------------------------------------------

/// What a type code has behind its kind.
void put_parameters(cdr_writer& out, const put& parameters) {
    cdr_writer inner = cdr_writer::encapsulation(out.little_endian());
    parameters(inner);
    out.counted(inner.bytes());
}
void put_type(cdr_writer& out, CORBA::TCKind kind, const put& parameters) {
    out.number<uint32_t>(kind);
    put_parameters(out, parameters);
}
void put_simple(cdr_writer& out, CORBA::TCKind kind) { out.number<uint32_t>(kind); }
void put_names(cdr_writer& out) {
    out.text("IDL:x:1.0");
    out.text("x");
}

/// An alias of an alias of ...
void put_aliases(cdr_writer& out, int depth) {
    if (depth == 0) {
        put_simple(out, CORBA::tk_long);
        return;
    }
    put_type(out, CORBA::tk_alias, [depth](cdr_writer& inner) {
        put_names(inner);
        put_aliases(inner, depth - 1);
    });
}

/// A structure of one member after another, each of which is what the one before it is, twice.
void put_doubling(cdr_writer& out, int times) {
    put_type(out, CORBA::tk_struct, [times](cdr_writer& inner) {
        put_names(inner);
        inner.number<uint32_t>(static_cast<uint32_t>(times));
        std::size_t last = 0;
        for (int i = 0; i < times; ++i) {
            inner.text("m");
            inner.align(4);
            const std::size_t start = inner.size();
            if (i == 0) {
                put_simple(inner, CORBA::tk_long);
            } else {
                inner.number<uint32_t>(CORBA::tk_struct);
                cdr_writer two = cdr_writer::encapsulation(inner.little_endian());
                put_names(two);
                two.number<uint32_t>(2);
                for (int member = 0; member < 2; ++member) {
                    two.text("m");
                    two.number(giop::INDIRECTION_TAG);
                    const std::size_t here = start + 8 + two.size();
                    two.number(static_cast<int32_t>(last) - static_cast<int32_t>(here));
                }
                inner.counted(two.bytes());
            }
            last = start;
        }
    });
}

/// An alias's id, its name, and what it is an alias of.
void put_alias(cdr_writer& out, const put& of) {
    put_type(out, CORBA::tk_alias, [&](cdr_writer& inner) {
        put_names(inner);
        of(inner);
    });
}

/// A structure of two members. The second one's type is made with where the first one's starts.
using put_second = std::function<void(cdr_writer&, int32_t)>;
void put_two(cdr_writer& out, const put& first, const put_second& second) {
    put_type(out, CORBA::tk_struct, [&](cdr_writer& inner) {
        put_names(inner);
        inner.number<uint32_t>(2);
        inner.text("a");
        inner.align(4);
        const auto start = static_cast<int32_t>(inner.size());
        first(inner);
        inner.text("b");
        inner.align(4);
        second(inner, start);
    });
}
/// An indirection that is at `here` to what is at `position`.
void put_indirection(cdr_writer& out, int32_t position, int32_t here) {
    out.number(giop::INDIRECTION_TAG);
    out.number(position - here - static_cast<int32_t>(sizeof(int32_t)));
}

/// A value's type of no members, with a base.
void put_value_type(cdr_writer& out, const char* id, const put& base, const put& members) {
    put_type(out, CORBA::tk_value, [&](cdr_writer& inner) {
        inner.text(id);
        inner.text("x");
        inner.number<int16_t>(0);
        base(inner);
        members(inner);
    });
}
void put_no_base(cdr_writer& out) { put_simple(out, CORBA::tk_null); }
void put_members(cdr_writer& out, const std::vector<CORBA::TCKind>& kinds) {
    out.number(static_cast<uint32_t>(kinds.size()));
    for (const CORBA::TCKind kind : kinds) {
        out.text("m");
        put_simple(out, kind);
        if (kind == CORBA::tk_string) {
            out.number<uint32_t>(0);
        }
        out.number<int16_t>(CORBA::PUBLIC_MEMBER);
    }
}

/// A union of one member, a long, which is chosen by a type and a label.
void put_union(cdr_writer& out, const put& discriminator, const put& label) {
    put_type(out, CORBA::tk_union, [&](cdr_writer& inner) {
        put_names(inner);
        discriminator(inner);
        inner.number<int32_t>(-1);
        inner.number<uint32_t>(1);
        label(inner);
        inner.text("m");
        put_simple(inner, CORBA::tk_long);
    });
}

void put_pair_type(cdr_writer& out) {
    put_value_type(out, PAIR, put_no_base, [](cdr_writer& inner) {
        put_members(inner, {CORBA::tk_string, CORBA::tk_string});
    });
}

void put_counted_members(cdr_writer& out, CORBA::TCKind kind, uint32_t count) {
    put_type(out, kind, [kind, count](cdr_writer& inner) {
        put_names(inner);
        if (kind == CORBA::tk_union) {
            put_simple(inner, CORBA::tk_long);
            inner.number<int32_t>(-1);
        }
        if (kind == CORBA::tk_value) {
            inner.number<int16_t>(0);
            put_simple(inner, CORBA::tk_null);
        }
        inner.number(count);
    });
}

void put_sequence_type(cdr_writer& out, const put& element, uint32_t bound = 0) {
    put_type(out, CORBA::tk_sequence, [&](cdr_writer& inner) {
        element(inner);
        inner.number(bound);
    });
}

std::vector<odd> hostile_type_codes() {
    std::vector<odd> all = {
        {"ThatIsAnIndirection",
         [](cdr_writer& out) {
             out.number(giop::INDIRECTION_TAG);
             out.number<int32_t>(-4);
         }},
        {"OfAKindThatIsnt", [](cdr_writer& out) { out.number<uint32_t>(99); }},
        {"ThatIsTooLong",
         [](cdr_writer& out) {
             out.number<uint32_t>(CORBA::tk_struct);
             out.number<uint32_t>(0xfffffff0);
         }},
        {"OfNoOctets",
         [](cdr_writer& out) {
             out.number<uint32_t>(CORBA::tk_struct);
             out.number<uint32_t>(0);
         }},
        {"InNoByteOrder",
         [](cdr_writer& out) {
             out.number<uint32_t>(CORBA::tk_struct);
             out.counted({7, 0, 0, 0, 1, 0, 0, 0, 0});
         }},
        {"WithAnIdOfNoLength",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_struct, [](cdr_writer& inner) {
                 inner.number<uint32_t>(0);
                 inner.number<uint32_t>(0);
                 inner.number<uint32_t>(0);
             });
         }},
        {"ThatHoldsItself",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_struct, [](cdr_writer& inner) {
                 put_names(inner);
                 inner.number<uint32_t>(1);
                 inner.text("m");
                 inner.number(giop::INDIRECTION_TAG);
                 inner.number(-static_cast<int32_t>(inner.size() + 8));
             });
         }},
        {"ThatIsAnAliasOfItself",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_alias, [](cdr_writer& inner) {
                 put_names(inner);
                 inner.number(giop::INDIRECTION_TAG);
                 inner.number(-static_cast<int32_t>(inner.size() + 8));
             });
         }},
        {"ThatIsASequenceOfItself",
         [](cdr_writer& out) {
             put_sequence_type(out, [](cdr_writer& inner) {
                 inner.number(giop::INDIRECTION_TAG);
                 inner.number(-static_cast<int32_t>(inner.size() + 8));
             });
         }},
        {"WithAnIndirectionForward",
         [](cdr_writer& out) {
             put_sequence_type(out, [](cdr_writer& inner) {
                 inner.number(giop::INDIRECTION_TAG);
                 inner.number<int32_t>(4);
             });
         }},
        {"WithAnIndirectionOutOfIt",
         [](cdr_writer& out) {
             put_sequence_type(out, [](cdr_writer& inner) {
                 inner.number(giop::INDIRECTION_TAG);
                 inner.number<int32_t>(-100'000);
             });
         }},
        {"OfAThousandAliases", [](cdr_writer& out) { put_aliases(out, 1000); }},
        {"ThatDoublesFortyTimes", [](cdr_writer& out) { put_doubling(out, 40); }},
        {"OfAnEnumerationWithoutMembers",
         [](cdr_writer& out) { put_counted_members(out, CORBA::tk_enum, 0); }},
        {"OfAnArrayOf4GTexts",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_array, [](cdr_writer& inner) {
                 put_simple(inner, CORBA::tk_string);
                 inner.number<uint32_t>(0);
                 inner.number<uint32_t>(0xffffffff);
             });
         }},
        {"OfAUnionWithADefaultThatItHasnt",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_union, [](cdr_writer& inner) {
                 put_names(inner);
                 put_simple(inner, CORBA::tk_long);
                 inner.number<int32_t>(1);
                 inner.number<uint32_t>(0);
             });
         }},
        {"OfAUnionChosenByATextOrAFloat",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_union, [](cdr_writer& inner) {
                 put_names(inner);
                 put_simple(inner, CORBA::tk_float);
                 inner.number<int32_t>(-1);
                 inner.number<uint32_t>(1);
                 inner.number<float>(1);
                 inner.text("m");
                 put_simple(inner, CORBA::tk_long);
             });
         }},
        {"OfAUnionChosenByALetterThatIsNotOfAllCodeSets",
         [](cdr_writer& out) {
             put_union(
                 out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_char); },
                 [](cdr_writer& inner) { inner.octet(0xe4); });
         }},
        {"OfAUnionChosenByNoneOfItsEnumerators",
         [](cdr_writer& out) {
             put_union(
                 out,
                 [](cdr_writer& inner) {
                     put_type(inner, CORBA::tk_enum, [](cdr_writer& names) {
                         put_names(names);
                         names.number<uint32_t>(1);
                         names.text("one");
                     });
                 },
                 [](cdr_writer& inner) { inner.number<uint32_t>(1); });
         }},
        {"OfAStructureThatHoldsASequenceOfItself", // legal, but none of the service's is
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_struct, [](cdr_writer& inner) {
                 put_names(inner);
                 inner.number<uint32_t>(1);
                 inner.text("m");
                 inner.align(4);
                 const auto start = inner.size();
                 put_sequence_type(inner, [start](cdr_writer& element) {
                     element.number(giop::INDIRECTION_TAG);
                     element.number(-static_cast<int32_t>(8 + start + 8 + element.size()));
                 });
             });
         }},
        {"OfAValueThatTheServiceHasnt",
         [](cdr_writer& out) {
             put_value_type(out, "IDL:x:1.0", put_no_base,
                            [](cdr_writer& inner) { put_members(inner, {CORBA::tk_long}); });
         }},
        {"OfAValueThatIsAnotherInTheService",
         [](cdr_writer& out) {
             put_value_type(out, PAIR, put_no_base,
                            [](cdr_writer& inner) { put_members(inner, {CORBA::tk_string}); });
         }},
        {"OfAnExceptionByTheIdOfAValue", // no value, whatever it is called
         [](cdr_writer& out) {
             put_value_type(out, "IDL:Corvane/Vaultaro/SL/VLSLOpException:1.0", put_no_base,
                            [](cdr_writer& inner) { put_members(inner, {}); });
         }},
        {"OfAValueWhoseBaseIsALong",
         [](cdr_writer& out) {
             put_value_type(
                 out, PAIR, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_long); },
                 [](cdr_writer& inner) {
                     put_members(inner, {CORBA::tk_string, CORBA::tk_string});
                 });
         }},
        {"OfManyTypes",
         [](cdr_writer& out) {
             put_type(out, CORBA::tk_struct, [](cdr_writer& inner) {
                 constexpr uint32_t many = 5000;
                 put_names(inner);
                 inner.number<uint32_t>(many);
                 for (uint32_t i = 0; i < many; ++i) {
                     inner.text("m");
                     put_simple(inner, CORBA::tk_long);
                 }
             });
         }},
        {"OfAFixedOfTooManyDigits",
         [](cdr_writer& out) {
             put_simple(out, CORBA::tk_fixed);
             out.number<uint16_t>(1000);
             out.number<int16_t>(0);
         }},
    };
    for (const CORBA::TCKind kind :
         {CORBA::tk_struct, CORBA::tk_union, CORBA::tk_enum, CORBA::tk_except, CORBA::tk_value}) {
        all.push_back({"With4GMembers",
                       [kind](cdr_writer& out) { put_counted_members(out, kind, 0xffffffff); }});
    }
    for (const CORBA::TCKind kind : {CORBA::tk_Principal, CORBA::tk_value_box, CORBA::tk_native,
                                     CORBA::tk_abstract_interface, CORBA::tk_local_interface}) {
        all.push_back({"OfAKindThatTheServiceHasnt", [kind](cdr_writer& out) {
                           put_type(out, kind, [](cdr_writer& inner) {
                               put_names(inner);
                               put_simple(inner, CORBA::tk_long);
                           });
                       }});
    }
    return all;
}

const giop::value_type pair = {PAIR, [](cdr_writer& out) {
                                   out.text("region");
                                   out.text("address");
                               }};
const giop::value_type meter = {METER, [](cdr_writer& out) {
                                    for (uint64_t i = 1; i <= 8; ++i) {
                                        out.number(i);
                                    }
                                }};

const char ROBOT[] = "IDL:Corvane/Vaultaro/SL/ApplianceMgmt/RobotInfoTopology:1.0";

void put_names_of_robot(cdr_writer& out) {
    out.text("1");
    out.text("2");
    out.text("3");
}

ApplianceMgmt::RobotInfoTopology* robot_of(const cdr_writer& message) {
    const giop::octets copy = checked(ApplianceMgmt::_tc_RobotInfoTopology, message);
    cdrMemoryStream stream(const_cast<unsigned char*>(copy.data()), copy.size());
    return ApplianceMgmt::RobotInfoTopology::_NP_unmarshal(stream);
}

} // namespace

// --- values ------------------------------------------------------------------------------------

TEST(CheckedValue, IsRefusedInEachHostileForm) {
    for (const giop::odd_value& value : giop::hostile_values(meter)) {
        SCOPED_TRACE(value.name);
        for (const bool little_endian : {true, false}) {
            cdr_writer message(little_endian);
            message.text("before");
            value.put(message);
            cdr_writer alone(little_endian);
            value.put(alone);
            EXPECT_THROW(checked(CloudMgmt::_tc_MeteringDataInfo, alone), CORBA::MARSHAL);
        }
    }
}

TEST(CheckedValue, BecomesThePlainFormInEachLegalOne) {
    cdr_writer plain;
    giop::legal_values(meter).front().put(plain);
    for (const giop::odd_value& value : giop::legal_values(meter)) {
        SCOPED_TRACE(value.name);
        for (const bool little_endian : {true, false}) {
            cdr_writer message(little_endian);
            value.put(message);
            EXPECT_TRUE(plain.matches(checked(CloudMgmt::_tc_MeteringDataInfo, message)));
        }
    }
}

TEST(CheckedValue, MayHaveATextInSeveralChunks) {
    cdr_writer plain;
    plain.number(giop::VALUE_TAG_WITH_ID);
    plain.text(PAIR);
    pair.put_state(plain);
    cdr_writer message;
    message.number(giop::VALUE_TAG_WITH_ID | giop::CHUNKED);
    message.text(PAIR);
    message.number<int32_t>(4 + 3); // a length, and three letters of "region"
    message.number<uint32_t>(7);
    message.raw({'r', 'e', 'g'});
    message.number<int32_t>(4);
    message.raw({'i', 'o', 'n', 0});
    message.number<int32_t>(4 + 8);
    message.text("address");
    message.number<int32_t>(-1);
    EXPECT_TRUE(plain.matches(checked(CloudMgmt::_tc_SRKeyValuePair, message)));
}

TEST(CheckedValue, MayHoldOthersInChunks) {
    // A robot that has one drive twice: the drive in chunks of its own, then null, then the drive
    // again, as an indirection. These two are in a chunk.
    cdr_writer message;
    message.number(giop::VALUE_TAG_WITH_ID | giop::CHUNKED);
    message.text(ROBOT);
    cdr_writer names;
    put_names_of_robot(names);
    names.number<uint32_t>(3);
    message.number(static_cast<int32_t>(names.size()));
    message.raw(names.bytes());
    const auto start = static_cast<int32_t>(message.size());
    message.number(giop::VALUE_TAG_WITH_ID | giop::CHUNKED);
    message.text(ROBOT);
    cdr_writer drive;
    put_names_of_robot(drive);
    drive.number<uint32_t>(0);
    message.number(static_cast<int32_t>(drive.size()));
    message.raw(drive.bytes());
    message.number<int32_t>(-2);
    message.number<int32_t>(12);
    message.number<uint32_t>(0);
    message.number(giop::INDIRECTION_TAG);
    message.number(start - static_cast<int32_t>(message.size()));
    message.number<int32_t>(-1);

    const ApplianceMgmt::RobotInfoTopology_var robot = robot_of(message);
    ASSERT_EQ(robot->driveDetails().length(), 3u);
    EXPECT_STREQ(robot->driveDetails()[0]->serialNo(), "3");
    EXPECT_EQ(robot->driveDetails()[1].in(), nullptr);
    EXPECT_EQ(robot->driveDetails()[2].in(), robot->driveDetails()[0].in());
}

TEST(CheckedValue, MayEndOthersWithItself) {
    cdr_writer message;
    for (int level = 1; level <= 3; ++level) {
        message.number(giop::VALUE_TAG_WITH_ID | giop::CHUNKED);
        message.text(ROBOT);
        cdr_writer state;
        put_names_of_robot(state);
        state.number<uint32_t>(level < 3 ? 1 : 0);
        message.number(static_cast<int32_t>(state.size()));
        message.raw(state.bytes());
    }
    message.number<int32_t>(-1); // all three
    const ApplianceMgmt::RobotInfoTopology_var robot = robot_of(message);
    EXPECT_STREQ(robot->driveDetails()[0]->driveDetails()[0]->serialNo(), "3");
}

TEST(CheckedValue, MayBeNestedAHundredTimesAndNotAThousand) {
    for (const int depth : {100, 1000, 30'000}) {
        SCOPED_TRACE(depth);
        cdr_writer message;
        for (int i = 0; i < depth; ++i) {
            message.number(giop::VALUE_TAG_WITH_ID);
            message.text(ROBOT);
            put_names_of_robot(message);
            message.number<uint32_t>(i + 1 < depth ? 1 : 0);
        }
        if (depth == 100) {
            EXPECT_NO_THROW(ApplianceMgmt::RobotInfoTopology_var(robot_of(message)));
        } else {
            EXPECT_THROW(robot_of(message), CORBA::MARSHAL);
        }
    }
}

TEST(CheckedValue, OfAnotherTypeIsRefused) {
    cdr_writer message;
    message.number(giop::VALUE_TAG_WITH_ID);
    message.text(PAIR);
    pair.put_state(message);
    EXPECT_THROW(checked(CloudMgmt::_tc_MeteringDataInfo, message), CORBA::MARSHAL);
    EXPECT_NO_THROW(checked(CloudMgmt::_tc_SRKeyValuePair, message));
}

TEST(CheckedValue, ThatIsAnotherTypesByIndirectionIsRefused) {
    giop::cdr_writer message;
    message.number<uint32_t>(2);
    message.number(giop::VALUE_TAG_WITH_ID);
    message.text(PAIR);
    pair.put_state(message);
    message.align(4);
    const auto here = static_cast<int32_t>(message.size());
    message.number(giop::INDIRECTION_TAG);
    message.number(8 - here); // into the first one's id
    EXPECT_THROW(checked(CloudMgmt::_tc_SRKeyValuePairSeq, message), CORBA::MARSHAL);
}

TEST(CheckedValue, ThatHoldsItselfIsRefused) {
    cdr_writer message;
    message.number(giop::VALUE_TAG_WITH_ID);
    message.text(ROBOT);
    put_names_of_robot(message);
    message.number<uint32_t>(1);
    message.number(giop::INDIRECTION_TAG);
    message.number(-static_cast<int32_t>(message.size()));
    EXPECT_THROW(robot_of(message), CORBA::MARSHAL);
}

// --- anys --------------------------------------------------------------------------------------

TEST(CheckedAny, IsRefusedWithEachHostileType) {
    for (const odd& type : hostile_type_codes()) {
        const odd whole = {type.name, [type](cdr_writer& out) {
                               type.message(out);
                               out.raw(giop::octets(64));
                           }};
        expect_refused(CORBA::_tc_any, {type, whole});
        expect_refused(CORBA::_tc_TypeCode, {type});
    }
}

TEST(CheckedAny, IsRefusedWithDataThatIsntOfItsType) {
    expect_refused(
        CORBA::_tc_any,
        {{"ATextOfTooManyOctets",
          [](cdr_writer& out) {
              put_simple(out, CORBA::tk_string);
              out.number<uint32_t>(0);
              out.number<uint32_t>(0xffffffff);
          }},
         {"ATextThatIsTooLong",
          [](cdr_writer& out) {
              put_simple(out, CORBA::tk_string);
              out.number<uint32_t>(2);
              out.text("abc");
          }},
         {"ATextWithoutItsZero",
          [](cdr_writer& out) {
              put_simple(out, CORBA::tk_string);
              out.number<uint32_t>(0);
              out.counted({'a', 'b'});
          }},
         {"AWideTextOfTooManyOctets",
          [](cdr_writer& out) {
              put_simple(out, CORBA::tk_wstring);
              out.number<uint32_t>(0);
              out.number<uint32_t>(0xfffffffe);
          }},
         {"AWideCharacterOfTooManyOctets",
          [](cdr_writer& out) {
              put_simple(out, CORBA::tk_wchar);
              out.octet(255);
              out.raw(giop::octets(255));
          }},
         {"ASequenceOf4GLongs",
          [](cdr_writer& out) {
              put_sequence_type(out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_long); });
              out.number<uint32_t>(0xffffffff);
          }},
         {"ASequenceOf1GLongs", // so many octets are none, in 32 bits
          [](cdr_writer& out) {
              put_sequence_type(out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_long); });
              out.number<uint32_t>(0x40000000);
          }},
         {"ASequenceOf4GNothings",
          [](cdr_writer& out) {
              put_sequence_type(out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_null); });
              out.number<uint32_t>(0xffffffff);
          }},
         {"ASequenceOf4GEmptyStructures",
          [](cdr_writer& out) {
              put_sequence_type(
                  out, [](cdr_writer& inner) { put_counted_members(inner, CORBA::tk_struct, 0); });
              out.number<uint32_t>(0xffffffff);
          }},
         {"ASequenceBeyondItsBound",
          [](cdr_writer& out) {
              put_sequence_type(
                  out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_octet); }, 2);
              out.counted({1, 2, 3});
          }},
         {"AThousandAnysInEachOther",
          [](cdr_writer& out) {
              for (int i = 0; i < 1000; ++i) {
                  put_simple(out, CORBA::tk_any);
              }
              put_simple(out, CORBA::tk_null);
          }},
         {"AValueThatIsntTheServices",
          [](cdr_writer& out) {
              put_counted_members(out, CORBA::tk_value, 0);
              out.number(giop::VALUE_TAG_WITH_ID);
              out.text("IDL:x:1.0");
          }},
         {"AFixedThatHasNoSign", [](cdr_writer& out) {
              put_simple(out, CORBA::tk_fixed);
              out.number<uint16_t>(3);
              out.number<int16_t>(0);
              out.raw({0x12, 0x34});
          }}});
}

TEST(CheckedAny, TakesTheTypesThatAreLegal) {
    const put legal[] = {
        [](cdr_writer& out) { put_simple(out, CORBA::tk_null); },
        [](cdr_writer& out) {
            put_aliases(out, 20);
            out.number<int32_t>(7);
        },
        [](cdr_writer& out) {
            put_doubling(out, 3);
            for (int32_t i = 0; i < 7; ++i) {
                out.number(i);
            }
        },
        [](cdr_writer& out) { // no octets
            put_counted_members(out, CORBA::tk_struct, 0);
        },
        [](cdr_writer& out) { // two of one union
            put_two(
                out,
                [](cdr_writer& inner) {
                    put_union(
                        inner, [](cdr_writer& type) { put_simple(type, CORBA::tk_longlong); },
                        [](cdr_writer& label) { label.number<int64_t>(-2); });
                },
                [](cdr_writer& inner, int32_t first) {
                    put_indirection(inner, first, static_cast<int32_t>(inner.size()));
                });
            out.number<int64_t>(-2);
            out.number<int32_t>(7);
            out.number<int64_t>(3);
        },
        [](cdr_writer& out) { // chosen by true, whatever that is to the sender
            put_union(
                out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_boolean); },
                [](cdr_writer& inner) { inner.octet(2); });
            out.octet(3);
            out.number<int32_t>(7);
        },
        [](cdr_writer& out) {
            put_union(
                out, [](cdr_writer& inner) { put_simple(inner, CORBA::tk_char); },
                [](cdr_writer& inner) { inner.octet('c'); });
            out.octet('c');
            out.number<int32_t>(7);
        },
        [](cdr_writer& out) {
            put_pair_type(out);
            out.number(giop::VALUE_TAG_WITH_ID);
            out.text(PAIR);
            pair.put_state(out);
        },
        [](cdr_writer& out) { // a base that is an alias, which the ORB doesn't survive
            put_value_type(
                out, PAIR, [](cdr_writer& inner) { put_alias(inner, put_no_base); },
                [](cdr_writer& inner) {
                    put_members(inner, {CORBA::tk_string, CORBA::tk_string});
                });
            out.number<uint32_t>(0);
        },
        [](cdr_writer& out) { // the same by an indirection
            put_two(
                out, [](cdr_writer& inner) { put_alias(inner, put_no_base); },
                [](cdr_writer& inner, int32_t first) {
                    const auto start = static_cast<int32_t>(inner.size());
                    put_type(inner, CORBA::tk_value, [&](cdr_writer& value) {
                        value.text(PAIR);
                        value.text("x");
                        value.number<int16_t>(0);
                        value.align(4);
                        put_indirection(value, first,
                                        start + 8 + static_cast<int32_t>(value.size()));
                        put_members(value, {CORBA::tk_string, CORBA::tk_string});
                    });
                });
            out.number<uint32_t>(0);
        },
        [](cdr_writer& out) { // a value, and again the type of its members
            put_two(out, put_pair_type, [](cdr_writer& inner, int32_t first) {
                cdr_writer head = cdr_writer::encapsulation(inner.little_endian());
                head.text(PAIR);
                head.text("x");
                head.number<int16_t>(0);
                put_no_base(head);
                head.number<uint32_t>(2);
                head.text("m");
                head.align(4);
                put_indirection(inner, first + 8 + static_cast<int32_t>(head.size()),
                                static_cast<int32_t>(inner.size()));
            });
            out.number<uint32_t>(0);
            out.text("again");
        },
        [](cdr_writer& out) {
            put_simple(out, CORBA::tk_fixed);
            out.number<uint16_t>(3);
            out.number<int16_t>(1);
            out.raw({0x12, 0x3c});
        },
    };
    int which = 0;
    for (const put& each : legal) {
        for (const bool little_endian : {true, false}) {
            SCOPED_TRACE(which);
            cdr_writer message(little_endian);
            each(message);
            const giop::octets copy = checked(CORBA::_tc_any, message);
            cdrMemoryStream stream(const_cast<unsigned char*>(copy.data()), copy.size());
            CORBA::Any any;
            EXPECT_NO_THROW(any <<= stream);
            EXPECT_EQ(stream.currentInputPtr(), copy.size());
        }
        ++which;
    }
}

TEST(CheckedAny, HoldsAnExceptionAsTheOrbWritesIt) {
    const SL::VLSLOpException sent(1, 2, "host", SL::ErrorRecordSeq());
    CORBA::Any any;
    any <<= sent;
    cdrMemoryStream stream;
    any >>= stream;
    const giop::octets copy = checked(CORBA::_tc_any, octets_of(stream));
    cdrMemoryStream again(const_cast<unsigned char*>(copy.data()), copy.size());
    CORBA::Any received;
    received <<= again;
    const SL::VLSLOpException* exception = nullptr;
    ASSERT_TRUE(received >>= exception);
    EXPECT_EQ(exception->domain, 1);
}

TEST(CheckedTypeCode, OfEachOfOursIsTheSame) {
    for (std::size_t i = 0; i < vlsl_support::known_type_count; ++i) {
        SCOPED_TRACE(vlsl_support::known_types[i].id);
        const CORBA::TypeCode_ptr type = *vlsl_support::known_types[i].type;
        cdrMemoryStream stream;
        CORBA::TypeCode::marshalTypeCode(type, stream);
        giop::octets copy;
        ASSERT_NO_THROW(copy = checked(CORBA::_tc_TypeCode, octets_of(stream)));
        cdrMemoryStream again(copy.data(), copy.size());
        const CORBA::TypeCode_var received = CORBA::TypeCode::unmarshalTypeCode(again);
        EXPECT_TRUE(received->equal(type));
        EXPECT_EQ(again.currentInputPtr(), copy.size());
    }
}

// Tables of each type's parts, which the ORB makes, are as large as all that it names together.
TEST(CheckedTypeCode, CannotBeHeavyInEachOfItsAliases) {
    cdr_writer message;
    put type = [](cdr_writer& out) { put_doubling(out, 13); };
    for (int i = 0; i < 20; ++i) {
        type = [type](cdr_writer& out) { put_alias(out, type); };
    }
    type(message);
    EXPECT_THROW(checked(CORBA::_tc_TypeCode, message), CORBA::MARSHAL);
}
TEST(CheckedTypeCode, CannotBeHeavyTogetherWithOthers) {
    cdr_writer message;
    message.number<uint32_t>(10);
    for (int i = 0; i < 10; ++i) {
        put_sequence_type(message, [](cdr_writer& out) { put_doubling(out, 12); });
        message.number<uint32_t>(0);
    }
    EXPECT_THROW(checked(Orvessa::CSF::_tc_AnySeq, message), CORBA::MARSHAL);
}

// --- the rest ----------------------------------------------------------------------------------

TEST(CheckedText, WithoutAnEndIsRefused) {
    cdr_writer message;
    message.number<uint32_t>(0);
    EXPECT_THROW(checked(CORBA::_tc_string, message), CORBA::MARSHAL);
}

TEST(CheckedBoolean, IsZeroOrOne) {
    for (const unsigned octet : {0U, 1U, 2U, 255U}) {
        cdr_writer message;
        message.octet(octet);
        EXPECT_EQ(checked(CORBA::_tc_boolean, message), giop::octets{octet != 0});
    }
}

TEST(CheckedEnumeration, BeyondItsLastIsRefused) {
    for (const uint32_t value : {2U, 0x80000000U, 0xffffffffU}) {
        cdr_writer message;
        message.number<uint32_t>(1000 + value);
        EXPECT_THROW(checked(ApplianceMgmt::_tc_APP_TYPE, message), CORBA::MARSHAL);
    }
}

TEST(CheckedReference, IsRefusedWithAProfileThatLies) {
    const auto with_profile = [](const put& profile) {
        return [profile](cdr_writer& out) {
            out.text("IDL:x:1.0");
            out.number<uint32_t>(1);
            out.number(giop::TAG_INTERNET_IOP);
            put_parameters(out, profile);
        };
    };
    const auto start = [](cdr_writer& out, unsigned major = 1) {
        out.octet(major);
        out.octet(2);
        out.text("127.0.0.1");
        out.number<uint16_t>(1);
    };
    expect_refused(CORBA::_tc_Object, {{"With4GProfiles",
                                        [](cdr_writer& out) {
                                            out.text("IDL:x:1.0");
                                            out.number<uint32_t>(0xffffffff);
                                        }},
                                       {"WithAProfileOf4GB",
                                        [](cdr_writer& out) {
                                            out.text("IDL:x:1.0");
                                            out.number<uint32_t>(1);
                                            out.number(giop::TAG_INTERNET_IOP);
                                            out.number<uint32_t>(0xffffffff);
                                        }},
                                       {"WithAnEmptyProfile",
                                        [](cdr_writer& out) {
                                            out.text("IDL:x:1.0");
                                            out.number<uint32_t>(1);
                                            out.number(giop::TAG_INTERNET_IOP);
                                            out.number<uint32_t>(0);
                                        }},
                                       {"OfAnotherVersion", with_profile([start](cdr_writer& out) {
                                            start(out, 2);
                                            out.counted({1});
                                            out.number<uint32_t>(0);
                                        })},
                                       {"WithAKeyOf4GB", with_profile([start](cdr_writer& out) {
                                            start(out);
                                            out.number<uint32_t>(0xffffffff);
                                        })},
                                       {"With4GComponents", with_profile([start](cdr_writer& out) {
                                            start(out);
                                            out.counted({1});
                                            out.number<uint32_t>(0xffffffff);
                                        })},
                                       {"With1GCodeSets", with_profile([start](cdr_writer& out) {
                                            start(out);
                                            out.counted({1});
                                            out.number<uint32_t>(1);
                                            out.number<uint32_t>(1); // code sets
                                            put_parameters(out, [](cdr_writer& inner) {
                                                inner.number<uint32_t>(0x00010001);
                                                inner.number<uint32_t>(0x40000000);
                                            });
                                        })}});
}

// --- as a stub's peer has it -------------------------------------------------------------------

TEST(LyingReply, WithMoreElementsThanOctetsIsRefusedBeforeTheyAreMade) {
    for (const uint32_t count : {2U, 0x10000000U, 0x40000000U, 0xffffffffU}) {
        SCOPED_TRACE(count);
        recorder peer;
        cdr_writer body;
        body.number(count);
        body.number<uint32_t>(0);
        peer.answer_with(giop::reply_status::no_exception, body);
        const CORBA::Object_var object = peer.object("facet");
        const CloudMgmt::CloudQueryFacet_var facet =
            CloudMgmt::CloudQueryFacet::_unchecked_narrow(object);
        EXPECT_THROW(CloudMgmt::SRKeyValuePairSeq_var(facet->getAllSupportedRegions("a", "b")),
                     CORBA::MARSHAL);
    }
}

TEST(LyingReply, WithAnExceptionOfMoreRecordsThanOctetsIsRefused) {
    for (const uint32_t count : {1U, 0x08000000U, 0xffffffffU}) {
        SCOPED_TRACE(count);
        recorder peer;
        cdr_writer body;
        body.text("IDL:Corvane/Vaultaro/SL/VLSLOpException:1.0");
        body.number<int32_t>(1);
        body.number<int32_t>(2);
        body.text("host");
        body.number(count);
        peer.answer_with(giop::reply_status::user_exception, body);
        const CORBA::Object_var object = peer.object("facet");
        const CloudMgmt::CloudQueryFacet_var facet =
            CloudMgmt::CloudQueryFacet::_unchecked_narrow(object);
        CORBA::String_var text;
        EXPECT_THROW(facet->check_connections("a", "b", 1, text.out()), CORBA::MARSHAL);
    }
}

TEST(LyingReply, WithAHostileValueIsRefused) {
    for (const giop::odd_value& value : giop::hostile_values(pair)) {
        SCOPED_TRACE(value.name);
        recorder peer;
        cdr_writer body;
        body.number<uint32_t>(1);
        value.put(body);
        peer.answer_with(giop::reply_status::no_exception, body);
        const CORBA::Object_var object = peer.object("facet");
        const CloudMgmt::CloudQueryFacet_var facet =
            CloudMgmt::CloudQueryFacet::_unchecked_narrow(object);
        EXPECT_THROW(CloudMgmt::SRKeyValuePairSeq_var(facet->getAllSupportedRegions("a", "b")),
                     CORBA::MARSHAL);
    }
}
