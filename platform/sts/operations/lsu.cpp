// LSUs: create, delete, find, label, properties.

#include "platform/sts/events/log.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/server.h"
#include "platform/sts/plugins/calls.h"
#include "platform/sts/store/image_files.h"
#include "platform/sts/store/lsu_files.h"
#include "platform/sts/store/replication.h"
#include "platform/sts/store/store.h"

#include <cstring>

namespace disk {

namespace {

/// What create_lsu hands out. Nothing but closing takes it: an LSU is named, not held.
struct lsu_handle : object {
    static constexpr handle_kind kind = handle_kind::lsu;
};

/// The label; empty where the LSU has gone or its label is damaged.
std::string readable_label(const store& files, const std::string& name) {
    std::string label;
    const int status =
        status_of([&] { label = label_of(open_directory(files.directory.get(), name).get()); });
    if (status != STS_OK && !is_gone_or_damaged(status)) {
        fail(status);
    }
    return label;
}

} // namespace

int create_lsu(sts_next_server_s* server_handle, const sts_lsu_def_s* definition, void** out) {
    if (is_of_plugin(server_handle)) {
        return create_plugin_lsu(server_handle, definition, out);
    }
    require(definition != nullptr && out != nullptr);
    const std::string name = text_of(definition->name);
    const std::string label = text_of(definition->label);
    require(is_lsu_name(name));
    const borrowed<server> owner(server_handle);
    const happening created = {STS_EVENT_LSU_CREATED, name, "", "label=" + label + "\n"};
    void* const made = enlist(lsu_handle::kind, std::make_unique<lsu_handle>());
    const int status = status_of([&] { make_lsu(*owner->files, name, label); });
    if (status != STS_OK) {
        (void)retire(made);
        return status;
    }
    record_event(*owner->files, created);
    *out = made;
    return STS_OK;
}

int delete_lsu(const sts_lsu_ref_s* lsu) {
    if (lsu != nullptr && is_of_plugin(lsu->server)) {
        return delete_plugin_lsu(lsu);
    }
    const lsu_place place = open_lsu(lsu);
    const std::string payload = "label=" + readable_label(*place.files, place.name) + "\n";
    remove_lsu(place);
    record_event(*place.files, {STS_EVENT_LSU_DELETED, place.name, "", payload});
    return STS_OK;
}

int find_lsu(sts_next_server_s* server_handle, sts_forwarded_t label, sts_forwarded_t found,
             sts_forwarded_t /*unused_4*/, sts_forwarded_t /*unused_5*/,
             sts_forwarded_t /*unused_6*/) {
    const auto* const wanted = pointer_of<const char>(label);
    auto* const out = pointer_of<sts_lsu_entry_s>(found);
    require(wanted != nullptr && out != nullptr);
    const borrowed<server> owner(server_handle);
    for (const std::string& name : lsu_names(*owner->files)) {
        if (readable_label(*owner->files, name) == wanted) {
            *out = {};
            fill(out->name, name);
            return STS_OK;
        }
    }
    return sts_status_of_errno(ENOENT);
}

int label_lsu(const sts_lsu_ref_s* lsu, sts_forwarded_t label) {
    const auto* const text = pointer_of<const char>(label);
    require(text != nullptr && strlen(text) < STS_NAME_SIZE);
    const lsu_place place = open_lsu(lsu);
    set_label(place, text);
    record_event(*place.files,
                 {STS_EVENT_LSU_LABELLED, place.name, "", std::string("label=") + text + "\n"});
    return STS_OK;
}

int get_lsu_prop_byname(const sts_lsu_ref_s* lsu, sts_lsu_info_s* info) {
    require(info != nullptr);
    const lsu_place place = open_lsu(lsu);
    const int directory = place.directory.get();
    sts_lsu_info_s filled = {};
    fill(filled.server_name, place.files->server_name);
    fill(filled.name, place.name);
    fill(filled.label, label_of(directory));
    for (const listed_image& each : list_images(directory)) {
        ++filled.image_count;
        filled.used += each.header.size;
    }
    const space found = space_of(directory);
    filled.capacity = found.capacity;
    filled.free = found.free;
    *info = filled;
    return STS_OK;
}

int get_lsu_replication_prop(const sts_lsu_ref_s* lsu, uint32_t source_room, void* sources,
                             uint32_t target_room, void* targets) {
    require((source_room == 0 || sources != nullptr) && (target_room == 0 || targets != nullptr));
    const replication_peers peers = read_peers(open_lsu(lsu).directory.get());
    if (peers.sources.size() > source_room || peers.targets.size() > target_room) {
        return STS_ERR_BUFFER_SPACE;
    }
    fill_peers(peers.sources, source_room, sources);
    fill_peers(peers.targets, target_room, targets);
    return STS_OK;
}

} // namespace disk
