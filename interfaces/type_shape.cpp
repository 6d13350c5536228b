#include "interfaces/type_shape.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace vlsl_support {

namespace {

constexpr CORBA::ULong INDIRECTION = 0xffffffff;
constexpr std::size_t DEEPEST = 64;          ///< type codes in each other
constexpr std::size_t LONGEST_TEXT = 65'536; ///< an id or a name, octets
constexpr std::size_t MOST_TYPES = 4'096;    ///< in a type code

constexpr unsigned char LAST_LABEL = 0x7f; ///< a letter that is the same in all code sets

bool is_machine_little_endian() { return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__; }

Octets marshalled(CORBA::TypeCode_ptr type) {
    cdrMemoryStream stream;
    CORBA::TypeCode::marshalTypeCode(type, stream);
    const auto* const start = static_cast<const unsigned char*>(stream.bufPtr());
    return {start, start + stream.bufSize()};
}

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
template std::uint64_t Cursor::number();

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

namespace {

/// Writes a type code in this machine's byte order, or nothing while it is muted.
class TypeCodeWriter {
  public:
    static constexpr std::size_t NOWHERE = SIZE_MAX;

    explicit TypeCodeWriter(Octets* to) : to_(to), muted_(to == nullptr ? 1 : 0) {}

    bool is_muted() const { return muted_ > 0; }
    void mute() { ++muted_; }
    void unmute() { --muted_; }

    /// Where the next type code starts.
    std::size_t next() {
        if (is_muted()) {
            return NOWHERE;
        }
        align(sizeof(std::uint32_t));
        return to_->size();
    }
    void octet(unsigned char value) {
        if (!is_muted()) {
            to_->push_back(value);
        }
    }
    template <typename Number>
    void number(Number value) {
        if (!is_muted()) {
            align(sizeof value);
            put(&value, sizeof value);
        }
    }
    void text(const std::string& value) {
        number(static_cast<std::uint32_t>(value.size() + 1));
        if (!is_muted()) {
            put(value.c_str(), value.size() + 1);
        }
    }
    /// What was written there once more.
    void again(std::size_t written) {
        number(INDIRECTION);
        if (!is_muted()) {
            number(static_cast<std::int32_t>(static_cast<std::int64_t>(written) -
                                             static_cast<std::int64_t>(to_->size())));
        }
    }
    void type(CORBA::TypeCode_ptr type) {
        if (!is_muted()) {
            const Octets whole = marshalled(type);
            next();
            put(whole.data(), whole.size());
        }
    }

    /// An encapsulation; numbers in it are aligned from its start.
    class Encapsulation {
      public:
        explicit Encapsulation(TypeCodeWriter& out) : out_(out), around_(out.begin_) {
            out_.number(std::uint32_t{0});
            if (!out_.is_muted()) {
                out_.begin_ = out_.to_->size();
            }
            out_.octet(is_machine_little_endian() ? 1 : 0);
        }
        Encapsulation(const Encapsulation&) = delete;
        Encapsulation& operator=(const Encapsulation&) = delete;
        ~Encapsulation() {
            if (!out_.is_muted()) {
                const auto size = static_cast<std::uint32_t>(out_.to_->size() - out_.begin_);
                std::memcpy(&(*out_.to_)[out_.begin_ - sizeof size], &size, sizeof size);
                out_.begin_ = around_;
            }
        }

      private:
        TypeCodeWriter& out_;
        const std::size_t around_;
    };

  private:
    void align(std::size_t boundary) {
        while ((to_->size() - begin_) % boundary != 0) {
            to_->push_back(0);
        }
    }
    void put(const void* start, std::size_t size) {
        const auto* const octets = static_cast<const unsigned char*>(start);
        to_->insert(to_->end(), octets, octets + size);
    }

    Octets* const to_;
    unsigned muted_;
    std::size_t begin_ = 0;
};

/// Whether values of these look the same. A value within another is told by its id.
bool is_same(const Shape& left, const Shape& right);
bool is_same_part(const Shape* left, const Shape* right) {
    while (left->kind == CORBA::tk_alias) {
        left = left->content;
    }
    while (right->kind == CORBA::tk_alias) {
        right = right->content;
    }
    return left->kind == CORBA::tk_value ? right->kind == left->kind && left->id == right->id
                                         : is_same(*left, *right);
}
bool is_same(const Shape& left, const Shape& right) {
    const bool has_content = left.content != nullptr;
    return left.kind == right.kind && left.count == right.count &&
           has_content == (right.content != nullptr) &&
           (!has_content || is_same_part(left.content, right.content)) &&
           left.labels == right.labels && left.default_member == right.default_member &&
           std::equal(left.members.begin(), left.members.end(), right.members.begin(),
                      right.members.end(), is_same_part);
}

} // namespace

/// Reads one type code, and writes it anew for the ORB. What it may not do: be nested too deep, grow
/// beyond measure by naming the same part again and again, or hold itself other than as a value
/// does. Values are the service's own; the ORB is given the type codes that the stubs have for them,
/// so no type that a peer made up holds itself.
class TypeCodeReader {
  public:
    /// Nothing is written, and values may be any, with null for `to`.
    TypeCodeReader(Shapes& shapes, std::size_t heaviest, Octets* to)
        : shapes_(shapes), heaviest_(heaviest), is_sent_(to != nullptr), out_(to) {}

