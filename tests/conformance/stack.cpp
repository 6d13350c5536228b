#include "tests/conformance/stack.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>

namespace {

constexpr uint64_t host_version = 12;
constexpr size_t create_lsu_slot = 4;
constexpr size_t delete_lsu_slot = 9;

/// The session behind a server or channel of the disk's.
std::map<void*, sts_next_session_s*>& sessions() {
    static std::map<void*, sts_next_session_s*> open;
    return open;
}

template <typename Function>
Function* find(void* library, const char* name) {
    void* const found = dlsym(library, name);
    EXPECT_NE(found, nullptr) << name;
    return reinterpret_cast<Function*>(found);
}

/// Opens something on a session of its own; `open` gets the session.
template <typename Open>
int on_own_session(const sts_session_def_v7_t* definition, handle_place opened, Open open) {
    const sts_api_t& table = *stack::current().table;
    sts_next_session_s* session = nullptr;
    int status = table.open_session(definition, &session);
    if (status == STS_OK) {
        status = open(table, session);
        if (status == STS_OK) {
            sessions()[*opened.value] = session;
        } else {
            EXPECT_EQ(table.close_handle(session, 0), STS_OK);
        }
    }
    return status;
}

int close_with_session(handle closed) {
    const sts_api_t& table = *stack::current().table;
    const int status = table.close_handle(closed, 0);
    const auto session = sessions().find(closed.value);
    if (status == STS_OK && session != sessions().end()) {
        EXPECT_EQ(table.close_handle(session->second, 0), STS_OK);
        sessions().erase(session);
    }
    return status;
}

template <auto entry>
int close_one(handle closed, int32_t mode = 0) {
    const stack& host = stack::current();
    return host.entries != nullptr ? (host.entries->*entry)(closed)
                                   : host.table->close_handle(closed, mode);
}

} // namespace

// --- the three ----------------------------------------------------------------------------------

stack& stack::current() {
    static stack only;
    return only;
}

bool stack::choose(const std::string& name) {
    static const std::map<std::string, std::pair<int, std::string>> known = {
        {"disk", {0, ""}},
        {"plugin", {1, "CS_throttle:a:"}},
        {"two-layers", {2, "CS_throttle:a:CS_throttle:b:"}}};
    const auto found = known.find(name);
    if (found == known.end()) {
        return false;
    }
    current().name_ = name;
    std::tie(current().layers_, current().prefix_) = found->second;
    return true;
}

void stack::start() {
    settings_ = std::make_unique<conf_dir>(); // throttling is off unless settings say otherwise
    unsetenv("VL_STS_PLUGINS");
    if (layers_ == 0) {
        ASSERT_EQ(stsm_init(host_version, "", &table), STS_OK);
        return;
    }
    if (layers_ == 2) {
        const std::string lower = settings_->path() + "/lower.so";
        std::filesystem::copy_file(PLUGIN_FILE, lower);
        setenv("VL_STS_PLUGINS", lower.c_str(), 1);
    }
    start_plugin();
}

/// As a host loads it. It isn't unloaded, as a host doesn't.
void stack::start_plugin() {
    void* const library = dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    stspi_api_rec_t record = {};
    stspi_api2_rec_t second = {};
    using init = int(uint64_t, const char*, stspi_api_rec_t*);
    using init2 = int(uint64_t, stspi_api2_rec_t*);
    ASSERT_EQ(find<init>(library, "stspi_init")(host_version, "/plugins", &record), STS_OK);
    ASSERT_EQ(find<init2>(library, "stspi_init2")(host_version, &second), STS_OK);
    if (const char* const lower = getenv("VL_STS_PLUGINS")) { // nor is what libsts has loaded
        EXPECT_NE(dlopen(lower, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE), nullptr);
    }
    entries = record.ep;
    second_table = second.entry_points;
}

int stack::stop() {
    const int status = entries != nullptr ? entries->terminate_v7() : stsm_terminate();
    entries = nullptr;
    table = nullptr;
    sessions().clear();
    unsetenv("VL_STS_PLUGINS");
    settings_.reset();
    return status;
}

