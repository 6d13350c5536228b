// A backup that is read, whatever is done with what is in it: its server, the images that it is,
// and a stream for each.
#pragma once

#include "tools/run/backup_set.h"
#include "tools/run/operation.h"

#include <functional>
#include <string>
#include <vector>

class backup_reading {
  public:
    /// Told of an image that is missing, or that the storage finds damaged or gone.
    using lost_image = std::function<void(const std::string& image, const std::string& reason)>;
    /// What is done with an image, in the thread of its stream.
    using image_work = std::function<void(size_t index, host_image& image, stream& account)>;

    /// Opens the server and finds the backup's images. Fails when there is no such backup.
    backup_reading(const run_options& options, transfer& run, lost_image lost);

    const std::vector<listed_image>& images() const { return set_.images; }
    /// Runs `work` for every image that can be opened, and closes them.
    void read(const image_work& work);
    /// Closes the server.
    void close() { from_.server.close(); }

  private:
    const run_options& options_;
    transfer& run_;
    const lost_image lost_;
    connection from_;
    found_backup set_;
};
