// Servers "pipe:NAME", which keep nothing: what is written to their images is forgotten, and what is
// read from them is zeros, without an end. So whoever moves data elsewhere can have it paced by the
// layers above.
#pragma once

#include "platform/sts/caller/handles.h"
#include "platform/sts/sts_records.h"

namespace disk {

bool is_pipe_name(const char* server_name);
/// Whether that is the handle of one, or of an image on one, live or not.
bool is_pipe_server(const void* handle);
bool is_pipe_image(const void* handle);

int open_pipe_server(const char* server_name, sts_next_server_s** out);

/// Any image, by any name of an LSU and an image that is one, can be made and opened any number of
/// times.
int open_pipe_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                    sts_next_image_s** out);

int read_pipe(const sts_next_image_s* image, void* buffer, uint64_t length, uint64_t* bytes_read);
int write_pipe(const sts_next_image_s* image, uint64_t length, uint64_t* bytes_written);

} // namespace disk
