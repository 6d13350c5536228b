// The plugin's log file, sent to a directory of the test's own. The settings must ask for one.
#pragma once

#include <string>
#include <vector>

class log_file {
  public:
    /// Makes the log's directory below `directory` and sends the log there, up to fault::clear.
    explicit log_file(const std::string& directory);

    /// The lines so far without what changes from run to run, as in
    /// "[DEBUG][no session][stspi_init]log inited.".
    std::vector<std::string> lines() const;

  private:
    std::string directory_;
};
