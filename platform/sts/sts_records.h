// The disk-backed storage library as a host sees it: the records that it reads and writes, the
// flags and statuses, and what each forwarded value means. Layers in between carry all of this and
// touch only the server's name.
//
// All texts are terminated, all times are seconds since the epoch, all sizes bytes. Records that
// the library fills are filled whole, unused bytes with zeros, and only when the status is 0.
//
// Server names: "disk:ROOT", where ROOT is an absolute path, or a plain name below the directory in
// the environment's VL_STS_ROOT. Opening a server makes ROOT where its parent directory exists.
// What the library makes is its owner's alone; of what others can read in a store that is there the
// session is warned, and nothing is changed.
//
// A server "pipe:NAME" keeps nothing: of any LSU images are made and opened by any name, what is
// written to them is forgotten, and what is read is zeros. It takes nothing else: other calls on it
// answer STS_ERR_INVALID.
//
// Any other name is opened through the first plugin that claims it, of those in VL_STS_PLUGINS:
//
//   VL_STS_PLUGINS=/path/to/one.so:/path/to/other.so
//
// which is read when the library gets its first user.
//
// What such a server, its images and its lists are asked goes to the plugin, whose status is that
// of the call: STS_ERR_NOT_SUPPORTED where it has no entry. A name that no plugin claims answers
// STS_ERR_NOT_CLAIMED, and the session's log says which plugins couldn't be used and why (see
// plugins/manager.h). An asynchronous copy goes to a "disk:" server always, or to the source's.
//
// Names of images and LSUs are bytes: not empty, not "." or "..", without "/", at most 255 bytes.
// An LSU's name doesn't begin with "." either, and isn't "lost+found". Others answer
// STS_ERR_INVALID, and so do null handles, stale ones and those of the wrong kind. Anything that
// isn't there answers the status of ENOENT, a new thing that is there already that of EEXIST.
//
// What the forwarded values of the table's operations are; a value not named is 0 and isn't looked
// at, and a flag that isn't known answers STS_ERR_INVALID:
//
//   add_evsource             parameter: STS_EVENTS_FROM_NOW or STS_EVENTS_KEPT
//                            event source: const sts_event_source_s*
//   async_copy_image         source: const sts_image_def_s*, an image of the LSU
//                            target: const sts_copy_target_s*, the image to be made
//                            copy parameters: sts_disk_copy_params_s; flags: 0
//   async_wait               seconds to wait; 0 only looks, a negative number waits until the end
//   copy_extent              position in the first image, (second image,) position in the second,
//                            length, uint64_t* copied, 0: from the second image into the first
//   delete_files             bits of sts_image_files_t
//   find_lsu                 const char* label, sts_lsu_entry_s* found: the first with that label
//   get_event_payload        const sts_event_s*, sts_event_payload_s*
//   get_image_group          sts_image_group_s*
//   get_image_group_byname   const char* group, sts_image_group_s*
//   get_lsu_replication_prop how many peers there is room for, sts_replication_peer_s* sources,
//                            the same for targets: an array is filled up with zeros behind its
//                            last peer; STS_ERR_BUFFER_SPACE when there is no room for all
//   include_in_image         position in the first image, (second image,) uint64_t* copied: the
//                            whole of the second image
//   label_lsu                const char* label, at most 511 bytes
//   open_target_server       const char* server name, or null for one more handle of this server
//   read_image_meta          buffer, length, position, uint64_t* bytes_read
//   write_image_meta         const buffer, length, position, uint64_t* bytes_written
//   write_image, flush, open_evchannel, open_image_group_list, open_lsu_list, open_server: none
//
// A list's type is 0. Reading the properties of a list gives those of the image that it gave last,
// STS_ERR_END_OF_LIST where there is none.
#pragma once

#include "plugin/stsapi.h"

#include <cstddef>
#include <cstdint>

// --- statuses ----------------------------------------------------------------------------------

