// Where a layer is meant to differ from the storage below it. A test that finds one of these says
// so, in its output and with the reason; everything else must be the same on every stack.
#pragma once

struct rule {
    const char* what;
    const char* reason;
};

/// Whether the stack has layers, so that the rule holds; then it is printed, once in a test.
bool differs(const rule& which);

/// Runs `body`, some of whose memory nobody can ever release by such a rule: the sanitizer for
/// leaks passes over what is allocated in it.
template <typename Body>
[[gnu::noinline]] auto left_for_ever(Body body) {
    return body();
}

namespace rules {

constexpr rule names_below = {
    "names of other servers are told as the storage knows them",
    "a copy's target, a target server and a replication peer stand in records and values that "
    "layers carry unread"};
constexpr rule target_keeps_name = {
    "the properties of a target server carry its source's name",
    "a layer copies the name of the source and never reads that of the target"};
constexpr rule target_shares_session = {
    "closing the second of a server and its target server answers 2060001",
    "the target shares the source's session below, which the first close has closed"};
constexpr rule target_left_in_out = {
    "a target server that can't be opened leaves a handle all the same, which is to be closed",
    "a layer hands it out before it asks the next one"};
constexpr rule target_inherits_count = {
    "a target server keeps 2060005 for what was open on its source when it was opened",
    "a layer copies the count of the source, and a close there lowers the source's alone"};
constexpr rule group_list_count = {
    "a server on which a list of groups was closed answers 2060005 to its own close",
    "a layer doesn't count the opening of such a list, but its close"};
constexpr rule group_list_holds_nothing = {
    "a server closes while a list of groups is open on it, and the list can't be closed any more",
    "a layer doesn't count the opening of such a list"};
constexpr rule group_list_left_in_out = {
    "a list of groups that can't be opened leaves a handle all the same, which can't be closed",
    "a layer hands it out before it asks the next one, and has nothing to close there"};
constexpr rule holders = {
    "a new LSU and a copy come in a holder, which is there, empty, after a failure too",
    "a layer allocates it before it asks the next one and never releases it: that is the host's"};
constexpr rule record_given_up = {
    "the record that names an LSU to be deleted is gone with the call, whatever its status",
    "a layer releases it, and the storage only reads it"};
constexpr rule source_first = {
    "a channel without an event source isn't opened",
    "a layer looks at the source first; the storage gets it when the channel is there"};
constexpr rule config_rows = {
    "the configuration text goes on with the rows of the layers, one copy for each",
    "each layer appends its own rows to those from below"};
constexpr rule config_length_untold = {
    "a buffer that is too short for the rows of the storage leaves the count as it was",
    "a layer adds its own length only to that of a text it has got"};
constexpr rule event_name_always = {
    "an event record without an event has the server's name all the same",
    "a layer writes it whatever the status is"};
constexpr rule trusted_handles = {
    "entries that only forward are not called with handles that aren't theirs",
    "a layer follows such a handle without looking at it: the host answers for it"};
constexpr rule unsupported = {
    "the host's table has twelve operations more, each of which answers 2060016",
    "the storage has no slot for them, and a layer passes none of them on"};
constexpr rule claims = {"the host asks whether a server name is claimed",
                         "the storage has no slot for that"};

} // namespace rules
