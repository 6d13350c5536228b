// Lists of LSUs, of images and of image groups. A list holds the names as they were when it was
// opened, in order; what has gone since then is passed over.

#include "platform/sts/operations/image.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/server.h"

#include <cstring>
#include <map>
#include <mutex>

namespace disk {

namespace {

constexpr int32_t usual_type = 0;

struct lsu_list : object {
    static constexpr handle_kind kind = handle_kind::lsu_list;
    explicit lsu_list(std::shared_ptr<store> listed)
        : files(std::move(listed)), names(lsu_names(*files)) {}

    counted_store files;
    std::mutex guard; // of what follows
    std::vector<std::string> names;
    size_t next = 0;
};

/// A list of images, or of groups: then its entries are there from the start.
struct image_list : object {
    static constexpr handle_kind kind = handle_kind::image_list;
    explicit image_list(lsu_place listed)
        : files(std::move(listed.files)), lsu(std::move(listed.name)),
          directory(std::move(listed.directory)) {}

    counted_store files;
    std::string lsu;
    unique_fd directory;
    unique_fd images; // none where there are no names
    std::mutex guard; // of what follows
    std::vector<std::string> names;
    std::vector<sts_image_entry_s> groups;
    size_t next = 0;
    std::string current; // the image that was given last; empty for none
};

/// Gives the next image that is still there. False at the end of the list.
bool next_image(image_list& list, sts_image_entry_s& entry) {
    list.current.clear();
    while (list.next < list.names.size()) {
        const std::string& name = list.names[list.next++];
        image_header header = {};
        const int status = status_of([&] { header = header_of(list.images.get(), name); });
        if (status == sts_status_of_errno(ENOENT)) {
            continue;
        }
        if (status != STS_OK) {
            fail(status); // of a damaged one, say; the next call goes on behind it
        }
        fill(entry.name, name);
        fill(entry.group, header.group);
        entry.size = header.size;
        list.current = name;
        return true;
    }
    return false;
}

bool next_group(image_list& list, sts_image_entry_s& entry) {
    if (list.next >= list.groups.size()) {
        return false;
    }
    entry = list.groups[list.next++];
    return true;
}

std::vector<sts_image_entry_s> groups_in(int lsu) {
    std::map<std::string, uint64_t> sizes;
    for (const listed_image& each : list_images(lsu)) {
        if (each.header.group[0] != '\0') {
            sizes[each.header.group] += each.header.size;
        }
    }
    std::vector<sts_image_entry_s> groups;
    for (const auto& [name, size] : sizes) {
        sts_image_entry_s& group = groups.emplace_back();
        fill(group.name, name);
        fill(group.group, name);
        group.size = size;
    }
    return groups;
}

} // namespace

int open_lsu_list(sts_next_server_s* server_handle, sts_forwarded_t /*unused*/,
                  sts_next_lsu_list_s** out) {
    require(out != nullptr);
    hand_out(std::make_unique<lsu_list>(borrowed<server>(server_handle)->files), out);
    return STS_OK;
}

int list_lsu(sts_next_lsu_list_s* list_handle, void* entry) {
    auto* const out = static_cast<sts_lsu_entry_s*>(entry);
    require(out != nullptr);
    const borrowed<lsu_list> list(list_handle);
    const std::lock_guard<std::mutex> lock(list->guard);
    while (list->next < list->names.size()) {
        const std::string& name = list->names[list->next++];
        if (is_directory(list->files->directory.get(), name)) {
            fill(out->name, name);
            return STS_OK;
        }
    }
    return STS_ERR_END_OF_LIST;
}

int open_image_list(const sts_lsu_ref_s* lsu, int32_t type, sts_next_image_list_s** out) {
    require(out != nullptr && type == usual_type);
    auto list = std::make_unique<image_list>(open_lsu(lsu));
    list->images = find_images(list->directory.get());
    if (list->images) {
        list->names = directories_in(list->images.get());
    }
    hand_out(std::move(list), out);
    return STS_OK;
}

int open_image_group_list(const sts_lsu_ref_s* lsu, sts_forwarded_t /*unused*/, int32_t type,
                          sts_next_image_list_s** out) {
    require(out != nullptr && type == usual_type);
    auto list = std::make_unique<image_list>(open_lsu(lsu));
    list->groups = groups_in(list->directory.get());
    hand_out(std::move(list), out);
    return STS_OK;
}

int list_image(sts_next_image_list_s* list_handle, void* entry) {
    auto* const out = static_cast<sts_image_entry_s*>(entry);
    require(out != nullptr);
    const borrowed<image_list> list(list_handle);
    const std::lock_guard<std::mutex> lock(list->guard);
    sts_image_entry_s filled = {};
    if (!next_image(*list, filled) && !next_group(*list, filled)) {
        return STS_ERR_END_OF_LIST;
    }
    *out = filled;
    return STS_OK;
}

int get_listed_image_prop(const void* list_handle, sts_image_info_s* info) {
    const borrowed<image_list> list(list_handle);
    const std::lock_guard<std::mutex> lock(list->guard);
    if (list->current.empty()) {
        return STS_ERR_END_OF_LIST;
    }
    *info = info_of(*list->files, list->lsu, list->current,
                    header_of(list->images.get(), list->current));
    return STS_OK;
}

} // namespace disk
