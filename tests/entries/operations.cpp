#include "tests/entries/operations.h"

#include "plugin/throttling.h"

#include <stdexcept>
#include <type_traits>
#include <utility>

namespace {

template <typename Type>
constexpr parameter_t kind_of() {
    using parameter = std::remove_cv_t<Type>;
    using target = std::remove_cv_t<std::remove_pointer_t<parameter>>;
    if constexpr (std::is_integral_v<parameter>) {
        return parameter_t::number;
    } else if constexpr (std::is_same_v<parameter, sts_copy_params_s>) {
        return parameter_t::copy_params;
    } else if constexpr (std::is_same_v<target, throttling_server_s>) {
        return parameter_t::server;
    } else if constexpr (std::is_same_v<target, throttling_image_s>) {
        return parameter_t::image;
    } else if constexpr (std::is_same_v<target, throttling_lsu_list_s>) {
        return parameter_t::lsu_list;
    } else if constexpr (std::is_same_v<target, throttling_image_list_s>) {
        return parameter_t::image_list;
    } else if constexpr (std::is_same_v<target, throttling_evchannel_s>) {
        return parameter_t::channel;
    } else if constexpr (std::is_same_v<target, sts_lsu_ref_s>) {
        return parameter_t::lsu;
    } else if constexpr (std::is_same_v<target, sts_session_def_v7_t>) {
        return parameter_t::session;
    } else if constexpr (std::is_same_v<target, sts_next_operation_s*>) {
        return parameter_t::holder;
    } else if constexpr (std::is_pointer_v<target>) {
        return parameter_t::out;
    } else if constexpr (std::is_integral_v<target> && !std::is_same_v<target, char>) {
        return sizeof(target) == sizeof(uint64_t) ? parameter_t::moved : parameter_t::count;
    } else if constexpr (std::is_same_v<parameter, const char*>) {
        return parameter_t::const_text;
    } else if constexpr (std::is_same_v<parameter, char*>) {
        return parameter_t::text;
    } else if constexpr (std::is_same_v<target, sts_image_def_s>) {
        return parameter_t::image_def;
    } else if constexpr (std::is_same_v<target, sts_lsu_def_s>) {
        return parameter_t::lsu_def;
    } else {
        static_assert(std::is_pointer_v<parameter>);
        return parameter_t::record;
    }
}

template <typename Type>
Type argument(uint64_t given) {
    if constexpr (std::is_pointer_v<Type>) {
        return reinterpret_cast<Type>(given);
    } else if constexpr (std::is_integral_v<Type>) {
        return static_cast<Type>(given);
    } else {
        return *reinterpret_cast<const Type*>(given);
    }
}

template <typename... Types, size_t... indices>
int call(int (*entry)(Types...), const std::vector<uint64_t>& given,
         std::index_sequence<indices...>) {
    (void)given; // for an entry without parameters
    return entry(argument<Types>(given.at(indices))...);
}

template <typename... Types>
operation make(const std::string& name, bool supported, int (*entry)(Types...)) {
    operation made = {
        name, supported, {kind_of<Types>()...}, [entry](const std::vector<uint64_t>& given) {
            return call(entry, given, std::index_sequence_for<Types...>());
        }};
    if (name == "get_image_prop_v10") { // void*, since an image list will do as well
        made.parameters[0] = parameter_t::image;
    }
    return made;
}

template <typename Entry>
Entry* second_table(size_t slot) {
    return reinterpret_cast<Entry*>(PluginEntryPoints2_v11[slot]);
}

} // namespace

const std::vector<operation>& operations() {
#define SUPPORTED(name, parameters) make(#name, true, ep.name),
#define UNSUPPORTED(name) make(#name, false, ep.name),
    static const std::vector<operation> all = {
        STSPI_ENTRIES(SUPPORTED, UNSUPPORTED) //
        make("create_lsu", true, second_table<decltype(throttling_create_lsu)>(4)),
        make("delete_lsu", true, second_table<decltype(throttling_delete_lsu)>(9)),
    };
#undef SUPPORTED
#undef UNSUPPORTED
    return all;
}

const operation& operation_named(std::string_view name) {
    for (const operation& each : operations()) {
        if (each.name == name) {
            return each;
        }
    }
    throw std::logic_error("no operation is called " + std::string(name));
}
