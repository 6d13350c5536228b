// How long the plugin takes to load, with all the libraries that it needs, beside the ORB's library
// alone, and how large they are without their debugging information. Prints a Markdown table. This
// program uses nothing of either, so that each load, in a process of its own, is a first one; their
// files are in memory after the first.
//
//   load_bench PLUGIN ORB    the two libraries by their files

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct load {
    double seconds;
    double processor; ///< seconds of it that the process was at work
};

double processor_time() {
    timespec taken = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &taken);
    return static_cast<double>(taken.tv_sec) + static_cast<double>(taken.tv_nsec) / 1e9;
}

/// What dlopen takes in a process that has loaded nothing of it yet. What fails ends the program.
load load_time(const char* library) {
    int from[2];
    if (pipe(from) != 0) {
        perror("load_bench");
        exit(EXIT_FAILURE);
    }
    const pid_t child = fork();
    if (child == 0) {
        const double at_work = processor_time();
        const auto start = std::chrono::steady_clock::now();
        const void* const loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        const load taken = {passed.count(), processor_time() - at_work};
        if (loaded == nullptr) {
            fprintf(stderr, "load_bench: %s\n", dlerror());
            _exit(EXIT_FAILURE);
        }
        _exit(write(from[1], &taken, sizeof taken) == sizeof taken ? 0 : 1);
    }
    close(from[1]);
    load taken = {};
    if (read(from[0], &taken, sizeof taken) != sizeof taken) {
        exit(EXIT_FAILURE);
    }
    close(from[0]);
    waitpid(child, nullptr, 0);
    return taken;
}

/// Bytes of the file up to the end of what is loaded, which is what strip(1) leaves but for a table.
uint64_t loaded_size(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    Elf64_Ehdr header = {};
    stream.read(reinterpret_cast<char*>(&header), sizeof header);
    stream.seekg(static_cast<std::streamoff>(header.e_phoff));
    uint64_t end = 0;
    for (int each = 0; each < header.e_phnum; ++each) {
        Elf64_Phdr segment = {};
        stream.read(reinterpret_cast<char*>(&segment), sizeof segment);
        if (stream && segment.p_type == PT_LOAD) {
            end = std::max<uint64_t>(end, segment.p_offset + segment.p_filesz);
        }
    }
    return end;
}

double median(const std::vector<load>& loads, double load::*which) {
    std::vector<double> values;
    for (const load& each : loads) {
        values.push_back(each.*which);
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void print_row(const char* name, const char* file, const std::vector<load>& loads) {
    constexpr double mebibyte = 1024 * 1024;
    printf("| %s | %.1f | %.1f | %.2f |\n", name, median(loads, &load::seconds) * 1e3,
           median(loads, &load::processor) * 1e3,
           static_cast<double>(loaded_size(file)) / mebibyte);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: load_bench PLUGIN ORB\n");
        return 2;
    }
    constexpr int turns = 51;
    std::vector<load> of_plugin;
    std::vector<load> of_orb;
    for (int turn = 0; turn < turns; ++turn) {
        of_plugin.push_back(load_time(argv[1]));
        of_orb.push_back(load_time(argv[2]));
    }
    printf("| Library | dlopen, ms (median) | Processor time of it, ms | Size, stripped, MiB |\n"
           "| --- | ---: | ---: | ---: |\n");
    print_row("`libstspithrottling.so`, with all it needs", argv[1], of_plugin);
    print_row("`libvlorbST.so`, the ORB alone", argv[2], of_orb);
    printf("| ratio | %.2f | %.2f | |\n",
           median(of_plugin, &load::seconds) / median(of_orb, &load::seconds),
           median(of_plugin, &load::processor) / median(of_orb, &load::processor));
    return EXIT_SUCCESS;
}
