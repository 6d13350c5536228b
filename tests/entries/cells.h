// The cells of the matrix, made from the table's own list (operations.h) and the rows (rows.h):
// what is wrong in each, and what is to come of it. Those that would read or write through a
// pointer that nobody checks are left out by a rule that says why.
#pragma once

#include "tests/entries/rows.h"

#include <string>
#include <vector>

enum class condition {
    answered,     ///< the next layer answers `value`
    unbound,      ///< no layer is bound
    cut_off,      ///< the server has no next layer
    null,         ///< argument `place` is null
    null_server,  ///< the server that the argument names is null
    stale_server, ///< its magic number is cleared
    other_server, ///< it is a handle of kind `value`
    stale_handle, ///< the argument's own magic number is cleared
    other_handle, ///< the argument is a handle of kind `value`
    without_any,  ///< no allocation succeeds
    without_one   ///< one allocation after the other fails, each in a world of its own
};

/// Kinds of handles that stand for those of another kind, with their names.
enum kind_t : int { server_kind, image_kind, lsu_list_kind, image_list_kind, kinds };

struct cell {
    const row* of;
    condition what;
    size_t place; ///< of the argument, from 1
    int value;
    const char* left_out; ///< the reason; null for a cell that is run
};

// The reasons to leave a cell out.
inline constexpr const char* unchecked = "nobody checks it: it would be read or written through";
inline constexpr const char* unread_magic =
    "its magic number isn't looked at: another kind would be read as its own";
inline constexpr const char* no_magic = "an event channel has no magic number to tell it by";
inline constexpr const char* calls_nothing = "there is no call for the next layer to answer";
inline constexpr const char* held_by_first = "the row of the operation's first call holds it";

/// Every cell of every row, also those that are left out.
std::vector<cell> all_cells();

/// What a cell is to bring about.
struct outcome {
    int status = STS_ERR_INVALID; ///< as it is where everything is refused, in silence
    lines story = {};
    bool out = false;
    bool named = false;
    int status_stored = 0; ///< in the record of a wait
    int counts = 0;
    int kept = 0;
    bool unbinds = false;
};

/// Of a cell whose allocations, if any, succeed or fail all together.
outcome expected_of(const cell& it);

/// Of an allocation that fails.
outcome expected_of(const row& of, const consequence& it);

/// A cell as a failed test shows it.
std::string title_of(const cell& it);

/// The text with each `what` in it replaced.
std::string replaced(std::string text, const std::string& what, const std::string& by);
