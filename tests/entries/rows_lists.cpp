// Rows of the lists of LSUs, of images and of image groups.

#include "tests/entries/row_groups.h"

namespace {

/// Opens a list that its server counts.
row opening(row made) {
    made.before = enter;
    made.after = leave;
    made.checked = {1, 3};
    made.server = magic_t::checked;
    made.out = when::on_success;
    made.counts = made.kept = 1;
    made.shortages = {consequence{enter}};
    return made;
}

row listing(row made) {
    made.before = enter;
    made.after = made.after_failure = leave;
    made.checked = {1, 2};
    made.handle = magic_t::checked;
    return made;
}

row closing(row made) {
    made.before = enter;
    made.after = leave;
    made.checked = {1};
    made.handle = magic_t::checked;
    made.counts = made.kept = -1;
    made.releases = when::on_success;
    return made;
}

} // namespace

std::vector<row> list_rows() {
    row open_lsus = opening({"open_lsu_list_v11", "open_lsu_list",
                             "open_lsu_list(server', f2, out)", "throttling_open_lsu_list_v9"});
    open_lsus.failure =
        "4 fail to call sts_open_lsu_list of the next plugin in the stack, error code = %d";
    open_lsus.cut_off = cut_off_t::refused;

    row list_lsus = listing({"list_lsu_v7", "list_lsu", "list_lsu(lsu_list', record)"});
    list_lsus.failure =
        "4 fail to call sts_list_lsu of the next plugin in the stack, error code = %d";
    list_lsus.failures = {{STS_ERR_END_OF_LIST, "3 reach the end of lsu list"}};

    row close_lsus = closing({"close_lsu_list_v7", "close_handle", "close_handle(lsu_list', 0)"});
    close_lsus.failure =
        "4 fail to call sts_close_lsu_list of the next plugin in the stack, error code = %d";

    row open_images =
        opening({"open_image_list_v7", "open_image_list", on_lsu("open_image_list", ", i2, out")});
    open_images.failure =
        "4 fail to open info list handle for lsu: lsu1 with type {TYPE}, error code: %d";
    open_images.cut_off = cut_off_t::null_goes_down;

    row open_groups = {"open_image_group_list", "open_image_group_list",
                       on_lsu("open_image_group_list", ", f2, i3, out")};
    open_groups.cut_off = cut_off_t::null_goes_down;
    open_groups.out = when::always;
    open_groups.kept = open_groups.kept_after_failure = 1;
    open_groups.shortages = {consequence{}};

    row list_images = listing({"list_image_v10", "list_image", "list_image(image_list', record)"});
    list_images.failure = "4 fail to get the next info object in list, error code: %d";
    list_images.failures = {{STS_ERR_END_OF_LIST, "3 reach the end of info object list"}};

    row close_images =
        closing({"close_image_list_v7", "close_handle", "close_handle(image_list', 0)"});
    close_images.failure =
        "4 fail to close info list handle for lsu: lsu1 with type 4, error code: %d";
    return {open_lsus, list_lsus, close_lsus, open_images, open_groups, list_images, close_images};
}
