#include "tests/support/conf_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

conf_dir::conf_dir() {
    std::string name = (std::filesystem::temp_directory_path() / "throttling-XXXXXX").string();
    path_ = mkdtemp(name.data());
    setenv("VL_CONF_DIR", path_.c_str(), 1);
}

conf_dir::~conf_dir() {
    unsetenv("VL_CONF_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void conf_dir::write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string conf_dir::read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}
