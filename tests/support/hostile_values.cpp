#include "tests/support/hostile_values.h"

namespace giop {

namespace {

/// Starts a value: tag, and the id by default.
void put_header(cdr_writer& out, const value_type& type, uint32_t flags = WITH_ID) {
    out.number(VALUE_TAG | flags);
    out.text(type.id);
}

/// The state as one chunk: its size, its octets.
void put_chunk(cdr_writer& out, const value_type& type, int32_t longer_by = 0) {
    cdr_writer state(out.little_endian());
    // Its numbers are aligned in the message.
    out.align(4);
    const std::size_t start = (out.size() + 4) % 8;
    for (std::size_t i = 0; i < start; ++i) {
        state.octet(0);
    }
    type.put_state(state);
    octets bytes = state.bytes();
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(start));
    out.number(static_cast<int32_t>(bytes.size()) + longer_by);
    out.raw(bytes);
}

void put_end(cdr_writer& out, int32_t level = 1) { out.number(-level); }

/// An indirection to so many octets before the place that says so.
void put_indirection(cdr_writer& out, int32_t offset) {
    out.number(INDIRECTION_TAG);
    out.number(offset);
}

} // namespace

std::vector<odd_value> hostile_values(const value_type& type) {
    const auto with_id_of = [](uint32_t length, const octets& text) {
        return [length, text](cdr_writer& out) {
            out.number(VALUE_TAG | WITH_ID);
            out.number(length);
            out.raw(text);
        };
    };
    const auto with_tag = [type](uint32_t tag) {
        return [type, tag](cdr_writer& out) {
            out.number(tag);
            out.text(type.id);
            type.put_state(out);
        };
    };
    const auto with_ids = [type](uint32_t count) {
        return [type, count](cdr_writer& out) {
            out.number(VALUE_TAG | WITH_IDS | CHUNKED);
            out.number(count);
            put_chunk(out, type);
            put_end(out);
        };
    };
    const auto indirect = [](int32_t offset) {
        return [offset](cdr_writer& out) { put_indirection(out, offset); };
    };
    const auto with_indirect_id = [type](int32_t offset) {
        return [type, offset](cdr_writer& out) {
            out.number(VALUE_TAG | WITH_ID);
            put_indirection(out, offset);
            type.put_state(out);
        };
    };
    const auto chunked = [type](int32_t longer_by) {
        return [type, longer_by](cdr_writer& out) {
            put_header(out, type, WITH_ID | CHUNKED);
            put_chunk(out, type, longer_by);
            put_end(out);
        };
    };
    const auto ended_by = [type](int32_t tag) {
        return [type, tag](cdr_writer& out) {
            put_header(out, type, WITH_ID | CHUNKED);
            put_chunk(out, type);
            out.number(tag);
        };
    };
    const octets id(type.id.begin(), type.id.end());
    octets with_zero_inside = id;
    with_zero_inside.insert(with_zero_inside.begin() + 4, 0);
    with_zero_inside.push_back(0);
    return {
        {"AnIdOfNoLength", with_id_of(0, {})},
        {"AnIdWithoutItsZero", with_id_of(static_cast<uint32_t>(id.size()), id)},
        {"AnIdWithAZeroInside",
         with_id_of(static_cast<uint32_t>(with_zero_inside.size()), with_zero_inside)},
        {"AnIdBehindTheEnd", with_id_of(1000, id)},
        {"AnIdOf2GB", with_id_of(0x7fffffff, id)},
        {"AnIdOf4GB", with_id_of(0xfffffffe, id)},
        {"AnIdThatNobodyKnows", with_id_of(4, {'I', 'D', 'L', 0})},
        {"AnIdThatIsAnIndirectionToItself", with_indirect_id(-4)},
        {"AnIdThatIsAnIndirectionToTheTag", with_indirect_id(-8)},
        {"AnIdThatIsAnIndirectionForward", with_indirect_id(4)},
        {"AnIdThatIsAnIndirectionAnywhere", with_indirect_id(INT32_MIN)},
        {"AListOfNoIds", with_ids(0)},
        {"AListOf4GIds", with_ids(0xfffffffe)},
        {"AListOf1GIds", with_ids(0x40000000)},
        {"AListOfTooManyIds", with_ids(3)},
        {"AListThatIsAnIndirection",
         [](cdr_writer& out) {
             out.number(VALUE_TAG | WITH_IDS);
             put_indirection(out, -12);
         }},
        {"AListWhoseSecondIdHasNoLength",
         [type](cdr_writer& out) {
             out.number(VALUE_TAG | WITH_IDS);
             out.number<uint32_t>(2);
             out.text(type.id);
             out.number<uint32_t>(0);
             type.put_state(out);
         }},
        {"IdsThatAreNeitherOneNorAList", with_tag(VALUE_TAG | 4)},
        {"ATagBelowAll", with_tag(0x7ffffeff)},
        {"ATagAboveAll", with_tag(0x80000000)},
        {"ATagOfOne", with_tag(1)},
        {"ATagWithReservedBits", with_tag(VALUE_TAG | 0xf0 | WITH_ID)},
        {"ACodeBaseBehindTheEnd",
         [type](cdr_writer& out) {
             out.number(VALUE_TAG | WITH_CODE_BASE | WITH_ID);
             out.number<uint32_t>(0x7fffffff);
             out.text(type.id);
             type.put_state(out);
         }},
        {"AnIndirectionToItself", indirect(-4)},
        {"AnIndirectionForward", indirect(4)},
        {"AnIndirectionToNoValue", indirect(-8)},
        {"AnIndirectionBeforeTheMessage", indirect(-100'000)},
        {"AnIndirectionAnywhere", indirect(INT32_MIN)},
        {"NoState", [type](cdr_writer& out) { put_header(out, type); }},
        {"ChunksThatDontBegin",
         [type](cdr_writer& out) { put_header(out, type, WITH_ID | CHUNKED); }},
        {"AChunkOfNothing",
         [type](cdr_writer& out) {
             put_header(out, type, WITH_ID | CHUNKED);
             out.number<uint32_t>(0);
             type.put_state(out);
             put_end(out);
         }},
        {"AChunkThatEndsInANumber", chunked(-2)},
        {"AChunkThatIsTooLong", chunked(4)},
        {"AChunkThatIsMuchTooLong", chunked(0x7ffffe00)},
        {"ChunksThatEndOnALevelThatIsnt", ended_by(-2)},
        {"ChunksThatEndOnTheLowestLevel", ended_by(INT32_MIN)},
        {"ChunksThatEndOnLevelZero", ended_by(0)},
        {"ChunksThatDontEnd", ended_by(16)},
        {"AnEndInPlaceOfChunks",
         [type](cdr_writer& out) {
             put_header(out, type, WITH_ID | CHUNKED);
             put_end(out);
         }},
        {"AValueThatIsntChunkedInOneThatIs",
         [type](cdr_writer& out) {
             put_header(out, type, WITH_ID | CHUNKED);
             put_header(out, type);
             type.put_state(out);
             put_end(out);
         }},
        {"AThousandChunkedValuesInEachOther",
         [type](cdr_writer& out) { put_nested_chunks(out, type, 1000); }},
        {"AValueBehindItsLastMember", [type](cdr_writer& out) { put_with_remainder(out, type); }},
    };
}

std::vector<odd_value> legal_values(const value_type& type) {
    return {
        {"Plain",
         [type](cdr_writer& out) {
             put_header(out, type);
             type.put_state(out);
         }},
        {"WithoutAnId",
         [type](cdr_writer& out) {
             out.number(VALUE_TAG);
             type.put_state(out);
         }},
        {"WithACodeBase",
         [type](cdr_writer& out) {
             out.number(VALUE_TAG | WITH_CODE_BASE | WITH_ID);
             out.text("http://127.0.0.1/");
             out.text(type.id);
             type.put_state(out);
         }},
        {"InOneChunk",
         [type](cdr_writer& out) {
             put_header(out, type, WITH_ID | CHUNKED);
             put_chunk(out, type);
             put_end(out);
         }},
        {"InOneChunkWithAListOfIds",
         [type](cdr_writer& out) {
             out.number(VALUE_TAG | WITH_IDS | CHUNKED);
             out.number<uint32_t>(2);
             out.text(type.id);
             out.text("IDL:Corvane/Vaultaro/SL/Older:1.0");
             put_chunk(out, type);
             put_end(out);
         }},
    };
}

void put_nested_chunks(cdr_writer& out, const value_type& type, int depth) {
    for (int i = 0; i < depth; ++i) {
        put_header(out, type, WITH_ID | CHUNKED);
    }
}

void put_with_remainder(cdr_writer& out, const value_type& type) {
    out.number(VALUE_TAG | WITH_IDS | CHUNKED);
    out.number<uint32_t>(2);
    out.text("IDL:Corvane/Vaultaro/SL/Newer:1.0");
    out.text(type.id);
    put_chunk(out, type);
    for (int i = 0; i < 2; ++i) {
        put_header(out, type, WITH_ID | CHUNKED);
        put_chunk(out, type);
        put_end(out, 2);
    }
    put_end(out);
}

} // namespace giop
