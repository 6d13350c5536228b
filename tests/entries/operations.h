// Every operation that the host can call, with its parameters, taken from the entry table's own
// list: what is called here is the pointer that stands in the table.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// What a parameter is to a test.
enum class parameter_t {
    number, ///< up to 64 bits
    server, ///< a handle of ours, as are the next four
    image,
    lsu_list,
    image_list,
    channel,
    lsu,     ///< a record that names a server of ours
    session, ///< the host's definition
    holder,  ///< of a running operation of the next layer
    out,     ///< the address of what is handed out
    count,   ///< the address of a 32-bit count of bytes
    moved,   ///< the address of a 64-bit one
    const_text,
    text, ///< a buffer for one
    image_def,
    lsu_def,
    copy_params, ///< by value
    record,      ///< any other pointer
};

/// One operation. An argument is a number or an address; copy parameters are given by address too.
struct operation {
    std::string name; ///< without "throttling_"
    bool supported;
    std::vector<parameter_t> parameters;
    std::function<int(const std::vector<uint64_t>& arguments)> call;
};

/// The 57 of the first table in slot order, then creation and deletion of LSUs of the second.
const std::vector<operation>& operations();

/// The operation of that name, which must exist.
const operation& operation_named(std::string_view name);
