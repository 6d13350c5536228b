// What any peer may send for any call of any interface: arguments, results and user exceptions,
// each read as the stubs read them. An input is which call, what of it and in which byte order, and
// then the octets of the message. What isn't accepted ends with a system exception, and whatever it
// is costs no more memory than its octets account for.
//
// Some inputs are made anew from the types of a call, since few octets are a value by chance.

#include "fuzz/support.h"
#include "interfaces/type_shape.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <omniORB4/callDescriptor.h>
#include <random>
#include <sanitizer/allocator_interface.h>
#include <vlsl.hh>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t room);

namespace {

using vlsl_support::Call;
using vlsl_support::Shape;

enum part : uint8_t { arguments, results, exception, parts };
constexpr uint8_t swapped_flag = 4;
constexpr uint8_t part_mask = 3;

/// The head of an input; the message follows.
struct head {
    uint16_t call;
    uint8_t flags;
    uint8_t exception;

    const Call& what() const { return vlsl_support::calls[call % vlsl_support::call_count]; }
    part of_it() const { return static_cast<part>((flags & part_mask) % parts); }
};
static_assert(sizeof(head) == 4, "it has no gaps");

// --- the process -------------------------------------------------------------------------------

/// A factory for each value, so that every one is read.
void register_factories(CORBA::ORB_ptr orb) {
    for (size_t i = 0; i < vlsl_support::factory_count; ++i) {
        CORBA::ValueFactoryBase* const factory = vlsl_support::factories[i].make();
        const CORBA::ValueFactoryBase_var earlier =
            orb->register_value_factory(vlsl_support::factories[i].id, factory);
        factory->_remove_ref();
    }
}

/// Memory that is in use since the last mark, and the most of it.
std::atomic<int64_t> in_use{0};
std::atomic<int64_t> most_in_use{0};

void on_malloc(const volatile void* /*block*/, size_t size) {
    const int64_t now = in_use += static_cast<int64_t>(size);
    most_in_use = std::max<int64_t>(most_in_use, now);
}
void on_free(const volatile void* block) {
    if (block != nullptr) {
        in_use -=
            static_cast<int64_t>(__sanitizer_get_allocated_size(const_cast<const void*>(block)));
    }
}

// --- reading -----------------------------------------------------------------------------------

/// Any exception, also one that a call doesn't raise.
const char* exception_of(uint8_t which) {
    static const std::vector<const char*> ids = [] {
        std::vector<const char*> all;
        for (size_t i = 0; i < vlsl_support::known_type_count; ++i) {
            if ((*vlsl_support::known_types[i].type)->kind() == CORBA::tk_except) {
                all.push_back(vlsl_support::known_types[i].id);
            }
        }
        return all;
    }();
    return ids[which % ids.size()];
}

void read(const head& chosen, cdrMemoryStream& message) {
    const std::unique_ptr<omniCallDescriptor> call(chosen.what().make());
    switch (chosen.of_it()) {
    case arguments:
        call->unmarshalArguments(message);
        break;
    case results:
        call->unmarshalReturnedValues(message);
        break;
    default:
        try {
            call->userException(message, nullptr, exception_of(chosen.exception));
        } catch (const CORBA::UserException&) {
            // It is whole.
        }
    }
}

// --- making ------------------------------------------------------------------------------------

/// Makes values of a type, most of them short and shallow.
class maker {
  public:
    maker(unsigned seed, cdrStream& to) : random_(seed), to_(to) {}

