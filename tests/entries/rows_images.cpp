// Rows of image data, where nothing is throttled and where it is. The engine is asked in the order
// of the rows' "=>" lines, and what it can't do for want of memory stops nothing.

#include "tests/entries/row_groups.h"

namespace {

row opening(const std::string& operation, const std::string& slot) {
    row made = {operation, slot, on_lsu(slot, ", definition, u3, out"), "create_or_open_image_v10"};
    made.failure = failed_next;
    made.checked = {1, 2, 4};
    made.server = magic_t::checked;
    made.cut_off = cut_off_t::null_goes_down;
    made.out = when::on_success;
    made.counts = made.kept = 1;
    made.shortages = {consequence{}};
    return made;
}

row reading() {
    row made = {"read_image_v7", "read_image", "read_image(image', record, f3, f4, moved)"};
    made.before = {"3 read->."};
    made.after = {"3 <-read."};
    made.failure = "4 fail to read image, return code: %d";
    made.checked = {1, 2, 5};
    made.handle = magic_t::checked;
    made.moves = OPERATION_READ;
    return made;
}

row writing() {
    row made = {"write_image_v7", "write_image", "write_image(image', f2, record, f4, f5, moved)"};
    made.before = {"3 write->."};
    made.after = {"3 <-write."};
    made.failure = "4 fail to write image , error code: %d.";
    made.checked = {1, 3, 6};
    made.handle = magic_t::checked;
    made.moves = OPERATION_WRITE;
    return made;
}

row closing() {
    row made = {"close_image_v7", "close_handle", "close_handle(image', i3)"};
    made.failure = "4 fail to call sts_close_image, error code = %d";
    made.checked = {1};
    made.handle = magic_t::checked;
    made.counts = made.counts_after_failure = -1;
    made.kept = made.kept_after_failure = -1;
    made.releases = when::always;
    return made;
}

// --- throttled ---------------------------------------------------------------------------------

/// The first image of a server: it connects.
row opened_throttled(row made) {
    const std::string settings = "=> set_config_params";
    const std::string claim = "=> check_connections(a:s3, a_b, 1)";
    const std::string call = "-> " + made.call;
    made.throttled = true;
    made.before = {settings, claim};
    made.kept_after_failure = connected;
    made.kept = connected + 1;
    made.shortages = {
        {{"4 connect service error:2060002.", call}, STS_OK, 1},
        {{"4 connect service error:2060010.", call}, STS_OK, 2},
        // The connector's copy of the settings, then the text of them that is sent.
        {{"4 set config params error:2060002.", claim, call}, STS_OK, connected},
        {{"4 set config params error:2060002.", claim, call}, STS_OK, made.kept},
        {{settings, claim, unclaimed, call}, STS_OK, made.kept},
        {{settings, claim}, STS_ERR_NOMEM, connected},
    };
    made.without_any = consequence{{"4 connect service error:2060002."}};
    return made;
}

/// The first transfer of a direction.
row throttled_transfer(row made, const std::string& key) {
    const std::string report = "=> check_bandwidth(" + key + ":s3, a_b, 0 bytes)";
    const lines failed = {"4 fail to check bandwidth from service."};
    const lines transfer = made.before + lines{"-> " + made.call} + made.after;
    made.throttled = true;
    made.before.insert(made.before.begin(), report);
    made.shortages = {{failed + transfer, STS_OK}, {lines{report} + failed + transfer, STS_OK}};
    return made;
}

/// The close of an image that has read 500 bytes and written 700.
row throttled_close(row made) {
    const std::string call = "-> " + made.call;
    const std::string read = "=> check_bandwidth(r:s3, a_b, 500 bytes)";
    const std::string written = "=> check_bandwidth(w:s3, a_b, 700 bytes)";
    const std::string reader = "=> check_connections(r:s3, a_b, -1)";
    const std::string writer = "=> check_connections(w:s3, a_b, -1)";
    const std::string unread = "4 fail to check read bandwidth from service.";
    const std::string unwritten = "4 fail to check write bandwidth from service.";
    made.throttled = true;
    made.after = made.after_failure = {read, written, reader, writer};
    made.shortages = {
        {{call, unread, written, reader, writer}, STS_OK, -1},
        {{call, read, unread, written, reader, writer}, STS_OK, -1},
        {{call, read, unwritten, reader, writer}, STS_OK, -1},
        {{call, read, written, unwritten, reader, writer}, STS_OK, -1},
        {{call, read, written, reader, unclaimed, writer}, STS_OK, -1},
        {{call, read, written, reader, writer, unclaimed}, STS_OK, -1},
    };
    made.without_any =
        consequence{{call, unread, unwritten, reader, unclaimed, writer, unclaimed}, STS_OK, -1};
    return made;
}

} // namespace

std::vector<row> image_rows() {
    row close_by_first_mode = closing();
    close_by_first_mode.call = "close_handle(image', i2)";
    close_by_first_mode.arguments = {{3, 0}};
    close_by_first_mode.repeats = true;
    return {opening("open_image_v10", "open_image"),
            opening("create_image_v10", "create_image"),
            reading(),
            writing(),
            closing(),
            close_by_first_mode};
}

std::vector<row> throttled_image_rows() {
    return {opened_throttled(opening("open_image_v10", "open_image")),
            opened_throttled(opening("create_image_v10", "create_image")),
            throttled_transfer(reading(), "r"), throttled_transfer(writing(), "w"),
            throttled_close(closing())};
}
