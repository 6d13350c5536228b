// Functions that don't fail by themselves, made to fail: the linker sends the plugin's calls here
// (--wrap), and they are the real ones until a test says otherwise.
#pragma once

namespace wrapped {

/// What they answer in place of the real ones; 0: the real ones are called.
extern int connector_init;
extern int connector_terminate;
extern int connector_disconnect;
extern int read_config;

/// The memory of the C library can't be had.
extern bool calloc_fails;
extern bool strdup_fails;

/// Everything is real again.
void clear();

} // namespace wrapped
