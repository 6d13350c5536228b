#include "tools/host/records.h"

#include "tools/terminal/failure.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <new>

// --- in ----------------------------------------------------------------------------------------

void copy_text_to(char* field, size_t size, const std::string& text, const std::string& what) {
    if (text.size() >= size) {
        throw failure(fmt::format("{} \"{}\" is too long: {} bytes, at most {}", what, text,
                                  text.size(), size - 1));
    }
    memcpy(field, text.c_str(), text.size() + 1);
}

sts_image_def_s image_definition(const std::string& image, const std::string& group) {
    sts_image_def_s definition = {};
    copy_text(definition.name, image, "the image name");
    copy_text(definition.group, group, "the backup name");
    return definition;
}

sts_lsu_def_s lsu_definition(const std::string& lsu, const std::string& label) {
    sts_lsu_def_s definition = {};
    copy_text(definition.name, lsu, "the LSU name");
    copy_text(definition.label, label, "the label");
    return definition;
}

sts_copy_target_s copy_target(const std::string& image, const std::string& lsu,
                              const std::string& server) {
    sts_copy_target_s target = {};
    copy_text(target.image, image, "the image name");
    copy_text(target.lsu, lsu, "the LSU name");
    copy_text(target.server_name, server, "the server name");
    return target;
}

sts_copy_params_s copy_params(uint64_t block, uint64_t rate) {
    sts_disk_copy_params_s known = {};
    known.block_size = block;
    known.bytes_per_second = rate;
    sts_copy_params_s params = {};
    memcpy(&params, &known, sizeof params);
    return params;
}

sts_lsu_ref_s* given_up_copy(const sts_lsu_ref_s& lsu) {
    auto* const copy = static_cast<sts_lsu_ref_s*>(malloc(sizeof lsu));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    *copy = lsu;
    return copy;
}

// --- out ---------------------------------------------------------------------------------------

ordered_json fields_of(const sts_server_info_s& info) {
    return {{"server", text_of(info.server_name)},
            {"lsus", info.lsu_count},
            {"capacity", info.capacity},
            {"free", info.free}};
}

ordered_json fields_of(const sts_lsu_info_s& info) {
    return {{"lsu", text_of(info.name)},
            {"label", text_of(info.label)},
            {"server", text_of(info.server_name)},
            {"images", info.image_count},
            {"used", info.used},
            {"capacity", info.capacity},
            {"free", info.free}};
}

ordered_json fields_of(const sts_lsu_entry_s& entry) { return {{"lsu", text_of(entry.name)}}; }

ordered_json fields_of(const sts_image_info_s& info) {
    return {{"image", text_of(info.name)}, {"group", text_of(info.group)},
            {"lsu", text_of(info.lsu)},    {"server", text_of(info.server_name)},
            {"size", info.size},           {"created", info.created},
            {"modified", info.modified}};
}

ordered_json fields_of(const sts_image_entry_s& entry) {
    return {{"image", text_of(entry.name)}, {"group", text_of(entry.group)}, {"size", entry.size}};
}

ordered_json fields_of(const sts_image_group_s& group) {
    return {{"group", text_of(group.name)}, {"images", group.image_count}, {"size", group.size}};
}

ordered_json fields_of(const sts_async_status_s& status) {
    return {{"state", status.state == STS_ASYNC_ENDED ? "ended" : "running"},
            {"result", status.result},
            {"bytes_copied", status.bytes_copied},
            {"bytes_total", status.bytes_total}};
}

ordered_json fields_of(const sts_event_s& event) {
    const std::vector<std::string>& kinds = event_kinds();
    return {{"number", event.number},
            {"time", event.time},
            {"kind", event.kind >= 1 && event.kind <= kinds.size()
                         ? kinds[event.kind - 1]
                         : fmt::format("kind-{}", event.kind)},
            {"server", text_of(event.server_name)},
            {"lsu", text_of(event.lsu)},
            {"image", text_of(event.image)}};
}

ordered_json fields_of(const sts_event_payload_s& payload) {
    const size_t room = sizeof payload.text;
    return {{"length", payload.length},
            {"text", std::string(payload.text, std::min<size_t>(payload.length, room))}};
}

ordered_json fields_of(const std::vector<sts_replication_peer_s>& peers) {
    ordered_json list = ordered_json::array();
    for (const sts_replication_peer_s& peer : peers) {
        if (peer.server_name[0] == '\0') {
            break;
        }
        list.push_back({{"server", text_of(peer.server_name)}, {"lsu", text_of(peer.lsu)}});
    }
    return list;
}

const std::vector<std::string>& event_kinds() {
    static const std::vector<std::string> names = {"image-created", "image-changed",
                                                   "image-deleted", "lsu-created",
                                                   "lsu-deleted",   "lsu-labelled"};
    return names;
}