    const Shape* type(Cursor& from) {
        from.align(sizeof(CORBA::ULong));
        const Cursor start = from;
        const auto kind = from.number<std::uint32_t>();
        if (++types_ > MOST_TYPES || open_.size() >= DEEPEST) {
            from.bad();
        }
        if (kind == INDIRECTION) {
            return earlier(from);
        }
        Shape& shape = shapes_.all_.emplace_back();
        shape.kind = static_cast<CORBA::TCKind>(kind);
        open_.push_back({start.at(), &shape});
        const std::size_t written = out_.next();
        const Shape* const read =
            shape.kind == CORBA::tk_value ? value(from, shape) : plain(from, shape);
        open_.pop_back();
        if (read == &shape) {
            weigh(shape);
        }
        shapes_.weight_ += read->weight; // the ORB makes a table of all its parts for each
        if (shapes_.weight_ > heaviest_) {
            from.bad();
        }
        finished_.erase(start.at());
        finished_.insert({start.at(), {read, start, written}});
        return read;
    }

    /// Whether each value that was read is as the service has it.
    bool has_our_values() const {
        return std::all_of(sent_values_.begin(), sent_values_.end(), [](const Shape* value) {
            return is_same(*value, *known_shape(value->id));
        });
    }

  private:
    struct Open {
        std::size_t position;
        const Shape* shape;
    };
    struct Finished {
        const Shape* shape;
        Cursor start;
        std::size_t written;
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
            if (!out_.is_muted() && done->second.written == TypeCodeWriter::NOWHERE) {
                Cursor again = done->second.start; // it is in a value, which was written otherwise
                return type(again);
            }
            out_.again(done->second.written);
            return done->second.shape;
        }
        bool has_value = false;
        for (auto around = open_.rbegin(); around != open_.rend(); ++around) {
            has_value = has_value || around->shape->kind == CORBA::tk_value;
            if (around->position == position && has_value) {
                return around->shape;
            }
        }
        from.bad();
    }

    const Shape* plain(Cursor& from, Shape& shape) {
        out_.number(static_cast<std::uint32_t>(shape.kind));
        return parameters(from, shape);
    }

