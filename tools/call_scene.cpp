#include "tools/call_scene.h"

#include "tools/allowance.h"
#include "tools/call_log.h"
#include "tools/console.h"
#include "tools/failure.h"
#include "tools/status_names.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <limits>
#include <utility>

namespace {

using kind = argument_kind;

constexpr uint64_t usual_bytes = 4096;
constexpr uint64_t usual_peers = 16;
constexpr uint64_t most_bytes = uint64_t{16} * 1024 * 1024;
constexpr uint64_t most_peers = 4096;
constexpr int32_t until_the_end = -1;
constexpr const char* session_id = "throttlectl-call";

/// The range of a number's C++ type.
struct range {
    int64_t low;
    uint64_t high;
};

range range_of(const std::string& type) {
    if (type == "int32_t") {
        return {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
    }
    if (type == "uint32_t") {
        return {0, std::numeric_limits<uint32_t>::max()};
    }
    return {0, std::numeric_limits<uint64_t>::max()};
}

/// "LSU/IMAGE".
std::pair<std::string, std::string> image_path(const std::string& name, const std::string& text) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == text.size()) {
        throw usage_failure(fmt::format("{}=\"{}\" isn't LSU/IMAGE", name, text));
    }
    return {text.substr(0, slash), text.substr(slash + 1)};
}

/// Without the zeros that nothing was written over.
std::string content_of(const std::vector<char>& buffer) {
    size_t size = buffer.size();
    while (size > 0 && buffer[size - 1] == '\0') {
        --size;
    }
    return {buffer.data(), size};
}

std::vector<std::string> names_of(const std::vector<argument>& arguments) {
    std::vector<std::string> names;
    for (const argument& each : arguments) {
        if (takes_value(each.kind)) {
            names.push_back(each.name);
        }
        for (const std::string& field : fields_of(each.kind)) {
            names.push_back(each.name + "." + field);
        }
    }
    return names;
}

} // namespace

void check_given(const entry& which, const entry_description& description,
                 const given_values& given) {
    const std::vector<std::string> names = names_of(description.arguments);
    for (const auto& [name, value] : given) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            throw usage_failure(
                names.empty()
                    ? fmt::format("\"{}\" can't be given: {} takes no arguments", name, which.name)
                    : fmt::format("\"{}\" can't be given: {} takes {}", name, which.name,
                                  fmt::join(names, ", ")));
        }
    }
}

uint64_t number_for(const std::string& name, const std::string& type, const std::string& text) {
    const range allowed = range_of(type);
    const bool is_negative = !text.empty() && text[0] == '-';
    const char* const digits = text.c_str() + (is_negative ? 1 : 0);
    char* end = nullptr;
    errno = 0;
    const uint64_t size = strtoull(digits, &end, strncmp(digits, "0x", 2) == 0 ? 16 : 10);
    const uint64_t most = is_negative ? 0 - static_cast<uint64_t>(allowed.low) : allowed.high;
    if (*digits < '0' || *digits > '9' || *end != '\0' || errno != 0 || size > most) {
        throw usage_failure(fmt::format("{}=\"{}\" is not a whole number from {} to {}", name, text,
                                        allowed.low, allowed.high));
    }
    return is_negative ? 0 - size : size;
}

// --- the call ----------------------------------------------------------------------------------

call_scene::call_scene(const server_options& common, const entry& which, given_values given)
    : common_(common), entry_(which), description_(description_of(which)), given_(std::move(given)),
      session_(recording_session(session_id, common.log)), host_(common.plugin) {
    check_given(entry_, description_, given_);
    try {
        make_all();
        require_some_rate();
    } catch (...) {
        (void)close();
        throw;
    }
}

bool call_scene::close() noexcept {
    bool is_well = true;
    while (!closes_.empty()) {
        if (const int status = closes_.back()()) {
            is_well = false;
            console::get().line(fmt::format("throttlectl: closing behind the call of {} failed: {}",
                                            entry_.name, status_text(status)));
        }
        closes_.pop_back();
    }
    return is_well;
}

int call_scene::call() {
    {
        const recording log(messages_);
        status_ = entry_.call(host_, arguments_);
    }
    for (const auto& show : shows_) {
        show();
    }
    if (entry_.name == "close_server_v7" && status_ != STS_ERR_BUSY) {
        server_->let_go();
    }
    if (entry_.name == "terminate_v7") {
        host_.let_go();
    }
    return status_;
}

void call_scene::make_all() {
    for (const argument& each : description_.arguments) {
        arguments_.push_back(make(each));
    }
}

uint64_t call_scene::make(const argument& which) {
    if (which.kind < kind::image) {
        return make_value(which);
    }
    if (which.kind < kind::server_out) {
        return make_opened(which);
    }
    return which.kind < kind::count ? make_handle_out(which) : make_shown(which);
}

