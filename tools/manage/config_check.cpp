#include "tools/manage/config_check.h"

#include "config/settings.h"
#include "tools/host/settings_findings.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

int run_check(const std::string& file, bool as_json) {
    config_set_path(nullptr);
    const std::string path = file.empty() ? plugin_config_path : file;
    const checked_settings found = check_settings(path.c_str());
    if (found.state == checked_settings::missing) {
        throw failure(missing_settings_text(path));
    }
    const size_t errors = found.count(finding_severity::error);
    if (as_json) {
        const ordered_json all = {{"file", path},
                                  {"errors", errors},
                                  {"warnings", found.count(finding_severity::warning)},
                                  {"findings", findings_json(found.findings)}};
        fmt::print("{}\n", dumped(all, 2));
    } else {
        for (const settings_finding& each : found.findings) {
            fmt::print("{}\n", shown_text(path, each));
        }
        if (found.findings.empty()) {
            fmt::print("{}: nothing is wrong\n", printable(path));
        }
    }
    return errors == 0 ? EXIT_DONE : EXIT_FAILED;
}

assignments with_plain_sizes(const server_settings& current, assignments wanted) {
    for (auto& [key, value] : wanted) {
        const setting_row* const row = current.find(key);
        const uint64_t bytes = size_in(value);
        if (row != nullptr && bytes != 0 && row->description.find("[bytes") != std::string::npos) {
            value = std::to_string(bytes);
        }
    }
    return wanted;
}

namespace {

/// The plugin's file as it would be written for a server's rows; the values in `wanted` stand in it
/// as they are.
std::string file_text(const server_settings& current, const assignments& wanted) {
    throttling_config_s config;
    std::string rows = current.text(); // its reader writes to it for a moment
    read_buf_to_var(nullptr, rows.data(), &config);
    std::string text(2 * rows.size() + STS_CONFIG_SIZE, '\0');
    config_text written(text.data(), text.size());
    form_file(config, written);
    text = "\n" + std::string(text.c_str());
    for (const auto& [key, value] : wanted) {
        const size_t at = text.find("\n" + key + "=");
        if (at != std::string::npos) {
            const size_t from = at + key.size() + 2;
            text.replace(from, text.find('\n', from) - from, value);
        }
    }
    return text.substr(1);
}

bool is_error(const settings_finding& finding) {
    return finding.severity == finding_severity::error;
}

} // namespace

std::string new_errors(const server_settings& current, const assignments& wanted) {
    const auto before = check_settings_text(file_text(current, {})).findings;
    std::string text;
    for (const settings_finding& each : check_settings_text(file_text(current, wanted)).findings) {
        if (is_error(each) && std::find(before.begin(), before.end(), each) == before.end()) {
            text += fmt::format("{}: {}; {}\n", printable(each.key), printable(each.wrong),
                                printable(each.effect));
        }
    }
    return text;
}
