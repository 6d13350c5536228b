// The supported operations, a row each: what is swapped and called, what is checked first, what is
// logged, and what the call leaves behind. An operation that makes several calls has a row for each
// of them, one whose command decides a row for each command, and one that asks the service a row of
// its own for that. The groups of rows are in rows_*.cpp.
//
// Lines are those of world: "3 enter." for a line of the operation's own at that severity,
// "-> CALL" for a call of the next layer and "=> CALL" for an exchange with the service. In them %d
// is the status, {NAME} the text that was given and {NEXT} the part of it that is the next layer's.
#pragma once

#include "tests/entries/world.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// When something happens to what a call was given.
enum class when { never, on_success, always };

/// What becomes of a call on a server without a next layer.
enum class cut_off_t {
    no_matter,      ///< the call goes down as ever: its handle was opened when there was one
    null_goes_down, ///< so does this one, with null in the server's place
    refused,        ///< STS_ERR_INVALID
    nothing_called, ///< success without a call
};

/// What the entry looks at of the server and of the handle that it gets.
enum class magic_t { ignored, checked };

/// What comes of memory that isn't there, or of a null that is refused aloud.
struct consequence {
    lines story = {};
    int status = STS_ERR_NOMEM; ///< STS_OK: all the rest is as it is where all goes well
    int kept = 0;               ///< blocks of memory that are left
};

struct row {
    std::string operation;
    std::string slot;         ///< of the next layer; empty: it calls none
    std::string call;         ///< of the slot
    std::string who = {};     ///< as logs know it, where it isn't the operation's own name
    lines before = {};        ///< of what precedes the call
    lines after = {};         ///< of what follows it where it succeeds
    std::string failure = {}; ///< line of a failure; empty: none
    std::map<int, std::string> failures = {}; ///< lines of certain statuses; empty: none
    lines after_failure = {};                 ///< what follows then
    std::vector<size_t> checked = {}; ///< pointers that are refused as null, by place from 1
    std::vector<size_t> passed = {};  ///< pointers that go down as null
    magic_t server = magic_t::ignored;
    magic_t handle = magic_t::ignored; ///< of a list
    cut_off_t cut_off = cut_off_t::no_matter;

    /// What the host gets: the handle or holder in `out`, the server's name in the record, the
    /// status in a record of a failed wait.
    when out = when::never;
    std::optional<int> out_count = {};  ///< open handles of a server in `out`
    bool out_needs_next = false;        ///< nothing is handed out or kept without a next layer
    std::optional<size_t> name_at = {}; ///< place of the server's name in the record
    bool name_after_failure = false;
    std::optional<size_t> status_at = {};
    std::optional<operation_type_t> moves = {}; ///< the sample that counts the bytes of success
    bool unbinds = false;                       ///< success leaves no layer bound
    int counts = 0;                             ///< what success adds to the server's open handles
    int counts_after_failure = 0;
    int kept = 0; ///< blocks of memory that are left after success
    int kept_after_failure = 0;
    when releases = when::never; ///< the handle or record that was given

    /// What comes of its allocations where one of them fails, in their order; those with the same
    /// outcome are told once. Empty: it makes none.
    std::vector<consequence> shortages = {};
    std::optional<consequence> without_any = {}; ///< of all failing, where that isn't the first's

    /// Where it differs from what the rest says.
    bool throttled = false; ///< the server is; its image, if it needs one, has been admitted
    std::map<size_t, uint64_t> arguments = {};        ///< by place from 1
    const char* text = nullptr;                       ///< the text or name that is given
    std::optional<lines> unbound = {};                ///< with no layer bound
    std::optional<lines> alone = {};                  ///< without a next layer
    std::map<size_t, consequence> refused_nulls = {}; ///< by place: not in silence
    bool needs_no_layer = false;                      ///< what it calls, if anything, is in no slot
    bool hides_failure = false;                       ///< the status isn't that of this call
    int at = 1;                                       ///< which call of the slot is meant
    bool repeats = false; ///< another row of the operation stands for its arguments and its start
};

const std::vector<row>& rows();

/// Whether an operation of the row takes such a parameter.
bool has_parameter(const row& of, parameter_t parameter);
