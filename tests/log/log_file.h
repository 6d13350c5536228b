// The log's directory, put below a directory of the test's own, and what arrives in it.
#pragma once

#include <string>
#include <vector>

class log_file {
  public:
    /// Makes the directory and sends the log there. Nothing is open yet and the level is 0.
    log_file();
    /// Closes the log, sets its level back and takes back every fault.
    ~log_file();
    log_file(const log_file&) = delete;
    log_file& operator=(const log_file&) = delete;

    /// Directory of the dated files.
    std::string directory() const { return path_ + "/vlcssc"; }
    /// Names of the dated files, sorted.
    std::vector<std::string> names() const;
    /// The lines of all of them, each without its newline. A last line that has none ends in
    /// "(unfinished)".
    std::vector<std::string> lines() const;
    /// The same without the process id and the time: "[WARN] [session][function]message".
    std::vector<std::string> entries() const;

  private:
    std::string path_;
};
