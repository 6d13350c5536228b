// The operations that are handed on to the next layer, a row each: what is swapped and called, what
// is checked first, what is logged, and what the call leaves behind. An operation that makes
// several calls has a row for each of them, and one whose command decides a row for each command.
//
// Lines are those of world: "3 enter." for a line of the operation's own at that severity, and
// "-> CALL" for a call of the next layer. In them %d is the status and {NAME} the text that was
// given.
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

struct row {
    std::string operation;
    std::string slot;
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
    bool out_needs_next = false;        ///< nothing is handed out or kept without a next layer
    std::optional<size_t> name_at = {}; ///< place of the server's name in the record
    bool name_after_failure = false;
    std::optional<size_t> status_at = {};
    int counts = 0; ///< what success adds to the server's open handles
    int kept = 0;   ///< blocks of memory that are left after success
    int kept_after_failure = 0;
    when releases = when::never; ///< the handle or record that was given

    /// Where it differs from what the rest says.
    std::map<size_t, uint64_t> arguments = {}; ///< by place from 1
    const char* text = nullptr;                ///< the text or name that is given
    std::optional<lines> unbound = {};         ///< with no layer bound
    std::optional<lines> alone = {};           ///< without a next layer
    std::optional<lines> without_memory = {};  ///< an entry that allocates nothing has none
    bool hides_failure = false;                ///< the status isn't that of this call
    int at = 1;                                ///< which call of the slot is meant
    bool repeats = false; ///< another row of the operation stands for its arguments and its start
};

const std::vector<row>& rows();

/// Whether an operation of the row takes such a parameter.
bool has_parameter(const row& of, parameter_t parameter);

/// Operations that have tests of their own elsewhere, and why they have no row here.
const std::map<std::string, std::string>& without_row();