// --- operations that differ ---------------------------------------------------------------------

namespace call {

int open_server(const sts_session_def_v7_t* session, const char* name, handle_place opened) {
    if (const stspi_ep_t* const entries = stack::current().entries) {
        return entries->open_server_v7(session, name, nullptr, 0, opened);
    }
    return on_own_session(session, opened, [&](const sts_api_t& table, sts_next_session_s* owner) {
        return table.open_server(owner, name, nullptr, 0, opened);
    });
}

int close_server(handle server) {
    const stspi_ep_t* const entries = stack::current().entries;
    return entries != nullptr ? entries->close_server_v7(server) : close_with_session(server);
}

int open_events(const sts_session_def_v7_t* session, const char* name, void* source,
                sts_event_start_t start, handle_place opened) {
    int status = STS_OK;
    if (const stspi_ep_t* const entries = stack::current().entries) {
        status = entries->open_evchannel(session, name, source, 0, 0, 0, 0, start, opened);
    } else {
        status =
            on_own_session(session, opened, [&](const sts_api_t& table, sts_next_session_s* owner) {
                return table.open_evchannel(owner, 0, 0, opened);
            });
        if (status == STS_OK) {
            status = stack::current().table->add_evsource(handle{*opened.value}, 0, start, name,
                                                          source, 0);
        }
    }
    return status;
}

int close_events(handle channel) {
    const stspi_ep_t* const entries = stack::current().entries;
    return entries != nullptr ? entries->close_evchannel(channel) : close_with_session(channel);
}

int close_image(handle image, int32_t mode) {
    const stack& host = stack::current();
    return host.entries != nullptr ? host.entries->close_image_v7(image, mode, 0)
                                   : host.table->close_handle(image, mode);
}

int close_image_list(handle list) { return close_one<&stspi_ep_t::close_image_list_v7>(list); }

int close_lsu_list(handle list) { return close_one<&stspi_ep_t::close_lsu_list_v7>(list); }

int create_lsu(handle server, const sts_lsu_def_s* definition, handle_place made) {
    const stack& host = stack::current();
    if (host.entries == nullptr) {
        return host.table->create_lsu(server, definition, made);
    }
    using function = int(throttling_server_s*, const sts_lsu_def_s*, void***);
    return reinterpret_cast<function*>(host.second_table[create_lsu_slot])(server, definition,
                                                                           made);
}

int delete_lsu(const sts_lsu_ref_s& lsu) {
    const stack& host = stack::current();
    if (host.entries == nullptr) {
        return host.table->delete_lsu(&lsu);
    }
    auto* const given_up = static_cast<sts_lsu_ref_s*>(malloc(sizeof lsu));
    *given_up = lsu;
    return reinterpret_cast<int (*)(sts_lsu_ref_s*)>(host.second_table[delete_lsu_slot])(given_up);
}

int async_copy_image(const sts_image_def_s& source, const sts_lsu_ref_s& lsu,
                     const sts_copy_target_s& target, handle_place started, uint32_t flags,
                     const sts_copy_params_s& params) {
    const stack& host = stack::current();
    const auto from = reinterpret_cast<sts_forwarded_t>(&source);
    const auto to = reinterpret_cast<sts_forwarded_t>(&target);
    return host.entries != nullptr
               ? host.entries->async_copy_image(0, from, &lsu, to, started, flags, params)
               : host.table->async_copy_image(nullptr, from, &lsu, to, started, flags, params);
}

bool is_empty(handle given) {
    if (given.value == nullptr || stack::current().entries == nullptr) {
        return given.value == nullptr;
    }
    return *static_cast<void**>(given.value) == nullptr;
}

void release_lsu(handle given) {
    if (stack::current().entries != nullptr) {
        free(given.value);
    } else if (given.value != nullptr) {
        EXPECT_EQ(stack::current().table->close_handle(given, 0), STS_OK);
    }
}

void release_operation(handle given) {
    if (stack::current().entries != nullptr) {
        free(given.value);
    }
}

} // namespace call
