// Images on disk: reading one, walking through an LSU's, writing one beside its place.

#include "platform/sts/store/image_files.h"

#include "platform/sts/caller/failure.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace disk {

namespace {

constexpr const char* images_name = "images";
constexpr const char* drafts_name = "new";
constexpr const char* data_name = "data";
constexpr const char* header_name = "header";
constexpr const char* meta_name = "meta";
constexpr char header_magic[8] = {'S', 'T', 'S', 'I', 'M', 'A', 'G', '1'};

std::string_view bytes_of(const image_header& header) {
    return {reinterpret_cast<const char*>(&header), sizeof header};
}

bool is_whole(const image_header& header) {
    return memcmp(header.magic, header_magic, sizeof header_magic) == 0 &&
           is_terminated(header.group);
}

image_header read_header(int image) {
    image_header header = {};
    const std::optional<std::string> content = read_file(image, header_name, sizeof header);
    if (!content || content->size() != sizeof header) {
        fail_errno(EBADMSG);
    }
    memcpy(&header, content->data(), sizeof header);
    if (!is_whole(header)) {
        fail_errno(EBADMSG);
    }
    return header;
}

/// EBADMSG's status when the files don't make an image.
found_image open_image_files(int directory) {
    found_image found = {};
    found.header = read_header(directory);
    found.data = find_file(directory, data_name);
    found.meta = find_file(directory, meta_name);
    if (!found.data || size_of(found.data.get()) != found.header.size) {
        fail_errno(EBADMSG);
    }
    return found;
}

/// What `look` makes of an image's directory. Its files are removed only after it has lost its
/// place: what was found to be wrong with it is the truth only while it has that.
template <typename Look>
auto looked_at(int images, const std::string& name, Look look) {
    for (;;) {
        const unique_fd directory = open_directory(images, name);
        decltype(look(0)) found = {};
        const int status = status_of([&] { found = look(directory.get()); });
        if (status == STS_OK) {
            return found;
        }
        if (is_same_directory(images, name, directory.get())) {
            fail(status);
        }
    }
}

/// Whether nobody works on that draft any more. One that can't be looked at counts as somebody's.
bool is_abandoned(int drafts, const std::string& id) {
    bool locked = false;
    const int status = status_of([&] {
        const unique_fd directory = open_directory(drafts, id);
        const unique_fd data = open_file(directory.get(), data_name, O_RDONLY);
        locked = !try_lock_file(data.get());
    });
    return (status == STS_OK && !locked) || status == sts_status_of_errno(ENOENT);
}

} // namespace

image_header new_header(const std::string& group) {
    image_header header = {};
    memcpy(header.magic, header_magic, sizeof header_magic);
    header.created = time(nullptr);
    header.modified = header.created;
    fill(header.group, group);
    return header;
}

bool image_exists(int lsu, const std::string& name) {
    require(is_plain_name(name));
    return is_directory(lsu, images_name) &&
           is_directory(open_directory(lsu, images_name).get(), name);
}

unique_fd find_images(int lsu) {
    return is_directory(lsu, images_name) ? open_directory(lsu, images_name) : unique_fd();
}

std::vector<std::string> image_names(int lsu) {
    const unique_fd images = find_images(lsu);
    return images ? directories_in(images.get()) : std::vector<std::string>();
}

image_header header_of(int images, const std::string& name) {
    require(is_plain_name(name));
    return looked_at(images, name, [](int directory) {
        const image_header header = read_header(directory);
        if (size_of(directory, data_name) != header.size) {
            fail_errno(EBADMSG);
        }
        return header;
    });
}

found_image find_image(int lsu, const std::string& name) {
    require(is_plain_name(name));
    return looked_at(open_directory(lsu, images_name).get(), name, open_image_files);
}

std::vector<listed_image> list_images(int lsu) {
    std::vector<listed_image> images;
    const unique_fd directory = find_images(lsu);
    if (!directory) {
        return images;
    }
    for (std::string& name : directories_in(directory.get())) {
        image_header header = {};
        const int status = status_of([&] { header = header_of(directory.get(), name); });
        if (status == STS_OK) {
            images.push_back({std::move(name), header});
        } else if (!is_gone_or_damaged(status)) {
            fail(status);
        }
    }
    return images;
}

void remove_image(int lsu, const std::string& name) {
    if (!image_exists(lsu, name)) {
        fail_errno(ENOENT);
    }
    const unique_fd images = open_directory(lsu, images_name);
    const unique_fd drafts = make_directory(lsu, drafts_name);
    const std::string id = unused_name();
    checked(renameat(images.get(), name.c_str(), drafts.get(), id.c_str()));
    remove_directory(drafts.get(), id);
}

void remove_abandoned_drafts(int lsu) {
    if (!is_directory(lsu, drafts_name)) {
        return;
    }
    const unique_fd drafts = open_directory(lsu, drafts_name);
    for (const std::string& each : names_in(drafts.get())) {
        if (is_abandoned(drafts.get(), each)) {
            remove_directory(drafts.get(), each);
        }
    }
}

draft::draft(int lsu, const lock_waiter& waiter) {
    // Until the data file is locked only the LSU's lock shows that this draft is somebody's.
    const directory_lock lock(lsu, directory_lock::kind::shared, waiter);
    unique_fd drafts = make_directory(lsu, drafts_name);
    id_ = unused_name();
    make_new_directory(drafts.get(), id_);
    const int status = status_of([&] {
        directory_ = open_directory(drafts.get(), id_);
        data_ = open_file(directory_.get(), data_name, O_RDWR | O_CREAT | O_EXCL);
        return try_lock_file(data_.get()) ? STS_OK : sts_status_of_errno(errno);
    });
    work_ = std::move(drafts);
    if (status != STS_OK) {
        remove();
        fail(status);
    }
}

draft::draft(int lsu, const found_image& image, const lock_waiter& waiter) : draft(lsu, waiter) {
    copy_bytes(image.data.get(), 0, data_.get(), 0, image.header.size);
    if (image.meta) {
        copy_bytes(image.meta.get(), 0, make_meta().get(), 0, size_of(image.meta.get()));
    }
}

draft::~draft() {
    if (work_) {
        remove();
    }
}

void draft::remove() noexcept {
    data_ = {}; // removing needs descriptors of its own
    directory_ = {};
    remove_directory(work_.get(), id_);
}

unique_fd draft::meta() const { return find_file(directory_.get(), meta_name); }

unique_fd draft::make_meta() { return open_file(directory_.get(), meta_name, O_WRONLY | O_CREAT); }

void draft::remove_meta() {
    if (unlinkat(directory_.get(), meta_name, 0) != 0 && errno != ENOENT) {
        fail_errno(errno);
    }
}

void draft::sync() const {
    sync_file(data_.get());
    if (const unique_fd written = meta()) {
        sync_file(written.get());
    }
}

image_header draft::publish(int lsu, const std::string& name, image_header header, placement where,
                            durability wanted) {
    header.size = size_of(data_.get());
    header.modified = time(nullptr);
    if (wanted == durability::synced) {
        sync();
    }
    replace_file(directory_.get(), header_name, bytes_of(header), wanted);
    const unique_fd images = make_directory(lsu, images_name);
    checked(renameat2(work_.get(), id_.c_str(), images.get(), name.c_str(),
                      where == placement::creates ? RENAME_NOREPLACE : RENAME_EXCHANGE));
    const unique_fd work = std::move(work_);
    if (wanted == durability::synced) {
        sync_file(images.get());
    }
    if (where == placement::replaces) {
        remove_directory(work.get(), id_); // the old image, which is there now
    }
    return header;
}

} // namespace disk
