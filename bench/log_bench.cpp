// What a line of the log file takes, beside the system calls that it can't do without, and how that
// goes with several threads. Prints a Markdown table.
//
//   log_bench [SECONDS]     how long each cell is measured, 3 unless given
//
// The described calls are a record lock of the file, a write of a line that is ready, and the lock's
// release; threads take turns at them, as a record lock doesn't keep them apart. The bare write is
// the same without the lock. What is compared is measured in turns.

#include "plugin/throttling_log.h"

#include "tests/support/next_function.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::string root; ///< stands for the log's own

constexpr char ready_line[] =
    "[DEBUG] [1234567]12:34:56.789[session-1][check_bandwidth]gap_seconds=12,"
    "bandwidth->data_length=1234567890.\n";

void log_line() {
    log_msg(nullptr, "check_bandwidth", 1, STS_SEV_DEBUG,
            "gap_seconds=%ld,bandwidth->data_length=%ld.", 12L, 1234567890L);
}

class plain_file {
  public:
    explicit plain_file(const char* name)
        : file_(open((root + "/" + name).c_str(), O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0600)) {}
    ~plain_file() { close(file_); }
    plain_file(const plain_file&) = delete;
    plain_file& operator=(const plain_file&) = delete;

    void write_line() const {
        if (write(file_, ready_line, sizeof ready_line - 1) < 0) {
            abort();
        }
    }

    void write_locked() {
        const std::lock_guard<std::mutex> one_thread(mutex_);
        set_lock(F_WRLCK);
        write_line();
        set_lock(F_UNLCK);
    }

    void empty() const {
        if (ftruncate(file_, 0) != 0) {
            abort();
        }
    }

  private:
    void set_lock(short type) const {
        struct flock whole = {};
        whole.l_type = type;
        fcntl(file_, F_SETLKW, &whole);
    }

    int file_;
    std::mutex mutex_;
};

struct total {
    double lines = 0;
    double seconds = 0;
    double microseconds() const { return seconds / lines * 1e6; }
};

/// Adds what so many threads together do in that time.
void measure(int threads, double seconds, const std::function<void()>& line, total& sum) {
    using clock = std::chrono::steady_clock;
    std::atomic<bool> over{false};
    std::atomic<long> lines{0};
    std::vector<std::thread> all;
    const auto start = clock::now();
    for (int each = 0; each < threads; ++each) {
        all.emplace_back([&] {
            long own = 0;
            for (; !over; ++own) {
                line();
            }
            lines += own;
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    over = true;
    for (std::thread& each : all) {
        each.join();
    }
    sum.seconds += std::chrono::duration<double>(clock::now() - start).count();
    sum.lines += static_cast<double>(lines);
}

void print_rows(double seconds) {
    constexpr int turns = 10;
    plain_file file("plain");
    printf("| Threads | `log_msg`, us a line | Lock, write, unlock, us | Bare write, us | Beside "
           "lock, "
           "write, unlock | Beside bare write |\n| ---: | ---: | ---: | ---: | ---: | ---: |\n");
    for (const int threads : {1, 2, 8}) {
        total logged;
        total locked;
        total bare;
        for (int turn = 0; turn < turns; ++turn) {
            measure(threads, seconds / turns, log_line, logged);
            measure(
                threads, seconds / turns, [&] { file.write_locked(); }, locked);
            measure(
                threads, seconds / turns, [&] { file.write_line(); }, bare);
            file.empty();
            for (const auto& each : std::filesystem::directory_iterator(root + "/vlcssc")) {
                std::filesystem::resize_file(each.path(), 0);
            }
        }
        printf("| %d | %.2f | %.2f | %.2f | %.2f | %.2f |\n", threads, logged.microseconds(),
               locked.microseconds(), bare.microseconds(),
               logged.microseconds() / locked.microseconds(),
               logged.microseconds() / bare.microseconds());
    }
}

} // namespace

/// The log's directory is the product's own: this program's lies elsewhere.
extern "C" __attribute__((visibility("default"))) FILE* fopen(const char* path, const char* mode) {
    std::string elsewhere = path;
    if (elsewhere.rfind(THROTTLING_LOG_ROOT, 0) == 0) {
        elsewhere.replace(0, strlen(THROTTLING_LOG_ROOT), root);
    }
    return next_function<FILE*(const char*, const char*)>("fopen")(elsewhere.c_str(), mode);
}

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? atof(argv[1]) : 3;
    if (argc > 2 || seconds <= 0) {
        fprintf(stderr, "log_bench [SECONDS]\n");
        return 2;
    }
    std::string name = (std::filesystem::temp_directory_path() / "log-bench-XXXXXX").string();
    root = mkdtemp(name.data());
    std::filesystem::create_directory(root + "/vlcssc");
    const bool opened = log_init(5) == 0;
    if (opened) {
        print_rows(seconds);
        log_shutdown();
    }
    std::filesystem::remove_all(root);
    return opened ? 0 : 1;
}
