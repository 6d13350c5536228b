// What a type's values look like on the wire, as a type code tells it: a type code of our own
// stubs, which is known to be good, or one that a peer sent in an `any`, which isn't until it is
// read here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <omniORB4/CORBA.h>
#include <string>
#include <vector>

namespace vlsl_support {

using Octets = std::vector<unsigned char>;

/// What was received isn't what CDR or the interface says: CORBA::MARSHAL.
[[noreturn]] void refuse(CORBA::ULong completed);

/// Reads CDR that is in memory, from `begin` to `end`; whatever isn't there is refused.
class Cursor {
  public:
    /// Numbers are aligned from `begin`, and in the other byte order than this machine's when
    /// `swapped`.
    Cursor(const Octets& bytes, std::size_t begin, std::size_t end, bool swapped,
           CORBA::ULong completed)
        : bytes_(bytes), begin_(begin), end_(end), at_(begin), swapped_(swapped),
          completed_(completed) {}

    std::size_t at() const { return at_; } ///< from the start of all the bytes
    std::size_t left() const { return end_ - at_; }
    void align(std::size_t boundary);
    unsigned char octet() { return bytes_[take(1)]; }
    /// An integer, aligned to its size.
    template <typename Number>
    Number number();
    std::string text();
    void skip(std::size_t count) { take(count); }
    /// What a sequence of octets holds, its first octet being the byte order of the rest.
    Cursor encapsulation();
    [[noreturn]] void bad() const { refuse(completed_); }

  private:
    std::size_t take(std::size_t count);

    const Octets& bytes_;
    std::size_t begin_;
    std::size_t end_;
    std::size_t at_;
    bool swapped_;
    CORBA::ULong completed_;
};

struct Shape {
    CORBA::TCKind kind = CORBA::tk_null;
    /// The longest string or sequence (0 for any length), an array's length, an enumeration's
    /// members, or a fixed's digits.
    CORBA::ULong count = 0;
    std::string id;                         ///< a value's
    const Shape* content = nullptr;         ///< elements, a union's discriminator, a value's base
    std::vector<const Shape*> members = {}; ///< of a structure, union, exception or value
    std::vector<std::int64_t> labels = {};  ///< a union's, one for each member
    CORBA::Long default_member = -1;        ///< a union's, none below 0
    bool is_empty = true;                   ///< a value of it is no octet at all
    std::size_t weight =
        1; ///< types in it, each as often as it is named, an array's for each element
};

/// Owns shapes, which stay where they are.
class Shapes {
  public:
    /// The shape of a type that a peer sent. Its code is in CDR, its kind and the number behind that in
    /// this machine's byte order; `canonical` gets what the ORB may read of it. The types that were
    /// read so far may weigh `heaviest` together.
    const Shape* read(const Octets& type_code, std::size_t heaviest, CORBA::ULong completed,
                      Octets& canonical);
    /// The shape of a type of ours.
    const Shape* of(CORBA::TypeCode_ptr type);

  private:
    friend class TypeCodeReader;
    std::deque<Shape> all_;
    std::size_t weight_ = 0;
};

/// A value or an exception, by its repository id.
struct KnownType {
    const char* id;
    const CORBA::TypeCode_ptr* type;
};
/// All of ours; made with the stubs.
extern const KnownType known_types[];
extern const std::size_t known_type_count;

/// A call that any interface has: its descriptor, and the types of its arguments and results. There
/// is a table of them, and one of all values' factories, where the stubs are made with VLSL_CALLS.
struct Call {
    omniCallDescriptor* (*make)();
    std::vector<const CORBA::TypeCode_ptr*> arguments;
    std::vector<const CORBA::TypeCode_ptr*> results;
};
extern const Call calls[];
extern const std::size_t call_count;
struct Factory {
    const char* id;
    CORBA::ValueFactoryBase* (*make)();
};
extern const Factory factories[];
extern const std::size_t factory_count;

/// Null when the id is none of ours.
const CORBA::TypeCode_ptr* known_type(const std::string& id);
/// Null when the id is none of ours. Like shape_of, it reads a type code once and keeps its shape.
const Shape* known_shape(const std::string& id);
const Shape* shape_of(const CORBA::TypeCode_ptr& type);

} // namespace vlsl_support
