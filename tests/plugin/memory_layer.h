// A next layer that keeps its images in memory: for many threads, and for paths that must not
// allocate. Reads and writes take no lock and no memory; handles may be used on any thread.
#pragma once

#include "plugin/stsapi.h"

#include <cstddef>

namespace memory_layer {

constexpr size_t image_size = 1 << 20; ///< bytes of every image

const sts_api_t* table();

/// Sessions, servers and images that are open, in the whole program.
long open_handles();

/// Byte `position` of image number `image`, as every writer writes it.
unsigned char expected_byte(uint32_t image, size_t position);

/// Bytes so far that came with a write and weren't the expected ones.
long wrong_bytes();

} // namespace memory_layer
