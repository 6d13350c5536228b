// Plugins: shared objects whose servers are opened through this library, as a host opens them. So
// layers stack: a plugin that stands on this library asks it for a server, and another one claims
// the name.
//
//   VL_STS_PLUGINS=/path/to/one.so:/path/to/other.so
//
// They are loaded in that order when the library gets its first user, and stopped and unloaded in
// the reverse order when it loses its last one; what they hold of it themselves doesn't count. A
// path is as for dlopen(3); empty ones are passed over. A plugin that the process has loaded
// already, as a host has its own, can't be loaded once more: it would be both above and below
// itself. A copy of the file under another name can.
//
// One that can't be used is passed over: its reason goes to the standard error output, and to the
// session of everybody who asks for a server that no plugin claims.
#pragma once

#include "platform/sts/caller/failure.h"
#include "plugin/stspi_entries.h"

#include <string>

namespace disk {

/// Why a plugin isn't used.
struct plugin_refusal {
    std::string reason;
};

/// A plugin that was started.
class plugin {
  public:
    /// Loads it and starts it with the host's own path for plugins; throws a plugin_refusal.
    plugin(const std::string& path, const char* host_path);
    ~plugin();
    plugin(const plugin&) = delete;
    plugin& operator=(const plugin&) = delete;

    /// Calls an entry; STS_ERR_NOT_SUPPORTED where it has none.
    template <auto entry, typename... Arguments>
    int call(Arguments... arguments) const {
        const auto function = entries_->*entry;
        return function != nullptr ? function(arguments...) : STS_ERR_NOT_SUPPORTED;
    }
    /// As throttling_create_lsu and throttling_delete_lsu (throttling.h), which stand in its second
    /// table.
    int create_lsu(throttling_server_s* server, const sts_lsu_def_s* definition, void*** out) const;
    int delete_lsu(sts_lsu_ref_s* lsu) const;

    /// Whether dlopen gives that for its file.
    bool is(const void* library) const { return library == library_; }

  private:
    void find_second_table();

    std::string path_;
    void* library_;
    const stspi_ep_t* entries_ = nullptr;
    void* const* second_table_ = nullptr; ///< null where it has none
};

/// Loads what VL_STS_PLUGINS lists.
void load_plugins(const char* host_path);
/// Stops and unloads them all.
void unload_plugins();

/// Calls `body` with the first plugin that claims the name; STS_ERR_NOT_CLAIMED where none does.
/// As long as that lasts, the same plugin isn't asked for the same name again on this thread.
template <typename Body>
int through_plugin(const char* server_name, const sts_session_def_v7_t& session, Body body);

// --- the inside of through_plugin ---------------------------------------------------------------

/// A name on its way through a plugin, and those of its thread that it lies within.
class passage {
  public:
    passage(const char* server_name, const sts_session_def_v7_t& session);
    ~passage();
    passage(const passage&) = delete;
    passage& operator=(const passage&) = delete;

    const plugin& claimant() const { return *claimant_; }

  private:
    static bool may_ask(const plugin& asked, const char* server_name);

    static thread_local const passage* innermost_;
    const passage* outer_;
    const char* server_name_;
    const plugin* claimant_;
};

template <typename Body>
int through_plugin(const char* server_name, const sts_session_def_v7_t& session, Body body) {
    const passage opened(server_name, session);
    return body(opened.claimant());
}

} // namespace disk