/// At a rate of 0 the plugin would end the process.
void call_scene::require_some_rate() {
    if (description_.paced && allowance(server_name(), *description_.paced).is_nothing()) {
        throw failure("the settings allow 0 bytes per second for this now, and the plugin ends the "
                      "process at that rate; see \"throttlectl preview --week\"");
    }
}

bool call_scene::is_closing() const { return entry_.name.compare(0, 6, "close_") == 0; }

template <typename Value>
Value* call_scene::keep(Value value) {
    const auto kept = std::make_shared<Value>(std::move(value));
    kept_.push_back(kept);
    return kept.get();
}

// --- what was given ----------------------------------------------------------------------------

const std::string* call_scene::find_value(const std::string& name) const {
    const auto found = given_.find(name);
    return found != given_.end() ? &found->second : nullptr;
}

std::string call_scene::value_of(const argument& which) const {
    if (const std::string* const value = find_value(which.name)) {
        return *value;
    }
    throw usage_failure(
        fmt::format("{} is missing, as in {}=VALUE: {}", which.name, which.name, which.text));
}

std::string call_scene::field_of(const argument& which, const char* field) const {
    const std::string* const value = find_value(which.name + "." + field);
    return value != nullptr ? *value : "";
}

uint64_t call_scene::number_field_of(const argument& which, const char* field) const {
    const std::string text = field_of(which, field);
    return text.empty() ? 0 : number_for(which.name + "." + field, "uint64_t", text);
}

/// What a number is that isn't given: 0, or what fits the buffer that it is the size of.
uint64_t call_scene::default_number(const argument& which) const {
    for (const argument& each : description_.arguments) {
        if (each.size_argument != which.name) {
            continue;
        }
        switch (each.kind) {
        case kind::in_buffer:
            return value_of(each).size();
        case kind::out_text:
            return STS_CONFIG_SIZE;
        case kind::peers:
            return usual_peers;
        default:
            return usual_bytes;
        }
    }
    return 0;
}

uint64_t call_scene::size_for(const argument& buffer) const {
    const auto which =
        std::find_if(description_.arguments.begin(), description_.arguments.end(),
                     [&](const argument& each) { return each.name == buffer.size_argument; });
    const std::string* const value = find_value(which->name);
    const uint64_t size =
        value != nullptr ? number_for(which->name, which->type, *value) : default_number(*which);
    const uint64_t most = buffer.kind == kind::in_buffer ? value_of(buffer).size()
                          : buffer.kind == kind::peers   ? most_peers
                                                         : most_bytes;
    if (size > most) {
        throw usage_failure(
            fmt::format("{}={} is more than {} can be: {}", which->name, size, buffer.name, most));
    }
    return size;
}

uint64_t call_scene::make_value(const argument& which) {
    switch (which.kind) {
    case kind::number: {
        const std::string* const value = find_value(which.name);
        return value != nullptr ? number_for(which.name, which.type, *value)
                                : default_number(which);
    }
    case kind::optional_text:
        return find_value(which.name) != nullptr ? forwarded(keep(value_of(which))->c_str()) : 0;
    case kind::server_name:
        return forwarded(
            keep(find_value(which.name) != nullptr ? value_of(which) : server_name())->c_str());
    case kind::in_buffer:
        (void)size_for(which);
        return forwarded(keep(value_of(which))->data());
    case kind::config_buffer: {
        sts_config_buffer_s filled = {};
        if (const std::string* const value = find_value(which.name)) {
            copy_text(filled.text, *value, "the configuration text");
        }
        auto* const buffer = keep(filled);
        shows_.emplace_back([this, buffer, name = which.name] {
            out_[name] = {{"text", text_of(buffer->text)}, {"used", buffer->used}};
        });
        return forwarded(buffer);
    }
    case kind::lsu:
        return forwarded(keep(server().ref(value_of(which))));
    case kind::given_up_lsu:
        return forwarded(given_up_copy(server().ref(value_of(which))));
    case kind::image_def:
        return forwarded(keep(image_definition(value_of(which), field_of(which, "group"))));
    case kind::lsu_def:
        return forwarded(keep(lsu_definition(value_of(which), field_of(which, "label"))));
    case kind::event_source: {
        sts_event_source_s source = {};
        copy_text(source.lsu, field_of(which, "lsu"), "the LSU name");
        source.kinds = number_field_of(which, "kinds");
        return forwarded(keep(source));
    }
    case kind::copy_target: {
        sts_copy_target_s target = {};
        copy_text(target.image, value_of(which), "the image name");
        copy_text(target.lsu, field_of(which, "lsu"), "the LSU name");
        copy_text(target.server_name, field_of(which, "server_name"), "the server name");
        return forwarded(keep(target));
    }
    case kind::copy_params: {
        sts_disk_copy_params_s params = {};
        params.block_size = number_field_of(which, "block_size");
        params.bytes_per_second = number_field_of(which, "bytes_per_second");
        return forwarded(keep(params));
    }
    case kind::event: {
        sts_event_s event = {};
        event.number = number_for(which.name, "uint64_t", value_of(which));
        return forwarded(keep(event));
    }
    default:
        return forwarded(keep(value_of(which))->c_str());
    }
}

