// An open image, and what the calls on images have in common.
#pragma once

#include "platform/sts/caller/handles.h"
#include "platform/sts/store/image_files.h"
#include "platform/sts/store/store.h"

#include <memory>
#include <optional>
#include <string>

namespace disk {

struct image : object {
    static constexpr handle_kind kind = handle_kind::image;

    image(lsu_place where, std::string image_name)
        : files(std::move(where.files)), lsu(std::move(where.name)),
          lsu_directory(std::move(where.directory)), name(std::move(image_name)) {}
    closing close(int32_t mode) override;

    counted_store files;
    std::string lsu;
    unique_fd lsu_directory;
    std::string name;
    image_header header = {};

    std::optional<draft> writing; ///< where it is open for writing
    placement place = placement::creates;
    found_image reading = {}; ///< where it is open for reading
    int data = -1;            ///< the file that transfers go to, the draft's or the found one
};

/// Puts a draft in its place and writes the event.
void publish_image(const store& files, const std::string& lsu, int lsu_directory, draft& written,
                   const std::string& name, const image_header& header, placement where);

/// The record about an image.
sts_image_info_s info_of(const store& files, const std::string& lsu, const std::string& name,
                         const image_header& header);

/// The properties of the image that a list gave last.
int get_listed_image_prop(const void* list, sts_image_info_s* info);

} // namespace disk
