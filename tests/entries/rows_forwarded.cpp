// Rows of what is handed on and keeps nothing: swaps and calls, properties, deletion of an image.

#include "tests/entries/row_groups.h"

namespace {

/// A swap and a call, nothing else.
row plain(const std::string& operation, const std::string& slot, const std::string& call,
          cut_off_t cut_off = cut_off_t::no_matter) {
    row made = {operation, slot, call};
    made.cut_off = cut_off;
    return made;
}

std::vector<row> plain_rows() {
    const cut_off_t null = cut_off_t::null_goes_down;
    const auto on_image = [](const std::string& slot) {
        return slot + "(image', f2, f3, f4, f5, f6)";
    };
    return {
        plain("write_image_meta", "write_image_meta", on_image("write_image_meta")),
        plain("read_image_meta", "read_image_meta", on_image("read_image_meta")),
        plain("get_image_group", "get_image_group", on_image("get_image_group")),
        plain("delete_files", "delete_files", on_image("delete_files")),
        plain("async_flush", "flush", on_image("flush")),
        plain("include_in_image", "include_in_image",
              "include_in_image(image', f2, other', f4, f5, f6)"),
        plain("copy_extent", "copy_extent", "copy_extent(image', f2, other', f4, f5, f6, f7)"),
        plain("find_lsu", "find_lsu", "find_lsu(server', f2, f3, f4, f5, f6)", null),
        plain("label_lsu", "label_lsu", on_lsu("label_lsu", ", f2"), null),
        plain("get_image_group_byname", "get_image_group_byname",
              on_lsu("get_image_group_byname", ", f2, f3"), null),
    };
}

std::vector<row> property_rows() {
    row lsu_prop = {"get_lsu_prop_byname_v11", "get_lsu_prop_byname",
                    on_lsu("get_lsu_prop_byname", ", record"), "throttling_get_lsu_prop_byname_v9"};
    lsu_prop.before = enter;
    lsu_prop.after = leave;
    lsu_prop.failure = failed_next;
    lsu_prop.checked = {1, 2};
    lsu_prop.server = magic_t::checked;
    lsu_prop.cut_off = cut_off_t::null_goes_down;
    lsu_prop.name_at = 8;

    row replication = {"get_lsu_replication_prop", "get_lsu_replication_prop",
                       on_lsu("get_lsu_replication_prop", ", u2, record, u4, other_record")};
    replication.before = enter;
    replication.after = replication.after_failure = leave;
    replication.failure = "3 Failed to get lsu replication prop, error code = %d";
    replication.checked = {1};
    replication.passed = {3, 5};
    replication.server = magic_t::checked;
    replication.cut_off = cut_off_t::nothing_called;

    row by_name = {"get_image_prop_byname_v10", "get_image_prop_byname",
                   on_lsu("get_image_prop_byname", ", definition, record")};
    by_name.failure = failed_next;
    by_name.checked = {1, 2, 3};
    by_name.server = magic_t::checked;
    by_name.cut_off = cut_off_t::null_goes_down;
    by_name.name_at = 6360;

    row by_handle = {"get_image_prop_v10", "get_image_prop", "get_image_prop(image', record)"};
    by_handle.failure = "4 fail to get the image info from info handle, error code: %d";
    by_handle.checked = {1, 2};
    by_handle.server = magic_t::checked;
    by_handle.name_at = 6360;

    row deletion = {"delete_image_v10", "delete_image", on_lsu("delete_image", ", definition, u3")};
    deletion.before = enter;
    deletion.after = leave;
    deletion.failure = failed_next;
    deletion.checked = {1, 2};
    deletion.server = magic_t::checked;
    deletion.cut_off = cut_off_t::null_goes_down;
    return {lsu_prop, replication, by_name, by_handle, deletion};
}

} // namespace

std::vector<row> forwarded_rows() {
    std::vector<row> all = plain_rows();
    for (const row& each : property_rows()) {
        all.push_back(each);
    }
    return all;
}
