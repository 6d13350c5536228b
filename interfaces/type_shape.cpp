#include "interfaces/type_shape.h"

#include <cstring>
#include <mutex>
#include <unordered_map>

namespace vlsl_support {

namespace {

constexpr CORBA::ULong INDIRECTION = 0xffffffff;
constexpr std::size_t DEEPEST = 64;            ///< type codes in each other
constexpr std::size_t LONGEST_TEXT = 65'536;   ///< an id or a name, octets
constexpr std::size_t ANY_WEIGHT = UINT32_MAX; ///< for types of ours

bool is_machine_little_endian() { return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__; }

} // namespace

void refuse(CORBA::ULong completed) {
    throw CORBA::MARSHAL(0, static_cast<CORBA::CompletionStatus>(completed));
}

// --- Cursor ------------------------------------------------------------------------------------

std::size_t Cursor::take(std::size_t count) {
    if (count > left()) {
        bad();
    }
    const std::size_t here = at_;
    at_ += count;
    return here;
}

void Cursor::align(std::size_t boundary) {
    const std::size_t over = (at_ - begin_) % boundary;
    take(over == 0 ? 0 : boundary - over);
}

template <typename Number>
Number Cursor::number() {
    align(sizeof(Number));
    unsigned char octets[sizeof(Number)];
    std::memcpy(octets, &bytes_[take(sizeof octets)], sizeof octets);
    if (swapped_) {
        for (std::size_t i = 0; i < sizeof octets / 2; ++i) {
            std::swap(octets[i], octets[sizeof octets - 1 - i]);
        }
    }
    Number value;
    std::memcpy(&value, octets, sizeof value);
    return value;
}
template std::uint16_t Cursor::number();
template std::uint32_t Cursor::number();

std::string Cursor::text() {
    const std::size_t size = number<std::uint32_t>();
    if (size == 0 || size > LONGEST_TEXT) {
        bad();
    }
    const char* const start = reinterpret_cast<const char*>(&bytes_[take(size)]);
    if (std::memchr(start, '\0', size) != start + size - 1) {
        bad();
    }
    return {start, size - 1};
}

Cursor Cursor::encapsulation() {
    const std::size_t size = number<std::uint32_t>();
    const std::size_t start = take(size);
    Cursor inner(bytes_, start, start + size, false, completed_);
    const unsigned char order = inner.octet();
    if (order > 1) {
        bad();
    }
    inner.swapped_ = (order == 1) != is_machine_little_endian();
    return inner;
}

// --- type codes --------------------------------------------------------------------------------

/// Reads one type code. What it may not do: be nested too deep, grow beyond measure by naming the
/// same part again and again, or hold itself other than as the elements of a sequence.
class TypeCodeReader {
  public:
    TypeCodeReader(Shapes& shapes, std::size_t heaviest) : shapes_(shapes), heaviest_(heaviest) {}

    const Shape* type(Cursor& from) {
        from.align(sizeof(CORBA::ULong));
        const std::size_t position = from.at();
        const auto kind = from.number<std::uint32_t>();
        if (kind == INDIRECTION) {
            return earlier(from);
        }
        if (open_.size() >= DEEPEST) {
            from.bad();
        }
        Shape& shape = shapes_.all_.emplace_back();
        shape.kind = static_cast<CORBA::TCKind>(kind);
        open_.push_back({position, &shape});
        const Shape* const read = parameters(from, shape);
        open_.pop_back();
        if (read == &shape) {
            finish(from, shape);
        }
        finished_[position] = read;
        return read;
    }

  private:
    struct Open {
        std::size_t position;
        const Shape* shape;
    };

    const Shape* earlier(Cursor& from) {
        const std::size_t here = from.at();
        const auto offset = static_cast<std::int32_t>(from.number<std::uint32_t>());
        if (offset >= 0 || here < static_cast<std::size_t>(-std::int64_t{offset})) {
            from.bad();
        }
        const std::size_t position = here - static_cast<std::size_t>(-std::int64_t{offset});
        const auto done = finished_.find(position);
        if (done != finished_.end()) {
            return done->second;
        }
        // A type that holds itself does so in a sequence, which may be empty, and has a name.
        bool has_sequence = false;
        bool has_members = false;
        for (auto around = open_.rbegin(); around != open_.rend(); ++around) {
            const CORBA::TCKind kind = around->shape->kind;
            has_sequence = has_sequence || kind == CORBA::tk_sequence;
            has_members = has_members || kind == CORBA::tk_struct || kind == CORBA::tk_union ||
                          kind == CORBA::tk_value;
            if (around->position == position && has_sequence && has_members) {
                return around->shape;
            }
        }
        from.bad();
    }

