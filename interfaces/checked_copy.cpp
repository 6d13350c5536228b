#include "interfaces/checked_copy.h"

#include "interfaces/type_shape.h"

#include <algorithm>
#include <omniORB4/codeSets.h>
#include <string>
#include <unordered_map>
#include <utility>

namespace vlsl_support {

namespace {

constexpr unsigned DEEPEST = 256;          ///< types in each other, in data
constexpr std::size_t HEAVIEST = 65'536;   ///< weight of the types in a message beside its octets
constexpr unsigned MOST_HEAVY = 65'536;    ///< `any`s, type codes and values in a message
constexpr unsigned char LAST_LABEL = 0x7f; ///< a letter that is the same in all code sets
constexpr CORBA::ULong MOST_IDS = 64;      ///< of one value
constexpr CORBA::ULong LONGEST_ID = 4'096; ///< octets
constexpr CORBA::ULong LARGEST_WCHAR = 8;  ///< octets
constexpr std::size_t PIECE = 1'024;       ///< octets copied at once
constexpr CORBA::ULong FIRST_BUFFER = 256; ///< octets of a copy before it grows

constexpr CORBA::ULong NULL_TAG = 0;
constexpr CORBA::ULong INDIRECTION = 0xffffffff;
constexpr CORBA::ULong FIRST_VALUE_TAG = 0x7fffff00; ///< lower ones are sizes of chunks
constexpr CORBA::ULong LAST_VALUE_TAG = 0x7fffff0f;
constexpr CORBA::ULong HAS_CODE_BASE = 1; ///< bits of a value's tag
constexpr CORBA::ULong IDS = 6;
constexpr CORBA::ULong ONE_ID = 2;
constexpr CORBA::ULong LIST_OF_IDS = 6;
constexpr CORBA::ULong CHUNKED = 8;

constexpr CORBA::ULong TAG_INTERNET_IOP = 0; ///< of a profile
constexpr CORBA::ULong TAG_MULTIPLE_COMPONENTS = 1;
constexpr CORBA::ULong TAG_CODE_SETS = 1; ///< of a component

/// Whether the ORB has an exception's id before it in an `any`. Newer ones have, unless they are set up
/// not to.
template <typename Any>
auto has_exception_id(int)
    -> decltype(Any::PR_marshalExceptionRepoId(std::declval<cdrStream&>(), ""), bool()) {
    cdrMemoryStream trial;
    Any::PR_marshalExceptionRepoId(trial, "");
    return trial.bufSize() != 0;
}
template <typename Any>
bool has_exception_id(long) {
    return false;
}

bool is_value_tag(CORBA::ULong tag) { return tag >= FIRST_VALUE_TAG && tag <= LAST_VALUE_TAG; }

class Copier {
  public:
    Copier(cdrStream& from, cdrStream& to) : from_(from), to_(to), completed_(from.completion()) {}

    void copy(const Shape& shape);
    void members(const Shape& shape) {
        for (const Shape* member : shape.members) {
            copy(*member);
        }
    }

  private:
    [[noreturn]] void bad() const { refuse(completed_); }

    /// Counts what costs far more memory than octets.
    void heavy() {
        if (++heavies_ > MOST_HEAVY) {
            bad();
        }
    }

    // --- chunks, of which values are made if their sender likes ---

    // Newer releases of the ORB count in size_t; no message is that long.
    CORBA::ULong here() const { return static_cast<CORBA::ULong>(from_.currentInputPtr()); }
    CORBA::ULong written() const { return static_cast<CORBA::ULong>(to_.currentOutputPtr()); }

    /// The chunk goes on, or the next one starts, before `size` octets of a value's state.
    void expect(CORBA::ULong alignment, CORBA::ULong size) {
        if (level_ == 0) {
            return;
        }
        const CORBA::ULong start = in_chunk();
        const CORBA::ULong aligned = (start + alignment - 1) & ~(alignment - 1);
        if (aligned > chunk_end_ || size > chunk_end_ - aligned) {
            bad();
        }
    }
    CORBA::ULong in_chunk() {
        if (ended_from_ != 0) {
            bad();
        }
        if (here() >= chunk_end_) {
            start_chunk(from_.unmarshalULong());
        }
        return here();
    }
    void start_chunk(CORBA::ULong size) {
        if (size == 0 || size >= FIRST_VALUE_TAG) {
            bad();
        }
        chunk_end_ = here() + size;
    }

