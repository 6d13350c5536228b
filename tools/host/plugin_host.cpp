#include "tools/host/plugin_host.h"

#include "tools/host/records.h"
#include "tools/host/settings_place.h"
#include "tools/host/status_names.h"
#include "tools/terminal/console.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <memory>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr const char* plugin_file = "libstspithrottling.so";
constexpr uint64_t host_version = 12;
constexpr uint64_t interface_version = 11;
constexpr const char* expected_label = "Throttling Plugin";
constexpr size_t create_lsu_slot = 4;
constexpr size_t delete_lsu_slot = 9;
constexpr uint32_t no_flags = 0;
constexpr int32_t list_of_images = 0;

std::string default_plugin() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path beside = program.parent_path().parent_path() / "lib" / plugin_file;
    return !error && fs::exists(beside, error) ? beside.string() : plugin_file;
}

template <typename Function>
Function find_function(void* library, const char* name, const std::string& path) {
    void* const found = dlsym(library, name);
    if (found == nullptr) {
        throw failure(fmt::format("{} is no plugin: it has no {}", path, name));
    }
    return reinterpret_cast<Function>(found);
}

void check_record(const stspi_api_rec_t& record, const std::string& path) {
    const auto require = [&](bool good, const std::string& what) {
        if (!good) {
            throw failure(fmt::format("{} isn't the throttling plugin: {}", path, what));
        }
    };
    require(record.version == interface_version,
            fmt::format("its record has version {}, not {}", record.version, interface_version));
    require(record.ep != nullptr, "its record has no entry table");
    require(text_of(record.prefix) == plugin_prefix,
            fmt::format("its prefix is \"{}\", not \"{}\"", text_of(record.prefix), plugin_prefix));
    require(text_of(record.label) == expected_label,
            fmt::format("its label is \"{}\", not \"{}\"", text_of(record.label), expected_label));
    require(record.version_text[0] != '\0', "its record has no version text");
}

/// Takes every entry of a list and closes it. An entry that can't be given, as of a damaged image,
/// is named and passed over; too many in a row are the list's own failure. Returns how many there
/// were.
template <typename Entry, typename Next, typename Close, typename Take>
size_t walk_list(const std::string& what, const std::string& object, Next next, Close close,
                 Take take) {
    constexpr size_t most_in_a_row = 100;
    const auto entry = std::make_unique<Entry>();
    size_t passed_over = 0;
    size_t in_a_row = 0;
    int status = STS_OK;
    while (in_a_row < most_in_a_row && (status = next(entry.get())) != STS_ERR_END_OF_LIST) {
        if (status == STS_OK) {
            in_a_row = 0;
            take(*entry);
        } else {
            ++in_a_row;
            ++passed_over;
            console::get().problem(fmt::format("one of the {} of \"{}\" is passed over: {}", what,
                                               object, status_text(status)));
        }
    }
    const int closed = close();
    if (status != STS_ERR_END_OF_LIST) {
        throw failed("listing the " + what + " of", object, status);
    }
    require_ok(closed, "closing the list of", object);
    return passed_over;
}

} // namespace

// --- the plugin --------------------------------------------------------------------------------

plugin_host::plugin_host(const std::string& path) {
    const std::string wanted = path.empty() ? default_plugin() : path;
    void* const library = dlopen(wanted.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw failure(fmt::format("the plugin can't be loaded: {}", dlerror()));
    }
    using init_function = int (*)(uint64_t, const char*, stspi_api_rec_t*);
    using init2_function = int (*)(uint64_t, stspi_api2_rec_t*);
    const auto init = find_function<init_function>(library, "stspi_init", wanted);
    const auto init2 = find_function<init2_function>(library, "stspi_init2", wanted);

    const std::string directory = fs::path(wanted).parent_path().string();
    stspi_api_rec_t record = {};
    if (const int status = init(host_version, directory.c_str(), &record)) {
        require_settings_place(status);
        throw failed("starting the plugin", wanted, status);
    }
    check_record(record, wanted);
    entries_ = record.ep;
    version_ = text_of(record.version_text);

    stspi_api2_rec_t second = {};
    require_ok(init2(host_version, &second), "asking for the second table of", wanted);
    second_entries_ = second.entry_points;
}

