// Handles: what a caller holds in place of our objects.
//
//   handle = serial number : kind : slot      never an address, never null
//
// A slot of the table says which handle is live in it, so a null handle, a stale one, one of
// another kind and plain garbage are all told apart from a live one without touching any object. A
// call borrows the object for as long as it runs: two atomic counts and no lock, so that the data
// path takes none. Closing a handle waits for the calls that still work on it.
//
// The kind says too whether the object is our own or wraps the handle of a plugin, so that one look
// at a handle tells where its call goes.
#pragma once

#include "platform/sts/caller/failure.h"

#include <memory>

namespace disk {

enum class handle_kind : unsigned {
    session = 1,
    server,
    lsu,
    image,
    image_list,
    lsu_list,
    channel,
    operation,
    pipe_server,
    pipe_image,
};

/// Kinds of handles that wrap a plugin's, one beside each kind of ours.
constexpr unsigned plugin_bit = 16;
constexpr handle_kind of_plugin(handle_kind kind) {
    return static_cast<handle_kind>(static_cast<unsigned>(kind) | plugin_bit);
}

/// What came of closing an object.
struct closing {
    int status = STS_OK;
    bool still_open = false; ///< it wasn't closed: its handle stays as it was
};

/// What stands behind a handle. Each kind of object names its own as `static constexpr handle_kind
/// kind`. One that is destroyed without having been closed gives up what it was about.
struct object {
    object() = default;
    object(const object&) = delete;
    object& operator=(const object&) = delete;
    virtual ~object() = default;
    /// Closes it for its caller. A failure that it throws has closed it.
    virtual closing close(int32_t /*mode*/) { return {}; }
};

struct handle_slot;

constexpr unsigned slot_bits = 20;
constexpr unsigned kind_bits = 5;

/// The kind that a handle says it is, live or not.
inline handle_kind kind_of(const void* handle) {
    constexpr uintptr_t kind_mask = (uintptr_t{1} << kind_bits) - 1;
    return static_cast<handle_kind>((reinterpret_cast<uintptr_t>(handle) >> slot_bits) & kind_mask);
}

/// Whether it says that it is a plugin's.
inline bool is_of_plugin(const void* handle) {
    return (static_cast<unsigned>(kind_of(handle)) & plugin_bit) != 0;
}

/// Makes a handle for it.
void* enlist(handle_kind kind, std::unique_ptr<object> made);

/// Ends a handle and gives back what stood behind it, when no call works on it any more; null when
/// it isn't live.
std::unique_ptr<object> retire(const void* handle);

/// Closes a handle as its object does; STS_ERR_INVALID when it isn't live.
int close(const void* handle, int32_t mode);

/// Ends every handle there is, the youngest first: what was opened on something goes before it.
void retire_all();

/// Claims the object of a live handle of that kind; null for any other. What is claimed stays until
/// it is given back.
object* claim(const void* handle, handle_kind kind, handle_slot** slot);
void give_back(handle_slot* slot);

/// Makes a handle and hands it out.
template <typename Handle, typename Object>
void hand_out(std::unique_ptr<Object> made, Handle** out) {
    *out = static_cast<Handle*>(enlist(Object::kind, std::move(made)));
}

/// An object for the length of one call; STS_ERR_INVALID when the handle isn't a live one of its
/// kind.
template <typename Object>
class borrowed {
  public:
    explicit borrowed(const void* handle)
        : object_(static_cast<Object*>(claim(handle, Object::kind, &slot_))) {
        require(object_ != nullptr);
    }
    ~borrowed() { give_back(slot_); }
    borrowed(const borrowed&) = delete;
    borrowed& operator=(const borrowed&) = delete;

    Object* operator->() const { return object_; }
    Object& operator*() const { return *object_; }

  private:
    handle_slot* slot_ = nullptr;
    Object* object_;
};

} // namespace disk
