// What the wire carries of the interface, told by tables that are made from its definition and
// written and read by this code alone: the peer that the stubs are held against.
//
// A `sampler` deals a row of values from a seed. The model writes them as CDR and tells them as
// text; generated code (calls.h) puts the same row into the stubs' types, and tells as the same
// text what it finds in those. So a value that the stubs write or read wrongly shows in the octets
// or in the text.
#pragma once

#include "tests/support/giop.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace wire {

enum class kind {
    nothing, // void
    boolean,
    octet,
    character,
    wide_character,
    int16,
    uint16,
    int32,
    uint32,
    int64,
    uint64,
    float32,
    float64,
    float128,
    text,
    wide_text,
    any,
    enumeration,
    structure, // exceptions too
    choice,    // a union
    sequence,
    value,
    object
};

struct member {
    const char* name;
    int type; // index into types
};

/// One case of a union beside its member.
struct label {
    int32_t discriminator;
};

struct type {
    wire::kind kind;
    const char* id; // repository id, or a name where there's none
    int element;    // of a sequence; a value's base, -1 for none
    unsigned limit; // a sequence's bound, 0 for none; an enumeration's number of enumerators
    const member* members;
    const label* labels; // a union's, one for each member
    int member_count;
    const int* versions; // a value and all that derive from it
    int version_count;
};

struct argument {
    const char* name;
    int type;
    bool out;
};

struct call; // calls.h

struct operation {
    const char* interface; // repository id
    const char* name;      // on the wire
    int result;            // a type
    const argument* arguments;
    int argument_count;
    const int* raises; // exceptions
    int raise_count;
    void (*invoke)(call&);
};

// The tables, which wire_table.py makes.
extern const type types[];
extern const int type_count;
extern const operation operations[];
extern const int operation_count;

/// Deals values; two with the same seed deal the same.
class sampler {
  public:
    /// References that it deals are to this port.
    sampler(uint64_t seed, uint16_t port) : state_(seed * 2654435761u + 1), port_(port) {}
    /// Deals what a default-built value has: zeros, empty texts and sequences, nulls.
    static sampler of_nothing();

    /// A number below `count`, or 0.
    uint32_t choose(uint32_t count);
    uint64_t bits();
    std::string text();
    std::u32string wide_text();
    double real() { return static_cast<int32_t>(bits()) / 16.0; }
    /// How many elements a sequence has.
    uint32_t length(uint32_t bound);
    /// The type of a value that is to be of `type`; -1 for null.
    int version(const type& type);
    giop::reference reference(const char* type_id);

    /// Values within a value; beyond some of them there are no more.
    class nested {
      public:
        explicit nested(sampler& sampler) : sampler_(sampler) { ++sampler_.depth_; }
        ~nested() { --sampler_.depth_; }
        nested(const nested&) = delete;
        nested& operator=(const nested&) = delete;

      private:
        sampler& sampler_;
    };

  private:
    uint64_t state_;
    uint16_t port_;
    int depth_ = 0;
    bool nothing_ = false;
};

/// Tells values as text, one line each.
class teller {
  public:
    const std::string& text() const { return text_; }

    void name(const std::string& name) { text_ += name + ": "; }
    void line(const std::string& value) { text_ += value + "\n"; }
    void number(int64_t value) { line(std::to_string(value)); }
    void number(uint64_t value) { line(std::to_string(value)); }
    void real(long double value) { line(std::to_string(value)); }
    void string(const std::string& value);
    void wide_string(const std::u32string& value);

  private:
    std::string text_;
};

/// Writes and tells one row of values.
class writer {
  public:
    writer(sampler& values, giop::cdr_writer& out) : values_(values), out_(out) {}

    void put(int type);
    /// A value of just that type.
    void put_value(int type);
    /// The members of a value, its ancestors' first.
    void put_state(const type& type);
    /// Its id, then its members.
    void put_exception(int type);
    /// Arguments of a request, or the result and the arguments of a reply.
    void put_request(const operation& operation);
    void put_reply(const operation& operation);

    const std::string& told() const { return told_.text(); }

  private:
    void put_members(const type& type);
    void put_id(const std::string& id);
    void put_union(const type& type);
    void put_any();
    void put_float128(double value);

    sampler& values_;
    giop::cdr_writer& out_;
    teller told_;
    std::map<std::string, std::size_t> ids_; // where each repository id was first written
};

std::u16string utf16(const std::u32string& text);
/// The index of the type with this repository id; throws std::out_of_range.
int type_of(const std::string& id);
/// The index of the first value of the chain that a value is in.
int first_of_chain(int type);

} // namespace wire
