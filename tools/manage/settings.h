// A server's configuration text: rows of every layer with nothing between them,
//
//   name=THR:SAMPLE_INTERVAL,description=...,type=int,value=30,fixed=n;
//
// which is read, shown, and written back with other values in it.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct setting_row {
    std::string name;
    std::string description;
    std::string type;
    std::string value;
    bool fixed = false;  ///< this server can't change it
    size_t value_at = 0; ///< where the value stands in the text
};

class server_settings {
  public:
    /// Fails when the text is cut or holds what is no row; `server` is for that message.
    server_settings(std::string text, const std::string& server);

    const std::string& text() const { return text_; }
    const std::vector<setting_row>& rows() const { return rows_; }
    /// Of several layers' rows of that name one that can be set, if there is one. Null where there
    /// is none.
    const setting_row* find(const std::string& name) const;

  private:
    std::string text_;
    std::vector<setting_row> rows_;
};

/// "KEY=VALUE" taken apart at its last "=", since a key is a path at times. Fails as a usage
/// failure.
std::pair<std::string, std::string> assignment_of(const std::string& argument);

using assignments = std::vector<std::pair<std::string, std::string>>;

/// The text with these values in it, in the rows of every layer that has them. Fails, naming key
/// and value, when a key isn't there, can't be changed through this server or is named twice, and
/// when a value isn't of its type.
std::string changed_text(const server_settings& current, const assignments& wanted,
                         const std::string& server);

/// Why the plugin wouldn't take a row of its own as it stands among `wanted`, by its own reading of
/// the whole text; empty when it would take all.
std::string refused_by_plugin(const std::string& text, const assignments& wanted);

/// One of the wanted values that isn't taken, in words.
std::string refusal(const std::string& key, const std::string& value, const std::string& instead);

/// Whether both say the same: the same text, or the same number.
bool is_same_value(const std::string& left, const std::string& right);
