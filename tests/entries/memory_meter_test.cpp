// The meter that the matrix counts by: no way to ask for memory goes past it.

#include "tests/entries/memory_meter.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>

namespace {

constexpr size_t size = 96;
constexpr std::align_val_t alignment{64};

/// One way to take a block, null where it can't be had, and the way to give it back.
struct kind {
    const char* name;
    void* (*take)();
    void (*give)(void* memory);
};

/// What a throwing operator new gave.
template <typename Take>
void* null_if_thrown(Take take) {
    try {
        return take();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* taken_by_posix_memalign() {
    void* memory = nullptr;
    return posix_memalign(&memory, 64, size) == 0 ? memory : nullptr;
}

void give_object(void* memory) { operator delete(memory); }
void give_array(void* memory) { operator delete[](memory); }
void give_aligned(void* memory) { operator delete(memory, alignment); }
void give_aligned_array(void* memory) { operator delete[](memory, alignment); }

const kind all_kinds[] = {
    {"malloc", [] { return malloc(size); }, free},
    {"calloc", [] { return calloc(2, size); }, free},
    {"realloc", [] { return realloc(nullptr, size); }, free},
    {"reallocarray", [] { return reallocarray(nullptr, 2, size); }, free},
    {"aligned_alloc", [] { return aligned_alloc(32, size); }, free},
    {"posix_memalign", taken_by_posix_memalign, free},
    {"strdup", []() -> void* { return strdup("text"); }, free},
    {"strndup", []() -> void* { return strndup("text", 2); }, free},
    {"new", [] { return null_if_thrown([] { return operator new(size); }); }, give_object},
    {"new[]", [] { return null_if_thrown([] { return operator new[](size); }); }, give_array},
    {"new (nothrow)", [] { return operator new(size, std::nothrow); }, give_object},
    {"new[] (nothrow)", [] { return operator new[](size, std::nothrow); }, give_array},
    {"aligned new", [] { return null_if_thrown([] { return operator new(size, alignment); }); },
     give_aligned},
    {"aligned new[]", [] { return null_if_thrown([] { return operator new[](size, alignment); }); },
     give_aligned_array},
    {"aligned new (nothrow)", [] { return operator new(size, alignment, std::nothrow); },
     give_aligned},
    {"aligned new[] (nothrow)", [] { return operator new[](size, alignment, std::nothrow); },
     give_aligned_array},
};

void expect(memory_meter::reading read, int asked, int kept) {
    EXPECT_EQ(read.asked, asked);
    EXPECT_EQ(read.kept, kept);
}

TEST(MemoryMeter, SeesEachKindOfAllocationAndItsRelease) {
    for (const kind& each : all_kinds) {
        SCOPED_TRACE(each.name);
        memory_meter::start();
        void* const memory = each.take();
        expect(memory_meter::stop(), 1, 1);
        ASSERT_NE(memory, nullptr);
        memory_meter::start();
        each.give(memory);
        expect(memory_meter::stop(), 0, -1);
    }
}

TEST(MemoryMeter, RefusesEachKindWhenItsTurnHasCome) {
    for (const kind& each : all_kinds) {
        SCOPED_TRACE(each.name);
        void* taken[3];
        memory_meter::start(memory_meter::only(2));
        for (void*& one : taken) {
            one = each.take();
        }
        expect(memory_meter::stop(), 3, 2);
        EXPECT_NE(taken[0], nullptr);
        EXPECT_EQ(taken[1], nullptr);
        EXPECT_NE(taken[2], nullptr);
        each.give(taken[0]);
        each.give(taken[2]);
    }
}

TEST(MemoryMeter, BlockThatGrowsIsAskedForAndStaysOneBlock) {
    void* memory = malloc(1);
    memory_meter::start();
    memory = realloc(memory, size);
    memory = reallocarray(memory, 4, size);
    expect(memory_meter::stop(), 2, 0);
    memory_meter::start(memory_meter::all_refused);
    void* const refused = realloc(memory, 8 * size);
    expect(memory_meter::stop(), 1, 0);
    EXPECT_EQ(refused, nullptr);
    free(refused != nullptr ? refused : memory); // which is as it was
}

TEST(MemoryMeter, StandsStillInAPauseAndGoesOnBehindIt) {
    memory_meter::start(memory_meter::all_refused);
    void* memory = nullptr;
    {
        const pause_metering outer;
        const pause_metering inner;
        memory = malloc(size);
    }
    void* const refused = malloc(size);
    expect(memory_meter::stop(), 1, 0);
    EXPECT_NE(memory, nullptr);
    EXPECT_EQ(refused, nullptr);
    free(memory);
}

} // namespace
