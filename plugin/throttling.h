// The frame of the plugin: the handles that the host holds, and what the entries share. A handle
// wraps the next layer's; nearly every entry swaps the one for the other and calls one slot.
#pragma once

#include "config/throttling_util.h"
#include "engine/service_connector.h"
#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include <memory>
#include <new>
#include <string>
#include <vector>

constexpr const char* server_prefix = "CS_throttle:"; ///< begins the name of every server of ours
constexpr size_t server_prefix_length = 12;

/// The next layer's table; null while none is bound. Read afresh at every call.
extern "C" __attribute__((visibility("default"))) const sts_api_t* sts_api;

/// The entries as the host calls them.
extern "C" __attribute__((visibility("default"))) const stspi_ep_t ep;

// --- handles -----------------------------------------------------------------------------------

/// First word of a handle while it is valid; cleared before the memory is released, so that a stale
/// pointer is refused.
enum throttling_magic_t : uint32_t {
    SERVER_MAGIC = 0xab83356f,
    IMAGE_MAGIC = 0x35daa76b,
    LSU_LIST_MAGIC = 0xed9aeb37,
    IMAGE_LIST_MAGIC = 0x3e9ba66b,
};

/// An open server: the centre of the frame, to which every other handle points back. No lock: the
/// host serialises open and close on one server.
struct throttling_server_s {
    uint32_t magic;
    int32_t open_handles; ///< images and lists open on this server
    sts_session_def_v7_t session;
    char server_name[STS_NAME_SIZE]; ///< the full name, always terminated
    sts_server_def_s server_def;     ///< zeros if none was given
    throttling_config_s config;
    char next_server_name[STS_NAME_SIZE]; ///< always terminated
    sts_next_session_s* next_session;     ///< null: this is the end of the stack
    sts_next_server_s* next_server;       ///< null: this is the end of the stack
    ServiceConnector connector;
    std::vector<bandwidth_s> bandwidth; ///< by operation_type_t: read, write
    int32_t security;                   ///< get_cssc_security at open
};

/// An open image.
struct throttling_image_s {
    uint32_t magic;
    sts_lsu_ref_s lsu;      ///< as the host gave it: names our server handle
    sts_lsu_ref_s next_lsu; ///< as the next layer must see it
    sts_next_image_s* next_image;
    uint32_t io_flags; ///< 1: a read has begun; 2: a write has begun
};

/// An open list of a server's LSUs.
struct throttling_lsu_list_s {
    uint32_t magic;
    throttling_server_s* server;
    sts_next_lsu_list_s* next_list;
};

/// An open list of an LSU's images or image groups.
struct throttling_image_list_s {
    uint32_t magic;
    int32_t type;           ///< the list type given to open
    sts_lsu_ref_s lsu;      ///< as the host gave it: names our server handle
    sts_lsu_ref_s next_lsu; ///< as the next layer must see it
    sts_next_image_list_s* next_list;
};

/// An open event channel, independent of any server handle. It has no magic number.
struct throttling_evchannel_s {
    std::string server_name;             ///< the full name given to open
    sts_next_session_s* next_session;    ///< null until opened
    sts_next_evchannel_s* next_channel;  ///< null until opened
    const sts_session_def_v7_t* session; ///< the host's, which outlives the channel
};

/// Releases a handle, its magic number cleared first. The store is volatile because a compiler may
/// drop one to memory that is about to be released.
struct release_handle {
    template <typename Handle>
    void operator()(Handle* handle) const {
        *const_cast<volatile uint32_t*>(&handle->magic) = 0;
        delete handle;
    }
};
/// Owns a handle while the host doesn't.
template <typename Handle>
using handle_ptr = std::unique_ptr<Handle, release_handle>;

inline bool is_valid(const throttling_server_s* server) {
    return server != nullptr && server->magic == SERVER_MAGIC;
}

inline bool is_valid(const throttling_image_s* image) {
    return image != nullptr && image->magic == IMAGE_MAGIC;
}

inline bool is_valid(const throttling_lsu_list_s* list) {
    return list != nullptr && list->magic == LSU_LIST_MAGIC;
}

inline bool is_valid(const throttling_image_list_s* list) {
    return list != nullptr && list->magic == IMAGE_LIST_MAGIC;
}

