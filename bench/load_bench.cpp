// How long the plugin takes to load, with all the libraries that it needs, beside the ORB's library
// alone, and how large they are. Prints a Markdown table. This program uses nothing of either, so
// that each load, in a process of its own, is a first one; their files are in memory after the
// first.
//
//   load_bench PLUGIN ORB    the two libraries by their files

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

/// Seconds that dlopen takes in a process that has loaded nothing of it yet. What fails ends the
/// program.
double load_time(const char* library) {
    int from[2];
    if (pipe(from) != 0) {
        perror("load_bench");
        exit(EXIT_FAILURE);
    }
    const pid_t child = fork();
    if (child == 0) {
        const auto start = std::chrono::steady_clock::now();
        const void* const loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        if (loaded == nullptr) {
            fprintf(stderr, "load_bench: %s\n", dlerror());
            _exit(EXIT_FAILURE);
        }
        const double seconds = taken.count();
        _exit(write(from[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    }
    close(from[1]);
    double seconds = 0;
    if (read(from[0], &seconds, sizeof seconds) != sizeof seconds) {
        exit(EXIT_FAILURE);
    }
    close(from[0]);
    waitpid(child, nullptr, 0);
    return seconds;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void print_row(const char* name, const char* file, const std::vector<double>& taken) {
    constexpr double mebibyte = 1024 * 1024;
    printf("| %s | %.1f | %.1f |\n", name, median(taken) * 1e3,
           static_cast<double>(std::filesystem::file_size(file)) / mebibyte);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: load_bench PLUGIN ORB\n");
        return 2;
    }
    constexpr int turns = 51;
    std::vector<double> of_plugin;
    std::vector<double> of_orb;
    for (int turn = 0; turn < turns; ++turn) {
        of_plugin.push_back(load_time(argv[1]));
        of_orb.push_back(load_time(argv[2]));
    }
    printf("| Library | dlopen, ms (median) | Size, MiB |\n| --- | ---: | ---: |\n");
    print_row("`libstspithrottling.so`, with all it needs", argv[1], of_plugin);
    print_row("`libvlorbST.so`, the ORB alone", argv[2], of_orb);
    printf("| ratio | %.2f | |\n", median(of_plugin) / median(of_orb));
    return EXIT_SUCCESS;
}
