// What throttlectl takes for a tree of many small files, each operation beside tar's in turns with
// it. Prints a Markdown table.
//
//   host_bench THROTTLECTL [FILES]    100000 files of 100 to 4000 bytes unless given, 100 a folder
//
// All is kept in memory, below /dev/shm, or in $TMPDIR where that is set. What is copied isn't
// asked to be on the disk, as tar doesn't ask for that either, and nothing is throttled.

#include "tests/support/conf_dir.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int rounds = 5;
constexpr int files_a_folder = 100;
constexpr int smallest_file = 100; // bytes
constexpr int largest_file = 4000;

using words = std::vector<std::string>;

struct cost {
    double seconds = 0;
    double processor = 0;
    double resident = 0; ///< MiB, at most
};

double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// What a program costs. One that fails ends this one.
cost cost_of(const words& command) {
    std::vector<char*> arguments;
    for (const std::string& each : command) {
        arguments.push_back(const_cast<char*>(each.c_str()));
    }
    arguments.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    rusage used = {};
    if (wait4(child, &status, 0, &used) != child || status != 0) {
        fprintf(stderr, "host_bench: %s failed: status %d\n", command[0].c_str(), status);
        exit(EXIT_FAILURE);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return {taken.count(), seconds_of(used.ru_utime) + seconds_of(used.ru_stime),
            static_cast<double>(used.ru_maxrss) / 1024};
}

/// A directory of the program's own: a tree, the settings, and what becomes of the tree.
class workshop {
  public:
    workshop(std::string throttlectl, int files) : throttlectl_(std::move(throttlectl)) {
        const char* const wanted = getenv("TMPDIR");
        std::string pattern = std::string(wanted != nullptr ? wanted : "/dev/shm") + "/host-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            perror(pattern.c_str());
            exit(EXIT_FAILURE);
        }
        root_ = pattern;
        fs::create_directory(root_ / "conf");
        conf_dir::write(path("conf/libstspithrottling.conf"), "THR:SAMPLE_INTERVAL=0\n");
        setenv("VL_CONF_DIR", path("conf").c_str(), 1);
        fs::current_path(root_);
        cost_of(host({"config", "set", "STS:SYNC_AT_CLOSE=0"}));
        make_tree(files);
    }
    ~workshop() {
        fs::current_path("/");
        fs::remove_all(root_);
    }
    workshop(const workshop&) = delete;
    workshop& operator=(const workshop&) = delete;

    std::string path(const std::string& name) const { return (root_ / name).string(); }
    words host(words arguments) const {
        arguments.insert(arguments.begin(), throttlectl_);
        arguments.insert(arguments.end(), {"--server", "CS_throttle:t1:disk:" + path("store")});
        return arguments;
    }
    words run(const words& arguments) const {
        words all = {"run"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        all.insert(all.end(), {"--lsu", "daily", "--name", "b"});
        return host(all);
    }
    uintmax_t image_size() const { return fs::file_size(root_ / "store/daily/images/b.1of1/data"); }

  private:
    void make_tree(int files) const {
        std::mt19937 numbers(1);
        std::uniform_int_distribution<int> lengths(smallest_file, largest_file);
        std::string content(largest_file, '\0');
        std::generate(content.begin(), content.end(), [&] { return static_cast<char>(numbers()); });
        std::string folder;
        for (int file = 0; file < files; ++file) {
            if (file % files_a_folder == 0) {
                folder = path("tree/folder" + std::to_string(file / files_a_folder));
                fs::create_directories(folder);
            }
            conf_dir::write(folder + "/file" + std::to_string(file) + ".txt",
                            content.substr(0, static_cast<size_t>(lengths(numbers))));
        }
    }

    const std::string throttlectl_;
    fs::path root_;
};

struct operation {
    std::string name;
    words ours;
    std::string beside;
    words tars;
    std::vector<std::string> products; ///< taken away before each
    cost our_cost = {};
    cost tars_cost = {};
};

void keep_least(cost& least, const cost& now, bool is_first) {
    least.seconds = is_first ? now.seconds : std::min(least.seconds, now.seconds);
    least.processor = is_first ? now.processor : std::min(least.processor, now.processor);
    least.resident = std::max(least.resident, now.resident);
}

/// The least of several turns of each, as what else the machine does only adds to it.
void measure(std::vector<operation>& all) {
    for (int round = 0; round < rounds; ++round) {
        for (operation& each : all) {
            for (const std::string& product : each.products) {
                fs::remove_all(product);
            }
            keep_least(each.tars_cost, cost_of(each.tars), round == 0);
            keep_least(each.our_cost, cost_of(each.ours), round == 0);
        }
    }
}

void print(const std::vector<operation>& all) {
    printf("| Operation | s | Processor, s | Beside | s | Processor, s | Ratio of times | of "
           "processor times | MiB of memory |\n"
           "| --- | ---: | ---: | --- | ---: | ---: | ---: | ---: | ---: |\n");
    for (const operation& each : all) {
        printf("| %s | %.2f | %.2f | `%s` | %.2f | %.2f | %.2f | %.2f | %.0f |\n",
               each.name.c_str(), each.our_cost.seconds, each.our_cost.processor,
               each.beside.c_str(), each.tars_cost.seconds, each.tars_cost.processor,
               each.our_cost.seconds / each.tars_cost.seconds,
               each.our_cost.processor / each.tars_cost.processor, each.our_cost.resident);
    }
}

void print_sizes(const workshop& in) {
    printf("\n| Archive | Bytes | Beside | Bytes | Ratio |\n| --- | ---: | --- | ---: | ---: |\n");
    const auto ours = static_cast<double>(in.image_size());
    for (const auto& [name, file] : {std::pair("tar -c", "plain.tar"),
                                     std::pair("tar --xattrs --acls --sparse -c", "full.tar")}) {
        const auto theirs = static_cast<double>(fs::file_size(in.path(file)));
        printf("| of the backup | %.0f | `%s` | %.0f | %.2f |\n", ours, name, theirs,
               ours / theirs);
    }
}

} // namespace

int main(int argc, char** argv) {
    const int files = argc > 2 ? atoi(argv[2]) : 100000;
    if (argc < 2 || argc > 3 || files < 1) {
        fprintf(stderr, "usage: host_bench THROTTLECTL [FILES]\n");
        return 2;
    }
    const workshop in(fs::absolute(argv[1]).string(), files);
    const std::string plain = in.path("plain.tar");
    const std::string full = in.path("full.tar");
    const std::string image = in.path("store/daily/images");
    fs::create_directory(in.path("by-tar"));
    std::vector<operation> all = {
        {"backup",
         in.run({"backup", "tree"}),
         "tar -c",
         {"tar", "-cf", plain, "tree"},
         {image, plain}},
        {"backup",
         in.run({"backup", "tree"}),
         "tar --xattrs --acls --sparse -c",
         {"tar", "--xattrs", "--acls", "--sparse", "-cf", full, "tree"},
         {image, full}},
        {"restore",
         in.run({"restore", "--to", in.path("by-us")}),
         "tar -x",
         {"tar", "-xf", plain, "-C", in.path("by-tar")},
         {in.path("by-us"), in.path("by-tar/tree")}},
        {"verify", in.run({"verify", "tree"}), "tar -d", {"tar", "-df", plain}, {}},
    };
    measure(all);
    print(all);
    print_sizes(in);
    return EXIT_SUCCESS;
}
