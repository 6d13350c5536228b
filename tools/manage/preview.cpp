// "preview": shows what the settings allow.

#include "tools/host/command.h"
#include "tools/manage/preview_table.h"

#include <memory>

void add_preview(CLI::App& app, request& asked) {
    struct options {
        preview_options preview;
        std::string direction;
    };
    const auto kept = std::make_shared<options>();
    CLI::App* const preview =
        app.add_subcommand("preview", "Show the rate that the settings allow, hour by hour");
    preview->add_option("--direction", kept->direction, "Only one direction")
        ->check(CLI::IsMember({"read", "write"}).description(""))
        ->type_name("read|write");
    preview->add_flag("--week", kept->preview.week, "The whole week (default: today)");
    preview->footer(examples({"preview --conf-dir /etc/throttling --direction write --week"}));
    chooses(*preview, asked, [kept] {
        if (!kept->direction.empty()) {
            kept->preview.direction = kept->direction == "read" ? OPERATION_READ : OPERATION_WRITE;
        }
        return run_preview(kept->preview);
    });
}