// --- what is opened ----------------------------------------------------------------------------

std::string call_scene::server_name() const {
    if (common_.server.empty()) {
        throw usage_failure(
            fmt::format("--server is required: {} is called on a server", entry_.name));
    }
    return common_.server;
}

const host_server& call_scene::server() {
    if (server_ == nullptr) {
        server_ = std::make_unique<host_server>(host_, session_, server_name());
        closes_.insert(closes_.begin(), [this] { return server_->end(); }); // last of all
    }
    return *server_;
}

host_image& call_scene::open_image(const argument& which, bool to_write) {
    const auto [lsu, name] = image_path(which.name, value_of(which));
    bool is_there = !to_write;
    if (to_write) {
        const std::vector<listed_image> images = server_->images(lsu);
        is_there = std::any_of(images.begin(), images.end(),
                               [&, &image = name](const auto& each) { return each.name == image; });
    }
    const auto image = std::make_shared<host_image>(
        is_there ? server_->open_image(lsu, name, to_write ? STS_IMAGE_WRITE : STS_IMAGE_READ)
                 : server_->create_image(lsu, name, ""));
    kept_.push_back(image);
    closes_.emplace_back([this, image] {
        if (is_closing()) {
            image->let_go();
            return int{STS_OK};
        }
        return image->end(status_ == STS_OK ? STS_CLOSE_COMPLETE : STS_CLOSE_ABANDON);
    });
    return *image;
}

template <typename Handle, typename Open, typename Close>
uint64_t call_scene::open_handle(const char* what, const std::string& object, Open open,
                                 Close ending) {
    Handle* handle = nullptr;
    require_ok(open(&handle), what, object);
    if (!is_closing()) {
        closes_.emplace_back([handle, ending] { return ending(handle); });
    }
    return forwarded(handle);
}

uint64_t call_scene::make_opened(const argument& which) {
    const stspi_ep_t& entries = host_.entries();
    switch (which.kind) {
    case kind::session:
        return forwarded(&session_);
    case kind::server:
        return forwarded(server().handle());
    case kind::image:
    case kind::written_image:
        (void)server();
        return forwarded(open_image(which, which.kind == kind::written_image).handle());
    case kind::image_list: {
        const sts_lsu_ref_s lsu = server().ref(value_of(which));
        return open_handle<throttling_image_list_s>(
            "listing the images of", value_of(which),
            [&](auto** list) { return entries.open_image_list_v7(&lsu, 0, list); },
            entries.close_image_list_v7);
    }
    case kind::lsu_list: {
        throttling_server_s* const handle = server().handle();
        return open_handle<throttling_lsu_list_s>(
            "listing the LSUs of", server_name(),
            [&](auto** list) { return entries.open_lsu_list_v11(handle, 0, list); },
            entries.close_lsu_list_v7);
    }
    case kind::channel: {
        const std::string* const lsu = find_value(which.name);
        sts_event_source_s source = {};
        copy_text(source.lsu, lsu != nullptr ? *lsu : "", "the LSU name");
        return open_handle<throttling_evchannel_s>(
            "opening an event channel of", server_name(),
            [&](auto** channel) {
                return entries.open_evchannel(&session_, server_name().c_str(), &source, 0, 0, 0, 0,
                                              STS_EVENTS_KEPT, channel);
            },
            entries.close_evchannel);
    }
    case kind::operation:
        return start_copy(which);
    default:
        return 0;
    }
}

uint64_t call_scene::start_copy(const argument& which) {
    const auto [from_lsu, from_image] = image_path(which.name, value_of(which));
    const auto [to_lsu, to_image] = image_path(which.name + ".to", field_of(which, "to"));
    const sts_lsu_ref_s lsu = server().ref(from_lsu);
    const sts_image_def_s source = image_definition(from_image);
    sts_copy_target_s target = {};
    copy_text(target.lsu, to_lsu, "the LSU name");
    copy_text(target.image, to_image, "the image name");
    sts_disk_copy_params_s known = {};
    known.bytes_per_second = number_field_of(which, "bytes_per_second");
    sts_copy_params_s params = {};
    memcpy(&params, &known, sizeof params);
    sts_next_operation_s** holder = nullptr;
    const int status = host_.entries().async_copy_image(0, forwarded(&source), &lsu,
                                                        forwarded(&target), &holder, 0, params);
    if (status != STS_OK) {
        free(static_cast<void*>(holder));
    }
    require_ok(status, "starting a copy of", value_of(which));
    closes_.emplace_back([this, holder] {
        host_.entries().async_cancel(&session_, holder);
        (void)end_copy(holder);
        return int{STS_OK};
    });
    return forwarded(static_cast<void*>(holder));
}

