#include "tools/host/settings_place.h"

#include "config/settings.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <unistd.h>

namespace fs = std::filesystem;

std::string settings_place_trouble() {
    config_set_path(nullptr);
    const std::string file = plugin_config_path;
    const std::string directory = fs::path(file).parent_path().string();
    if (directory.empty()) {
        return "the directory of the settings has no name: name one with --conf-dir";
    }
    std::error_code error;
    if (!fs::is_directory(directory, error)) {
        return fmt::format(
            "the directory of the settings, {0}, isn't there: make it with \"mkdir -p "
            "{0}\", or name another with --conf-dir",
            printable(directory));
    }
    const bool is_there = access(file.c_str(), F_OK) == 0;
    const std::string& written = is_there ? file : directory;
    if (access(written.c_str(), W_OK) != 0) {
        return fmt::format("{} can't be written ({}): allow it, or name another directory with "
                           "--conf-dir",
                           printable(written), strerror(errno));
    }
    return {};
}

void require_settings_place(int status) {
    if (status != STS_ERR_END_OF_LIST) {
        return;
    }
    if (const std::string trouble = settings_place_trouble(); !trouble.empty()) {
        throw failure(trouble);
    }
}
