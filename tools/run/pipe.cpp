// Paces whatever flows through it: standard input goes to standard output as quickly as the plugin
// lets an image of a server "pipe:NAME" be written, or read. What arrives goes on at once.

#include "tools/host/settings_findings.h"
#include "tools/host/sharing_notice.h"
#include "tools/host/status_names.h"
#include "tools/run/operation.h"
#include "tools/run/pipe_view.h"
#include "tools/run/streams/supervise.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* pipe_lsu = "pipe"; // such a server has any
constexpr int wide_pipe = 1024 * 1024;   // bytes that a pipe may hold
constexpr uint64_t least_block = 512;

/// Whoever reads our output has gone.
struct reader_gone : std::exception {
    const char* what() const noexcept override { return "nobody reads standard output"; }
};

[[noreturn]] void fail_on(const char* what) {
    throw failure(fmt::format("{}: {}", what, strerror(errno)));
}

/// While one lives, a write that nobody reads fails with EPIPE, so that the server can be closed.
class broken_pipes_told {
  public:
    broken_pipes_told() {
        struct sigaction ignored = {};
        ignored.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignored, &before_);
    }
    ~broken_pipes_told() { sigaction(SIGPIPE, &before_, nullptr); }
    broken_pipes_told(const broken_pipes_told&) = delete;
    broken_pipes_told& operator=(const broken_pipes_told&) = delete;

  private:
    struct sigaction before_ = {};
};

/// Reads what is there, up to `room` bytes; 0 at the end.
size_t read_some(const transfer& run, char* bytes, size_t room) {
    while (true) {
        run.check_may_move();
        const ssize_t count = read(STDIN_FILENO, bytes, room);
        if (count >= 0) {
            return static_cast<size_t>(count);
        }
        if (errno != EINTR) {
            fail_on("standard input can't be read");
        }
    }
}

void write_all(const transfer& run, const char* bytes, size_t length) {
    for (size_t written = 0; written < length;) {
        const ssize_t count = write(STDOUT_FILENO, bytes + written, length - written);
        if (count >= 0) {
            written += static_cast<size_t>(count);
        } else if (errno == EPIPE) {
            throw reader_gone();
        } else if (errno != EINTR) {
            fail_on("standard output can't be written");
        } else {
            run.check_may_move();
        }
    }
}

/// Moves all there is through the image.
class pipe_mover {
  public:
    pipe_mover(host_image& image, const pipe_options& options, const transfer& run)
        : image_(image), reads_(options.reads), run_(run), block_(options.block),
          scratch_(reads_ ? options.block : 0) {}

    void move(stream& account) {
        while (const size_t length = read_some(run_, block_.data(), room())) {
            wait_for(length);
            write_all(run_, block_.data(), length);
            account.bytes += length;
            account.done += length;
        }
    }

  private:
    /// A second's worth at most: a block is never divided.
    size_t room() const {
        const uint64_t allowed = run_.allowed_now().value_or(block_.size());
        return std::min<size_t>(block_.size(), std::max(allowed, least_block));
    }

    /// The plugin waits in the call.
    void wait_for(size_t length) {
        uint64_t moved = 0;
        const int status = reads_ ? image_.read(scratch_.data(), length, position_, moved)
                                  : image_.write(block_.data(), length, position_, moved);
        require_ok(status, reads_ ? "reading the image" : "writing the image", image_.name());
        position_ += length;
        run_.check_may_move(); // a signal cuts a wait short
    }

    host_image& image_;
    const bool reads_;
    const transfer& run_;
    std::vector<char> block_;
    std::vector<char> scratch_; ///< what the storage reads, which is nothing
    uint64_t position_ = 0;
};

/// A pipe's room, where there is one: fewer turns.
void widen_pipes() {
    (void)fcntl(STDIN_FILENO, F_SETPIPE_SZ, wide_pipe);
    (void)fcntl(STDOUT_FILENO, F_SETPIPE_SZ, wide_pipe);
}

void pass(const pipe_options& options, transfer& run) {
    connection to(options, options.label);
    const std::string name = options.label.empty() ? "pipe" : options.label;
    run.add_stream(name, options.size);
    run.begin(allowance(options.server, options.reads ? OPERATION_READ : OPERATION_WRITE));
    run.check_may_move();
    host_image image = options.reads ? to.server.open_image(pipe_lsu, "pipe")
                                     : to.server.create_image(pipe_lsu, "pipe", "");
    try {
        run.run_streams([&](size_t /*index*/, stream& account) {
            pipe_mover(image, options, run).move(account);
        });
    } catch (...) {
        if (run.is_barred()) {
            image.let_go();
        }
        throw;
    }
    run.end();
    image.close(STS_CLOSE_COMPLETE);
    to.server.close();
}

/// Ends as any filter does whose reader has gone: by the signal.
[[noreturn]] void end_by_broken_pipe() {
    console::get().clear_bars();
    raise(SIGPIPE);
    errno = EPIPE; // somebody ignores the signal
    fail_on("standard output can't be written");
}

} // namespace

int run_pipe(const pipe_options& options) {
    if (options.server.find(":pipe:") == std::string::npos) {
        throw usage_failure(
            fmt::format("--server: \"{}\" is no pipe; CS_throttle:TYPE:pipe:NAME is, "
                        "where NAME is the storage's in the settings",
                        options.server));
    }
    transfer run("pipe", "what has passed has passed.");
    told_settings();
    widen_pipes();
    sharing_notice notice(options.server);
    pipe_view view(run, options);
    try {
        const broken_pipes_told told;
        if (const std::exception_ptr thrown = supervise(
                run, view, [&] { pass(options, run); }, [&] { notice.look(); })) {
            std::rethrow_exception(thrown);
        }
    } catch (const reader_gone&) {
        end_by_broken_pipe();
    } catch (...) {
        if (run.is_interrupted()) {
            view.show_end();
            return EXIT_INTERRUPTED;
        }
        throw;
    }
    view.show_end();
    return EXIT_DONE;
}
