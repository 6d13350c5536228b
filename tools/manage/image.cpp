// "image": the images of an LSU: list, groups, show, delete, copy, metadata.

#include "tools/host/block.h"
#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/manage/commands.h"
#include "tools/manage/copy.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/input_file.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"
#include "tools/terminal/waiting.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <set>

namespace {

constexpr uint64_t meta_block = uint64_t{64} * 1024;
constexpr uint64_t most_rate = uint64_t{1} << 50; // bytes per second: more is no limit

struct image_options {
    std::string lsu;
    std::string image;
    std::vector<std::string> images;
    std::string group;
    bool as_json = false;
    copy_request copy;
    std::string new_meta;
    std::string meta_file;
    bool sets_meta = false;
    bool clears_meta = false;
};

// --- list, groups, show, delete ----------------------------------------------------------------

int list_images(const server_options& common, const image_options& options) {
    const waiting notice("listing the images of \"" + options.lsu + "\"");
    connection to(common);
    to.server.require_lsu(options.lsu);
    ordered_json all = ordered_json::array();
    std::vector<std::vector<std::string>> lines;
    for (const listed_image& each : to.server.images(options.lsu)) {
        if (!options.group.empty() && each.group != options.group) {
            continue;
        }
        try {
            const sts_image_info_s info = to.server.image_info(options.lsu, each.name);
            all.push_back(fields_of(info));
            lines.push_back({printable(each.name), size_text(info.size), time_text(info.created),
                             printable(each.group)});
        } catch (const status_failure& error) {
            to.server.pass_over(error.what());
        }
    }
    if (options.as_json) {
        fmt::print("{}\n", dumped(all, 2));
    } else if (lines.empty()) {
        fmt::print("The LSU \"{}\" has no images{}.\n", options.lsu,
                   options.group.empty() ? "" : " of the group \"" + options.group + "\"");
    } else {
        fmt::print("{}", columns_text({"image", "size", "created", "group"}, lines));
    }
    return ended(to.server);
}

/// The names come from the images: a list of groups would leave the server unable to close.
int list_groups(const server_options& common, const image_options& options) {
    const waiting notice("listing the image groups of \"" + options.lsu + "\"");
    connection to(common);
    to.server.require_lsu(options.lsu);
    const sts_lsu_ref_s reference = to.server.ref(options.lsu);
    std::set<std::string> names;
    for (const listed_image& each : to.server.images(options.lsu)) {
        names.insert(each.group);
    }
    names.erase("");
    ordered_json all = ordered_json::array();
    std::vector<std::vector<std::string>> lines;
    for (const std::string& name : names) {
        sts_image_group_s group = {};
        require_ok(to.server.entries().get_image_group_byname(&reference, forwarded(name.c_str()),
                                                              forwarded(&group)),
                   "reading the image group", name, to.server.name());
        all.push_back(fields_of(group));
        lines.push_back(
            {printable(name), std::to_string(group.image_count), size_text(group.size)});
    }
    if (options.as_json) {
        fmt::print("{}\n", dumped(all, 2));
    } else if (lines.empty()) {
        fmt::print("The images of the LSU \"{}\" are in no group.\n", options.lsu);
    } else {
        fmt::print("{}", columns_text({"group", "images", "size"}, lines));
    }
    return ended(to.server);
}

int show_image(const server_options& common, const image_options& options) {
    connection to(common);
    ordered_json fields = fields_of(to.server.image_info(options.lsu, options.image));
    if (options.as_json) {
        fmt::print("{}\n", dumped(fields, 2));
    } else {
        const auto size = fields.at("size").get<uint64_t>();
        fields["size"] =
            size < 1024 ? size_text(size) : fmt::format("{} ({} bytes)", size_text(size), size);
        for (const char* const when : {"created", "modified"}) {
            fields[when] = time_text(fields.at(when).get<int64_t>());
        }
        fmt::print("{}", field_lines(fields));
    }
    return ended(to.server);
}

/// Deletes what it can; what it can't is named, and the others go all the same.
int delete_images(const server_options& common, const image_options& options) {
    connection to(common);
    size_t failures = 0;
    for (const std::string& image : options.images) {
        try {
            to.server.delete_image(options.lsu, image);
            fmt::print("The image \"{}\" is deleted.\n", printable(image));
        } catch (const failure& error) {
            ++failures;
            console::get().problem(error.what());
        }
    }
    const int code = ended(to.server);
    return failures == 0 ? code : EXIT_FAILED;
}

// --- metadata ----------------------------------------------------------------------------------

std::string read_meta(const host_server& server, host_image& image) {
    std::string meta;
    uint64_t count = 0;
    do {
        std::vector<char> block(meta_block);
        count = 0;
        require_ok(server.entries().read_image_meta(image.handle(), forwarded(block.data()),
                                                    block.size(), meta.size(), forwarded(&count),
                                                    0),
                   "reading the metadata of the image", image.name(), server.name());
        meta.append(block.data(), std::min<uint64_t>(count, block.size()));
    } while (count != 0);
    return meta;
}

int print_meta(const server_options& common, const image_options& options) {
    connection to(common);
    host_image image = to.server.open_image(options.lsu, options.image);
    const std::string meta = read_meta(to.server, image);
    image.close(STS_CLOSE_COMPLETE);
    fmt::print("{}", meta);
    return ended(to.server);
}

/// The image is written again as a whole: readers see the old one until this is done.
int set_meta(const server_options& common, const image_options& options, const std::string& meta) {
    const waiting notice("writing the image \"" + options.image + "\" again");
    connection to(common);
    host_image image = to.server.open_image(options.lsu, options.image, STS_IMAGE_WRITE);
    require_ok(to.server.entries().delete_files(image.handle(), STS_FILES_META, 0, 0, 0, 0),
               "clearing the metadata of the image", options.image, to.server.name());
    for (uint64_t done = 0; done < meta.size();) {
        uint64_t count = 0;
        require_ok(
            to.server.entries().write_image_meta(image.handle(), forwarded(meta.data() + done),
                                                 meta.size() - done, done, forwarded(&count), 0),
            "writing the metadata of the image", options.image, to.server.name());
        if (count == 0) {
            throw failure(fmt::format("the image \"{}\" takes no more than {} bytes of metadata",
                                      options.image, done));
        }
        done += count;
    }
    image.close(STS_CLOSE_COMPLETE);
    fmt::print("The image \"{}\" has {} bytes of metadata.\n", printable(options.image),
               meta.size());
    return ended(to.server);
}

int run_meta(const server_options& common, const image_options& options) {
    if (!options.meta_file.empty()) {
        return set_meta(common, options, read_file(options.meta_file));
    }
    return options.sets_meta || options.clears_meta ? set_meta(common, options, options.new_meta)
                                                    : print_meta(common, options);
}

int run_copy(const server_options& common, const image_options& options) {
    const signals caught;
    connection to(common);
    copy_request copy = options.copy;
    copy.lsu = options.lsu;
    copy.image = options.image;
    if (copy.to_image.empty()) {
        copy.to_image = copy.image;
    }
    const int code = copy_image(to.server, copy, caught);
    to.server.close();
    return code;
}

// --- the options -------------------------------------------------------------------------------

using image_action = int (*)(const server_options&, const image_options&);

CLI::App* add_image_command(CLI::App& image, request& asked, const char* name, const char* summary,
                            const std::shared_ptr<image_options>& options, image_action action) {
    CLI::App* const app = add_command(image, asked, name, summary, options, action);
    add_lsu_option(*app, options->lsu);
    return app;
}

void add_name(CLI::App& app, image_options& options) {
    add_named(app, "IMAGE", options.image, "The image's name")->required();
}

void add_copy(CLI::App& image, request& asked, const std::shared_ptr<image_options>& options,
              const std::string& to) {
    CLI::App* const copy = add_image_command(image, asked, "copy",
                                             "Copy an image within the storage", options, run_copy);
    copy_request& wanted = options->copy;
    add_name(*copy, *options);
    add_named(*copy, "--to-lsu", wanted.to_lsu, "The LSU that it is copied to", "LSU")->required();
    add_named(*copy, "--to-image", wanted.to_image, "The copy's name (default: the same)", "IMAGE");
    add_named(*copy, "--to-server", wanted.to_server,
              "The server that it is copied to (default: the same)", "NAME");
    copy->add_option("--rate", wanted.rate, "At most so many bytes a second, as in 10M")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(CLI::Range(uint64_t{1}, most_rate).description(""))
        ->type_name("SIZE");
    add_block_option(*copy, wanted.block);
    copy->footer(command_help(
        "The storage makes the copy by itself, the plugin doesn't pace it: --rate does. Ctrl-C\n"
        "cancels it and leaves nothing of it. The copy is in the group of its source.\n",
        {"image copy monday.1of1 --to-lsu weekly" + to,
         "image copy monday.1of1 --to-server CS_throttle:t2:disk:/srv/other --to-lsu daily --rate "
         "20M" +
             to}));
}

void add_meta(CLI::App& image, request& asked, const std::shared_ptr<image_options>& options,
              const std::string& to) {
    CLI::App* const meta = add_image_command(
        image, asked, "meta", "Print an image's metadata as it is, or set it", options, run_meta);
    add_name(*meta, *options);
    CLI::Option* const set =
        meta->add_option("--set", options->new_meta, "Put this text in its place")
            ->type_name("TEXT")
            ->each([options](const std::string&) { options->sets_meta = true; });
    CLI::Option* const file = add_named(*meta, "--set-file", options->meta_file,
                                        "Put this file's content in its place", "FILE")
                                  ->excludes(set);
    meta->add_flag("--clear", options->clears_meta, "Take it away")->excludes(set)->excludes(file);
    meta->footer(command_help("Setting writes the image again, with the data that it has.\n",
                              {"image meta monday.1of1 > catalogue" + to,
                               "image meta monday.1of1 --set-file catalogue" + to}));
}

} // namespace