    const Shape* value(Cursor& from, Shape& shape) {
        out_.mute();
        Cursor inner = from.encapsulation();
        names(inner, shape);
        value_members(inner, shape);
        out_.unmute();
        if (is_sent_) {
            const CORBA::TypeCode_ptr* const known = known_type(shape.id);
            if (known == nullptr) {
                from.bad();
            }
            out_.type(*known);
            shape.weight = shape_of(*known)->weight;
            sent_values_.push_back(&shape);
        }
        return &shape;
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
            shape.count = copied<std::uint32_t>(from);
            shape.is_empty = false;
            return &shape;
        case CORBA::tk_fixed:
            fixed(from, shape);
            return &shape;
        default:
            break;
        }
        Cursor inner = from.encapsulation();
        const TypeCodeWriter::Encapsulation written(out_);
        switch (static_cast<int>(shape.kind)) {
        case CORBA::tk_objref:
            names(inner, shape);
            shape.is_empty = false;
            break;
        case CORBA::tk_struct:
        case CORBA::tk_except:
            names(inner, shape);
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
            shape.count = copied<std::uint32_t>(inner);
            break;
        case CORBA::tk_array:
            shape.content = type(inner);
            shape.count = copied<std::uint32_t>(inner);
            if (shape.count == 0) {
                inner.bad();
            }
            shape.is_empty = shape.content->is_empty;
            break;
        case CORBA::tk_alias:
            names(inner, shape);
            shape.is_empty = false; // as long as it isn't known
            return shape.content = type(inner);
        default:
            // No type of the service is another: boxes, abstract and local interfaces, principals.
            inner.bad();
        }
        return &shape;
    }

    template <typename Number>
    Number copied(Cursor& from) {
        const auto number = from.number<Number>();
        out_.number(number);
        return number;
    }
    std::string copied_text(Cursor& from) {
        std::string text = from.text();
        out_.text(text);
        return text;
    }

    void names(Cursor& from, Shape& shape) {
        shape.id = copied_text(from);
        copied_text(from);
    }

    void fixed(Cursor& from, Shape& shape) {
        shape.count = copied<std::uint16_t>(from);
        const auto scale = static_cast<std::int16_t>(copied<std::uint16_t>(from));
        constexpr CORBA::ULong most_digits = 31;
        if (shape.count == 0 || shape.count > most_digits || scale < 0 ||
            static_cast<CORBA::ULong>(scale) > shape.count) {
            from.bad();
        }
        shape.is_empty = false;
    }

    void members(Cursor& from, Shape& shape, bool have_access) {
        const auto count = copied<std::uint32_t>(from);
        for (CORBA::ULong i = 0; i < count; ++i) { // ends with the octets, whatever the count
            copied_text(from);
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
        shape.count = copied<std::uint32_t>(from);
        if (shape.count == 0) {
            from.bad();
        }
        for (CORBA::ULong i = 0; i < shape.count; ++i) {
            copied_text(from);
        }
    }

    void union_members(Cursor& from, Shape& shape) {
        shape.is_empty = false;
        const Shape* const discriminator = type(from);
        shape.content = discriminator;
        shape.default_member = static_cast<CORBA::Long>(copied<std::uint32_t>(from));
        const auto count = copied<std::uint32_t>(from);
        if (shape.default_member < -1 ||
            (shape.default_member >= 0 &&
             static_cast<CORBA::ULong>(shape.default_member) >= count)) {
            from.bad();
        }
        for (CORBA::ULong i = 0; i < count; ++i) {
            shape.labels.push_back(label(from, *discriminator));
            copied_text(from);
            shape.members.push_back(type(from));
        }
    }

    std::int64_t label(Cursor& from, const Shape& discriminator) {
        switch (static_cast<int>(discriminator.kind)) {
        case CORBA::tk_boolean: {
            const bool value = from.octet() != 0;
            out_.octet(value ? 1 : 0);
            return value;
        }
        case CORBA::tk_char: {
            const unsigned char value = from.octet();
            if (value > LAST_LABEL) {
                from.bad();
            }
            out_.octet(value);
            return value;
        }
        case CORBA::tk_short:
            return static_cast<std::int16_t>(copied<std::uint16_t>(from));
        case CORBA::tk_ushort:
            return copied<std::uint16_t>(from);
        case CORBA::tk_long:
            return static_cast<std::int32_t>(copied<std::uint32_t>(from));
        case CORBA::tk_ulong:
            return copied<std::uint32_t>(from);
        case CORBA::tk_enum: {
            const auto value = copied<std::uint32_t>(from);
            if (value >= discriminator.count) {
                from.bad();
            }
            return value;
        }
        case CORBA::tk_longlong:
        case CORBA::tk_ulonglong:
            return static_cast<std::int64_t>(copied<std::uint64_t>(from));
        default:
            from.bad();
        }
    }

    static void weigh(Shape& shape) {
        for (const Shape* member : shape.members) {
            shape.weight += member->weight; // there are fewer than octets
        }
        if (shape.content != nullptr) {
            const std::size_t times = shape.kind == CORBA::tk_array ? shape.count : 1;
            shape.weight += times * shape.content->weight; // both are of 32 bits at most
        }
    }

    Shapes& shapes_;
    const std::size_t heaviest_;
    const bool is_sent_;
    TypeCodeWriter out_;
    std::size_t types_ = 0;
    std::vector<Open> open_;                   ///< those that are being read, outermost first
    std::map<std::size_t, Finished> finished_; ///< by where they start
    std::vector<const Shape*> sent_values_;
};

const Shape* Shapes::read(const Octets& type_code, std::size_t heaviest, CORBA::ULong completed,
                          Octets& canonical) {
    Cursor from(type_code, 0, type_code.size(), false, completed);
    TypeCodeReader reader(*this, heaviest, &canonical);
    const Shape* const shape = reader.type(from);
    if (!reader.has_our_values()) {
        from.bad();
    }
    return shape;
}

const Shape* Shapes::of(CORBA::TypeCode_ptr type) {
    const Octets whole = marshalled(type);
    Cursor from(whole, 0, whole.size(), false, CORBA::COMPLETED_NO);
    return TypeCodeReader(*this, SIZE_MAX, nullptr).type(from);
}

// --- types of ours -----------------------------------------------------------------------------

namespace {

/// The shapes that were asked for so far. A type code's place tells it from the others.
class KnownShapes {
  public:
    const Shape* of(const CORBA::TypeCode_ptr& type) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const Shape*& shape = by_type_[&type];
        if (shape == nullptr) {
            shape = shapes_.of(type);
        }
        return shape;
    }

    const Shape* of(const std::string& id) {
        const CORBA::TypeCode_ptr* const type = known_type(id);
        return type == nullptr ? nullptr : of(*type);
    }

  private:
    std::mutex mutex_; ///< guards all below; what a shape holds never changes
    Shapes shapes_;
    std::unordered_map<const CORBA::TypeCode_ptr*, const Shape*> by_type_;
};

KnownShapes& known() {
    static KnownShapes shapes;
    return shapes;
}

} // namespace

const CORBA::TypeCode_ptr* known_type(const std::string& id) {
    static const auto by_id = [] {
        std::unordered_map<std::string, const CORBA::TypeCode_ptr*> all;
        for (std::size_t i = 0; i < known_type_count; ++i) {
            all[known_types[i].id] = known_types[i].type;
        }
        return all;
    }();
    const auto known = by_id.find(id);
    return known == by_id.end() ? nullptr : known->second;
}
const Shape* known_shape(const std::string& id) { return known().of(id); }
const Shape* shape_of(const CORBA::TypeCode_ptr& type) { return known().of(type); }

} // namespace vlsl_support
