// The settings file on the disk, as processes share it: read whole, replaced whole, and never by a
// text that stems from another one than the file holds.
//
//   read      a look at the file, under a shared lock       -> settings_seen
//   change    in memory, with no lock held
//   replace   the new text is laid beside the file; then, under an exclusive lock, it takes the
//             file's place if that is as it was seen, else the caller begins again
//
// The lock is the directory's (flock), so it leaves nothing behind. It is advisory and held for
// moments only; where it can't be had in time, things go on without it.
#pragma once

#include "config/throttling_util.h"

#include <cstdio>
#include <memory>

struct close_file {
    void operator()(FILE* file) const { fclose(file); }
};
/// Owns an open file.
using file_ptr = std::unique_ptr<FILE, close_file>;

/// Opens a settings file for reading. Null, with the reason in errno, when it can't be opened; so
/// too for what could block the reader or never end: a FIFO, a device, a socket (EINVAL).
file_ptr open_settings(const char* path);

/// What the open file holds now. Leaves its position alone.
settings_seen look_at(int descriptor);

/// The lock of the directory in which `path` is, while this lives.
class directory_lock {
  public:
    /// `operation` is LOCK_SH or LOCK_EX. Waits for a second at most, and then does without. What a
    /// process waits in vain for all its locks together is that second, and a hundredth of its time
    /// beyond it: any reader of the directory can hold the lock for ever.
    directory_lock(const char* path, int operation);
    ~directory_lock();
    directory_lock(const directory_lock&) = delete;
    directory_lock& operator=(const directory_lock&) = delete;

  private:
    int directory_ = -1;
    bool held_ = false;
};

/// Puts `text` in the place of what `path` holds, whole or not at all where the directory takes
/// another file; a link, a device, and a file that has several names or another owner, is written
/// through.
/// `seen` is what the text stems from; null: nothing. STS_ERR_END_OF_LIST: the file can't be opened
/// for writing; STS_ERR_FILE: the text can't be written; settings_left: what it stems from couldn't
/// be read; settings_overtaken: the file is no longer as it was seen. Unless it answers 0 the file
/// is as it was, but for a failure while it is written through.
int replace_settings(const char* path, const char* text, const settings_seen* seen);
