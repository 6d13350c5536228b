#include "tools/host/entry_list.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace {

// clang-format off
#define SECOND_TABLE_ENTRIES(ENTRY)                                                                \
    ENTRY(create_lsu, (throttling_server_s* server, const sts_lsu_def_s* definition, void*** out)) \
    ENTRY(delete_lsu, (sts_lsu_ref_s* lsu))
// clang-format on

constexpr const char* entry_prefix = "throttling_";

/// "(throttling_image_s* image, int32_t type)", taken apart.
std::vector<parameter> parameters_in(const std::string& declared) {
    std::vector<parameter> found;
    const std::string inside = declared.substr(1, declared.size() - 2);
    for (size_t start = 0; start < inside.size();) {
        const size_t end = std::min(inside.find(',', start), inside.size());
        const size_t name = inside.find_last_of(" *", end - 1) + 1;
        const size_t type = inside.find_first_not_of(' ', start);
        std::string type_text = inside.substr(type, name - type);
        type_text.resize(type_text.find_last_not_of(' ') + 1);
        found.push_back({type_text, inside.substr(name, end - name)});
        start = end + 1;
    }
    return found;
}

template <typename Type>
Type argument(uint64_t given) {
    if constexpr (std::is_pointer_v<Type>) {
        return reinterpret_cast<Type>(given); // NOLINT(performance-no-int-to-ptr)
    } else if constexpr (std::is_integral_v<Type>) {
        return static_cast<Type>(given);
    } else {
        return *reinterpret_cast<const Type*>(given); // NOLINT(performance-no-int-to-ptr)
    }
}

template <typename... Types, size_t... indices>
int call(int (*function)(Types...), const std::vector<uint64_t>& given,
         std::index_sequence<indices...> /*indices*/) {
    (void)given; // of an entry without parameters
    return function != nullptr ? function(argument<Types>(given.at(indices))...)
                               : int{STS_ERR_NOT_SUPPORTED};
}

/// `find` gives the entry's pointer in a loaded plugin.
template <typename... Types>
entry make(const char* name, bool is_supported, const char* declared,
           int (*(*find)(const plugin_host&))(Types...)) {
    return {name, is_supported, parameters_in(declared),
            [find](const plugin_host& host, const std::vector<uint64_t>& given) {
                return call(find(host), given, std::index_sequence_for<Types...>());
            }};
}

std::vector<entry> make_entries() {
#define FROM_TABLE(name) +[](const plugin_host& host) { return host.entries().name; }
#define SUPPORTED(name, parameters) make(#name, true, #parameters, FROM_TABLE(name)),
#define UNSUPPORTED(name) make(#name, false, "()", FROM_TABLE(name)),
#define SECOND(name, parameters)                                                                   \
    make(                                                                                          \
        #name, true, #parameters, +[](const plugin_host& host) { return host.name##_entry(); }),
    return {STSPI_ENTRIES(SUPPORTED, UNSUPPORTED) SECOND_TABLE_ENTRIES(SECOND)};
#undef SECOND
#undef UNSUPPORTED
#undef SUPPORTED
#undef FROM_TABLE
}

} // namespace

const std::vector<entry>& all_entries() {
    static const std::vector<entry> all = make_entries();
    return all;
}

const entry* find_entry(const std::string& name) {
    const std::string prefix = entry_prefix;
    const std::string plain =
        name.compare(0, prefix.size(), prefix) == 0 ? name.substr(prefix.size()) : name;
    const auto found = std::find_if(all_entries().begin(), all_entries().end(),
                                    [&](const entry& each) { return each.name == plain; });
    return found != all_entries().end() ? &*found : nullptr;
}