/// A failed call of the operating system is told as this plus its errno: 2061002 says ENOENT,
/// 2061028 ENOSPC. Those in use beyond the system's own: EBADMSG for an image whose header is
/// damaged or doesn't fit its data, ECANCELED for a copy that was cancelled, ENOTTY for a control
/// command that isn't known, ENOTEMPTY for deleting an LSU with images, EBADF for a transfer that
/// the image wasn't opened for, EBUSY for a lock of the store that another process has held for
/// half a minute, of which the session's log tells more, and EINTR where a signal ended the wait.
constexpr int STS_STATUS_ERRNO = 2061000;

constexpr int sts_status_of_errno(int error) { return STS_STATUS_ERRNO + error; }

/// The errno in a status; 0 for a status that holds none.
constexpr int sts_errno_of_status(int status) {
    return status > STS_STATUS_ERRNO && status < STS_STATUS_ERRNO + 4096 ? status - STS_STATUS_ERRNO
                                                                         : 0;
}

// --- images ------------------------------------------------------------------------------------

constexpr size_t STS_IMAGE_NAME_SIZE = 256; ///< bytes of an image's name, terminator included

/// Names an image when it is created, opened, read about or deleted.
struct sts_image_def_s {
    char name[STS_IMAGE_NAME_SIZE];  ///< no "/", not "." or "..", not empty
    char group[STS_IMAGE_NAME_SIZE]; ///< group that a new image belongs to; may be empty
};

/// Flags of create and open. A created image can always be written; an open without flags reads.
///
/// An image opened for writing is written beside the one that is there: readers go on seeing the
/// old one, whole, until the writer closes it as complete, and then the last writer's stays.
enum sts_image_flag_t : uint32_t {
    STS_IMAGE_READ = 1,
    STS_IMAGE_WRITE = 2,
};

/// Mode of closing an image that was opened for writing. The handle is gone in any case; with
/// another mode, and after a failure, what was written is given up.
enum sts_close_mode_t : int32_t {
    STS_CLOSE_COMPLETE = 0, ///< the image is whole: it is there from now on
    STS_CLOSE_ABANDON = 1,  ///< what was written since the open is given up
};

struct sts_image_info_s {
    char name[STS_IMAGE_NAME_SIZE];
    char group[STS_IMAGE_NAME_SIZE];
    char lsu[STS_LSU_NAME_SIZE];
    uint64_t size;
    int64_t created;
    int64_t modified;
    unsigned char reserved[6360 - 2 * STS_IMAGE_NAME_SIZE - STS_LSU_NAME_SIZE - 24];
    char server_name[STS_NAME_SIZE];
};
static_assert(offsetof(sts_image_info_s, server_name) == STS_IMAGE_INFO_NAME);

/// What `list_image` fills for a list of images; for a list of groups `name` is the group's and
/// `size` that of all its images.
struct sts_image_entry_s {
    char name[STS_IMAGE_NAME_SIZE];
    char group[STS_IMAGE_NAME_SIZE];
    uint64_t size;
};

/// A group: what the images of one LSU that were created with its name have in common.
struct sts_image_group_s {
    char name[STS_IMAGE_NAME_SIZE];
    uint64_t image_count;
    uint64_t size; ///< of all its images
};

/// What `delete_files` removes from an image that is open for writing.
enum sts_image_files_t : uint64_t {
    STS_FILES_DATA = 1, ///< its data: its size is 0
    STS_FILES_META = 2, ///< its metadata
};

// --- LSUs and servers --------------------------------------------------------------------------

/// Describes an LSU to be created.
struct sts_lsu_def_s {
    char name[STS_LSU_NAME_SIZE]; ///< no "/", no "." at its start, not empty
    char label[STS_NAME_SIZE];    ///< may be empty
};

struct sts_lsu_info_s {
    uint64_t image_count;
    char server_name[STS_NAME_SIZE];
    char name[STS_LSU_NAME_SIZE];
    char label[STS_NAME_SIZE];
    uint64_t capacity; ///< of the file system
    uint64_t used;     ///< by this LSU's images
    uint64_t free;     ///< of the file system
};
static_assert(offsetof(sts_lsu_info_s, server_name) == STS_LSU_INFO_NAME);

