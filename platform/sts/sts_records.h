// The records of the disk-backed storage library: what a host that talks to it, directly or through
// other layers, reads and writes. Layers in between carry them and touch only the server's name.
//
// All texts are terminated, all times are seconds since the epoch, all sizes bytes.
#pragma once

#include "plugin/stsapi.h"

#include <cstddef>
#include <cstdint>

constexpr size_t STS_IMAGE_NAME_SIZE = 256; ///< bytes of an image's name, terminator included

/// Names an image when it is created, opened, read about or deleted.
struct sts_image_def_s {
    char name[STS_IMAGE_NAME_SIZE];  ///< no "/", not "." or "..", not empty
    char group[STS_IMAGE_NAME_SIZE]; ///< group that a new image belongs to; may be empty
};

/// Flags of create and open.
enum sts_image_flag_t : uint32_t {
    STS_IMAGE_READ = 1,
    STS_IMAGE_WRITE = 2,
};

/// Mode of closing an image that was opened for writing.
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

/// Describes an LSU to be created.
struct sts_lsu_def_s {
    char name[STS_LSU_NAME_SIZE]; ///< no "/", not "." or "..", not empty
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

struct sts_server_info_s {
    char server_name[STS_NAME_SIZE];
    uint64_t lsu_count;
    uint64_t capacity; ///< of the file system
    uint64_t free;     ///< of the file system
};
static_assert(offsetof(sts_server_info_s, server_name) == STS_SERVER_INFO_NAME);

/// What `list_lsu` fills.
struct sts_lsu_entry_s {
    char name[STS_LSU_NAME_SIZE];
};

/// What `list_image` fills for a list of images; for a list of groups `name` is the group's.
struct sts_image_entry_s {
    char name[STS_IMAGE_NAME_SIZE];
    char group[STS_IMAGE_NAME_SIZE];
    uint64_t size;
};
