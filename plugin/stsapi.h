// The binary contract: what crosses between the host, this plugin and the next layer.
//
//            host
//              |  stspi_init -> stspi_api_rec_t -> ep (stspi_entries.h)
//        this plugin
//              |  stsm_init  -> sts_api_t
//         next layer
//
// Both sides are compiled apart from us, so every size and offset here is held by an assertion and
// none may change. A record whose inside is not ours is only carried, never read.
#pragma once

#include <cstddef>
#include <cstdint>

// --- statuses ----------------------------------------------------------------------------------

/// Status of every operation: 0 is success, the constants below are this library's, anything else
/// comes from the next layer and is passed on as it came.
enum sts_status_t : int {
    STS_OK = 0,
    STS_ERR_INVALID = 2060001,           ///< null or malformed argument, stale handle
    STS_ERR_NOMEM = 2060002,             ///< memory can't be had
    STS_ERR_BUSY = 2060005,              ///< server closed with images or lists still open
    STS_ERR_VERSION = 2060007,           ///< next layer bound with a version other than 12
    STS_ERR_PLUGIN_VERSION = 2060008,    ///< host's version is below 11
    STS_ERR_NOT_CLAIMED = 2060009,       ///< server name is another plugin's
    STS_ERR_NOT_INIT = 2060010,          ///< no next layer is bound; not connected
    STS_ERR_TERMINATE_IGNORED = 2060012, ///< the storage library stays up for others
    STS_ERR_END_OF_LIST = 2060013,   ///< no more entries; also: configuration file can't be opened
    STS_ERR_NOT_SUPPORTED = 2060016, ///< entry that this plugin doesn't implement
    STS_ERR_FILE = 2060017,          ///< a file operation or a service exchange failed
    STS_ERR_OPEN = 2060018,          ///< the log file can't be opened
    STS_ERR_MAX_CONNECTIONS = 2060020, ///< the service refuses one more connection
    STS_ERR_NO_SERVICE = 2060026,      ///< this server needs no service: no failure
    STS_ERR_BUFFER_SPACE = 2060031,    ///< the caller's buffer is too small
    STS_ERR_NO_EVENT = 2060043,        ///< no event is waiting
};

// --- sessions and logging ----------------------------------------------------------------------

/// Severity of a log message. The numbers are the host's and are not in order of weight.
enum sts_severity_v7_t : int {
    STS_SEV_INFO = 1,
    STS_SEV_WARN = 2,
    STS_SEV_DEBUG = 3,
    STS_SEV_ERROR = 4,
    STS_SEV_HOST = 5, ///< for the host alone, passed without the function's name
};

/// Bits of `sts_session_def_v7_t::log_mask`: which severities the host's callback receives.
enum sts_log_mask_t : uint16_t {
    STS_LOG_DEBUG = 1,
    STS_LOG_INFO = 2,
    STS_LOG_WARN = 4,
    STS_LOG_ERROR = 8,
    STS_LOG_HOST = 1024,
};

/// The host's session definition. Copied as one block; only the last three fields are read.
struct sts_session_def_v7_t {
    unsigned char opaque[520];
    const char* session_id; ///< may be null
    /// Receives (session_id, message, severity); null: the host takes no messages.
    void (*log)(const char* session_id, const char* message, sts_severity_v7_t severity);
    uint16_t log_mask; ///< bits of sts_log_mask_t
    unsigned char reserved[6];
};
static_assert(sizeof(sts_session_def_v7_t) == 544);
static_assert(offsetof(sts_session_def_v7_t, session_id) == 520);
static_assert(offsetof(sts_session_def_v7_t, log) == 528);
static_assert(offsetof(sts_session_def_v7_t, log_mask) == 536);

// --- records -----------------------------------------------------------------------------------

constexpr size_t STS_NAME_SIZE = 512;      ///< bytes of a server name field, terminator included
constexpr size_t STS_LSU_NAME_SIZE = 1024; ///< bytes of an LSU name field
constexpr size_t STS_CONFIG_SIZE = 10240;  ///< bytes of a configuration text, terminator included