    /// What stands where a value may start: a value's tag, null or an indirection. The last two are
    /// in a chunk, values aren't.
    CORBA::ULong value_tag() {
        if (level_ != 0 && here() >= chunk_end_ && ended_from_ == 0) {
            const CORBA::ULong tag = from_.unmarshalULong();
            if (is_value_tag(tag)) {
                if ((tag & CHUNKED) == 0) {
                    bad();
                }
                return tag;
            }
            start_chunk(tag);
        }
        expect(sizeof(CORBA::ULong), sizeof(CORBA::ULong));
        const CORBA::ULong tag = from_.unmarshalULong();
        if (level_ != 0 && tag != NULL_TAG && tag != INDIRECTION) {
            bad();
        }
        return tag;
    }

    void start_chunks() {
        ++level_;
        chunk_end_ = 0;
    }
    /// Reads the tag that ends a value, unless one within it ended this one too.
    void end_chunks() {
        if (ended_from_ == 0) {
            if (here() < chunk_end_) {
                bad();
            }
            const CORBA::ULong ended = 0 - from_.unmarshalULong();
            if (ended == 0 || ended > level_) {
                bad();
            }
            ended_from_ = ended;
        }
        if (ended_from_ == level_) {
            ended_from_ = 0;
        }
        --level_;
        chunk_end_ = 0;
    }

    // --- plain types ---

    template <typename Number>
    Number read() {
        expect(sizeof(Number), sizeof(Number));
        Number number;
        number <<= from_;
        return number;
    }
    template <typename Number>
    Number number() {
        Number number = read<Number>();
        number >>= to_;
        return number;
    }
    unsigned char read_octet() {
        expect(1, 1);
        return from_.unmarshalOctet();
    }
    unsigned char octet() {
        const unsigned char value = read_octet();
        to_.marshalOctet(value);
        return value;
    }
    bool boolean() {
        const bool value = read_octet() != 0;
        to_.marshalBoolean(value);
        return value;
    }
    void long_double() {
        expect(sizeof(CORBA::ULongLong), 2 * sizeof(CORBA::ULongLong));
        CORBA::ULongLong halves[2];
        for (CORBA::ULongLong& half : halves) {
            half <<= from_;
        }
        const bool swapped = from_.unmarshal_byte_swap();
        halves[swapped] >>= to_;
        halves[!swapped] >>= to_;
    }

    /// Reads octets in pieces, so that no more memory is taken than has come.
    template <typename Sink>
    void octets(CORBA::ULong count, Sink sink) {
        while (count > 0) {
            CORBA::ULong size = std::min<CORBA::ULong>(count, PIECE);
            if (level_ != 0) {
                size = std::min(size, chunk_end_after_start());
            }
            from_.get_octet_array(piece_, static_cast<int>(size));
            sink(piece_, size);
            count -= size;
        }
    }
    CORBA::ULong chunk_end_after_start() {
        const CORBA::ULong start = in_chunk();
        return chunk_end_ - start;
    }
    /// The last octet, or 0 if there is none.
    unsigned char octets(CORBA::ULong count) {
        unsigned char last = 0;
        octets(count, [&](const unsigned char* piece, CORBA::ULong size) {
            to_.put_octet_array(piece, static_cast<int>(size));
            last = piece[size - 1];
        });
        return last;
    }
    Octets kept(CORBA::ULong count) {
        Octets all;
        octets(count, [&](const unsigned char* piece, CORBA::ULong size) {
            all.insert(all.end(), piece, piece + size);
        });
        return all;
    }
    void put(const Octets& octets, omni::alignment_t alignment = omni::ALIGN_1) {
        to_.put_octet_array(octets.data(), static_cast<int>(octets.size()), alignment);
    }
    void put(const std::string& text) {
        const CORBA::ULong size = static_cast<CORBA::ULong>(text.size()) + 1;
        size >>= to_;
        to_.put_octet_array(reinterpret_cast<const unsigned char*>(text.c_str()),
                            static_cast<int>(size));
    }

