#include "tools/run/files/problems.h"

#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <fmt/format.h>

void file_problems::report(const std::string& path, const std::string& reason) {
    ++count_;
    console::get().problem(printable(path) + ": " + reason);
}

void file_problems::report_image(const std::string& image, const std::string& reason) {
    ++count_;
    console::get().problem(image_complaint(image, reason));
}

int file_problems::summary() const {
    if (count_ == 0) {
        return EXIT_DONE;
    }
    fmt::print("Not all went well: {} {}, named above.\n", count_.load(),
               count_ == 1 ? "problem" : "problems");
    return EXIT_FAILED;
}

std::string image_complaint(const std::string& image, const std::string& reason) {
    return fmt::format("the image \"{}\": {}", printable(image), reason);
}

void say_unsealed(const std::string& image) {
    console::get().problem(fmt::format("warning: the image \"{}\" has no seal, as those of earlier "
                                       "versions: damage to it can't be told",
                                       printable(image)));
}
