#include "tests/wire/model.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

namespace wire {

namespace {

constexpr int DEEPEST_VALUE = 3;
constexpr uint32_t LONGEST_SEQUENCE = 2;

// CORBA 3.0.3, 15.3.5.1: the type codes that a sampled any has.
constexpr uint32_t TK_NULL = 0;
constexpr uint32_t TK_LONG = 3;
constexpr uint32_t TK_BOOLEAN = 8;
constexpr uint32_t TK_STRING = 18;

const char* const SAMPLE_TEXTS[] = {"", "a", "storage-1:bucket", "caf\xe9 \xa4", "two words"};
const char32_t* const SAMPLE_WIDE_TEXTS[] = {U"", U"w", U"Gr\u00f6\u00dfe", U"\u6f22\u5b57",
                                             U"disk \U0001f4be, tape \U00010348!"};

template <typename Text, std::size_t count>
Text one_of(const Text (&texts)[count], uint32_t chosen) {
    return texts[chosen];
}

std::string in_quotes(const std::string& text) { return "\"" + text + "\""; }

} // namespace

// --- sampler -----------------------------------------------------------------------------------

sampler sampler::of_nothing() {
    sampler nothing(0, 0);
    nothing.nothing_ = true;
    return nothing;
}

uint64_t sampler::bits() {
    if (nothing_) {
        return 0;
    }
    // Knuth's 64-bit linear congruential generator, its better half twice.
    const auto step = [this] {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return state_ >> 32;
    };
    const uint64_t high = step();
    return high << 32 | step();
}

uint32_t sampler::choose(uint32_t count) {
    return count == 0 ? 0 : static_cast<uint32_t>(bits() % count);
}

std::string sampler::text() { return one_of(SAMPLE_TEXTS, choose(std::size(SAMPLE_TEXTS))); }

std::u32string sampler::wide_text() {
    return one_of(SAMPLE_WIDE_TEXTS, choose(std::size(SAMPLE_WIDE_TEXTS)));
}

uint32_t sampler::length(uint32_t bound) {
    if (depth_ >= DEEPEST_VALUE) {
        return 0;
    }
    return choose(1 + (bound != 0 ? bound : LONGEST_SEQUENCE));
}

int sampler::version(const type& type) {
    if (depth_ >= DEEPEST_VALUE) {
        return -1;
    }
    const uint32_t chosen = choose(1 + static_cast<uint32_t>(type.version_count));
    return chosen == 0 ? -1 : type.versions[chosen - 1];
}

giop::reference sampler::reference(const char* type_id) {
    const uint32_t chosen = choose(4);
    if (chosen == 0) {
        return {};
    }
    return {type_id, port_, "key-" + std::to_string(chosen)};
}

// --- teller ------------------------------------------------------------------------------------

void teller::string(const std::string& value) { line(in_quotes(value)); }

void teller::wide_string(const std::u32string& value) {
    std::string units;
    for (const char32_t character : value) {
        units += " U+" + std::to_string(static_cast<uint32_t>(character));
    }
    line("wide" + units);
}

// --- writer ------------------------------------------------------------------------------------

void writer::put(int index) {
    const type& type = types[index];
    const auto integer = [this](auto value) {
        out_.number(value);
        told_.line(std::to_string(value));
    };
    switch (type.kind) {
    case kind::nothing:
        break;
    case kind::boolean: {
        const bool value = values_.choose(2) != 0;
        out_.octet(value);
        told_.line(std::to_string(value));
        break;
    }
    case kind::octet:
    case kind::character:
        integer(static_cast<uint8_t>(values_.bits()));
        break;
    case kind::wide_character: {
        const auto value = static_cast<uint16_t>(1 + values_.choose(0xd7ff));
        out_.octet(sizeof value); // then most significant octet first, in either byte order
        out_.octet(value >> 8);
        out_.octet(value & 0xff);
        told_.line(std::to_string(value));
        break;
    }
    case kind::int16:
        integer(static_cast<int16_t>(values_.bits()));
        break;
    case kind::uint16:
        integer(static_cast<uint16_t>(values_.bits()));
        break;
    case kind::int32:
        integer(static_cast<int32_t>(values_.bits()));
        break;
    case kind::uint32:
        integer(static_cast<uint32_t>(values_.bits()));
        break;
    case kind::int64:
        integer(static_cast<int64_t>(values_.bits()));
        break;
    case kind::uint64:
        integer(values_.bits());
        break;
    case kind::float32: {
        const auto value = static_cast<float>(static_cast<int16_t>(values_.bits())) / 16;
        out_.number(value);
        told_.real(value);
        break;
    }
    case kind::float64: {
        const double value = values_.real();
        out_.number(value);
        told_.real(value);
        break;
    }
    case kind::float128:
        put_float128(values_.real());
        break;
    case kind::text: {
        const std::string value = values_.text();
        out_.text(value);
        told_.string(value);
        break;
    }
    case kind::wide_text: {
        const std::u32string value = values_.wide_text();
        out_.wide_text(utf16(value));
        told_.wide_string(value);
        break;
    }
    case kind::any:
        put_any();
        break;
    case kind::enumeration:
        integer(values_.choose(type.limit));
        break;
    case kind::structure:
        put_members(type);
        break;
    case kind::choice:
        put_union(type);
        break;
    case kind::sequence: {
        const uint32_t length = values_.length(type.limit);
        out_.number(length);
        told_.line(std::to_string(length) + " of");
        for (uint32_t i = 0; i < length; ++i) {
            put(type.element);
        }
        break;
    }
    case kind::value: {
        const int version = values_.version(type);
        if (version >= 0) {
            put_value(version);
        } else {
            out_.number<uint32_t>(0);
            told_.line("null");
        }
        break;
    }
    case kind::object: {
        const giop::reference value = values_.reference(type.id);
        giop::put_reference(out_, value);
        told_.line(giop::stringified(value));
        break;
    }
    }
}

void writer::put_float128(double value) {
    // A double's 11 bits of exponent become 15, its 52 of mantissa the first of 112.
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const uint64_t mantissa = bits & ((uint64_t{1} << 52) - 1);
    const uint64_t exponent = bits >> 52 & 0x7ff;
    const uint64_t wide_exponent = value == 0 ? 0 : exponent - 1023 + 16383;
    const uint64_t low = mantissa << 60;
    const uint64_t high = (bits >> 63) << 63 | wide_exponent << 48 | mantissa >> 4;
    out_.number(out_.little_endian() ? low : high);
    out_.number(out_.little_endian() ? high : low);
    told_.real(value);
}

void writer::put_members(const type& type) {
    for (int i = 0; i < type.member_count; ++i) {
        told_.name(type.members[i].name);
        put(type.members[i].type);
    }
}

void writer::put_state(const type& type) {
    if (type.element >= 0) {
        put_state(types[type.element]);
    }
    put_members(type);
}

void writer::put_value(int index) {
    const type& type = types[index];
    const sampler::nested deeper(values_);
    out_.number(giop::VALUE_TAG_WITH_ID);
    put_id(type.id);
    told_.line(type.id);
    put_state(type);
}

void writer::put_id(const std::string& id) {
    // An id that was written before is an indirection to there, counted from its own offset.
    const auto [known, is_new] = ids_.try_emplace(id, out_.size());
    if (is_new) {
        out_.text(id);
        return;
    }
    out_.number(giop::INDIRECTION_TAG);
    out_.number(static_cast<int32_t>(known->second) - static_cast<int32_t>(out_.size()));
}

void writer::put_exception(int index) {
    const type& type = types[index];
    out_.text(type.id);
    told_.line(std::string("raises ") + type.id);
    put_members(type);
}

void writer::put_union(const type& type) {
    const auto count = static_cast<uint32_t>(type.member_count);
    const uint32_t chosen = values_.choose(count + 1);
    if (chosen == count) {
        const auto outside = static_cast<int32_t>(1000 + values_.choose(1000));
        out_.number(outside);
        told_.line("case " + std::to_string(outside));
        return;
    }
    out_.number(type.labels[chosen].discriminator);
    told_.line("case " + std::to_string(type.labels[chosen].discriminator));
    put(type.members[chosen].type);
}

void writer::put_any() {
    switch (values_.choose(4)) {
    case 0:
        out_.number(TK_NULL);
        told_.line("any of nothing");
        break;
    case 1: {
        const auto value = static_cast<int32_t>(values_.bits());
        out_.number(TK_LONG);
        out_.number(value);
        told_.line("any of " + std::to_string(value));
        break;
    }
    case 2: {
        const bool value = values_.choose(2) != 0;
        out_.number(TK_BOOLEAN);
        out_.octet(value);
        told_.line(std::string("any of ") + (value ? "true" : "false"));
        break;
    }
    default: {
        const std::string value = values_.text();
        out_.number(TK_STRING);
        out_.number<uint32_t>(0); // unbounded
        out_.text(value);
        told_.line("any of " + in_quotes(value));
    }
    }
}

void writer::put_request(const operation& operation) {
    for (int i = 0; i < operation.argument_count; ++i) {
        if (!operation.arguments[i].out) {
            put(operation.arguments[i].type);
        }
    }
}

void writer::put_reply(const operation& operation) {
    if (types[operation.result].kind != kind::nothing) {
        told_.name("result");
        put(operation.result);
    }
    for (int i = 0; i < operation.argument_count; ++i) {
        if (operation.arguments[i].out) {
            told_.name(operation.arguments[i].name);
            put(operation.arguments[i].type);
        }
    }
}

// --- others ------------------------------------------------------------------------------------

std::u16string utf16(const std::u32string& text) {
    std::u16string units;
    for (const char32_t character : text) {
        if (character < 0x10000) {
            units.push_back(static_cast<char16_t>(character));
        } else {
            units.push_back(static_cast<char16_t>(0xd7c0 + (character >> 10)));
            units.push_back(static_cast<char16_t>(0xdc00 + (character & 0x3ff)));
        }
    }
    return units;
}

int type_of(const std::string& id) {
    for (int i = 0; i < type_count; ++i) {
        if (id == types[i].id) {
            return i;
        }
    }
    throw std::out_of_range(id);
}

int first_of_chain(int type) {
    while (types[type].element >= 0) {
        type = types[type].element;
    }
    return type;
}

} // namespace wire