/// Waits for its end and answers what came of it. A copy that didn't begin has an empty holder.
int call_scene::end_copy(sts_next_operation_s** holder) {
    sts_async_status_s ended = {};
    const int status = *holder != nullptr
                           ? host_.entries().async_wait(&session_, holder, until_the_end, &ended)
                           : int{STS_OK};
    free(static_cast<void*>(holder));
    return status != STS_OK ? status : ended.result;
}

// --- what is handed out ------------------------------------------------------------------------

template <typename Handle, typename Close>
uint64_t call_scene::handle_out(const argument& which, Close ending) {
    Handle** const handle = keep<Handle*>(nullptr);
    shows_.emplace_back([this, handle, name = which.name] {
        out_[name] = *handle != nullptr ? "a handle" : "nothing";
    });
    closes_.emplace_back([this, handle, ending] {
        const int ended = *handle != nullptr ? ending(*handle) : int{STS_OK};
        return status_ == STS_OK ? ended : int{STS_OK}; // what is left by a failure is half open
    });
    return forwarded(handle);
}

uint64_t call_scene::make_handle_out(const argument& which) {
    const stspi_ep_t& entries = host_.entries();
    switch (which.kind) {
    case kind::server_out:
        return handle_out<throttling_server_s>(which, entries.close_server_v7);
    case kind::image_out:
        return handle_out<throttling_image_s>(which, [&entries](throttling_image_s* image) {
            return entries.close_image_v7(image, STS_CLOSE_COMPLETE, 0);
        });
    case kind::image_list_out:
        return handle_out<throttling_image_list_s>(which, entries.close_image_list_v7);
    case kind::lsu_list_out:
        return handle_out<throttling_lsu_list_s>(which, entries.close_lsu_list_v7);
    case kind::channel_out:
        return handle_out<throttling_evchannel_s>(which, entries.close_evchannel);
    case kind::operation_out:
        return handle_out<sts_next_operation_s*>(
            which, [this](sts_next_operation_s** holder) { return end_copy(holder); });
    default:
        return handle_out<void*>(which, [](void** holder) {
            free(static_cast<void*>(holder));
            return int{STS_OK};
        });
    }
}

/// Shown when the call has gone well: else there is nothing in it.
template <typename Record>
uint64_t call_scene::record_out(const argument& which) {
    Record* const record = keep<Record>({});
    shows_.emplace_back([this, record, name = which.name] {
        if (status_ == STS_OK) {
            if constexpr (std::is_integral_v<Record>) {
                out_[name] = *record;
            } else {
                out_[name] = fields_of(*record);
            }
        }
    });
    return forwarded(record);
}

uint64_t call_scene::make_shown(const argument& which) {
    switch (which.kind) {
    case kind::count:
        return record_out<uint64_t>(which);
    case kind::count_32:
        return record_out<uint32_t>(which);
    case kind::server_info:
        return record_out<sts_server_info_s>(which);
    case kind::lsu_info:
        return record_out<sts_lsu_info_s>(which);
    case kind::lsu_entry:
        return record_out<sts_lsu_entry_s>(which);
    case kind::image_info:
        return record_out<sts_image_info_s>(which);
    case kind::image_entry:
        return record_out<sts_image_entry_s>(which);
    case kind::image_group:
        return record_out<sts_image_group_s>(which);
    case kind::async_status:
        return record_out<sts_async_status_s>(which);
    case kind::event_out:
        return record_out<sts_event_s>(which);
    case kind::payload:
        return record_out<sts_event_payload_s>(which);
    case kind::peers: {
        auto* const peers = keep(std::vector<sts_replication_peer_s>(size_for(which) + 1));
        shows_.emplace_back([this, peers, name = which.name] {
            if (status_ == STS_OK) {
                out_[name] = fields_of(*peers);
            }
        });
        return forwarded(peers->data());
    }
    default: { // a buffer; what is an error text is there when the call has failed
        auto* const buffer = keep(std::vector<char>(size_for(which) + 1));
        shows_.emplace_back([this, buffer, name = which.name] {
            if (const std::string content = content_of(*buffer);
                status_ == STS_OK || !content.empty()) {
                out_[name] = content;
            }
        });
        return forwarded(buffer->data());
    }
    }
}