/// Names an LSU. `server` is the server handle of the layer that receives the record.
struct sts_lsu_ref_s {
    void* server;
    char name[STS_LSU_NAME_SIZE];
};
static_assert(sizeof(sts_lsu_ref_s) == 1032);
static_assert(offsetof(sts_lsu_ref_s, name) == 8);

/// Server definition given to open: carried as one block.
struct sts_server_def_s {
    unsigned char opaque[1032];
};
static_assert(sizeof(sts_server_def_s) == 1032);

/// Parameters of an asynchronous copy, passed by value.
struct sts_copy_params_s {
    unsigned char opaque[256];
};
static_assert(sizeof(sts_copy_params_s) == 256);

/// Buffer of the configuration commands of `sts_ioctl`.
struct sts_config_buffer_s {
    char text[STS_CONFIG_SIZE];
    int32_t used; ///< bytes of `text` in use
};
static_assert(offsetof(sts_config_buffer_s, used) == 10240);

/// Where a record that the next layer fills holds the server's name, 512 bytes from there.
enum sts_name_offset_t : size_t {
    STS_SERVER_INFO_NAME = 0,
    STS_LSU_INFO_NAME = 8,
    STS_EVENT_NAME = 16,
    STS_IMAGE_INFO_NAME = 6360,
};

/// Where an async status record holds the operation's 32-bit result.
constexpr size_t STS_ASYNC_STATUS_RESULT = 8;

// Records and handles whose inside belongs to the next layer or to the host.
struct sts_server_info_s;
struct sts_lsu_info_s;
struct sts_image_info_s;
struct sts_image_def_s;
struct sts_lsu_def_s;
struct sts_event_s;
struct sts_async_status_s;
struct sts_next_session_s;
struct sts_next_server_s;
struct sts_next_image_s;
struct sts_next_image_list_s;
struct sts_next_lsu_list_s;
struct sts_next_evchannel_s;
struct sts_next_operation_s;

/// An argument that is passed on as it came: a pointer or up to 64 bits.
using sts_forwarded_t = uint64_t;

// --- the next layer's table --------------------------------------------------------------------

/// Slots that nobody here calls.
using sts_unused_t = void (*)();