/// The server that an LSU record names; null where the record is null.
inline throttling_server_s* server_of(const sts_lsu_ref_s* lsu) {
    return lsu != nullptr ? static_cast<throttling_server_s*>(lsu->server) : nullptr;
}

/// The server that an open image belongs to.
inline throttling_server_s& server_of(const throttling_image_s& image) {
    return *server_of(&image.lsu);
}

/// The same LSU as the next layer must see it: its own server handle, and all 1024 name bytes.
inline sts_lsu_ref_s next_lsu_of(const sts_lsu_ref_s& lsu) {
    sts_lsu_ref_s next = lsu;
    next.server = server_of(&lsu)->next_server;
    return next;
}

/// Calls `body`. Nothing is thrown at the host: memory that can't be had becomes STS_ERR_NOMEM.
template <typename Body>
int without_throwing(Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return STS_ERR_NOMEM;
    }
}

// --- server names ------------------------------------------------------------------------------

/// Writes a server name into its field of a record, `offset` bytes from the start: the way back up,
/// so that the host reads a name by which it can reach this layer again. Cut to 511 characters and
/// padded with zeros.
void store_server_name(void* record, size_t offset, const char* name);

/// Whether the name begins with our prefix; false for null.
bool has_server_prefix(const char* name);

/// Finds a field of a colon-separated name: 0 is the name itself, n what is behind the n-th colon
/// (the name's first character doesn't count as one), any negative number what is behind the last
/// colon. 0; 1 for a null argument, an empty name or one that starts with a colon; -1 for too few
/// colons.
int get_field_ptr_in_name(const char* name, int32_t field, const char** out);

/// Splits CS_throttle:TYPE:...:SERVER. Both buffers have STS_NAME_SIZE bytes; what isn't there is
/// left empty.
void get_net_server_name_type(const char* name, char* server, char* type);

// --- start and stop ----------------------------------------------------------------------------

/// Binds the next layer. STS_ERR_VERSION: `version` isn't 12; STS_ERR_INVALID: `path` is null; else
/// what the storage library answers.
int sts_init(uint64_t version, const char* path);

/// Releases the next layer; a library that stays up for others counts as released.
int sts_terminate();

/// What a call answers while no next layer is bound: STS_ERR_NOT_INIT.
int sts_notinit();

// --- entries -----------------------------------------------------------------------------------

#define DECLARE_ENTRY(name, arguments) int throttling_##name arguments;
#define DECLARE_UNSUPPORTED(name) int throttling_##name();
STSPI_ENTRIES(DECLARE_ENTRY, DECLARE_UNSUPPORTED)
#undef DECLARE_ENTRY
#undef DECLARE_UNSUPPORTED

extern "C" {

/// The entry point that the host calls first: starts the layer once, then fills `api`.
/// STS_ERR_PLUGIN_VERSION: `version` is below 11; else the status of the step that failed.
__attribute__((visibility("default"))) int stspi_init(uint64_t version, const char* path,
                                                      stspi_api_rec_t* api);

/// The second entry point, for LSU creation and deletion. STS_ERR_INVALID: `out` is null;
/// STS_ERR_PLUGIN_VERSION: `version` is below 11.
__attribute__((visibility("default"))) int stspi_init2(uint64_t version, stspi_api2_rec_t* out);

/// Creates an LSU: stores a holder of the next layer's handle in `out`, also when that fails. The
/// holder comes from malloc and is the host's to free; with no next layer there is none. `server`
/// isn't checked. STS_ERR_INVALID: another argument is null; STS_ERR_NOMEM: no holder, `out` is as
/// it was.
__attribute__((visibility("default"))) int
throttling_create_lsu(throttling_server_s* server, const sts_lsu_def_s* definition, void*** out);

/// Deletes an LSU. `lsu` comes from malloc and is released by this call, whatever its status; the
/// server that it names isn't checked. STS_ERR_INVALID: `lsu` is null.
__attribute__((visibility("default"))) int throttling_delete_lsu(sts_lsu_ref_s* lsu);

/// For the host; this library neither reads nor writes it.
extern __attribute__((visibility("default"))) int32_t stspi_ismt;

/// Slot 4 creates an LSU, slot 9 deletes one, the others are null.
extern __attribute__((visibility("default"))) void* const PluginEntryPoints2_v11[22];

} // extern "C"
