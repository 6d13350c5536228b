// The release mark that every unit carries, for a look at a binary with strings(1).
#pragma once

#ifndef VL_RELEASE
#define VL_RELEASE "Vaultaro_9.1.0.1" // product word and version
#endif

[[gnu::used]] static const char VL_STATIC_RELEASE_STR[] = "\n@(#) " VL_RELEASE;

/// The whole mark.
[[maybe_unused]] static const char* get_VL_binary_version1() { return VL_STATIC_RELEASE_STR; }

/// The mark without what leads it: product word and version.
[[maybe_unused]] static const char* get_VL_binary_version2() { return VL_STATIC_RELEASE_STR + 6; }