    /// Reads what follows the kind. An alias is what it stands for, save in that itself.
    const Shape* parameters(Cursor& from, Shape& shape) {
        switch (static_cast<int>(shape.kind)) {
        case CORBA::tk_null:
        case CORBA::tk_void:
            return &shape;
        case CORBA::tk_short:
        case CORBA::tk_long:
        case CORBA::tk_ushort:
        case CORBA::tk_ulong:
        case CORBA::tk_float:
        case CORBA::tk_double:
        case CORBA::tk_boolean:
        case CORBA::tk_char:
        case CORBA::tk_octet:
        case CORBA::tk_any:
        case CORBA::tk_TypeCode:
        case CORBA::tk_longlong:
        case CORBA::tk_ulonglong:
        case CORBA::tk_longdouble:
        case CORBA::tk_wchar:
            shape.is_empty = false;
            return &shape;
        case CORBA::tk_string:
        case CORBA::tk_wstring:
            shape.count = from.number<std::uint32_t>();
            shape.is_empty = false;
            return &shape;
        case CORBA::tk_fixed:
            fixed(from, shape);
            return &shape;
        default:
            break;
        }
        Cursor inner = from.encapsulation();
        switch (static_cast<int>(shape.kind)) {
        case CORBA::tk_objref:
            names(inner, shape);
            shape.is_empty = false;
            break;
        case CORBA::tk_struct:
        case CORBA::tk_except:
            names(inner, shape);
            // An exception's data begins with its id.
            shape.is_empty = shape.kind == CORBA::tk_struct;
            members(inner, shape, false);
            break;
        case CORBA::tk_union:
            names(inner, shape);
            union_members(inner, shape);
            break;
        case CORBA::tk_enum:
            names(inner, shape);
            enumerators(inner, shape);
            break;
        case CORBA::tk_sequence:
            shape.is_empty = false;
            shape.content = type(inner);
            shape.count = inner.number<std::uint32_t>();
            break;
        case CORBA::tk_array:
            shape.content = type(inner);
            shape.count = inner.number<std::uint32_t>();
            if (shape.count == 0) {
                inner.bad();
            }
            shape.is_empty = shape.content->is_empty;
            break;
        case CORBA::tk_alias:
            names(inner, shape);
            shape.is_empty = false; // as long as it isn't known
            return shape.content = type(inner);
        case CORBA::tk_value:
            names(inner, shape);
            value_members(inner, shape);
            break;
        default:
            // No type of the service is another: boxes, abstract and local interfaces, principals.
            inner.bad();
        }
        return &shape;
    }

    static void names(Cursor& from, Shape& shape) {
        shape.id = from.text();
        from.text();
    }

    static void fixed(Cursor& from, Shape& shape) {
        shape.count = from.number<std::uint16_t>();
        const auto scale = static_cast<std::int16_t>(from.number<std::uint16_t>());
        constexpr CORBA::ULong most_digits = 31;
        if (shape.count == 0 || shape.count > most_digits || scale < 0 ||
            static_cast<CORBA::ULong>(scale) > shape.count) {
            from.bad();
        }
        shape.is_empty = false;
    }

    void members(Cursor& from, Shape& shape, bool have_access) {
        const auto count = from.number<std::uint32_t>();
        for (CORBA::ULong i = 0; i < count; ++i) { // ends with the octets, whatever the count
            from.text();
            shape.members.push_back(type(from));
            shape.is_empty = shape.is_empty && shape.members.back()->is_empty;
            if (have_access && from.number<std::uint16_t>() > 1) {
                from.bad(); // neither private nor public
            }
        }
    }

    void value_members(Cursor& from, Shape& shape) {
        shape.is_empty = false;
        const auto modifier = static_cast<std::int16_t>(from.number<std::uint16_t>());
        if (modifier != CORBA::VM_NONE && modifier != CORBA::VM_TRUNCATABLE) {
            from.bad();
        }
        Cursor ahead = from;
        if (ahead.number<std::uint32_t>() == CORBA::tk_alias) {
            from.bad(); // the ORB refuses it, and falls
        }
        const Shape* const base = type(from);
        if (base->kind == CORBA::tk_value) {
            shape.content = base;
        } else if (base->kind != CORBA::tk_null) {
            from.bad();
        }
        members(from, shape, true);
    }