    void make(const Shape& shape) {
        ++depth_;
        switch (static_cast<int>(shape.kind)) {
        case CORBA::tk_boolean:
            to_.marshalBoolean(random_() % 2 != 0);
            break;
        case CORBA::tk_octet:
        case CORBA::tk_char:
            to_.marshalOctet(static_cast<CORBA::Octet>(random_()));
            break;
        case CORBA::tk_short:
        case CORBA::tk_ushort:
            static_cast<CORBA::UShort>(random_()) >>= to_;
            break;
        case CORBA::tk_long:
        case CORBA::tk_ulong:
        case CORBA::tk_float:
            static_cast<CORBA::ULong>(random_() % 4) >>= to_;
            break;
        case CORBA::tk_longlong:
        case CORBA::tk_ulonglong:
        case CORBA::tk_double:
            CORBA::ULongLong{random_()} >>= to_;
            break;
        case CORBA::tk_longdouble:
            CORBA::ULongLong{random_()} >>= to_;
            CORBA::ULongLong{random_()} >>= to_;
            break;
        case CORBA::tk_enum:
            static_cast<CORBA::ULong>(random_() % shape.count) >>= to_;
            break;
        case CORBA::tk_string:
            to_.marshalRawString(random_() % 2 != 0 ? "" : "text");
            break;
        case CORBA::tk_wstring:
            to_.marshalWString(random_() % 2 != 0 ? L"" : L"w\xe4");
            break;
        case CORBA::tk_wchar:
            to_.marshalWChar(L'w');
            break;
        case CORBA::tk_any: {
            if (random_() % 2 != 0) {
                made_any();
                break;
            }
            const CORBA::TypeCode_ptr& type = some_type();
            CORBA::TypeCode::marshalTypeCode(type, to_);
            make(*vlsl_support::shape_of(type));
            break;
        }
        case CORBA::tk_TypeCode:
            CORBA::TypeCode::marshalTypeCode(some_type(), to_);
            break;
        case CORBA::tk_objref:
            to_.marshalRawString("");
            CORBA::ULong{0} >>= to_;
            break;
        case CORBA::tk_except:
        case CORBA::tk_struct:
            members(shape);
            break;
        case CORBA::tk_union: {
            const CORBA::ULong chosen = random_() % 4;
            chosen >>= to_; // all have a long
            if (chosen < shape.members.size()) {
                make(*shape.members[chosen]);
            }
            break;
        }
        case CORBA::tk_sequence:
            sequence(shape);
            break;
        case CORBA::tk_array:
            for (CORBA::ULong i = 0; i < shape.count; ++i) {
                make(*shape.content);
            }
            break;
        case CORBA::tk_value:
            value(shape);
            break;
        default:
            break;
        }
        --depth_;
    }

    void members(const Shape& shape) {
        for (const Shape* member : shape.members) {
            make(*member);
        }
    }

  private:
    static constexpr int deepest = 12;

    const CORBA::TypeCode_ptr& some_type() {
        if (depth_ > deepest || random_() % 2 != 0) {
            return random_() % 2 != 0 ? CORBA::_tc_string : CORBA::_tc_long;
        }
        return *vlsl_support::known_types[random_() % vlsl_support::known_type_count].type;
    }
    /// An `any` of a type that is none of ours.
    void made_any() {
        cdrMemoryStream code;
        type(code, depth_);
        const auto* const start = static_cast<const uint8_t*>(code.bufPtr());
        const vlsl_support::Octets octets(start, start + code.bufSize());
        to_.put_octet_array(start, static_cast<int>(octets.size()), omni::ALIGN_4);
        constexpr size_t heaviest = 1000;
        vlsl_support::Octets canonical;
        try {
            make(*types_.read(octets, heaviest, 0, canonical));
        } catch (const CORBA::SystemException&) {
            // It is no type.
        }
    }
    void type(cdrStream& to, int depth) {
        static const CORBA::TCKind kinds[] = {
            CORBA::tk_long,  CORBA::tk_boolean,  CORBA::tk_double, CORBA::tk_any,
            CORBA::tk_null,  CORBA::tk_TypeCode, CORBA::tk_string, CORBA::tk_struct,
            CORBA::tk_union, CORBA::tk_sequence, CORBA::tk_array,  CORBA::tk_alias,
            CORBA::tk_enum,  CORBA::tk_except,   CORBA::tk_value,  CORBA::tk_objref};
        if (random_() % 8 == 0) {
            CORBA::TypeCode::marshalTypeCode(some_type(), to);
            return;
        }
        if (depth > 0 && random_() % 8 == 0) {
            CORBA::ULong{UINT32_MAX} >>= to; // an indirection
            static_cast<CORBA::Long>(-4 - 4 * static_cast<int>(random_() % 32)) >>= to;
            return;
        }
        const CORBA::TCKind kind =
            depth > deepest ? CORBA::tk_long : kinds[random_() % std::size(kinds)];
        static_cast<CORBA::ULong>(kind) >>= to;
        if (kind == CORBA::tk_string) {
            CORBA::ULong{0} >>= to;
        }
        if (kind < CORBA::tk_objref || kind == CORBA::tk_string) {
            return;
        }
        cdrEncapsulationStream inner;
        parameters(kind, inner, depth + 1);
        const auto size = static_cast<CORBA::ULong>(inner.bufSize());
        size >>= to;
        to.put_octet_array(static_cast<const uint8_t*>(inner.bufPtr()), static_cast<int>(size));
    }
    void parameters(CORBA::TCKind kind, cdrStream& to, int depth) {
        if (kind == CORBA::tk_sequence || kind == CORBA::tk_array) {
            type(to, depth);
            static_cast<CORBA::ULong>(1 + random_() % 3) >>= to;
            return;
        }
        to.marshalRawString("IDL:x:1.0");
        to.marshalRawString("x");
        if (kind == CORBA::tk_alias) {
            type(to, depth);
        }
        if (kind == CORBA::tk_alias || kind == CORBA::tk_objref) {
            return;
        }
        if (kind == CORBA::tk_union) {
            static_cast<CORBA::ULong>(CORBA::tk_long) >>= to;
            static_cast<CORBA::Long>(random_() % 2) >>= to; // the default
        }
        if (kind == CORBA::tk_value) {
            CORBA::UShort{0} >>= to;
            type(to, depth); // its base
        }
        const CORBA::ULong members = random_() % 4;
        members >>= to;
        for (CORBA::ULong i = 0; i < members; ++i) {
            if (kind == CORBA::tk_union) {
                i >>= to;
            }
            to.marshalRawString("m");
            if (kind != CORBA::tk_enum) {
                type(to, depth);
            }
            if (kind == CORBA::tk_value) {
                CORBA::UShort{0} >>= to;
            }
        }
    }
    void sequence(const Shape& shape) {
        CORBA::ULong count = depth_ > deepest ? 0 : random_() % 4;
        if (shape.count != 0) {
            count = std::min(count, shape.count);
        }
        count >>= to_;
        for (CORBA::ULong i = 0; i < count; ++i) {
            make(*shape.content);
        }
    }
    void state(const Shape& shape) {
        if (shape.content != nullptr) {
            state(*shape.content);
        }
        members(shape);
    }
    /// Null, or unchunked with its id or a list of that alone.
    void value(const Shape& formal) {
        if (depth_ > deepest || random_() % 8 == 0) {
            CORBA::ULong{0} >>= to_;
            return;
        }
        const Shape* const known = vlsl_support::known_shape(formal.id);
        const Shape& shape = known != nullptr ? *known : formal;
        const bool has_list = random_() % 8 == 0;
        (has_list ? 0x7fffff06U : 0x7fffff02U) >>= to_;
        if (has_list) {
            CORBA::ULong{1} >>= to_;
        }
        to_.marshalRawString(shape.id.c_str());
        state(shape);
    }

