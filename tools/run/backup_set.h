// A backup is a set of images, one for each stream, named BACKUP.1of4, BACKUP.2of4 and so on. All
// are opened before the first moves data and closed behind the last, so that a backup is there as a
// whole or not at all. backup_claim.h sees to it that no other of the name is made meanwhile.
#pragma once

#include "tools/host/plugin_host.h"
#include "tools/run/streams/transfer.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// "BACKUP.1of4" for `index` 0 of `count` 4.
std::string stream_image(const std::string& backup, size_t index, size_t count);

/// The backup that an image belongs to; empty when it belongs to none.
std::string backup_of(const std::string& image);

struct found_backup {
    std::vector<listed_image> images; ///< in order
    std::vector<std::string> missing; ///< names of images that ought to be there
};

/// Of all `images` of an LSU those of `backup`. Fails when it isn't there or is there twice.
found_backup find_backup(const std::vector<listed_image>& images, const std::string& lsu,
                         const std::string& backup);

/// The open images of a run.
class image_set {
  public:
    explicit image_set(transfer& run) : run_(run) {}
    /// Abandons what is open, unless even that would end the process.
    ~image_set();
    image_set(const image_set&) = delete;
    image_set& operator=(const image_set&) = delete;

    void add(host_image&& image) { images_.emplace_back(std::move(image)); }
    /// Opens a backup's images to be read, each on its stream's account, but for those that the
    /// storage finds damaged or gone: `lost` is told of them.
    void open(const host_server& server, const std::string& lsu,
              const std::vector<listed_image>& set,
              const std::function<void(const std::string& image, const std::string& reason)>& lost);
    bool is_open(size_t index) const { return images_[index].has_value(); }
    host_image& operator[](size_t index) { return *images_[index]; }
    /// Closes all, each on its stream's account. Ends as `abandoned` when the run is to stop.
    void close();
    /// Images closed so far.
    size_t closed() const { return closed_; }

  private:
    transfer& run_;
    std::vector<std::optional<host_image>> images_;
    size_t closed_ = 0;
};
