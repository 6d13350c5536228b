// What the ORB unmarshals in place of a message.
//
// The ORB trusts what it reads: a value whose id has no length, a list of no ids, a chunk that ends
// in the wrong place or a type code that holds itself end the process or cost memory without end.
// So it is never given what a peer sent. The stubs copy the arguments, the results or the exception
// first, by their types: whatever isn't as the interface says is refused, and the copy holds the
// rest in the plainest form that there is. Values are unchunked, each with its own id written out;
// booleans are 0 or 1; a string ends with its zero; a type code is written anew, and a value's in it is
// the one that the stubs have.
//
// Legal and taken: chunked values, lists of ids (the first counts, since no value of the service
// may be truncated), indirections to what was read whole before, a code base's address (dropped).
// Refused with CORBA::MARSHAL beside what is malformed: values that hold themselves, since their
// references would never come to an end; ids that aren't the service's own; types that hold
// themselves, other than the service's values; what is nested deeper, or has more of `any`s, types and
// values, than any legal message.
#pragma once

#include <cstddef>
#include <omniORB4/CORBA.h>

namespace vlsl_support {

class CheckedCopy : public cdrMemoryStream {
  public:
    /// Reads values of these types from a message. Throws CORBA::MARSHAL.
    template <std::size_t count>
    CheckedCopy(cdrStream& message, const CORBA::TypeCode_ptr* const (&types)[count])
        : CheckedCopy(message, types, count) {}
    /// Reads the members of the user exception of this id, which is one of the service's.
    CheckedCopy(cdrStream& message, const char* exception);

    /// That of the message.
    _CORBA_ULong completion() override { return completed_; }

  private:
    CheckedCopy(cdrStream& message, const CORBA::TypeCode_ptr* const* types, std::size_t count);
    explicit CheckedCopy(cdrStream& message);

    const _CORBA_ULong completed_;
};

} // namespace vlsl_support