/// The next layer's operations, in the storage library's own order. Slots not named are never
/// called. Every handle is the next layer's. All calls may come on any number of threads at once.
struct sts_api_t {
    sts_unused_t unused_0[1];
    int (*add_evsource)(sts_next_evchannel_s*, int, sts_forwarded_t parameter,
                        const char* server_name, void* event_source, int);
    sts_unused_t unused_2[4];
    int (*async_cancel)(const sts_session_def_v7_t*, sts_next_operation_s*);
    int (*async_copy_image)(const sts_session_def_v7_t*, sts_forwarded_t source,
                            const sts_lsu_ref_s*, sts_forwarded_t target,
                            sts_next_operation_s** operation, uint32_t flags, sts_copy_params_s);
    sts_unused_t unused_8[11];
    int (*async_wait)(const sts_session_def_v7_t*, sts_next_operation_s*, int32_t,
                      sts_async_status_s*);
    sts_unused_t unused_20[4];
    /// Closes a server, session, image, image list, LSU list or event channel.
    int (*close_handle)(void* handle, int32_t mode);
    sts_unused_t unused_25[2];
    int (*copy_extent)(sts_next_image_s*, sts_forwarded_t, sts_next_image_s*, sts_forwarded_t,
                       sts_forwarded_t, sts_forwarded_t, sts_forwarded_t);
    sts_unused_t unused_28[3];
    int (*create_image)(const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t flags,
                        sts_next_image_s** image);
    int (*create_lsu)(sts_next_server_s*, const sts_lsu_def_s*, void** lsu);
    sts_unused_t unused_33[7];
    int (*delete_event)(sts_next_server_s*, sts_event_s*);
    sts_unused_t unused_41[1];
    int (*delete_files)(sts_next_image_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                        sts_forwarded_t, sts_forwarded_t);
    int (*delete_image)(const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t flags);
    int (*delete_lsu)(const sts_lsu_ref_s*);
    sts_unused_t unused_45[3];
    int (*find_lsu)(sts_next_server_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                    sts_forwarded_t, sts_forwarded_t);
    int (*flush)(sts_next_image_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                 sts_forwarded_t, sts_forwarded_t);
    sts_unused_t unused_50[2];
    int (*get_event_payload)(sts_next_server_s*, sts_forwarded_t, sts_forwarded_t);
    int (*get_event)(sts_next_evchannel_s*, sts_event_s*);
    sts_unused_t unused_54[1];
    int (*get_image_group_byname)(const sts_lsu_ref_s*, sts_forwarded_t, sts_forwarded_t);
    int (*get_image_group)(sts_next_image_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                           sts_forwarded_t, sts_forwarded_t);
    int (*get_image_prop_byname)(const sts_lsu_ref_s*, const sts_image_def_s*, sts_image_info_s*);
    /// Takes an image or an image list.
    int (*get_image_prop)(void* handle, sts_image_info_s*);
    int (*get_lsu_prop_byname)(const sts_lsu_ref_s*, sts_lsu_info_s*);
    sts_unused_t unused_60[3];
    int (*get_lsu_replication_prop)(const sts_lsu_ref_s*, uint32_t, void*, uint32_t, void*);
    sts_unused_t unused_64[1];
    int (*get_server_config)(sts_next_server_s*, char* text, uint32_t length, uint32_t* used);
    sts_unused_t unused_66[1];
    int (*get_server_prop_byname)(const sts_session_def_v7_t*, const char* server_name,
                                  sts_server_info_s*);
    sts_unused_t unused_68[1];
    int (*get_server_prop)(sts_next_server_s*, sts_server_info_s*);
    sts_unused_t unused_70[5];
    int (*include_in_image)(sts_next_image_s*, sts_forwarded_t, sts_next_image_s*, sts_forwarded_t,
                            sts_forwarded_t, sts_forwarded_t);
    sts_unused_t unused_76[1];
    int (*ioctl)(sts_next_server_s*, uint32_t command, void* buffer);
    int (*label_lsu)(const sts_lsu_ref_s*, sts_forwarded_t label);
    sts_unused_t unused_79[1];
    int (*list_image)(sts_next_image_list_s*, void* entry);
    int (*list_lsu)(sts_next_lsu_list_s*, void* entry);
    sts_unused_t unused_82[21];
    int (*open_evchannel)(sts_next_session_s*, sts_forwarded_t, sts_forwarded_t,
                          sts_next_evchannel_s** channel);
    int (*open_image_group_list)(const sts_lsu_ref_s*, sts_forwarded_t, int32_t type,
                                 sts_next_image_list_s** list);
    int (*open_image_list)(const sts_lsu_ref_s*, int32_t type, sts_next_image_list_s** list);
    int (*open_image)(const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t flags,
                      sts_next_image_s** image);
    int (*open_lsu_list)(sts_next_server_s*, sts_forwarded_t, sts_next_lsu_list_s** list);
    sts_unused_t unused_108[1];
    int (*open_server)(sts_next_session_s*, const char* server_name, const sts_server_def_s*,
                       sts_forwarded_t, sts_next_server_s** server);
    int (*open_session)(const sts_session_def_v7_t*, sts_next_session_s** session);
    sts_unused_t unused_111[3];
    int (*open_target_server)(sts_next_server_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                              sts_next_server_s** server);
    sts_unused_t unused_115[3];
    int (*read_image_meta)(sts_next_image_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                           sts_forwarded_t, sts_forwarded_t);
    /// `length` and `position` in bytes; the bytes read are stored behind `bytes_read`.
    int (*read_image)(sts_next_image_s*, void* buffer, uint64_t length, uint64_t position,
                      uint64_t* bytes_read);
    sts_unused_t unused_120[3];
    int (*set_server_config)(sts_next_server_s*, const char* text, char* error_text,
                             uint32_t error_length);
    sts_unused_t unused_124[4];
    int (*write_image_meta)(sts_next_image_s*, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                            sts_forwarded_t, sts_forwarded_t);
    /// As read_image; the first forwarded value is the host's own.
    int (*write_image)(sts_next_image_s*, sts_forwarded_t, const void* buffer, uint64_t length,
                       uint64_t position, uint64_t* bytes_written);
};

