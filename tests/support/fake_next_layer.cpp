#include "tests/support/fake_next_layer.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace {

std::recursive_mutex guard; // calls may come on any thread; an effect may call the plugin again

// --- what an argument looks like ---------------------------------------------------------------

/// How handles of the next layer are handed out: through a pointer to one of these.
template <typename Type>
constexpr bool is_handle_out =
    std::is_same_v<Type, void**> || std::is_same_v<Type, sts_next_session_s**> ||
    std::is_same_v<Type, sts_next_server_s**> || std::is_same_v<Type, sts_next_image_s**> ||
    std::is_same_v<Type, sts_next_image_list_s**> || std::is_same_v<Type, sts_next_lsu_list_s**> ||
    std::is_same_v<Type, sts_next_evchannel_s**> || std::is_same_v<Type, sts_next_operation_s**>;

template <typename Record>
std::string bytes_of(const Record& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

next_argument describe(const char* text) {
    return {reinterpret_cast<uint64_t>(text), text != nullptr ? text : "",
            text != nullptr ? '"' + std::string(text) + '"' : "null"};
}

next_argument describe(const sts_lsu_ref_s* lsu) {
    if (lsu == nullptr) {
        return {0, "", "null"};
    }
    return {reinterpret_cast<uint64_t>(lsu), bytes_of(*lsu),
            "{" + next_layer().text_of(lsu->server) + " \"" +
                std::string(lsu->name, strnlen(lsu->name, sizeof lsu->name)) + "\"}"};
}

next_argument describe(const sts_session_def_v7_t* session) {
    next_argument result = {reinterpret_cast<uint64_t>(session), "", next_layer().text_of(session)};
    if (session != nullptr) {
        result.content = bytes_of(*session);
        if (result.text == "pointer") {
            result.text = "session";
        }
    }
    return result;
}

next_argument describe(const sts_server_def_s* definition) {
    return {reinterpret_cast<uint64_t>(definition),
            definition != nullptr ? bytes_of(*definition) : "", next_layer().text_of(definition)};
}

next_argument describe(sts_copy_params_s parameters) { return {0, bytes_of(parameters), "params"}; }

template <typename Type>
next_argument describe(Type value) {
    if constexpr (std::is_pointer_v<Type>) {
        const bool handed_out = is_handle_out<Type> && value != nullptr;
        return {reinterpret_cast<uint64_t>(value), "",
                handed_out ? "out" : next_layer().text_of(value)};
    } else {
        return {static_cast<uint64_t>(value), "", std::to_string(value)};
    }
}

template <typename Type>
void collect_out(std::vector<void**>& out, Type value) {
    if constexpr (is_handle_out<Type>) {
        if (value != nullptr) {
            out.push_back(reinterpret_cast<void**>(value));
        }
    }
}

// --- the recording slots -----------------------------------------------------------------------

template <typename... Arguments>
int record(const char* operation, Arguments... arguments) {
    const std::lock_guard<std::recursive_mutex> lock(guard);
    std::vector<void**> handles_out;
    (collect_out(handles_out, arguments), ...);
    return next_layer().answer({operation, {describe(arguments)...}}, handles_out);
}

template <auto slot>
struct recording;

template <typename... Arguments, int (*sts_api_t::*slot)(Arguments...)>
struct recording<slot> {
    static const char* name;
    static int call(Arguments... arguments) { return record(name, arguments...); }
};

template <typename... Arguments, int (*sts_api_t::*slot)(Arguments...)>
const char* recording<slot>::name = nullptr;

sts_api_t make_table() {
    sts_api_t table = {};
#define RECORD(slot)                                                                               \
    recording<& sts_api_t::slot>::name = #slot;                                                    \
    table.slot = recording<&sts_api_t::slot>::call;
    RECORD(add_evsource)
    RECORD(async_cancel)
    RECORD(async_copy_image)
    RECORD(async_wait)
    RECORD(close_handle)
    RECORD(copy_extent)
    RECORD(create_image)
    RECORD(create_lsu)
    RECORD(delete_event)
    RECORD(delete_files)
    RECORD(delete_image)
    RECORD(delete_lsu)
    RECORD(find_lsu)
    RECORD(flush)
    RECORD(get_event_payload)
    RECORD(get_event)
    RECORD(get_image_group_byname)
    RECORD(get_image_group)
    RECORD(get_image_prop_byname)
    RECORD(get_image_prop)
    RECORD(get_lsu_prop_byname)
    RECORD(get_lsu_replication_prop)
    RECORD(get_server_config)
    RECORD(get_server_prop_byname)
    RECORD(get_server_prop)
    RECORD(include_in_image)
    RECORD(ioctl)
    RECORD(label_lsu)
    RECORD(list_image)
    RECORD(list_lsu)
    RECORD(open_evchannel)
    RECORD(open_image_group_list)
    RECORD(open_image_list)
    RECORD(open_image)
    RECORD(open_lsu_list)
    RECORD(open_server)
    RECORD(open_session)
    RECORD(open_target_server)
    RECORD(read_image_meta)
    RECORD(read_image)
    RECORD(set_server_config)
    RECORD(write_image_meta)
    RECORD(write_image)
#undef RECORD
    return table;
}

/// Stores the length of a transfer, argument `length`, behind its count, argument `count`.
std::function<void(const next_call&)> moves_all(size_t length, size_t count) {
    return [=](const next_call& call) {
        *call.pointer<uint64_t>(count) = call.arguments[length].value;
    };
}

} // namespace