    /// Some ORBs write an empty string without its zero.
    void text(CORBA::ULong longest) {
        const auto size = read<CORBA::ULong>();
        if (size == 0 || (longest != 0 && size - 1 > longest)) { // it has its end, at least
            bad();
        }
        CORBA::ULong(size) >>= to_;
        if (octets(size) != 0) {
            bad();
        }
    }

    /// Whether wide text is a count of octets and the octets. It is since GIOP 1.2, and before that
    /// the ORB reads it, as it tells when no code set has been agreed on.
    bool is_wide_counted() const {
        return from_.TCS_W() != nullptr && from_.TCS_W()->giopVersion().minor >= 2;
    }
    void wide_text(CORBA::ULong longest) {
        if (is_wide_counted()) {
            octets(number<CORBA::ULong>());
            return;
        }
        no_chunks();
        const auto bound = static_cast<int>(longest);
        const CORBA::WString_var read = from_.unmarshalWString(bound);
        to_.marshalWString(read.in(), bound);
    }
    void wide_character() {
        if (is_wide_counted()) {
            const unsigned char size = octet();
            if (size > LARGEST_WCHAR) {
                bad();
            }
            octets(size);
            return;
        }
        no_chunks();
        to_.marshalWChar(from_.unmarshalWChar());
    }
    void no_chunks() const {
        if (level_ != 0) {
            bad();
        }
    }

    // --- what is made of others ---

    void elements(const Shape& shape, CORBA::ULong count) {
        if (shape.kind == CORBA::tk_octet || shape.kind == CORBA::tk_char) {
            octets(count);
            return;
        }
        if (shape.is_empty && count > 0) {
            bad(); // as many as one likes for nothing
        }
        for (CORBA::ULong i = 0; i < count; ++i) {
            copy(shape);
        }
    }
    void sequence(const Shape& shape) {
        const auto count = number<CORBA::ULong>();
        if (shape.count != 0 && count > shape.count) {
            bad();
        }
        elements(*shape.content, count);
    }
    void choice(const Shape& shape) {
        const std::int64_t label = discriminator(*shape.content);
        auto chosen = shape.default_member;
        for (std::size_t i = 0; i < shape.labels.size(); ++i) {
            if (shape.labels[i] == label && static_cast<CORBA::Long>(i) != shape.default_member) {
                chosen = static_cast<CORBA::Long>(i);
                break;
            }
        }
        if (chosen >= 0) {
            copy(*shape.members[static_cast<std::size_t>(chosen)]);
        }
    }
    std::int64_t discriminator(const Shape& shape);
    CORBA::ULong enumerator(const Shape& shape) {
        const auto value = number<CORBA::ULong>();
        if (value >= shape.count) {
            bad();
        }
        return value;
    }
    /// Two digits an octet, the last half being the sign.
    void fixed(const Shape& shape) {
        constexpr unsigned half = 4;
        constexpr unsigned mask = 0xf;
        const CORBA::ULong size = shape.count / 2 + 1;
        for (CORBA::ULong i = 0; i < size; ++i) {
            const unsigned char two = octet();
            const bool is_last = i + 1 == size;
            const unsigned second = two & mask;
            if (two >> half > 9 || (is_last ? second != 0xc && second != 0xd : second > 9)) {
                bad();
            }
        }
    }

    // --- objects ---

