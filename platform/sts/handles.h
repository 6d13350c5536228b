// Handles: what a caller holds in place of our objects.
//
//   handle = generation : kind : slot      never an address, never null
//
// A slot of the table says which handle is live in it, so a null handle, a stale one, one of
// another kind and plain garbage are all told apart from a live one without touching any object. A
// call borrows the object for as long as it runs: two atomic counts and no lock, so that the data
// path takes none. Closing a handle waits for the calls that still work on it.
#pragma once

#include "platform/sts/failure.h"

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
};

/// What stands behind a handle. Each kind of object names its own as `static constexpr handle_kind
/// kind`.
struct object {
    object() = default;
    object(const object&) = delete;
    object& operator=(const object&) = delete;
    virtual ~object() = default;
};

struct handle_slot;

/// The kind that a handle says it is, live or not.
handle_kind kind_of(const void* handle);

/// Makes a handle for it.
void* enlist(handle_kind kind, std::unique_ptr<object> made);

/// Ends a handle and gives back what stood behind it, when no call works on it any more; null when
/// it isn't live.
std::unique_ptr<object> retire(const void* handle);

/// Ends every handle there is.
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