// --- the layer ---------------------------------------------------------------------------------

std::string next_call::line() const {
    std::string all;
    for (const next_argument& each : arguments) {
        all += (all.empty() ? "" : ", ") + each.text;
    }
    return operation + "(" + all + ")";
}

fake_next_layer::fake_next_layer()
    : effects{{"read_image", moves_all(2, 4)}, {"write_image", moves_all(3, 5)}} {}

const sts_api_t* fake_next_layer::table() {
    static const sts_api_t the_table = make_table();
    return &the_table;
}

std::vector<std::string> fake_next_layer::take() {
    std::vector<std::string> lines;
    for (const next_call& each : std::exchange(calls, {})) {
        lines.push_back(each.line());
    }
    return lines;
}

const next_call& fake_next_layer::last(std::string_view operation) const {
    const auto found = std::find_if(calls.rbegin(), calls.rend(), [&](const next_call& each) {
        return each.operation == operation;
    });
    if (found == calls.rend()) {
        throw std::logic_error(std::string(operation) + " was not called");
    }
    return *found;
}

std::vector<std::string> fake_next_layer::open_handles() const {
    std::vector<std::string> open;
    for (const auto& [handle, is_open] : handles_) {
        if (is_open) {
            open.push_back(text_of(handle));
        }
    }
    return open;
}

int fake_next_layer::answer(next_call call, const std::vector<void**>& handles_out) {
    const auto found = answers.find(call.operation);
    const int status = found != answers.end() ? found->second : 0;
    calls.push_back(std::move(call));
    const next_call arrived = calls.back(); // an effect may make calls of its own
    if (observer) {
        observer(arrived);
    }
    if (const auto effect = effects.find(arrived.operation); effect != effects.end()) {
        effect->second(arrived);
    }
    if (status == 0 || hands_out_when_failing) {
        for (void** out : handles_out) {
            *out = hand_out();
        }
    }
    if (status == 0 && arrived.operation == "close_handle") {
        const auto closed = handles_.find(arrived.pointer<void>(0));
        if (closed != handles_.end()) {
            closed->second = false;
        }
    }
    return status;
}

std::string fake_next_layer::text_of(const void* pointer) const {
    if (pointer == nullptr) {
        return "null";
    }
    if (const auto named = names_.find(pointer); named != names_.end()) {
        return named->second;
    }
    return "pointer";
}

/// Handles are addresses that nothing can be read from.
void* fake_next_layer::hand_out() {
    const size_t number = handles_.size() + 1;
    void* const handle = reinterpret_cast<void*>(0x1000 + number);
    handles_[handle] = true;
    names_[handle] = "#" + std::to_string(number);
    return handle;
}

fake_next_layer& next_layer() {
    static fake_next_layer the_layer;
    return the_layer;
}

extern "C" {

__attribute__((visibility("default"))) int stsm_init(uint64_t version, const char* path,
                                                     const sts_api_t** table) {
    const int status = record("stsm_init", version, path, table);
    if (status == 0) {
        *table = fake_next_layer::table();
    }
    return status;
}

__attribute__((visibility("default"))) int stsm_terminate() { return record("stsm_terminate"); }

} // extern "C"
