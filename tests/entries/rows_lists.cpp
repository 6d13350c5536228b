// Rows of the lists of LSUs, of images and of image groups.

#include "tests/entries/row_groups.h"

std::vector<row> list_rows() {
    row open_lsus = {"open_lsu_list_v11", "open_lsu_list", "open_lsu_list(server', f2, out)",
                     "throttling_open_lsu_list_v9"};
    open_lsus.before = enter;
    open_lsus.after = leave;
    open_lsus.failure =
        "4 fail to call sts_open_lsu_list of the next plugin in the stack, error code = %d";
    open_lsus.checked = {1, 3};
    open_lsus.server = magic_t::checked;
    open_lsus.cut_off = cut_off_t::refused;
    open_lsus.out = when::on_success;
    open_lsus.counts = open_lsus.kept = 1;
    open_lsus.shortages = {consequence{enter}};

    row list_lsus = {"list_lsu_v7", "list_lsu", "list_lsu(lsu_list', record)"};
    list_lsus.before = enter;
    list_lsus.after = list_lsus.after_failure = leave;
    list_lsus.failure =
        "4 fail to call sts_list_lsu of the next plugin in the stack, error code = %d";
    list_lsus.failures = {{STS_ERR_END_OF_LIST, "3 reach the end of lsu list"}};
    list_lsus.checked = {1, 2};
    list_lsus.handle = magic_t::checked;

    row close_lsus = {"close_lsu_list_v7", "close_handle", "close_handle(lsu_list', 0)"};
    close_lsus.before = enter;
    close_lsus.after = leave;
    close_lsus.failure =
        "4 fail to call sts_close_lsu_list of the next plugin in the stack, error code = %d";
    close_lsus.checked = {1};
    close_lsus.handle = magic_t::checked;
    close_lsus.counts = close_lsus.kept = -1;
    close_lsus.releases = when::on_success;

    row open_images = {"open_image_list_v7", "open_image_list",
                       on_lsu("open_image_list", ", i2, out")};
    open_images.before = enter;
    open_images.after = leave;
    open_images.failure =
        "4 fail to open info list handle for lsu: lsu1 with type {TYPE}, error code: %d";
    open_images.checked = {1, 3};
    open_images.server = magic_t::checked;
    open_images.cut_off = cut_off_t::null_goes_down;
    open_images.out = when::on_success;
    open_images.counts = open_images.kept = 1;
    open_images.shortages = {consequence{enter}};

    row open_groups = {"open_image_group_list", "open_image_group_list",
                       on_lsu("open_image_group_list", ", f2, i3, out")};
    open_groups.cut_off = cut_off_t::null_goes_down;
    open_groups.out = when::always;
    open_groups.kept = open_groups.kept_after_failure = 1;
    open_groups.shortages = {consequence{}};

    row list_images = {"list_image_v10", "list_image", "list_image(image_list', record)"};
    list_images.before = enter;
    list_images.after = list_images.after_failure = leave;
    list_images.failure = "4 fail to get the next info object in list, error code: %d";
    list_images.failures = {{STS_ERR_END_OF_LIST, "3 reach the end of info object list"}};
    list_images.checked = {1, 2};
    list_images.handle = magic_t::checked;

    row close_images = {"close_image_list_v7", "close_handle", "close_handle(image_list', 0)"};
    close_images.before = enter;
    close_images.after = leave;
    close_images.failure =
        "4 fail to close info list handle for lsu: lsu1 with type 4, error code: %d";
    close_images.checked = {1};
    close_images.handle = magic_t::checked;
    close_images.counts = close_images.kept = -1;
    close_images.releases = when::on_success;
    return {open_lsus, list_lsus, close_lsus, open_images, open_groups, list_images, close_images};
}