#define STS_SLOT(name, number)                                                                     \
    static_assert(offsetof(sts_api_t, name) == sizeof(void*) * (number), #name)
STS_SLOT(add_evsource, 1);
STS_SLOT(async_cancel, 6);
STS_SLOT(async_copy_image, 7);
STS_SLOT(async_wait, 19);
STS_SLOT(close_handle, 24);
STS_SLOT(copy_extent, 27);
STS_SLOT(create_image, 31);
STS_SLOT(create_lsu, 32);
STS_SLOT(delete_event, 40);
STS_SLOT(delete_files, 42);
STS_SLOT(delete_image, 43);
STS_SLOT(delete_lsu, 44);
STS_SLOT(find_lsu, 48);
STS_SLOT(flush, 49);
STS_SLOT(get_event_payload, 52);
STS_SLOT(get_event, 53);
STS_SLOT(get_image_group_byname, 55);
STS_SLOT(get_image_group, 56);
STS_SLOT(get_image_prop_byname, 57);
STS_SLOT(get_image_prop, 58);
STS_SLOT(get_lsu_prop_byname, 59);
STS_SLOT(get_lsu_replication_prop, 63);
STS_SLOT(get_server_config, 65);
STS_SLOT(get_server_prop_byname, 67);
STS_SLOT(get_server_prop, 69);
STS_SLOT(include_in_image, 75);
STS_SLOT(ioctl, 77);
STS_SLOT(label_lsu, 78);
STS_SLOT(list_image, 80);
STS_SLOT(list_lsu, 81);
STS_SLOT(open_evchannel, 103);
STS_SLOT(open_image_group_list, 104);
STS_SLOT(open_image_list, 105);
STS_SLOT(open_image, 106);
STS_SLOT(open_lsu_list, 107);
STS_SLOT(open_server, 109);
STS_SLOT(open_session, 110);
STS_SLOT(open_target_server, 114);
STS_SLOT(read_image_meta, 118);
STS_SLOT(read_image, 119);
STS_SLOT(set_server_config, 123);
STS_SLOT(write_image_meta, 128);
STS_SLOT(write_image, 129);
#undef STS_SLOT

extern "C" {

/// Binds the storage library: `version` is 12, `path` the host's plugin path. Fills `*table`.
int stsm_init(uint64_t version, const char* path, const sts_api_t** table);

/// Releases it: 0, or STS_ERR_TERMINATE_IGNORED when it stays up for others.
int stsm_terminate();

} // extern "C"

// --- the record for the host -------------------------------------------------------------------

struct stspi_ep_t;

/// What `stspi_init` fills for the host, in memory of the host's.
struct stspi_api_rec_t {
    uint64_t version; ///< 11
    const stspi_ep_t* ep;
    char prefix[32]; ///< begins every server name that this plugin claims; zero-padded
    char label[32];  ///< zero-padded
    unsigned char untouched[448];
    uint32_t fixed_528;
    uint32_t fixed_532;
    uint64_t fixed_536;
    uint64_t fixed_544;
    uint64_t version_copy;
    char version_text[32]; ///< "910000 PRODUCT_VERSION", at most 30 characters
};
static_assert(sizeof(stspi_api_rec_t) == 592);
static_assert(offsetof(stspi_api_rec_t, ep) == 8);
static_assert(offsetof(stspi_api_rec_t, prefix) == 16);
static_assert(offsetof(stspi_api_rec_t, label) == 48);
static_assert(offsetof(stspi_api_rec_t, fixed_528) == 528);
static_assert(offsetof(stspi_api_rec_t, fixed_536) == 536);
static_assert(offsetof(stspi_api_rec_t, fixed_544) == 544);
static_assert(offsetof(stspi_api_rec_t, version_copy) == 552);
static_assert(offsetof(stspi_api_rec_t, version_text) == 560);

/// What `stspi_init2` fills: the version (11) and a table of 22 slots.
struct stspi_api2_rec_t {
    uint64_t version;
    void* const* entry_points;
};
static_assert(sizeof(stspi_api2_rec_t) == 16);
