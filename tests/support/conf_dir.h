// A configuration directory of the test's own, named by VL_CONF_DIR and gone at the end.
#pragma once

#include <string>

class conf_dir {
  public:
    /// Makes the directory and points the configuration at it.
    conf_dir();
    ~conf_dir();
    conf_dir(const conf_dir&) = delete;
    conf_dir& operator=(const conf_dir&) = delete;

    const std::string& path() const { return path_; }
    std::string plugin_file() const { return path_ + "/libstspithrottling.conf"; }
    std::string service_file() const { return path_ + "/cloudstore.conf"; }
    void write_plugin_file(const std::string& text) const { write(plugin_file(), text); }
    void write_service_file(const std::string& text) const { write(service_file(), text); }

    static void write(const std::string& path, const std::string& text);
    /// The whole file; empty when there is none.
    static std::string read(const std::string& path);

  private:
    std::string path_;
};

/// The plugin's file with the defaults, one line each; `connections` stands behind the third line.
std::string default_file(const std::string& connections = "");