plugin_host::~plugin_host() {
    if (entries_ != nullptr) {
        entries_->terminate_v7();
    }
}

plugin_host::create_lsu_t plugin_host::create_lsu_entry() const {
    return reinterpret_cast<create_lsu_t>(second_entries_[create_lsu_slot]);
}

plugin_host::delete_lsu_t plugin_host::delete_lsu_entry() const {
    return reinterpret_cast<delete_lsu_t>(second_entries_[delete_lsu_slot]);
}

int plugin_host::create_lsu(throttling_server_s* server, const sts_lsu_def_s& definition) const {
    const create_lsu_t entry = create_lsu_entry();
    if (entry == nullptr) {
        return STS_ERR_NOT_SUPPORTED;
    }
    void** holder = nullptr;
    const int status = entry(server, &definition, &holder);
    free(static_cast<void*>(holder));
    return status;
}

int plugin_host::delete_lsu(const sts_lsu_ref_s& lsu) const {
    const delete_lsu_t entry = delete_lsu_entry();
    return entry != nullptr ? entry(given_up_copy(lsu)) : int{STS_ERR_NOT_SUPPORTED};
}

// --- a server ----------------------------------------------------------------------------------

host_server::host_server(const plugin_host& host, const sts_session_def_v7_t& session,
                         std::string name)
    : host_(host), session_(session), name_(std::move(name)) {
    require_ok(entries().claim_v7(name_.c_str()), "claiming the server name", name_);
    if (const int status =
            entries().open_server_v7(&session_, name_.c_str(), nullptr, 0, &handle_)) {
        require_settings_place(status);
        throw failed("opening the server", name_, status);
    }
}

host_server::~host_server() { (void)end(); }

void host_server::close() { require_ok(end(), "closing the server", name_); }

int host_server::end() {
    const int status = handle_ != nullptr ? entries().close_server_v7(handle_) : int{STS_OK};
    if (status != STS_ERR_BUSY) {
        handle_ = nullptr;
    }
    return status;
}

sts_lsu_ref_s host_server::ref(const std::string& lsu) const {
    sts_lsu_ref_s reference = {};
    reference.server = handle_;
    copy_text(reference.name, lsu, "the LSU name");
    return reference;
}

std::vector<std::string> host_server::lsus() {
    throttling_lsu_list_s* list = nullptr;
    require_ok(entries().open_lsu_list_v11(handle_, 0, &list), "listing the LSUs of", name_);
    std::vector<std::string> names;
    passed_over_ += walk_list<sts_lsu_entry_s>(
        "LSUs", name_, [&](void* entry) { return entries().list_lsu_v7(list, entry); },
        [&] { return entries().close_lsu_list_v7(list); },
        [&](const sts_lsu_entry_s& entry) { names.push_back(text_of(entry.name)); });
    std::sort(names.begin(), names.end());
    return names;
}

void host_server::pass_over(const std::string& reason) {
    ++passed_over_;
    console::get().problem("passed over: " + reason);
}

void host_server::require_lsu(const std::string& lsu) {
    std::vector<std::string> names = lsus();
    if (!std::binary_search(names.begin(), names.end(), lsu)) {
        std::transform(names.begin(), names.end(), names.begin(), printable);
        throw failure(fmt::format("the server \"{}\" has no LSU \"{}\"{}", name_, lsu,
                                  names.empty()
                                      ? ", and no other either"
                                      : fmt::format("; it has {}", fmt::join(names, ", "))));
    }
}

void host_server::create_lsu(const std::string& lsu) const {
    sts_lsu_def_s definition = {};
    copy_text(definition.name, lsu, "the LSU name");
    require_ok(host_.create_lsu(handle_, definition), "creating the LSU", lsu);
}