    void object() {
        text(0); // the type's id
        const auto profiles = number<CORBA::ULong>();
        for (CORBA::ULong i = 0; i < profiles; ++i) {
            const auto tag = number<CORBA::ULong>();
            const auto size = number<CORBA::ULong>();
            const Octets profile = kept(size);
            put(profile);
            check_profile(tag, profile);
        }
    }
    /// The ORB looks into these later.
    void check_profile(CORBA::ULong tag, const Octets& profile) const {
        if (tag != TAG_INTERNET_IOP && tag != TAG_MULTIPLE_COMPONENTS) {
            return;
        }
        Cursor from = encapsulated(profile);
        if (tag == TAG_INTERNET_IOP) {
            const unsigned char major = from.octet();
            const unsigned char minor = from.octet();
            from.text(); // the host
            from.number<std::uint16_t>();
            from.skip(from.number<std::uint32_t>()); // the key
            if (major != 1) {
                bad();
            }
            if (minor == 0) {
                return;
            }
        }
        const auto components = from.number<std::uint32_t>();
        for (CORBA::ULong i = 0; i < components; ++i) {
            const auto component = from.number<std::uint32_t>();
            const auto size = from.number<std::uint32_t>();
            const std::size_t start = from.at();
            from.skip(size);
            if (component == TAG_CODE_SETS) {
                const auto at = [&](std::size_t offset) {
                    return profile.begin() + static_cast<std::ptrdiff_t>(offset);
                };
                check_code_sets(Octets(at(start), at(start + size)));
            }
        }
    }
    void check_code_sets(const Octets& component) const {
        Cursor from = encapsulated(component);
        for (int narrow_and_wide = 0; narrow_and_wide < 2; ++narrow_and_wide) {
            from.number<std::uint32_t>(); // the native one
            for (auto left = from.number<std::uint32_t>(); left > 0; --left) {
                from.number<std::uint32_t>();
            }
        }
    }
    Cursor encapsulated(const Octets& all) const {
        if (all.empty() || all[0] > 1) {
            bad();
        }
        const bool is_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
        Cursor from(all, 0, all.size(), (all[0] == 1) != is_little, completed_);
        from.octet();
        return from;
    }

    // --- any ---

    void any() { copy(*type_code()); }
    /// A type code holds itself together: its parts are in its octets, and refer to no others.
    const Shape* type_code() {
        heavy();
        Octets plain; // in this machine's byte order up to the octets, which have their own
        const auto read_next = [&](auto number) {
            number = read<decltype(number)>();
            const auto* const start = reinterpret_cast<const unsigned char*>(&number);
            plain.insert(plain.end(), start, start + sizeof number);
            return number;
        };
        const auto kind = read_next(CORBA::ULong{});
        switch (static_cast<int>(kind)) {
        case CORBA::tk_string:
        case CORBA::tk_wstring:
            read_next(CORBA::ULong{});
            break;
        case CORBA::tk_fixed:
            read_next(CORBA::UShort{});
            read_next(CORBA::UShort{});
            break;
        default:
            if (has_octets(kind)) {
                const Octets parameters = kept(read_next(CORBA::ULong{}));
                plain.insert(plain.end(), parameters.begin(), parameters.end());
            }
        }
        Octets canonical;
        const Shape* const shape = sent_.read(plain, HEAVIEST + here(), completed_, canonical);
        put(canonical, omni::ALIGN_4);
        return shape;
    }
    static bool has_octets(CORBA::ULong kind) {
        switch (static_cast<int>(kind)) {
        case CORBA::tk_objref:
        case CORBA::tk_struct:
        case CORBA::tk_union:
        case CORBA::tk_enum:
        case CORBA::tk_sequence:
        case CORBA::tk_array:
        case CORBA::tk_alias:
        case CORBA::tk_except:
        case CORBA::tk_value:
            return true;
        default:
            return false;
        }
    }

    // --- values ---

    void value(const Shape& formal);
    void indirection(const Shape& formal);
    std::string header(CORBA::ULong tag, const Shape& formal);
    void code_base();
    std::string id();
    std::string first_id();
    void state(const Shape& shape) {
        if (shape.content != nullptr) {
            state(*shape.content);
        }
        members(shape);
    }
    static bool is_a(const Shape& shape, const std::string& formal) {
        for (const Shape* each = &shape; each != nullptr; each = each->content) {
            if (each->id == formal) {
                return true;
            }
        }
        return formal == CORBA::ValueBase::_PD_repoId;
    }
    /// Where an indirection that has just been found leads.
    CORBA::ULong target() {
        const CORBA::ULong start = here();
        return start + from_.unmarshalULong();
    }
    template <typename Table>
    const typename Table::mapped_type& found(const Table& table, CORBA::ULong position) const {
        const auto entry = table.find(position);
        if (entry == table.end()) {
            bad();
        }
        return entry->second;
    }

