// Rows of the event channels.

#include "tests/entries/row_groups.h"

std::vector<row> channel_rows() {
    const std::string to_session = "-> open_session(session, out)";
    const std::string to_channel = "-> open_evchannel(new, f5, f6, out)";
    const std::string to_source = "-> add_evsource(new, 0, f8, \"{NEXT}\", record, 0)";
    const std::string left = "3 leave stspi_open_evchannel";
    row open = {"open_evchannel", "open_session", to_session.substr(3)};
    open.before = {"3 enter stspi_open_evchannel", "3 Server Name = {NAME}",
                   "3 the server name to the next plugin in stack is {NEXT}."};
    open.after = {to_channel, to_source, left};
    open.failure = "4 Failed to open a new session, return: %d";
    open.after_failure = {left};
    open.checked = {1, 2, 3, 9};
    open.cut_off = cut_off_t::nothing_called;
    open.out = when::always;
    open.kept = open.kept_after_failure = 2; // the channel and its name
    open.shortages = {consequence{open.before + lines{left}}};

    row second = open;
    second.slot = "open_evchannel";
    second.call = to_channel.substr(3);
    second.before.push_back(to_session);
    second.after = {to_source, left};
    second.failure = "4 open_evchannel failed, error code =  %d";
    second.repeats = true;

    row third = second;
    third.slot = "add_evsource";
    third.call = to_source.substr(3);
    third.before.push_back(to_channel);
    third.after = {left};
    third.failure = "4 add_evsource failed, error code =  %d";

    row close = {"close_evchannel", "close_handle", "close_handle(channel', 0)"};
    close.before = {"3 enter stspi_close_evchannel"};
    close.after = {"-> close_handle(session', 0)", "3 exit stspi_close_evchannel"};
    close.failure = "4 Failed to close evchannel, return: %d";
    close.after_failure = close.after;
    close.hides_failure = true;
    close.cut_off = cut_off_t::nothing_called;
    close.kept = close.kept_after_failure = -2;
    close.releases = when::always;
    close.unbound =
        lines{"3 enter stspi_close_evchannel", "4 Failed to close evchannel, return: 2060010",
              "3 Close session handle returned: 2060010", "3 exit stspi_close_evchannel"};

    row close_session = close;
    close_session.call = "close_handle(session', 0)";
    close_session.before.push_back("-> close_handle(channel', 0)");
    close_session.after = close_session.after_failure = {"3 exit stspi_close_evchannel"};
    close_session.failure = "3 Close session handle returned: %d";
    close_session.hides_failure = false;
    close_session.at = 2;
    close_session.repeats = true;

    row get = {"get_event", "get_event", "get_event(channel', record)"};
    get.before = {"3 enter stspi_get_event"};
    get.after = {"3 The server name within event is {NAME}", "3 leave stspi_get_event"};
    get.failure = "3 get_event failed, error code = %d";
    get.failures = {{STS_ERR_NO_EVENT, ""}};
    get.after_failure = get.after;
    get.cut_off = cut_off_t::nothing_called;
    get.alone =
        lines{"3 enter stspi_get_event", "3 null event channel handle", "3 leave stspi_get_event"};
    get.name_at = 16;
    get.name_after_failure = true;

    row remove = {"delete_event", "delete_event", "delete_event(server', record)"};
    remove.before = {"3 enter stspi_delete_event"};
    remove.failure = "4 Failed to call delete event, return: %d";
    remove.after = remove.after_failure = {"3 exit stspi_delete_event"};
    remove.passed = {2};
    remove.cut_off = cut_off_t::null_goes_down;

    row payload = {"get_event_payload", "get_event_payload", "get_event_payload(server', f2, f3)"};
    payload.before = {"3 enter stspi_get_event_payload"};
    payload.failure = "4 get event payload failed, return: %d";
    payload.after = payload.after_failure = {"3 exit stspi_get_event_payload"};
    payload.cut_off = cut_off_t::null_goes_down;
    return {open, second, third, close, close_session, get, remove, payload};
}
