// Rows of the configuration that is relayed, and of the ioctl.

#include "tests/entries/row_groups.h"

namespace {

const char* const own_row = "name=THR:s3,description=x,type=int,value=5,fixed=n;";

/// A row of the ioctl for one command.
row command(uint64_t number) {
    row made = {"ioctl_v9", "ioctl", "ioctl(server', " + std::to_string(number) + ", record)"};
    made.before = enter;
    made.checked = {1, 3};
    made.server = magic_t::checked;
    made.cut_off = cut_off_t::nothing_called;
    made.arguments = {{2, number}};
    return made;
}

} // namespace

std::vector<row> config_rows() {
    row get = {"get_server_config_v11", "get_server_config",
               "get_server_config(server', buffer, 10240, pointer)"};
    get.before = enter;
    get.after = leave;
    get.failure = "4 can not get underneath plug-in's config.";
    get.checked = {1, 2, 4};
    get.server = magic_t::checked;
    get.cut_off = cut_off_t::nothing_called;
    get.arguments = {{3, 10240}};
    // Our own settings can't be read or formed: as where their file fails.
    get.shortages = {consequence{{"3 enter.", "4 get config fail."}}};

    row set = {"set_server_config_v11", "set_server_config",
               "set_server_config(server', \"{NAME}\", buffer, 64)"};
    set.before = enter;
    set.after = leave;
    set.failure = "4 can not set underneath plug-in's config.";
    set.checked = {1, 2, 3};
    set.server = magic_t::checked;
    set.cut_off = cut_off_t::nothing_called;
    set.arguments = {{4, 64}};
    set.text = own_row;
    set.shortages = {consequence{{"3 enter.", "-> " + set.call, "4 set config fail."}}};

    row read = command(13);
    read.after = {"3 get config OK.", "3 leave. return code 0"};
    read.failure = get.failure;
    read.shortages = get.shortages;

    row write = command(14);
    write.after = {"3 set config OK.", "3 leave. return code 0"};
    write.failure = "4 set config fail.";
    write.text = own_row;
    write.shortages = {consequence{{"3 enter.", "-> " + write.call, "4 set config fail."}}};

    row relay = command(7);
    relay.before = {"3 enter.", "3 relay the command 7 to the next plugin"};
    relay.after = relay.after_failure = {"3 leave. return code %d"};
    relay.cut_off = cut_off_t::null_goes_down;
    return {get, set, read, write, relay};
}
