// The table of handles. Slots come in chunks that stay where they are for good, so that looking at
// one is always allowed; the list of free ones is behind a lock, which only opening and closing
// take.

#include "platform/sts/caller/handles.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace disk {

/// `live` is the handle that is live here, 0 for none. A call counts itself in `users` before it
/// looks at `live`; the one that retires the handle clears `live` before it looks at `users`. So
/// either the call sees that the handle has ended, or the other sees the call and waits.
struct handle_slot {
    std::atomic<uintptr_t> live{0};
    std::atomic<uint32_t> users{0};
    object* held = nullptr; // written before `live` is set
};

namespace {

constexpr uintptr_t slot_mask = (uintptr_t{1} << slot_bits) - 1;
constexpr size_t chunk_size = 1024;
constexpr size_t chunk_count = (slot_mask + 1) / chunk_size;

using chunk = std::array<handle_slot, chunk_size>;

struct handle_table {
    std::array<std::atomic<chunk*>, chunk_count> chunks{};
    std::mutex guard; // of what follows
    size_t chunks_made = 0;
    std::vector<uintptr_t> free_slots;
    uintptr_t made = 0; // handles so far
};

/// Never destroyed: a thread may still hold a handle when the process ends.
handle_table& table() {
    static auto& only = *new handle_table;
    return only;
}

uintptr_t number_of(const void* handle) { return reinterpret_cast<uintptr_t>(handle); }
void* handle_of(uintptr_t number) { return reinterpret_cast<void*>(number); } // NOLINT

/// The slot that a handle names; null when there is no such slot.
handle_slot* slot_of(uintptr_t number) {
    const uintptr_t index = number & slot_mask;
    chunk* const found = table().chunks[index / chunk_size].load(std::memory_order_acquire);
    return found != nullptr ? &(*found)[index % chunk_size] : nullptr;
}

/// Makes one more chunk and puts its slots on the free list.
void grow(handle_table& all) {
    if (all.chunks_made == chunk_count) {
        throw std::bad_alloc();
    }
    all.free_slots.reserve((all.chunks_made + 1) * chunk_size);
    all.chunks[all.chunks_made].store(new chunk, std::memory_order_release);
    for (size_t each = chunk_size; each > 0; --each) {
        all.free_slots.push_back(all.chunks_made * chunk_size + each - 1);
    }
    ++all.chunks_made;
}

/// A handle that was live and is taken out of use: no call begins on it, and none works on it any
/// more. It is gone for good unless it is put back.
class withdrawn_handle {
  public:
    explicit withdrawn_handle(const void* handle) : number_(number_of(handle)) {
        handle_slot* const found = slot_of(number_);
        uintptr_t expected = number_;
        if (number_ == 0 || found == nullptr || !found->live.compare_exchange_strong(expected, 0)) {
            return;
        }
        while (found->users.load() != 0) {
            std::this_thread::yield();
        }
        slot_ = found;
    }
    ~withdrawn_handle() {
        if (slot_ != nullptr) {
            handle_table& all = table();
            const std::lock_guard<std::mutex> lock(all.guard);
            all.free_slots.push_back(number_ & slot_mask); // there is room: it was there before
        }
    }
    withdrawn_handle(const withdrawn_handle&) = delete;
    withdrawn_handle& operator=(const withdrawn_handle&) = delete;

    /// What stood behind it; null when it wasn't live.
    std::unique_ptr<object> take() {
        return std::unique_ptr<object>(slot_ != nullptr ? slot_->held : nullptr);
    }
    void put_back(std::unique_ptr<object> kept) {
        slot_->held = kept.release();
        slot_->live.store(number_);
        slot_ = nullptr;
    }

  private:
    uintptr_t number_;
    handle_slot* slot_ = nullptr;
};

} // namespace

void* enlist(handle_kind kind, std::unique_ptr<object> made) {
    handle_table& all = table();
    const std::lock_guard<std::mutex> lock(all.guard);
    if (all.free_slots.empty()) {
        grow(all);
    }
    const uintptr_t index = all.free_slots.back();
    all.free_slots.pop_back();
    handle_slot& slot = *slot_of(index);
    slot.held = made.release();
    const uintptr_t number = (++all.made << (slot_bits + kind_bits)) |
                             (static_cast<uintptr_t>(kind) << slot_bits) | index;
    slot.live.store(number);
    return handle_of(number);
}

std::unique_ptr<object> retire(const void* handle) { return withdrawn_handle(handle).take(); }

int close(const void* handle, int32_t mode) {
    withdrawn_handle ending(handle);
    std::unique_ptr<object> closed = ending.take();
    require(closed != nullptr);
    const closing result = closed->close(mode);
    if (result.still_open) {
        ending.put_back(std::move(closed));
    }
    return result.status;
}

void retire_all() {
    std::vector<uintptr_t> live;
    for (const std::atomic<chunk*>& each : table().chunks) {
        chunk* const slots = each.load(std::memory_order_acquire);
        if (slots == nullptr) {
            break;
        }
        for (const handle_slot& slot : *slots) {
            live.push_back(slot.live.load());
        }
    }
    std::sort(live.begin(), live.end(), std::greater<>()); // by serial number
    for (const uintptr_t each : live) {
        (void)retire(handle_of(each));
    }
}

object* claim(const void* handle, handle_kind kind, handle_slot** slot) {
    const uintptr_t number = number_of(handle);
    handle_slot* const found = kind_of(handle) == kind ? slot_of(number) : nullptr;
    if (found == nullptr) {
        return nullptr;
    }
    found->users.fetch_add(1);
    if (found->live.load() != number) {
        found->users.fetch_sub(1);
        return nullptr;
    }
    *slot = found;
    return found->held;
}

void give_back(handle_slot* slot) { slot->users.fetch_sub(1); }

} // namespace disk
