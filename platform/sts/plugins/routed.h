// The way of a call: a slot of the table goes to our own function, or, where its first argument
// names something of a plugin's, to that plugin's entry.
//
//   routed<read_image, &stspi_ep_t::read_image_v7>::slot(image, buffer, ...)
//     image is ours          ->  read_image(image, buffer, ...)
//     image wraps theirs     ->  plugin.read_image_v7(theirs, buffer, ...)
//
// A plugin's entry has the arguments of its slot. Each is passed as it came but for three: a handle
// is swapped for the one that it wraps, the record of an LSU for a copy with that handle, and a
// handle that the plugin gives is wrapped before it is handed out.
#pragma once

#include "platform/sts/caller/handles.h"
#include "platform/sts/plugins/manager.h"

#include <atomic>
#include <memory>
#include <type_traits>

namespace disk {

// --- handles of plugins -------------------------------------------------------------------------

/// What a plugin has in place of one of our kinds of handles: its type, how it is closed, and after
/// which statuses of that it is still open.
template <typename Handle>
struct counterpart;

template <>
struct counterpart<sts_next_server_s> {
    using theirs = throttling_server_s;
    static constexpr handle_kind kind = handle_kind::server;
    static int close(const plugin& owner, theirs* closed, int32_t /*mode*/) {
        return owner.call<&stspi_ep_t::close_server_v7>(closed);
    }
    static bool stays_open(int status) { return status == STS_ERR_BUSY; }
};

template <>
struct counterpart<sts_next_image_s> {
    using theirs = throttling_image_s;
    static constexpr handle_kind kind = handle_kind::image;
    static int close(const plugin& owner, theirs* closed, int32_t mode) {
        return owner.call<&stspi_ep_t::close_image_v7>(closed, mode, 0);
    }
    static bool stays_open(int /*status*/) { return false; }
};

template <>
struct counterpart<sts_next_image_list_s> {
    using theirs = throttling_image_list_s;
    static constexpr handle_kind kind = handle_kind::image_list;
    static int close(const plugin& owner, theirs* closed, int32_t /*mode*/) {
        return owner.call<&stspi_ep_t::close_image_list_v7>(closed);
    }
    static bool stays_open(int status) { return status != STS_OK; }
};

template <>
struct counterpart<sts_next_lsu_list_s> {
    using theirs = throttling_lsu_list_s;
    static constexpr handle_kind kind = handle_kind::lsu_list;
    static int close(const plugin& owner, theirs* closed, int32_t /*mode*/) {
        return owner.call<&stspi_ep_t::close_lsu_list_v7>(closed);
    }
    static bool stays_open(int status) { return status != STS_OK; }
};

/// How many images and lists are open on a plugin's server. We count them too: a server that goes
/// before what is open on it leaves the plugin with handles that point nowhere.
using open_count = std::shared_ptr<std::atomic<int>>;

/// A handle of a plugin's, wrapped.
template <typename Handle>
struct wrapped : object {
    using their = counterpart<Handle>;
    static constexpr handle_kind kind = of_plugin(their::kind);
    static constexpr bool is_server = their::kind == handle_kind::server;

    /// `counted` is that of the server that it is opened on.
    wrapped(const plugin& gives, const open_count& counted)
        : owner(gives), count(is_server ? std::make_shared<std::atomic<int>>(0) : counted) {
        *count += is_server ? 0 : 1;
    }
    ~wrapped() override {
        if (theirs != nullptr) {
            (void)their::close(owner, theirs, STS_CLOSE_ABANDON);
        }
        *count -= is_server ? 0 : 1;
    }
    closing close(int32_t mode) override {
        if (is_server && *count > 0) {
            return {STS_ERR_BUSY, true};
        }
        const int status = their::close(owner, theirs, mode);
        if (their::stays_open(status)) {
            return {status, true};
        }
        theirs = nullptr;
        return {status, false};
    }

    const plugin& owner;
    open_count count;
    typename their::theirs* theirs = nullptr;
};

using wrapped_server = wrapped<sts_next_server_s>;

// --- arguments ----------------------------------------------------------------------------------

/// The first argument, which says whose call it is: a handle of theirs, lent for the call.
template <typename Given>
class addressee;

template <typename Handle>
class addressee<Handle*> {
  public:
    explicit addressee(const void* given) : object_(given) {}
    auto* get() { return object_->theirs; }
    const plugin& owner() const { return object_->owner; }
    const open_count& count() const { return object_->count; }

  private:
    borrowed<wrapped<Handle>> object_;
};

/// The record of an LSU as they must see it: their own server, and all the bytes of the name.
template <>
class addressee<const sts_lsu_ref_s*> {
  public:
    explicit addressee(const sts_lsu_ref_s* given) : server_(given->server), theirs_(*given) {
        theirs_.server = server_.get();
    }
    const sts_lsu_ref_s* get() const { return &theirs_; }
    const plugin& owner() const { return server_.owner(); }
    const open_count& count() const { return server_.count(); }

  private:
    addressee<sts_next_server_s*> server_;
    sts_lsu_ref_s theirs_;
};

/// Any other argument: as it came.
template <typename Given, typename = void>
class passed {
  public:
    template <typename First>
    passed(Given given, const addressee<First>& /*to*/) : given_(given) {}
    Given get() const { return given_; }
    void settle(int /*status*/) {}

  private:
    Given given_;
};

/// One more handle: of the same plugin, or it is none.
template <typename Handle>
class passed<Handle*, std::void_t<typename counterpart<Handle>::theirs>> : addressee<Handle*> {
  public:
    template <typename First>
    passed(Handle* given, const addressee<First>& to) : addressee<Handle*>(given) {
        require(&this->owner() == &to.owner());
    }
    using addressee<Handle*>::get;
    void settle(int /*status*/) {}
};

/// The place for a handle that they give. What stands there after a failure is closed.
template <typename Handle>
class passed<Handle**, std::void_t<typename counterpart<Handle>::theirs>> {
  public:
    template <typename First>
    passed(Handle** out, const addressee<First>& to)
        : out_(out), made_(std::make_unique<wrapped<Handle>>(to.owner(), to.count())) {
        require(out != nullptr);
    }
    auto** get() { return &made_->theirs; }
    void settle(int status) {
        if (status == STS_OK && made_->theirs != nullptr) {
            hand_out(std::move(made_), out_);
        }
    }

  private:
    Handle** out_;
    std::unique_ptr<wrapped<Handle>> made_;
};

// --- calls --------------------------------------------------------------------------------------

inline bool is_for_plugin(const void* handle) { return is_of_plugin(handle); }
inline bool is_for_plugin(const sts_lsu_ref_s* lsu) {
    return lsu != nullptr && is_of_plugin(lsu->server);
}

/// Calls the entry of the plugin that the first argument belongs to.
template <auto entry, typename First, typename... Others>
int hand_on(First first, Others... others) {
    addressee<First> to(first);
    const auto call = [&](auto&&... each) {
        const int status = to.owner().template call<entry>(to.get(), each.get()...);
        (each.settle(status), ...);
        return status;
    };
    return call(passed<Others>(others, to)...);
}

/// A slot for both: `own` is ours, `entry` theirs.
template <auto own, auto entry, typename Type = decltype(own)>
struct routed;

template <auto own, auto entry, typename First, typename... Others>
struct routed<own, entry, int (*)(First, Others...)> {
    static int slot(First first, Others... others) {
        return status_of([&] {
            return is_for_plugin(first) ? hand_on<entry>(first, others...) : own(first, others...);
        });
    }
};

} // namespace disk
