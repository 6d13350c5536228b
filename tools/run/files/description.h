// What a file is besides its content, put into an archive entry: type, mode, owner, times, access
// control lists, extended attributes and holes.
#pragma once

#include "tools/run/archive/archive_stream.h"
#include "tools/run/files/content_file.h"

#include <string>
#include <sys/stat.h>

class file_describer {
  public:
    file_describer();

    /// Describes the file of `path`, of which `content` is open unless it is no regular file, and
    /// `status` then what the system says of it (null: ask). False when it can't be described;
    /// `trouble` is empty when all is well.
    bool describe(archive_entry* entry, const std::string& path, const content_file& content,
                  const struct stat* status, std::string& trouble);

  private:
    archive_ptr disk_;
};
