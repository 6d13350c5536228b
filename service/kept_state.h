// What of the book outlasts the service, as a file in its state directory: JSON, written whole.
//
// Nothing in it is believed: it is bounded, its rows are read as those of clients are, and a file
// that isn't what was once written is put aside.
#pragma once

#include "service/ledger.h"
#include "service/state_directory.h"

#include <functional>
#include <string>

std::string text_of(const kept_book& kept);
/// Throws std::runtime_error, which says what is wrong with it.
kept_book parse_kept_book(const std::string& text);

/// Keeps a book's changes in a directory.
class book_keeper {
  public:
    using log_sink = std::function<void(const std::string& line)>;

    /// Puts back into `book` what is kept; where that can't be, `log` says why, what is there is
    /// given another name, and the book stays as it is. All are borrowed.
    book_keeper(const state_directory& directory, ledger& book, log_sink log, moment now);
    /// Writes what has changed since the last time. To be called about once a second.
    void tick(moment now);

  private:
    const state_directory& directory_;
    ledger& book_;
    const log_sink log_;
    uint64_t written_ = 0; ///< changes of the book by then
    bool is_failing_ = false;
};