    std::minstd_rand random_;
    vlsl_support::Shapes types_;
    cdrStream& to_;
    int depth_ = 0;
};

size_t made(const head& chosen, unsigned seed, uint8_t* data, size_t room) {
    cdrMemoryStream message;
    message.TCS_W(omni::omniCodeSet::getTCS_W(omni::omniCodeSet::ID_UTF_16, {1, 2}));
    maker of_types(seed, message);
    if (chosen.of_it() == exception) {
        of_types.members(*vlsl_support::known_shape(exception_of(chosen.exception)));
    } else {
        for (const CORBA::TypeCode_ptr* type :
             chosen.of_it() == arguments ? chosen.what().arguments : chosen.what().results) {
            of_types.make(*vlsl_support::shape_of(*type));
        }
    }
    const size_t size = std::min<size_t>(message.bufSize(), room);
    memcpy(data, message.bufPtr(), size);
    return size;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    int count = 0;
    register_factories(CORBA::ORB_init(count, nullptr));
    omniORB::traceLevel = 0; // else it tells of each message
    __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free);
    return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t room, unsigned seed) {
    head chosen = {};
    if (size < sizeof chosen || room <= sizeof chosen) {
        return LLVMFuzzerMutate(data, size, room);
    }
    memcpy(&chosen, data, sizeof chosen);
    std::minstd_rand random(seed);
    random();
    if (random() % 8 == 0) {
        chosen.call = static_cast<uint16_t>(random() % vlsl_support::call_count);
        chosen.flags = static_cast<uint8_t>(random() % parts);
        chosen.exception = static_cast<uint8_t>(random());
        memcpy(data, &chosen, sizeof chosen);
        size = sizeof chosen + made(chosen, seed, data + sizeof chosen, room - sizeof chosen);
        if (random() % 2 == 0) {
            return size;
        }
    }
    return sizeof chosen +
           LLVMFuzzerMutate(data + sizeof chosen, size - sizeof chosen, room - sizeof chosen);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int64_t most_for_an_octet = 256;
    constexpr int64_t most_for_anything = 1 << 20;
    head chosen = {};
    if (size < sizeof chosen) {
        return 0;
    }
    memcpy(&chosen, data, sizeof chosen);
    std::vector<uint64_t> octets(size / 8 + 1); // aligned as a message is
    memcpy(octets.data(), data + sizeof chosen, size - sizeof chosen);
    cdrMemoryStream message(octets.data(), size - sizeof chosen);
    message.TCS_W(omni::omniCodeSet::getTCS_W(omni::omniCodeSet::ID_UTF_16, {1, 2}));
    message.setByteSwapFlag((chosen.flags & swapped_flag) == 0);
    in_use = 0;
    most_in_use = 0;
    try {
        read(chosen, message);
    } catch (const CORBA::SystemException&) {
        // Refused.
    }
    require(most_in_use <= most_for_anything + most_for_an_octet * static_cast<int64_t>(size),
            "memory is in proportion to the message");
    return 0;
}
