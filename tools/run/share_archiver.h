// Archives one stream's share of a backup into its image.
#pragma once

#include "tools/run/archive/archive_stream.h"
#include "tools/run/files/content_file.h"
#include "tools/run/files/description.h"
#include "tools/run/files/file_table.h"
#include "tools/run/files/problems.h"
#include "tools/run/files/scratch_file.h"
#include "tools/run/files/tree.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

class share_archiver {
  public:
    /// `block` in bytes.
    share_archiver(host_image& image, stream& account, const transfer& run, uint64_t block,
                   kept_times times, file_problems& problems);

    void add(const tree_entry& found);
    /// Empty, or why the image has no seal.
    std::string finish() { return writer_.finish(); }

  private:
    /// A part of a file that isn't a hole.
    struct data_range {
        uint64_t start;
        uint64_t end;
    };

    void archive(const tree_entry& found, const content_file& content);
    bool describe(const tree_entry& found, const content_file& content);
    void link();
    void keep_name();
    std::vector<data_range> ranges() const;
    void copy_content(const tree_entry& found, const content_file& content,
                      const std::vector<data_range>& ranges);
    void pass_hole(uint64_t from, uint64_t to);

    archive_writer writer_;
    stream& account_;
    const transfer& run_;
    file_problems& problems_;
    file_describer files_;
    const entry_ptr entry_; ///< the current one
    file_table names_of_;   ///< where in `names_` the first name of a file with several is
    scratch_file names_;
    std::vector<char> buffer_;
    const std::vector<char> zeros_;
};
