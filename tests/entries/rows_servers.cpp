// Rows of the layer itself and of servers: claimed, opened, described and closed.

#include "tests/entries/row_groups.h"

namespace {

/// The close of a server that has had an image: it takes leave of the service first.
row throttled(row made) {
    const std::string claim = "=> check_connections(a:s3, a_b, -1)";
    const lines rest = lines{"-> " + made.call} + made.after;
    made.throttled = true;
    made.before.push_back(claim);
    made.alone->insert(made.alone->begin() + 1, claim);
    made.unbound->insert(made.unbound->begin() + 1, claim);
    made.kept -= connected;
    made.kept_after_failure = made.kept;
    made.shortages = {{made.before + lines{unclaimed} + rest, STS_OK, made.kept}};
    return made;
}

} // namespace

std::vector<row> layer_rows() {
    row claim = {"claim_v7", "", ""};
    claim.before = enter;
    claim.needs_no_layer = true;
    claim.refused_nulls = {{1, consequence{enter, STS_ERR_NOT_CLAIMED}}};

    row terminate = {"terminate_v7", "stsm_terminate", "stsm_terminate()"};
    terminate.before = enter;
    terminate.after = terminate.after_failure = leave;
    terminate.hides_failure = true;
    terminate.needs_no_layer = true;
    terminate.unbinds = true;
    return {claim, terminate};
}

std::vector<row> server_rows() {
    const std::string to_session = "-> open_session(session, out)";
    const std::string to_server = "-> open_server(new, \"{NEXT}\", record, f4, out)";
    const lines up_to_next = {"3 enter.", "3 the server name to throttling is {NAME}.",
                              "3 the server name to the next plugin in stack is {NEXT}."};
    row open = {"open_server_v7", "open_session", to_session.substr(3)};
    open.before = up_to_next;
    open.after = {to_server, "3 succeed to open server of the next plugin in stack.", "3 leave."};
    open.failure = "4 fail to open session, return code: %d";
    open.after_failure = leave;
    open.checked = {1, 2, 5};
    open.passed = {3};
    open.cut_off = cut_off_t::nothing_called;
    open.alone = up_to_next + leave;
    open.out = when::on_success;
    open.out_count = 0;
    open.kept = 3; // the handle, its samples and the storage of its settings
    // The handle and its settings, then its samples: nothing but the first has a status of its own
    // to answer, and all are taken back alike.
    open.shortages = {consequence{enter}, consequence{up_to_next}};

    row second = open;
    second.slot = "open_server";
    second.call = to_server.substr(3);
    second.before.push_back(to_session);
    second.after = {"3 succeed to open server of the next plugin in stack.", "3 leave."};
    second.failure = "4 fail to open server of the next plugin in stack, return code: %d";
    second.after_failure = {"-> close_handle(new, 0)", "3 leave."};
    second.repeats = true;

    row target = {"open_target_server", "open_target_server",
                  "open_target_server(server', f2, f3, f4, out)"};
    target.cut_off = cut_off_t::null_goes_down;
    target.out = when::always;
    target.out_count = 4; // as many as are open on its source
    target.kept = target.kept_after_failure = open.kept;
    target.shortages = {consequence{}};

    row close = {"close_server_v7", "close_handle", "close_handle(server', 0)"};
    close.before = enter;
    close.after = close.after_failure = {"-> close_handle(session', 0)", "3 leave."};
    close.failure = "4 fail to close server handle of the next plugin: %d";
    close.hides_failure = true;
    close.checked = {1};
    close.server = magic_t::checked;
    close.cut_off = cut_off_t::nothing_called;
    close.alone = enter + leave;
    close.unbound = {"3 enter.", "4 fail to close server handle of the next plugin: 2060010",
                     "4 fail to close session handle of this plugin: 2060010", "3 leave."};
    close.kept = close.kept_after_failure = -open.kept;
    close.releases = when::always;

    row close_session = close;
    close_session.call = "close_handle(session', 0)";
    close_session.before.push_back("-> " + close.call);
    close_session.after = close_session.after_failure = leave;
    close_session.failure = "4 fail to close session handle of this plugin: %d";
    close_session.hides_failure = false;
    close_session.at = 2;
    close_session.repeats = true;

    row by_handle = {"get_server_prop_v8", "get_server_prop", "get_server_prop(server', record)"};
    by_handle.before = enter;
    by_handle.after = leave;
    by_handle.failure = "4 fail to get the server properties by handle of the underlying plugin.";
    by_handle.checked = {1, 2};
    by_handle.server = magic_t::checked;
    by_handle.cut_off = cut_off_t::refused;
    by_handle.name_at = 0;

    row by_name = {"get_server_prop_byname_v8", "get_server_prop_byname",
                   "get_server_prop_byname(session, \"{NEXT}\", record)"};
    by_name.before = enter;
    by_name.after = leave;
    by_name.failure = "4 fail to get the server properties of the underlying plugin by name "
                      "{NEXT}, error code: %d";
    by_name.checked = {1, 3};
    by_name.refused_nulls = {
        {2, consequence{{"3 enter.", "4 the prefix of server name (null) is not correct"},
                        STS_ERR_INVALID}}};
    by_name.name_at = 0;
    return {open, second, target, close, close_session, throttled(close), by_handle, by_name};
}
