// What went wrong with single files and images, which stops nothing.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

/// Said at once, counted for the end.
class file_problems {
  public:
    void report(const std::string& path, const std::string& reason);
    void report_image(const std::string& image, const std::string& reason);
    /// Says how many there were, if any, and returns what the program ends with.
    int summary() const;

  private:
    std::atomic<size_t> count_{0};
};

/// What is said of an image that is wrong as a whole or in places.
std::string image_complaint(const std::string& image, const std::string& reason);

/// Says that nothing can tell whether that image is damaged.
void say_unsealed(const std::string& image);
