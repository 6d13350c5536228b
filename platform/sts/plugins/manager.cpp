// Loading and unloading of plugins, and who claims a name.

#include "platform/sts/plugins/manager.h"

#include "platform/sts/caller/session_log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace disk {

namespace {

constexpr const char* list_variable = "VL_STS_PLUGINS";
constexpr uint64_t host_version = 12;
constexpr uint64_t interface_version = 11;
constexpr size_t create_lsu_slot = 4;
constexpr size_t delete_lsu_slot = 9;
constexpr size_t most_layers = 64;

/// Written only while the library starts and stops, when nobody else uses it.
struct plugin_list {
    std::vector<std::unique_ptr<plugin>> loaded;
    std::vector<std::string> refused; ///< in words, with the path
    /// That stay in the process though we have unloaded them. The loader doesn't say who holds a
    /// file, so one of these that the host loads itself afterwards still counts as ours.
    std::set<void*> kept;
};

/// Never destroyed: a host may end its process without having stopped us.
plugin_list& all() {
    static auto& only = *new plugin_list;
    return only;
}

std::string words_of(int status) {
    const int error = sts_errno_of_status(status);
    return "status " + std::to_string(status) +
           (error != 0 ? std::string(" (") + strerror(error) + ")" : "");
}

template <typename Function>
Function* find(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

/// dlopen's handle of a file that is in the process already; null where it isn't.
void* find_library(const std::string& path) {
    void* const present = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (present != nullptr) {
        dlclose(present);
    }
    return present;
}

void* open_library(const std::string& path) {
    const plugin_list& plugins = all();
    if (void* const present = find_library(path)) {
        if (std::any_of(plugins.loaded.begin(), plugins.loaded.end(),
                        [&](const auto& each) { return each->is(present); })) {
            throw plugin_refusal{"it is listed twice"};
        }
        if (plugins.kept.count(present) == 0) {
            throw plugin_refusal{"this process has loaded it already; "
                                 "list a copy of the file under another name"};
        }
    }
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw plugin_refusal{dlerror()};
    }
    return library;
}

void close_library(const std::string& path, void* library) {
    dlclose(library);
    if (find_library(path) == library) {
        all().kept.insert(library);
    } else {
        all().kept.erase(library); // its address may be another file's next time
    }
}

/// Starts it. The record's entry table.
const stspi_ep_t* start(void* library, const char* host_path) {
    const auto init = find<int(uint64_t, const char*, stspi_api_rec_t*)>(library, "stspi_init");
    if (init == nullptr) {
        throw plugin_refusal{"it is no plugin: it has no stspi_init"};
    }
    stspi_api_rec_t record = {};
    const int status = init(host_version, host_path, &record);
    if (status != STS_OK) {
        throw plugin_refusal{"its stspi_init answers " + words_of(status)};
    }
    if (record.version != interface_version || record.ep == nullptr) {
        // Its table can't be trusted, so it isn't stopped either.
        throw plugin_refusal{"its interface has version " + std::to_string(record.version) +
                             (record.ep == nullptr ? " and no entries" : "") + ", not " +
                             std::to_string(interface_version)};
    }
    return record.ep;
}

/// Says why nobody claims a name, as far as it is known.
void log_unclaimed(const sts_session_def_v7_t& session, const char* server_name) {
    tell(session, STS_SEV_ERROR, std::string("no plugin claims the server name ") + server_name);
    for (const std::string& each : all().refused) {
        tell(session, STS_SEV_ERROR, each);
    }
}

void load(const std::string& path, const char* host_path) {
    plugin_list& plugins = all();
    try {
        plugins.loaded.push_back(std::make_unique<plugin>(path, host_path));
    } catch (const plugin_refusal& refusal) {
        plugins.refused.push_back("the plugin " + path + " of " + list_variable +
                                  " isn't used: " + refusal.reason);
        fprintf(stderr, "libsts: %s\n", plugins.refused.back().c_str());
    }
}

} // namespace

plugin::plugin(const std::string& path, const char* host_path)
    : path_(path), library_(open_library(path)) {
    try {
        entries_ = start(library_, host_path);
    } catch (...) {
        close_library(path_, library_);
        throw;
    }
    find_second_table();
}

plugin::~plugin() {
    (void)call<&stspi_ep_t::terminate_v7>();
    close_library(path_, library_);
}

void plugin::find_second_table() {
    stspi_api2_rec_t record = {};
    const auto init = find<int(uint64_t, stspi_api2_rec_t*)>(library_, "stspi_init2");
    if (init != nullptr && init(host_version, &record) == STS_OK &&
        record.version == interface_version) {
        second_table_ = record.entry_points;
    }
}

int plugin::create_lsu(throttling_server_s* server, const sts_lsu_def_s* definition,
                       void*** out) const {
    using function = int(throttling_server_s*, const sts_lsu_def_s*, void***);
    void* const found = second_table_ != nullptr ? second_table_[create_lsu_slot] : nullptr;
    return found != nullptr ? reinterpret_cast<function*>(found)(server, definition, out)
                            : STS_ERR_NOT_SUPPORTED;
}

int plugin::delete_lsu(sts_lsu_ref_s* lsu) const {
    using function = int(sts_lsu_ref_s*);
    void* const found = second_table_ != nullptr ? second_table_[delete_lsu_slot] : nullptr;
    if (found == nullptr) {
        free(lsu);
        return STS_ERR_NOT_SUPPORTED;
    }
    return reinterpret_cast<function*>(found)(lsu);
}

void load_plugins(const char* host_path) {
    const char* const listed = getenv(list_variable);
    std::string_view rest = listed != nullptr ? listed : "";
    while (!rest.empty()) {
        const std::string path(rest.substr(0, rest.find(':')));
        rest.remove_prefix(std::min(rest.size(), path.size() + 1));
        if (!path.empty()) {
            load(path, host_path);
        }
    }
}

void unload_plugins() {
    while (!all().loaded.empty()) {
        all().loaded.pop_back();
    }
    all().refused.clear();
}

thread_local const passage* passage::innermost_ = nullptr;

/// A plugin that passes a name on as it came would be asked for it for ever, and so would one that
/// makes it longer.
bool passage::may_ask(const plugin& asked, const char* server_name) {
    size_t layers = 0;
    for (const passage* each = innermost_; each != nullptr; each = each->outer_) {
        const bool same = each->claimant_ == &asked && strcmp(each->server_name_, server_name) == 0;
        if (same || ++layers == most_layers) {
            return false;
        }
    }
    return true;
}

passage::passage(const char* server_name, const sts_session_def_v7_t& session)
    : outer_(innermost_), server_name_(server_name) {
    const auto& loaded = all().loaded;
    const auto found = std::find_if(loaded.begin(), loaded.end(), [&](const auto& each) {
        return may_ask(*each, server_name) &&
               each->template call<&stspi_ep_t::claim_v7>(server_name) == STS_OK;
    });
    if (found == loaded.end()) {
        log_unclaimed(session, server_name);
        fail(STS_ERR_NOT_CLAIMED);
    }
    claimant_ = found->get();
    innermost_ = this;
}

passage::~passage() { innermost_ = outer_; }

} // namespace disk
