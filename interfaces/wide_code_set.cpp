#include "interfaces/wide_code_set.h"

#include <cwchar>
#include <memory>
#include <omniORB4/CORBA.h>
#include <vector>

namespace {

using omni::omniCodeSet;
using Unit = omniCodeSet::UniChar;

constexpr uint32_t FIRST_IN_PAIRS = 0x10000;
constexpr uint32_t LAST_CHARACTER = 0x10ffff;
constexpr uint32_t HIGH_SURROGATES = 0xd800;
constexpr uint32_t LOW_SURROGATES = 0xdc00;
constexpr uint32_t SURROGATES_END = 0xe000;
constexpr uint32_t HALF_BITS = 10;
constexpr uint32_t HALF_MASK = (1u << HALF_BITS) - 1;

[[noreturn]] void no_such_character(cdrStream& stream) {
    throw CORBA::DATA_CONVERSION(0, static_cast<CORBA::CompletionStatus>(stream.completion()));
}

bool is_high(uint32_t unit) { return unit >= HIGH_SURROGATES && unit < LOW_SURROGATES; }
bool is_low(uint32_t unit) { return unit >= LOW_SURROGATES && unit < SURROGATES_END; }

/// The wchar_t of a program, for a transmission in whatever the peer understands. A half of a pair
/// that stands alone stays what it is.
class WideCodeSet : public omniCodeSet::NCS_W {
  public:
    WideCodeSet() : NCS_W(omniCodeSet::ID_UTF_16, WIDE_CODE_SET, omniCodeSet::CS_Other) {}

    void marshalWChar(cdrStream& stream, omniCodeSet::TCS_W* wire, CORBA::WChar c) override {
        if (static_cast<uint32_t>(c) >= FIRST_IN_PAIRS) {
            no_such_character(stream); // a wchar is one unit
        }
        wire->marshalWChar(stream, static_cast<Unit>(c));
    }

    CORBA::WChar unmarshalWChar(cdrStream& stream, omniCodeSet::TCS_W* wire) override {
        return wire->unmarshalWChar(stream);
    }

    void marshalWString(cdrStream& stream, omniCodeSet::TCS_W* wire, CORBA::ULong bound,
                        CORBA::ULong length, const CORBA::WChar* text) override {
        // A length of 0 is one that isn't known.
        const std::size_t characters = length != 0 ? length : std::wcslen(text);
        std::vector<Unit> units;
        units.reserve(characters + 1);
        for (std::size_t i = 0; i < characters; ++i) {
            const auto character = static_cast<uint32_t>(text[i]);
            if (character > LAST_CHARACTER) {
                no_such_character(stream);
            }
            if (character >= FIRST_IN_PAIRS) {
                const uint32_t offset = character - FIRST_IN_PAIRS;
                units.push_back(static_cast<Unit>(HIGH_SURROGATES | offset >> HALF_BITS));
                units.push_back(static_cast<Unit>(LOW_SURROGATES | (offset & HALF_MASK)));
            } else {
                units.push_back(static_cast<Unit>(character));
            }
        }
        units.push_back(0);
        wire->marshalWString(stream, bound, static_cast<CORBA::ULong>(units.size() - 1),
                             units.data());
    }

    CORBA::ULong unmarshalWString(cdrStream& stream, omniCodeSet::TCS_W* wire, CORBA::ULong bound,
                                  CORBA::WChar*& text) override {
        Unit* received = nullptr;
        const CORBA::ULong count = wire->unmarshalWString(stream, bound, received);
        const std::unique_ptr<Unit[]> units(received);
        text = CORBA::wstring_alloc(count);
        CORBA::ULong length = 0;
        for (CORBA::ULong i = 0; i < count; ++i) {
            uint32_t character = units[i];
            if (is_high(character) && i + 1 < count && is_low(units[i + 1])) {
                const uint32_t low = units[++i];
                character =
                    FIRST_IN_PAIRS + ((character & HALF_MASK) << HALF_BITS | (low & HALF_MASK));
            }
            text[length++] = static_cast<CORBA::WChar>(character);
        }
        text[length] = 0;
        return length;
    }
};

} // namespace

void register_wide_code_set() {
    // Never destroyed: the ORB keeps a pointer to it until the process ends.
    static WideCodeSet* const code_set = [] {
        auto* made = new WideCodeSet;
        omniCodeSet::registerNCS_W(made);
        return made;
    }();
    static_cast<void>(code_set);
}
