#include "tools/terminal/input_file.h"

#include "tools/terminal/failure.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <memory>

namespace {

struct closer {
    void operator()(FILE* file) const { fclose(file); }
};

[[noreturn]] void fail_to_read(const std::string& path) {
    throw failure(fmt::format("{} can't be read: {}", path, strerror(errno)));
}

} // namespace

std::string read_file(const std::string& path) {
    const std::unique_ptr<FILE, closer> file(fopen(path.c_str(), "rb"));
    if (file == nullptr) {
        fail_to_read(path);
    }
    std::string content;
    std::array<char, BUFSIZ> block;
    while (const size_t count = fread(block.data(), 1, block.size(), file.get())) {
        content.append(block.data(), count);
    }
    if (ferror(file.get()) != 0) { // a directory shows only here
        fail_to_read(path);
    }
    return content;
}
