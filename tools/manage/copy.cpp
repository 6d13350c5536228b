#include "tools/manage/copy.h"

#include "tools/figures/progress.h"
#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>

namespace {

using clock = std::chrono::steady_clock;

constexpr auto look_interval = std::chrono::milliseconds(50);
constexpr auto redraw_interval = std::chrono::milliseconds(200);
constexpr auto line_interval = std::chrono::seconds(2);
constexpr int32_t only_look = 0;
constexpr int32_t until_the_end = -1;

status_failure failed_copy(const copy_request& wanted, const std::string& server, int status) {
    const std::string to_server =
        wanted.to_server.empty() ? "" : fmt::format(" of the server \"{}\"", wanted.to_server);
    return status_failure(
        fmt::format("copying the image \"{}/{}\" of the server \"{}\" to \"{}/{}\"{} failed: {}",
                    wanted.lsu, printable(wanted.image), server, wanted.to_lsu,
                    printable(wanted.to_image), to_server, status_text(status)));
}

/// A copy that runs in the storage.
class running_copy {
  public:
    running_copy(const host_server& server, const copy_request& wanted)
        : server_(server), wanted_(wanted) {
        const sts_lsu_ref_s lsu = server_.ref(wanted.lsu);
        const sts_image_def_s source = image_definition(wanted.image);
        const sts_copy_target_s target =
            copy_target(wanted.to_image, wanted.to_lsu, next_layer_name(wanted.to_server));
        const sts_copy_params_s params = copy_params(wanted.block, wanted.rate);
        const int status = server_.entries().async_copy_image(
            0, forwarded(&source), &lsu, forwarded(&target), &holder_, 0, params);
        if (status != STS_OK) {
            release();
            throw failed_copy(wanted_, server_.name(), status);
        }
    }
    ~running_copy() {
        cancel();
        release();
    }
    running_copy(const running_copy&) = delete;
    running_copy& operator=(const running_copy&) = delete;

    /// Where it is; waits for `seconds` at most, below 0 until its end.
    sts_async_status_s look(int32_t seconds) {
        sts_async_status_s now = {};
        const int status = server_.entries().async_wait(&server_.session(), holder_, seconds, &now);
        if (status != STS_OK) {
            has_ended_ = true; // nobody knows it any more
            throw failed("waiting for the copy of the image", wanted_.image, server_.name(),
                         status);
        }
        has_ended_ = now.state == STS_ASYNC_ENDED;
        return now;
    }

    void cancel() {
        if (!has_ended_) {
            server_.entries().async_cancel(&server_.session(), holder_);
        }
    }

  private:
    void release() { free(static_cast<void*>(holder_)); }

    const host_server& server_;
    const copy_request& wanted_;
    sts_next_operation_s** holder_ = nullptr;
    bool has_ended_ = false;
};

/// On a terminal a bar, elsewhere a line every two seconds.
class copy_view {
  public:
    explicit copy_view(std::string name) : name_(std::move(name)) {}
    ~copy_view() { console::get().clear_bars(); }
    copy_view(const copy_view&) = delete;
    copy_view& operator=(const copy_view&) = delete;

    void show(const sts_async_status_s& now) {
        console& screen = console::get();
        const clock::duration interval = screen.is_terminal() ? clock::duration(redraw_interval)
                                                              : clock::duration(line_interval);
        if (clock::now() - shown_ < interval) {
            return;
        }
        shown_ = clock::now();
        const std::string line = progress_text(now);
        if (screen.is_terminal()) {
            screen.bars({line});
        } else {
            screen.line(line);
        }
    }

    double seconds() const { return std::chrono::duration<double>(clock::now() - began_).count(); }

  private:
    std::string progress_text(const sts_async_status_s& now) const {
        const auto copied = static_cast<double>(now.bytes_copied);
        const auto total = static_cast<double>(now.bytes_total);
        const double done = total > 0 ? copied / total : 1;
        const double rate = copied / std::max(seconds(), 0.001);
        const std::optional<double> left =
            rate > 0 ? std::optional((total - copied) / rate) : std::nullopt;
        return line_text({name_,
                          done,
                          rate,
                          left,
                          {fmt::format("{} of {}", size_text(copied), size_text(total))}},
                         name_.size(), console::width());
    }

    const std::string name_;
    const clock::time_point began_ = clock::now();
    clock::time_point shown_ = began_;
};

} // namespace

std::string next_layer_name(const std::string& server) {
    const std::string prefix = plugin_prefix;
    if (server.compare(0, prefix.size(), prefix) != 0) {
        return server;
    }
    const size_t colon = server.find(':', prefix.size());
    if (colon == std::string::npos || colon + 1 == server.size()) {
        throw usage_failure(fmt::format("\"{}\" names no server below the plugin", server));
    }
    return next_layer_name(server.substr(colon + 1));
}

int copy_image(const host_server& server, const copy_request& wanted, const signals& caught) {
    running_copy copy(server, wanted);
    copy_view view(wanted.image);
    bool is_interrupted = false;
    sts_async_status_s now = copy.look(only_look);
    while (now.state != STS_ASYNC_ENDED) {
        if (caught.next(look_interval)) {
            is_interrupted = true;
            copy.cancel();
            now = copy.look(until_the_end);
        } else {
            now = copy.look(only_look);
            view.show(now);
        }
    }
    if (is_interrupted && sts_errno_of_status(now.result) == ECANCELED) {
        console::get().line(fmt::format("Interrupted: the copy of \"{}\" is cancelled, and nothing "
                                        "is left of it.",
                                        wanted.image));
        return EXIT_INTERRUPTED;
    }
    if (now.result != STS_OK) {
        throw failed_copy(wanted, server.name(), now.result);
    }
    fmt::print("The image \"{}\" is copied to \"{}\" in the LSU \"{}\": {} in {:.1f} s.\n",
               printable(wanted.image), printable(wanted.to_image), printable(wanted.to_lsu),
               size_text(static_cast<double>(now.bytes_copied)), view.seconds());
    return EXIT_DONE;
}