void add_image(CLI::App& app, request& asked) {
    const auto options = std::make_shared<image_options>();
    const std::string to = std::string(example_server) + " --lsu daily";
    CLI::App* const image =
        app.add_subcommand("image", "The images of an LSU: list, show, copy, delete ...");
    image->require_subcommand(1);
    image->fallthrough();
    image->footer(
        command_help("", {"image list" + to, "image copy monday.1of1 --to-lsu weekly" + to}));

    CLI::App* const list =
        add_image_command(*image, asked, "list", "List an LSU's images", options, list_images);
    add_named(*list, "--group", options->group, "Only those of a group", "GROUP");
    add_json(*list, options->as_json);
    list->footer(
        command_help("With --json it is one list of objects: image, group, lsu, server, size "
                     "(bytes), created and\nmodified (seconds since the epoch).\n",
                     {"image list" + to, "image list --group monday --json" + to}));

    CLI::App* const groups = add_image_command(
        *image, asked, "groups", "List the groups of an LSU's images", options, list_groups);
    add_json(*groups, options->as_json);
    groups->footer(command_help("", {"image groups" + to}));

    CLI::App* const show =
        add_image_command(*image, asked, "show", "Show an image's properties", options, show_image);
    add_name(*show, *options);
    add_json(*show, options->as_json);
    show->footer(command_help("", {"image show monday.1of1" + to}));

    CLI::App* const remove =
        add_image_command(*image, asked, "delete", "Delete images", options, delete_images);
    add_named(*remove, "IMAGE", options->images, "Their names")->required();
    remove->footer(command_help("", {"image delete monday.1of2 monday.2of2" + to}));

    add_copy(*image, asked, options, to);
    add_meta(*image, asked, options, to);
}
