#include "tools/host/settings_findings.h"

#include "config/settings.h"
#include "tools/terminal/console.h"
#include "tools/terminal/printable.h"

#include <fmt/format.h>

checked_settings told_settings(const std::string& file) {
    config_set_path(nullptr);
    const std::string path = file.empty() ? plugin_config_path : file;
    checked_settings found = check_settings(path.c_str());
    if (found.state != checked_settings::missing) {
        for (const settings_finding& each : found.findings) {
            console::get().line(shown_text(path, each));
        }
    }
    return found;
}

std::string shown_text(const std::string& file, const settings_finding& finding) {
    return printable(finding_text(file, finding));
}

ordered_json findings_json(const std::vector<settings_finding>& findings) {
    ordered_json all = ordered_json::array();
    for (const settings_finding& each : findings) {
        all.push_back({{"line", each.line != 0 ? ordered_json(each.line) : ordered_json()},
                       {"severity", each.severity == finding_severity::error ? "error" : "warning"},
                       {"key", !each.key.empty() ? ordered_json(each.key) : ordered_json()},
                       {"wrong", each.wrong},
                       {"effect", each.effect}});
    }
    return all;
}

std::string missing_settings_text(const std::string& file) {
    return fmt::format("{0}: there is no such file. What a file doesn't say has its default, so "
                       "one line makes one:\n  echo THR:SAMPLE_INTERVAL=5 > {0}",
                       printable(file));
}
