// An image on disk: a directory of the image's name, with its data, its header and, once there is
// some, its metadata.
//
//   LSU/images/IMAGE/{data,header,meta}
//
// An image that is being written is a draft: the same directory under a name of its own in LSU/new.
// One rename puts the whole draft in its place, so that a process killed at any moment leaves a
// whole image or none. A draft's data file is locked by its writer; one that nobody has locked was
// left behind and is removed when a server is opened next.
#pragma once

#include "platform/sts/store/files.h"
#include "platform/sts/store/locks.h"
#include "platform/sts/sts_records.h"

#include <string>
#include <vector>

namespace disk {

/// What an image's header file holds.
struct image_header {
    char magic[8];
    int64_t created;
    int64_t modified;
    uint64_t size; ///< of the data, when the image was completed
    char group[STS_IMAGE_NAME_SIZE];
};

/// A header for an image that is made now.
image_header new_header(const std::string& group);

bool image_exists(int lsu, const std::string& name);
/// The LSU's directory of images; none where it has had no image yet.
unique_fd find_images(int lsu);
/// The names of the LSU's images, sorted.
std::vector<std::string> image_names(int lsu);

/// The header of an image in that directory, by the shortest way: ENOENT's status where there is no
/// such image, EBADMSG's for one that is damaged.
image_header header_of(int images, const std::string& name);

/// An image that is there, opened for reading. It stays whole when it is deleted or replaced.
struct found_image {
    image_header header;
    unique_fd data;
    unique_fd meta; ///< none where there is no metadata
};

/// ENOENT's status where there is none, EBADMSG's for one that is damaged.
found_image find_image(int lsu, const std::string& name);

/// One image as a walk through an LSU meets it.
struct listed_image {
    std::string name;
    image_header header;
};
/// The images of the LSU that aren't damaged.
std::vector<listed_image> list_images(int lsu);

/// Takes the image out of the LSU at once, then removes its files.
void remove_image(int lsu, const std::string& name);

/// Removes the drafts whose writers are gone. The caller holds the LSU's exclusive lock.
void remove_abandoned_drafts(int lsu);

/// How a draft takes its place.
enum class placement {
    creates,  ///< where there is no image of that name
    replaces, ///< where there is one
};

/// An image that is being written. Gone with its files unless it is published.
class draft {
  public:
    draft(int lsu, const lock_waiter& waiter);
    /// Starts from what `image` holds.
    draft(int lsu, const found_image& image, const lock_waiter& waiter);
    draft(draft&&) = default;
    draft& operator=(draft&&) = delete;
    ~draft();

    int data() const { return data_.get(); }
    /// None where there is no metadata yet.
    unique_fd meta() const;
    unique_fd make_meta();
    void remove_meta();

    /// Completes the header, whose size and time of change are set here, and puts the draft in its
    /// place: EEXIST's or ENOENT's status when the other placement would have been right. The
    /// header as it was written.
    image_header publish(int lsu, const std::string& name, image_header header, placement where,
                         durability wanted);

  private:
    void sync() const;
    void remove() noexcept;

    unique_fd work_; // the directory of all drafts; none once there is nothing left to remove
    std::string id_;
    unique_fd directory_;
    unique_fd data_;
};

} // namespace disk
