// The stubs' side of model.h: what wire_table.py makes of the interface's definition in the stubs'
// own types. Each table below has one row for each declaration of its kind.
#pragma once

#include "tests/wire/model.h"

#include <vector>
#include <vlsl.hh>

namespace wire {

/// One invocation by a stub: what `invoke` of an operation takes and gives.
struct call {
    CORBA::Object_ptr object;
    sampler arguments;
    teller told; // the result and the out arguments, or the exception
};

struct value_class {
    int type;
    CORBA::ValueBase* (*make)(); // with the default constructor
    CORBA::ValueFactoryBase* (*factory)();
    void (*fill)(sampler&, CORBA::ValueBase*);
    void (*tell)(teller&, CORBA::ValueBase*);
    void (*write)(CORBA::ValueBase*, cdrStream&); // where just this type is declared
    CORBA::ValueBase* (*read)(cdrStream&);
};
extern const value_class value_classes[];
extern const int value_class_count;

/// A sequence of values of one declared type.
struct value_sequence {
    int element;
    void (*write)(const std::vector<CORBA::ValueBase*>&, cdrStream&); // adds references
    std::vector<CORBA::ValueBase*> (*read)(cdrStream&);               // gives references
};
extern const value_sequence value_sequences[];
extern const int value_sequence_count;

/// A structure, exception, union or sequence.
struct plain_class {
    int type;
    void (*write)(sampler&, cdrStream&);
    void (*read)(teller&, cdrStream&);
};
extern const plain_class plain_classes[];
extern const int plain_class_count;

struct interface_class {
    const char* id;
    const char* const* ancestors; // ids, its own and CORBA::Object's among them
    int ancestor_count;
    bool (*is_a)(CORBA::Object_ptr, const char* id); // through the interface's own reference
};
extern const interface_class interface_classes[];
extern const int interface_class_count;

const value_class& class_of(const char* id);

/// A value that its holder owns one reference of.
using owned_value = CORBA::ValueBase_var;

/// What was written to a stream.
giop::octets written(cdrMemoryStream& stream);

/// The ORB, with the options that the interface needs; started by the first call, and every value's
/// factory registered.
CORBA::ORB_ptr orb();

// --- what the made code calls ------------------------------------------------------------------

inline void sample(sampler& s, CORBA::Boolean& x) { x = s.choose(2) != 0; }
// CORBA::Char is CORBA::Octet's type here.
inline void sample(sampler& s, CORBA::Octet& x) { x = static_cast<CORBA::Octet>(s.bits()); }
inline void sample(sampler& s, CORBA::WChar& x) {
    x = static_cast<CORBA::WChar>(1 + s.choose(0xd7ff));
}
inline void sample(sampler& s, CORBA::Short& x) { x = static_cast<CORBA::Short>(s.bits()); }
inline void sample(sampler& s, CORBA::UShort& x) { x = static_cast<CORBA::UShort>(s.bits()); }
inline void sample(sampler& s, CORBA::Long& x) { x = static_cast<CORBA::Long>(s.bits()); }
inline void sample(sampler& s, CORBA::ULong& x) { x = static_cast<CORBA::ULong>(s.bits()); }
inline void sample(sampler& s, CORBA::LongLong& x) { x = static_cast<CORBA::LongLong>(s.bits()); }
inline void sample(sampler& s, CORBA::ULongLong& x) { x = s.bits(); }
inline void sample(sampler& s, CORBA::Float& x) {
    x = static_cast<CORBA::Float>(static_cast<CORBA::Short>(s.bits())) / 16;
}
inline void sample(sampler& s, CORBA::Double& x) { x = s.real(); }
inline void sample(sampler& s, CORBA::LongDouble& x) { x = s.real(); }
void sample(sampler& s, CORBA::Any& x);
char* sampled_text(sampler& s);
CORBA::WChar* sampled_wide_text(sampler& s);
CORBA::ValueBase* sampled_value(sampler& s, int type);
CORBA::Object_ptr sampled_object(sampler& s, const char* id);

inline void tell(teller& t, CORBA::Boolean x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::Octet x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::WChar x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::Short x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::UShort x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::Long x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::ULong x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::LongLong x) { t.number(int64_t{x}); }
inline void tell(teller& t, CORBA::ULongLong x) { t.number(uint64_t{x}); }
inline void tell(teller& t, CORBA::Float x) { t.real(x); }
inline void tell(teller& t, CORBA::Double x) { t.real(x); }
inline void tell(teller& t, CORBA::LongDouble x) { t.real(x); }
void tell(teller& t, const CORBA::Any& x);
void tell_text(teller& t, const char* x);
void tell_text(teller& t, const CORBA::WChar* x);
void tell_value(teller& t, CORBA::ValueBase* x);
void tell_object(teller& t, CORBA::Object_ptr x);

template <typename Sequence, typename Element>
void write_values(const std::vector<CORBA::ValueBase*>& values, cdrStream& out) {
    Sequence sequence;
    sequence.length(static_cast<CORBA::ULong>(values.size()));
    for (CORBA::ULong i = 0; i < sequence.length(); ++i) {
        CORBA::add_ref(values[i]);
        sequence[i] = Element::_downcast(values[i]);
    }
    static_cast<const Sequence&>(sequence) >>= out;
}

template <typename Sequence>
std::vector<CORBA::ValueBase*> read_values(cdrStream& in) {
    Sequence sequence;
    sequence <<= in;
    std::vector<CORBA::ValueBase*> values;
    for (CORBA::ULong i = 0; i < sequence.length(); ++i) {
        values.push_back(sequence[i].in());
        CORBA::add_ref(values.back());
    }
    return values;
}

} // namespace wire