    void enumerators(Cursor& from, Shape& shape) {
        shape.is_empty = false;
        shape.count = from.number<std::uint32_t>();
        if (shape.count == 0) {
            from.bad();
        }
        for (CORBA::ULong i = 0; i < shape.count; ++i) {
            from.text();
        }
    }

    void union_members(Cursor& from, Shape& shape) {
        shape.is_empty = false;
        const Shape* const discriminator = type(from);
        shape.content = discriminator;
        shape.default_member = static_cast<CORBA::Long>(from.number<std::uint32_t>());
        const auto count = from.number<std::uint32_t>();
        if (shape.default_member < -1 ||
            (shape.default_member >= 0 &&
             static_cast<CORBA::ULong>(shape.default_member) >= count)) {
            from.bad();
        }
        for (CORBA::ULong i = 0; i < count; ++i) {
            shape.labels.push_back(label(from, *discriminator));
            from.text();
            shape.members.push_back(type(from));
        }
    }

    static std::int64_t label(Cursor& from, const Shape& discriminator) {
        switch (static_cast<int>(discriminator.kind)) {
        case CORBA::tk_boolean:
        case CORBA::tk_char:
            return from.octet();
        case CORBA::tk_short:
            return static_cast<std::int16_t>(from.number<std::uint16_t>());
        case CORBA::tk_ushort:
            return from.number<std::uint16_t>();
        case CORBA::tk_long:
            return static_cast<std::int32_t>(from.number<std::uint32_t>());
        case CORBA::tk_ulong:
            return from.number<std::uint32_t>();
        case CORBA::tk_enum: {
            const auto value = from.number<std::uint32_t>();
            if (value >= discriminator.count) {
                from.bad();
            }
            return value;
        }
        case CORBA::tk_longlong:
        case CORBA::tk_ulonglong:
            return static_cast<std::int64_t>(from.number<std::uint64_t>());
        default:
            from.bad();
        }
    }

    void finish(Cursor& from, Shape& shape) {
        for (const Shape* member : shape.members) {
            shape.weight += member->weight; // there are fewer than octets
        }
        if (shape.content != nullptr) {
            const std::size_t times = shape.kind == CORBA::tk_array ? shape.count : 1;
            shape.weight += times * shape.content->weight; // both are of 32 bits at most
        }
        if (shape.weight > heaviest_) {
            from.bad();
        }
    }

    Shapes& shapes_;
    const std::size_t heaviest_;
    std::vector<Open> open_;                       ///< those that are being read, outermost first
    std::map<std::size_t, const Shape*> finished_; ///< by where they start
};

template std::uint64_t Cursor::number();

const Shape* Shapes::read(const Octets& type_code, bool swapped, std::size_t heaviest,
                          CORBA::ULong completed) {
    Cursor from(type_code, 0, type_code.size(), swapped, completed);
    return TypeCodeReader(*this, heaviest).type(from);
}

const Shape* Shapes::of(CORBA::TypeCode_ptr type) {
    cdrMemoryStream stream;
    CORBA::TypeCode::marshalTypeCode(type, stream);
    const auto* const start = static_cast<const unsigned char*>(stream.bufPtr());
    return read(Octets(start, start + stream.bufSize()), false, ANY_WEIGHT, CORBA::COMPLETED_NO);
}

// --- types of ours -----------------------------------------------------------------------------

namespace {

/// The shapes that were asked for so far. A type code's place tells it from the others.
class KnownShapes {
  public:
    const Shape* of(const CORBA::TypeCode_ptr& type) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return find(type);
    }

    const Shape* of(const std::string& id) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (by_id_.empty()) {
            for (std::size_t i = 0; i < known_type_count; ++i) {
                by_id_[known_types[i].id] = known_types[i].type;
            }
        }
        const auto known = by_id_.find(id);
        return known == by_id_.end() ? nullptr : find(*known->second);
    }

  private:
    const Shape* find(const CORBA::TypeCode_ptr& type) {
        const Shape*& shape = by_type_[&type];
        if (shape == nullptr) {
            shape = shapes_.of(type);
        }
        return shape;
    }

    std::mutex mutex_; ///< guards all below; what a shape holds never changes
    Shapes shapes_;
    std::unordered_map<const CORBA::TypeCode_ptr*, const Shape*> by_type_;
    std::unordered_map<std::string, const CORBA::TypeCode_ptr*> by_id_;
};

KnownShapes& known() {
    static KnownShapes shapes;
    return shapes;
}

} // namespace

const Shape* known_shape(const std::string& id) { return known().of(id); }
const Shape* shape_of(const CORBA::TypeCode_ptr& type) { return known().of(type); }

} // namespace vlsl_support