/// What `list_lsu` fills.
struct sts_lsu_entry_s {
    char name[STS_LSU_NAME_SIZE];
};

/// An LSU that images were copied from or to; an empty server name is behind the last one.
struct sts_replication_peer_s {
    char server_name[STS_NAME_SIZE];
    char lsu[STS_LSU_NAME_SIZE];
};

struct sts_server_info_s {
    char server_name[STS_NAME_SIZE];
    uint64_t lsu_count;
    uint64_t capacity; ///< of the file system
    uint64_t free;     ///< of the file system
};
static_assert(offsetof(sts_server_info_s, server_name) == STS_SERVER_INFO_NAME);

// --- asynchronous copies -----------------------------------------------------------------------

/// The image that an asynchronous copy makes, in the group of its source.
struct sts_copy_target_s {
    char server_name[STS_NAME_SIZE]; ///< as for opening a server; empty: the source's
    char lsu[STS_LSU_NAME_SIZE];
    char image[STS_IMAGE_NAME_SIZE];
};

/// What this library reads of a copy's parameters.
struct sts_disk_copy_params_s {
    uint64_t block_size;       ///< bytes copied between two looks at a cancel; 0: 1 MiB
    uint64_t bytes_per_second; ///< 0: as fast as it goes
    unsigned char reserved[240];
};
static_assert(sizeof(sts_disk_copy_params_s) == sizeof(sts_copy_params_s));

enum sts_async_state_t : uint32_t {
    STS_ASYNC_RUNNING = 0,
    STS_ASYNC_ENDED = 1,
};

/// What `async_wait` fills. Its own status is 0 also when the operation failed or still runs. The
/// operation is released by the wait that finds it ended; a later call of it answers
/// STS_ERR_INVALID.
struct sts_async_status_s {
    uint32_t state; ///< sts_async_state_t
    uint32_t reserved;
    int32_t result; ///< status of the operation once it has ended
    uint32_t reserved_2;
    uint64_t bytes_copied;
    uint64_t bytes_total;
};
static_assert(offsetof(sts_async_status_s, result) == STS_ASYNC_STATUS_RESULT);

// --- events ------------------------------------------------------------------------------------

enum sts_event_kind_t : uint32_t {
    STS_EVENT_IMAGE_CREATED = 1,
    STS_EVENT_IMAGE_CHANGED = 2, ///< an image that was there was written again
    STS_EVENT_IMAGE_DELETED = 3,
    STS_EVENT_LSU_CREATED = 4,
    STS_EVENT_LSU_DELETED = 5,
    STS_EVENT_LSU_LABELLED = 6,
};

/// One event. A server keeps them, in the order in which they happened, until they are deleted or
/// there are more than STS:EVENTS_KEPT of them.
struct sts_event_s {
    uint64_t number; ///< grows with each event of a server, from 1 on
    int64_t time;
    char server_name[STS_NAME_SIZE]; ///< as it was given to add_evsource
    uint32_t kind;                   ///< sts_event_kind_t
    uint32_t payload_length;         ///< bytes, without terminator
    char lsu[STS_LSU_NAME_SIZE];
    char image[STS_IMAGE_NAME_SIZE]; ///< empty where no image is concerned
};
static_assert(offsetof(sts_event_s, server_name) == STS_EVENT_NAME);

/// More about an event, as "key=value" lines: size and group of an image, label of an LSU.
struct sts_event_payload_s {
    uint32_t length; ///< bytes of `text`, without terminator
    char text[4092];
};

/// Which events of a server a channel is to receive.
struct sts_event_source_s {
    char lsu[STS_LSU_NAME_SIZE]; ///< events of that LSU alone; empty: of all
    uint64_t kinds;              ///< bits 1 << sts_event_kind_t; 0: all kinds
};

/// Where a channel begins with a server's events.
enum sts_event_start_t : uint64_t {
    STS_EVENTS_FROM_NOW = 0, ///< with the first one after this call
    STS_EVENTS_KEPT = 1,     ///< with the oldest one that is still there
};