    struct ReadValue {
        const Shape* shape;
        CORBA::ULong copied_to;
    };

    cdrStream& from_;
    cdrStream& to_;
    const CORBA::ULong completed_;
    unsigned depth_ = 0;
    unsigned heavies_ = 0;
    Shapes sent_; ///< those that came with an `any`
    unsigned char piece_[PIECE];

    CORBA::ULong level_ = 0;      ///< chunked values around what is read
    CORBA::ULong ended_from_ = 0; ///< the outermost of them that has ended, 0 for none
    CORBA::ULong chunk_end_ = 0;

    // By where they start in the message.
    std::unordered_map<CORBA::ULong, ReadValue> values_;
    std::unordered_map<CORBA::ULong, std::string> ids_;
    std::unordered_map<CORBA::ULong, std::string> lists_; ///< the first id of each
};

void Copier::copy(const Shape& shape) {
    if (++depth_ > DEEPEST) {
        bad();
    }
    switch (static_cast<int>(shape.kind)) {
    case CORBA::tk_null:
    case CORBA::tk_void:
        break;
    case CORBA::tk_boolean:
        boolean();
        break;
    case CORBA::tk_octet:
    case CORBA::tk_char:
        octet();
        break;
    case CORBA::tk_short:
    case CORBA::tk_ushort:
        number<CORBA::UShort>();
        break;
    case CORBA::tk_long:
    case CORBA::tk_ulong:
    case CORBA::tk_float:
        number<CORBA::ULong>();
        break;
    case CORBA::tk_longlong:
    case CORBA::tk_ulonglong:
    case CORBA::tk_double:
        number<CORBA::ULongLong>();
        break;
    case CORBA::tk_longdouble:
        long_double();
        break;
    case CORBA::tk_fixed:
        fixed(shape);
        break;
    case CORBA::tk_enum:
        enumerator(shape);
        break;
    case CORBA::tk_string:
        text(shape.count);
        break;
    case CORBA::tk_wstring:
        wide_text(shape.count);
        break;
    case CORBA::tk_wchar:
        wide_character();
        break;
    case CORBA::tk_any:
        any();
        break;
    case CORBA::tk_TypeCode:
        type_code();
        break;
    case CORBA::tk_objref:
        object();
        break;
    case CORBA::tk_except:
        if (has_exception_id<CORBA::Any>(0)) {
            text(LONGEST_ID);
        }
        members(shape);
        break;
    case CORBA::tk_struct:
        members(shape);
        break;
    case CORBA::tk_union:
        choice(shape);
        break;
    case CORBA::tk_sequence:
        sequence(shape);
        break;
    case CORBA::tk_array:
        elements(*shape.content, shape.count);
        break;
    case CORBA::tk_alias: // within what it stands for
        copy(*shape.content);
        break;
    case CORBA::tk_value:
        value(shape);
        break;
    default:
        bad();
    }
    --depth_;
}

std::int64_t Copier::discriminator(const Shape& shape) {
    switch (static_cast<int>(shape.kind)) {
    case CORBA::tk_boolean:
        return boolean();
    case CORBA::tk_char: {
        const unsigned char letter = octet();
        if (letter > LAST_LABEL) {
            bad();
        }
        return letter;
    }
    case CORBA::tk_short:
        return static_cast<CORBA::Short>(number<CORBA::UShort>());
    case CORBA::tk_ushort:
        return number<CORBA::UShort>();
    case CORBA::tk_long:
        return static_cast<CORBA::Long>(number<CORBA::ULong>());
    case CORBA::tk_ulong:
        return number<CORBA::ULong>();
    case CORBA::tk_longlong:
    case CORBA::tk_ulonglong:
        return static_cast<std::int64_t>(number<CORBA::ULongLong>());
    case CORBA::tk_enum:
        return enumerator(shape);
    default:
        bad();
    }
}

void Copier::value(const Shape& formal) {
    heavy();
    const CORBA::ULong tag = value_tag();
    const CORBA::ULong position = here() - static_cast<CORBA::ULong>(sizeof tag);
    if (tag == NULL_TAG) {
        NULL_TAG >>= to_;
        return;
    }
    if (tag == INDIRECTION) {
        indirection(formal);
        return;
    }
    if (!is_value_tag(tag)) {
        bad();
    }
    const std::string id = header(tag, formal);
    const Shape* const shape = known_shape(id);
    if (shape == nullptr || shape->kind != CORBA::tk_value || !is_a(*shape, formal.id)) {
        bad();
    }
    (FIRST_VALUE_TAG | ONE_ID) >>= to_;
    const CORBA::ULong copied_to = written() - static_cast<CORBA::ULong>(sizeof tag);
    put(id);
    const bool is_chunked = (tag & CHUNKED) != 0;
    if (is_chunked) {
        start_chunks();
    }
    state(*shape);
    if (is_chunked) {
        end_chunks();
    }
    values_[position] = {shape, copied_to};
}

/// A value that was read whole; one that is still being read would hold itself.
void Copier::indirection(const Shape& formal) {
    expect(sizeof(CORBA::ULong), sizeof(CORBA::ULong));
    const CORBA::ULong position = here() - static_cast<CORBA::ULong>(sizeof(CORBA::ULong));
    const ReadValue earlier = found(values_, target());
    if (!is_a(*earlier.shape, formal.id)) {
        bad();
    }
    values_[position] = earlier;
    INDIRECTION >>= to_;
    (earlier.copied_to - written()) >>= to_;
}

/// Reads what is between a value's tag and its state, which is in no chunk, and gives its id.
std::string Copier::header(CORBA::ULong tag, const Shape& formal) {
    if ((tag & HAS_CODE_BASE) != 0) {
        code_base();
    }
    switch (tag & IDS) {
    case 0:
        return formal.id;
    case ONE_ID:
        return id();
    case LIST_OF_IDS:
        return first_id();
    default:
        bad();
    }
}

void Copier::code_base() {
    const CORBA::ULong size = from_.unmarshalULong();
    if (size == INDIRECTION) {
        from_.unmarshalULong();
        return;
    }
    if (!from_.checkInputOverrun(1, size)) {
        bad();
    }
    from_.skipInput(size);
}

std::string Copier::id() {
    const CORBA::ULong size = from_.unmarshalULong();
    const CORBA::ULong position = here() - static_cast<CORBA::ULong>(sizeof size);
    if (size == INDIRECTION) {
        return ids_[position] = std::string(found(ids_, target()));
    }
    if (size == 0 || size > LONGEST_ID) {
        bad();
    }
    std::string text(size, '\0');
    from_.get_octet_array(reinterpret_cast<unsigned char*>(text.data()), static_cast<int>(size));
    if (text.find('\0') != size - 1) {
        bad();
    }
    text.pop_back();
    return ids_[position] = text;
}

std::string Copier::first_id() {
    const CORBA::ULong count = from_.unmarshalULong();
    const CORBA::ULong position = here() - static_cast<CORBA::ULong>(sizeof count);
    if (count == INDIRECTION) {
        return lists_[position] = std::string(found(lists_, target()));
    }
    if (count == 0 || count > MOST_IDS) {
        bad();
    }
    const std::string first = id();
    for (CORBA::ULong i = 1; i < count; ++i) {
        id();
    }
    return lists_[position] = first;
}

} // namespace

CheckedCopy::CheckedCopy(cdrStream& message)
    : cdrMemoryStream(FIRST_BUFFER), completed_(message.completion()) {
    TCS_C(message.TCS_C());
    TCS_W(message.TCS_W());
}

CheckedCopy::CheckedCopy(cdrStream& message, const CORBA::TypeCode_ptr* const* types,
                         std::size_t count)
    : CheckedCopy(message) {
    Copier copier(message, *this);
    for (std::size_t i = 0; i < count; ++i) {
        copier.copy(*shape_of(*types[i]));
    }
}

CheckedCopy::CheckedCopy(cdrStream& message, const char* exception) : CheckedCopy(message) {
    Copier(message, *this).members(*known_shape(exception));
}

} // namespace vlsl_support