std::vector<listed_image> host_server::images(const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    throttling_image_list_s* list = nullptr;
    require_ok(entries().open_image_list_v7(&reference, list_of_images, &list),
               "listing the images of", lsu);
    std::vector<listed_image> images;
    passed_over_ += walk_list<sts_image_entry_s>(
        "images", lsu, [&](void* entry) { return entries().list_image_v10(list, entry); },
        [&] { return entries().close_image_list_v7(list); },
        [&](const sts_image_entry_s& entry) {
            images.push_back({text_of(entry.name), text_of(entry.group), entry.size});
        });
    std::sort(
        images.begin(), images.end(),
        [](const listed_image& left, const listed_image& right) { return left.name < right.name; });
    return images;
}

sts_image_info_s host_server::image_info(const std::string& lsu, const std::string& image) const {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_definition(image);
    sts_image_info_s info = {};
    require_ok(entries().get_image_prop_byname_v10(&reference, &definition, &info),
               "reading the properties of the image", image, name_);
    return info;
}

host_image host_server::create_image(const std::string& lsu, const std::string& image,
                                     const std::string& group) const {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_definition(image, group);
    throttling_image_s* handle = nullptr;
    require_ok(entries().create_image_v10(&reference, &definition, STS_IMAGE_WRITE, &handle),
               "creating the image", image);
    return {*this, handle, image};
}

host_image host_server::open_image(const std::string& lsu, const std::string& image,
                                   uint32_t flags) const {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_definition(image);
    throttling_image_s* handle = nullptr;
    require_ok(entries().open_image_v10(&reference, &definition, flags, &handle),
               "opening the image", image, name_);
    return {*this, handle, image};
}

int host_server::delete_by_name(const std::string& lsu, const std::string& image) const {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_definition(image);
    return entries().delete_image_v10(&reference, &definition, no_flags);
}

void host_server::delete_image(const std::string& lsu, const std::string& image) const {
    require_ok(delete_by_name(lsu, image), "deleting the image", image, name_);
}

void host_server::discard_image(const std::string& lsu, const std::string& image) const {
    (void)delete_by_name(lsu, image);
}

// --- an image ----------------------------------------------------------------------------------

host_image::host_image(const host_server& server, throttling_image_s* handle, std::string name)
    : entries_(server.entries()), handle_(handle), name_(std::move(name)) {}

host_image::host_image(host_image&& other) noexcept
    : entries_(other.entries_), handle_(std::exchange(other.handle_, nullptr)),
      name_(std::move(other.name_)) {}

host_image::~host_image() {
    if (handle_ != nullptr) {
        entries_.close_image_v7(handle_, STS_CLOSE_ABANDON, 0);
    }
}

int host_image::read(void* buffer, uint64_t length, uint64_t position, uint64_t& moved) {
    moved = 0;
    return entries_.read_image_v7(handle_, buffer, length, position, &moved);
}

int host_image::write(const void* buffer, uint64_t length, uint64_t position, uint64_t& moved) {
    moved = 0;
    return entries_.write_image_v7(handle_, 0, buffer, length, position, &moved);
}

int host_image::read_meta(void* buffer, uint64_t length, uint64_t position, uint64_t& moved) {
    moved = 0;
    return entries_.read_image_meta != nullptr
               ? entries_.read_image_meta(handle_, forwarded(buffer), length, position,
                                          forwarded(&moved), 0)
               : int{STS_ERR_NOT_SUPPORTED};
}

int host_image::write_meta(const void* buffer, uint64_t length, uint64_t position,
                           uint64_t& moved) {
    moved = 0;
    return entries_.write_image_meta != nullptr
               ? entries_.write_image_meta(handle_, forwarded(buffer), length, position,
                                           forwarded(&moved), 0)
               : int{STS_ERR_NOT_SUPPORTED};
}

void host_image::close(sts_close_mode_t mode) { require_ok(end(mode), "closing the image", name_); }

int host_image::end(sts_close_mode_t mode) {
    return entries_.close_image_v7(std::exchange(handle_, nullptr), mode, 0);
}
