// What the generated stubs of the management service's interface use beside the ORB's own library.
// vlsl.hh includes it; nothing else needs to.
#pragma once

#include <omniORB4/CORBA.h>

#include <cstring>
#include <dlfcn.h>
#include <new>
#include <omniORB4/proxyFactory.h>
#include <optional>

namespace vlsl_support {

[[noreturn]] inline void no_memory() { throw CORBA::NO_MEMORY(0, CORBA::COMPLETED_NO); }

// What a non-throwing new gave, which is CORBA::NO_MEMORY if it gave nothing.
template <class Value>
Value* allocated(Value* value) {
    if (!value) {
        no_memory();
    }
    return value;
}

// Whether a union's member is more than a null pointer.
template <class Member>
bool is_there(const Member&) {
    return true;
}
template <class Member>
bool is_there(Member* const& member) {
    return member != nullptr;
}

// IEEE 754 binary128, the form of a long double on the wire.
#if __LDBL_MANT_DIG__ == 113
typedef long double Binary128;
#else
typedef __float128 Binary128;
#endif

// A sequence of long double whose elements travel as binary128: 16 octets, aligned to 8, in the
// stream's byte order. The ORB's own sequence writes the machine's long double as it lies in
// memory, which on x86 is 10 octets of another format and 6 that were never set.
class LongDoubleSequence : public _CORBA_Unbounded_Sequence<CORBA::LongDouble> {
  public:
    using _CORBA_Unbounded_Sequence<CORBA::LongDouble>::_CORBA_Unbounded_Sequence;
    LongDoubleSequence() {}

    void operator>>=(cdrStream& stream) const {
        length() >>= stream;
        for (CORBA::ULong i = 0; i < length(); i++) {
            const Binary128 wide = (*this)[i];
            CORBA::ULongLong halves[2];
            static_assert(sizeof wide == sizeof halves, "binary128 has 16 octets");
            std::memcpy(halves, &wide, sizeof halves);
            const bool swapped = stream.marshal_byte_swap();
            halves[swapped] >>= stream;
            halves[!swapped] >>= stream;
        }
    }

    void operator<<=(cdrStream& stream) {
        CORBA::ULong count;
        count <<= stream;
        if (!stream.checkInputOverrun(1,
                                      count)) { // before so many are allocated; 16 would overflow
            throw CORBA::MARSHAL(0, (CORBA::CompletionStatus)stream.completion());
        }
        length(count);
        for (CORBA::ULong i = 0; i < count; i++) {
            CORBA::ULongLong halves[2];
            const bool swapped = stream.unmarshal_byte_swap();
            halves[swapped] <<= stream;
            halves[!swapped] <<= stream;
            Binary128 wide;
            std::memcpy(&wide, halves, sizeof wide);
            (*this)[i] = static_cast<CORBA::LongDouble>(wide);
        }
    }
};

// Keeps a library loaded as long as this one is.
class LoadedLibrary {
  public:
    LoadedLibrary() {}
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    ~LoadedLibrary() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }

    // Keeps the one that `place` is in. False when it can't be kept.
    bool keep(const void* place) {
        Dl_info library;
        if (handle_ == nullptr && dladdr(place, &library) != 0) {
            handle_ = dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD);
        }
        return handle_ != nullptr;
    }

  private:
    void* handle_ = nullptr;
};

inline LoadedLibrary& first_library() {
    static LoadedLibrary first;
    return first;
}

// An interface's factory of references. The ORB finds it by the interface's id, in one list for the
// whole process, and two libraries may hold these stubs at once: two copies of a plugin, say. The
// first one's factories serve both, and stay loaded as long as the other needs them, since the
// references that they make run their code.
template <class Factory>
class RegisteredFactory {
  public:
    explicit RegisteredFactory(const char* id) {
        const void* const present = omni::proxyObjectFactory::lookup(id);
        if (present == nullptr || !first_library().keep(present)) {
            own_.emplace();
        }
    }

  private:
    std::optional<Factory> own_;
};

} // namespace vlsl_support
