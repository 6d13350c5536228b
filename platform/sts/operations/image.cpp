// Images: create, open, close, delete, properties, groups. Their bytes are moved in transfer.cpp,
// their files are told in store/image_files.h.

#include "platform/sts/operations/image.h"

#include "platform/sts/events/log.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/pipe.h"
#include "platform/sts/operations/server.h"
#include "platform/sts/plugins/calls.h"
#include "platform/sts/store/settings.h"

#include <cstring>

namespace disk {

namespace {

constexpr uint32_t all_flags = STS_IMAGE_READ | STS_IMAGE_WRITE;

std::string payload_of(const image_header& header) {
    return "size=" + std::to_string(header.size) + "\ngroup=" + header.group + "\n";
}

/// The name in a caller's record, and that it is one.
std::string name_of(const sts_image_def_s* image_def) {
    require(image_def != nullptr);
    std::string name = text_of(image_def->name);
    require(is_plain_name(name));
    return name;
}

void begin_writing(image& opened, draft written, placement where) {
    require_in_place(*opened.files, opened.lsu, opened.lsu_directory.get());
    opened.writing.emplace(std::move(written));
    opened.place = where;
    opened.data = opened.writing->data();
}

/// The LSU's images of that group, counted.
sts_image_group_s count_group(int lsu, const std::string& name) {
    sts_image_group_s group = {};
    for (const listed_image& each : list_images(lsu)) {
        if (name == each.header.group) {
            ++group.image_count;
            group.size += each.header.size;
        }
    }
    fill(group.name, name);
    return group;
}

} // namespace

void publish_image(const store& files, const std::string& lsu, int lsu_directory, draft& written,
                   const std::string& name, const image_header& header, placement where) {
    const image_header completed =
        written.publish(lsu_directory, name, header, where, image_durability(files));
    record_event(files,
                 {where == placement::creates ? STS_EVENT_IMAGE_CREATED : STS_EVENT_IMAGE_CHANGED,
                  lsu, name, payload_of(completed)});
}

sts_image_info_s info_of(const store& files, const std::string& lsu, const std::string& name,
                         const image_header& header) {
    sts_image_info_s info = {};
    fill(info.name, name);
    fill(info.group, header.group);
    fill(info.lsu, lsu);
    info.size = header.size;
    info.created = header.created;
    info.modified = header.modified;
    fill(info.server_name, files.server_name);
    return info;
}

int create_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags,
                 sts_next_image_s** out) {
    require(lsu != nullptr && out != nullptr && (flags & ~all_flags) == 0);
    if (is_pipe_server(lsu->server)) {
        return open_pipe_image(lsu, image_def, out);
    }
    const std::string name = name_of(image_def);
    const std::string group = text_of(image_def->group);
    auto created = std::make_unique<image>(open_lsu(lsu), name);
    if (image_exists(created->lsu_directory.get(), name)) {
        return sts_status_of_errno(EEXIST);
    }
    created->header = new_header(group);
    begin_writing(*created, draft(created->lsu_directory.get(), created->files->waiter),
                  placement::creates);
    hand_out(std::move(created), out);
    return STS_OK;
}

int open_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags,
               sts_next_image_s** out) {
    require(lsu != nullptr && out != nullptr && (flags & ~all_flags) == 0);
    if (is_pipe_server(lsu->server)) {
        return open_pipe_image(lsu, image_def, out);
    }
    const std::string name = name_of(image_def);
    auto opened = std::make_unique<image>(open_lsu(lsu), name);
    const int directory = opened->lsu_directory.get();
    found_image found = find_image(directory, name);
    opened->header = found.header;
    if ((flags & STS_IMAGE_WRITE) != 0) {
        begin_writing(*opened, draft(directory, found, opened->files->waiter), placement::replaces);
    } else {
        opened->reading = std::move(found);
        opened->data = opened->reading.data.get();
    }
    hand_out(std::move(opened), out);
    return STS_OK;
}

closing image::close(int32_t mode) {
    require(mode == STS_CLOSE_COMPLETE || mode == STS_CLOSE_ABANDON);
    if (writing && mode == STS_CLOSE_COMPLETE) {
        publish_image(*files, lsu, lsu_directory.get(), *writing, name, header, place);
    }
    return {};
}

int delete_image(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def, uint32_t flags) {
    require(flags == 0);
    const std::string name = name_of(image_def);
    const lsu_place place = open_lsu(lsu);
    std::string payload; // of a damaged image there is nothing to say
    (void)status_of(
        [&] { payload = payload_of(header_of(find_images(place.directory.get()).get(), name)); });
    remove_image(place.directory.get(), name);
    record_event(*place.files, {STS_EVENT_IMAGE_DELETED, place.name, name, payload});
    return STS_OK;
}

int get_image_prop(void* handle, sts_image_info_s* info) {
    require(info != nullptr);
    if (is_of_plugin(handle)) {
        return get_plugin_image_prop(handle, info);
    }
    if (kind_of(handle) == handle_kind::image_list) {
        return get_listed_image_prop(handle, info);
    }
    const borrowed<image> asked(handle);
    image_header header = asked->header;
    header.size = size_of(asked->data);
    *info = info_of(*asked->files, asked->lsu, asked->name, header);
    return STS_OK;
}

int get_image_prop_byname(const sts_lsu_ref_s* lsu, const sts_image_def_s* image_def,
                          sts_image_info_s* info) {
    require(info != nullptr);
    const std::string name = name_of(image_def);
    const lsu_place place = open_lsu(lsu);
    const unique_fd images = find_images(place.directory.get());
    if (!images) {
        fail_errno(ENOENT);
    }
    *info = info_of(*place.files, place.name, name, header_of(images.get(), name));
    return STS_OK;
}

int get_image_group(sts_next_image_s* image_handle, sts_forwarded_t group,
                    sts_forwarded_t /*unused_3*/, sts_forwarded_t /*unused_4*/,
                    sts_forwarded_t /*unused_5*/, sts_forwarded_t /*unused_6*/) {
    auto* const out = pointer_of<sts_image_group_s>(group);
    require(out != nullptr);
    const borrowed<image> asked(image_handle);
    if (asked->header.group[0] == '\0') {
        return sts_status_of_errno(ENOENT);
    }
    *out = count_group(asked->lsu_directory.get(), asked->header.group);
    return STS_OK;
}

int get_image_group_byname(const sts_lsu_ref_s* lsu, sts_forwarded_t name, sts_forwarded_t group) {
    const auto* const wanted = pointer_of<const char>(name);
    auto* const out = pointer_of<sts_image_group_s>(group);
    require(wanted != nullptr && wanted[0] != '\0' && out != nullptr);
    const sts_image_group_s found = count_group(open_lsu(lsu).directory.get(), wanted);
    if (found.image_count == 0) {
        return sts_status_of_errno(ENOENT);
    }
    *out = found;
    return STS_OK;
}

} // namespace disk
