// The stack of layers that a run is about, called as a host calls it. There are three, and every
// test expects the same of each:
//
//   disk        host -> libsts -> disk                                   disk:ROOT
//   plugin      host -> plugin -> libsts -> disk                         CS_throttle:a:disk:ROOT
//   two-layers  host -> plugin -> libsts -> its copy -> libsts -> disk
//                                                      CS_throttle:a:CS_throttle:b:disk:ROOT
//
// On the disk alone a host calls the slots of libsts's table, above a plugin the plugin's entries.
// Both have the same arguments, so a test says `call::read_image(image, buffer, ...)` and handles
// are only ever carried.
#pragma once

#include "platform/sts/sts_records.h"
#include "plugin/stspi_entries.h"

#include "tests/support/conf_dir.h"

#include <memory>
#include <string>

/// A handle of whatever layer the host stands on.
struct handle {
    void* value = nullptr;
    template <typename Any>
    operator Any*() const { // NOLINT(google-explicit-constructor)
        return static_cast<Any*>(value);
    }
};

/// Where a call stores one.
struct handle_place {
    void** value;
    template <typename Any>
    operator Any**() const { // NOLINT(google-explicit-constructor)
        return reinterpret_cast<Any**>(value);
    }
};
inline handle_place out(handle& into) { return {&into.value}; }

class stack {
  public:
    /// "disk", "plugin" or "two-layers"; false for any other.
    static bool choose(const std::string& name);
    static stack& current();

    /// What it takes to run: settings of its own, the libraries, everything started.
    void start();
    /// Stops everything; the status of the last step.
    int stop();

    int layers() const { return layers_; }
    const std::string& name() const { return name_; }
    /// The name by which the host knows the storage's server.
    std::string server_name(const std::string& storage_name) const {
        return prefix_ + storage_name;
    }

    const sts_api_t* table = nullptr;    ///< null where there are layers
    const stspi_ep_t* entries = nullptr; ///< null where there are none
    void* const* second_table = nullptr;

  private:
    void start_plugin();

    std::string name_ = "disk";
    int layers_ = 0;
    std::string prefix_;
    std::unique_ptr<conf_dir> settings_;
};

/// What a test passes where a slot takes that: handles as they are carried, all else as it is.
template <typename Argument>
struct carried {
    using type = Argument;
};
#define CARRIED(next_handle)                                                                       \
    template <>                                                                                    \
    struct carried<next_handle*> {                                                                 \
        using type = handle;                                                                       \
    };                                                                                             \
    template <>                                                                                    \
    struct carried<next_handle**> {                                                                \
        using type = handle_place;                                                                 \
    }
CARRIED(sts_next_server_s);
CARRIED(sts_next_image_s);
CARRIED(sts_next_image_list_s);
CARRIED(sts_next_lsu_list_s);
CARRIED(sts_next_evchannel_s);
CARRIED(sts_next_operation_s);
#undef CARRIED

/// An operation: a slot of the table, or the entry of the plugin.
template <auto slot, auto entry, typename Type = decltype(slot)>
struct operation;

template <auto slot, auto entry, typename... Arguments>
struct operation<slot, entry, int (*sts_api_t::*)(Arguments...)> {
    int operator()(typename carried<Arguments>::type... arguments) const {
        const stack& host = stack::current();
        return host.entries != nullptr ? (host.entries->*entry)(arguments...)
                                       : (host.table->*slot)(arguments...);
    }
};

namespace call {

#define OPERATION(slot, entry)                                                                     \
    inline constexpr operation<&sts_api_t::slot, &stspi_ep_t::entry> slot {}
OPERATION(async_cancel, async_cancel);
OPERATION(async_wait, async_wait);
OPERATION(copy_extent, copy_extent);
OPERATION(create_image, create_image_v10);
OPERATION(delete_event, delete_event);
OPERATION(delete_files, delete_files);
OPERATION(delete_image, delete_image_v10);
OPERATION(find_lsu, find_lsu);
OPERATION(flush, async_flush);
OPERATION(get_event_payload, get_event_payload);
OPERATION(get_event, get_event);
OPERATION(get_image_group_byname, get_image_group_byname);
OPERATION(get_image_group, get_image_group);
OPERATION(get_image_prop_byname, get_image_prop_byname_v10);
OPERATION(get_image_prop, get_image_prop_v10);
OPERATION(get_lsu_prop_byname, get_lsu_prop_byname_v11);
OPERATION(get_lsu_replication_prop, get_lsu_replication_prop);
OPERATION(get_server_config, get_server_config_v11);
OPERATION(get_server_prop_byname, get_server_prop_byname_v8);
OPERATION(get_server_prop, get_server_prop_v8);
OPERATION(include_in_image, include_in_image);
OPERATION(ioctl, ioctl_v9);
OPERATION(label_lsu, label_lsu);
OPERATION(list_image, list_image_v10);
OPERATION(list_lsu, list_lsu_v7);
OPERATION(open_image_group_list, open_image_group_list);
OPERATION(open_image_list, open_image_list_v7);
OPERATION(open_image, open_image_v10);
OPERATION(open_lsu_list, open_lsu_list_v11);
OPERATION(open_target_server, open_target_server);
OPERATION(read_image_meta, read_image_meta);
OPERATION(read_image, read_image_v7);
OPERATION(set_server_config, set_server_config_v11);
OPERATION(write_image_meta, write_image_meta);
OPERATION(write_image, write_image_v7);
#undef OPERATION

// Those that a host does in another way on the disk alone. There a session comes before a server or
// a channel; one handle stands for both, and its close closes both.
int open_server(const sts_session_def_v7_t* session, const char* name, handle_place opened);
int close_server(handle server);
/// `source` is a const sts_event_source_s*. A channel that was given on a failure is to be closed.
int open_events(const sts_session_def_v7_t* session, const char* name, void* source,
                sts_event_start_t start, handle_place opened);
int close_events(handle channel);

// One close for each kind of handle.
int close_image(handle image, int32_t mode);
int close_image_list(handle list);
int close_lsu_list(handle list);

// What is given for a new LSU or a copy is a handle of the storage's, or a layer's holder with what
// it got from below.
int create_lsu(handle server, const sts_lsu_def_s* definition, handle_place made);
int delete_lsu(const sts_lsu_ref_s& lsu);
int async_copy_image(const sts_image_def_s& source, const sts_lsu_ref_s& lsu,
                     const sts_copy_target_s& target, handle_place started, uint32_t flags,
                     const sts_copy_params_s& params);
/// Whether there is nothing in what was given, if anything was.
bool is_empty(handle given);
/// Releases what was given for an LSU, or for a copy that has ended or never began.
void release_lsu(handle given);
void release_operation(handle given);

} // namespace call
