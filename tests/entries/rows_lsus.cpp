// Rows of LSU creation and deletion and of asynchronous copies, whose holders are the host's to
// free.

#include "tests/entries/row_groups.h"

std::vector<row> lsu_and_async_rows() {
    row create = {"create_lsu", "create_lsu", "create_lsu(server', definition, out)"};
    create.before = enter;
    create.after = create.after_failure = leave;
    create.checked = {2, 3};
    create.cut_off = cut_off_t::nothing_called;
    create.out = when::always;
    create.out_needs_next = true;
    create.kept = create.kept_after_failure = 1;
    create.shortages = {consequence{enter + leave}};

    row remove = {"delete_lsu", "delete_lsu", on_lsu("delete_lsu", "")};
    remove.before = enter;
    remove.after = remove.after_failure = leave;
    remove.checked = {1};
    remove.cut_off = cut_off_t::nothing_called;
    remove.kept = remove.kept_after_failure = -1;
    remove.releases = when::always;

    row copy = {"async_copy_image", "async_copy_image",
                "async_copy_image(null, f2, " + lsu + ", f4, out, u6, params)",
                "throttling_named_async_copy_image"};
    copy.before = enter;
    copy.after = copy.after_failure = leave;
    copy.failure = "3 async copy image failed, error code = %d";
    copy.checked = {3};
    copy.server = magic_t::checked;
    copy.cut_off = cut_off_t::nothing_called;
    copy.out = when::always;
    copy.out_needs_next = true;
    copy.kept = copy.kept_after_failure = 1;
    copy.shortages = {consequence{enter + leave}};

    row wait = {"async_wait", "async_wait", "async_wait(session, operation', i3, record)"};
    wait.before = enter;
    wait.after = wait.after_failure = leave;
    wait.failure = "3 async wait failed with error %d";
    wait.checked = {1, 2, 4};
    wait.status_at = 8;

    row cancel = {"async_cancel", "async_cancel", "async_cancel(session, operation')"};
    cancel.before = enter;
    cancel.after = cancel.after_failure = leave;
    cancel.failure = "3 async cancel failed with error %d";
    cancel.checked = {1, 2};
    return {create, remove, copy, wait, cancel};
}
