// What the user sees on standard error: lines, and below them bars that are redrawn in place. Any
// thread may print; a line never tears a bar.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

class console {
  public:
    static console& get();

    /// Prints a line above the bars.
    void line(const std::string& text);
    /// The same for what is wrong: it begins with the program's name.
    void problem(const std::string& text) { line(named(text)); }
    static std::string named(const std::string& text) { return "throttlectl: " + text; }
    /// Draws the bars in place of those before, each cut to the terminal's width.
    void bars(const std::vector<std::string>& lines);
    /// Takes the bars away.
    void clear_bars();

    bool is_terminal() const { return is_terminal_; }
    /// Columns that a bar may have; 79 where it is no terminal.
    static size_t width();

  private:
    console();
    void print(const std::string& text);
    std::string erased() const;
    void draw();

    std::mutex mutex_;
    const bool is_terminal_;
    size_t drawn_ = 0; ///< bars on the screen
    std::vector<std::string> bars_;
};
