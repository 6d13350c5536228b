// What the operations have in common: their options, the way to the server, and the frame in which
// each of a run is run, watched and reported.
#pragma once

#include "tools/host/engine_watch.h"
#include "tools/host/plugin_host.h"
#include "tools/run/files/tree.h"
#include "tools/run/streams/transfer.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

constexpr uint64_t default_block = uint64_t{256} * 1024;

/// How a server is reached.
struct server_options {
    std::string plugin; ///< path; empty: the one beside the program, or the loader's
    log_choice log = log_choice::nothing;
    std::string server; ///< its full name
};

struct run_options : server_options {
    std::string lsu;
    std::string backup;
    uint64_t block = default_block; ///< bytes of a transfer
    std::string plot;               ///< file for the picture; empty: none
    std::string json;               ///< file for the figures; empty: none
};

struct backup_options : run_options {
    std::vector<std::string> directories;
    size_t streams = 1;
};

struct restore_options : run_options {
    std::string target;
    bool force = false; ///< also into a directory that isn't empty
};

struct verify_options : run_options {
    std::vector<std::string> directories;
    std::string restored; ///< compare with what a restore put there instead
};

/// The plugin, loaded, and the server, opened through it.
struct connection {
    explicit connection(const server_options& options);

    plugin_host host;
    host_server server;
};

/// Closes the server and returns what the program ends with: it fails when entries of lists were
/// passed over.
int ended(host_server& server);

/// Each returns what the program ends with.
int run_backup(const backup_options& options);
int run_restore(const restore_options& options);
int run_verify(const verify_options& options);
int run_list(const run_options& options); ///< of the server's LSUs when `lsu` is empty

/// Lists trees and says how far it is. Ends as `abandoned` when the run is to stop.
tree_listing list_for(transfer& run, const std::vector<tree_root>& roots);

/// Something that went wrong with one file, which stops nothing. Said at once, counted for the end.
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

/// Runs `job` in a thread of its own, shows its progress, ends it on SIGINT or SIGTERM, and reports
/// what it moved. `summary` is printed when it is done and returns what the program ends with.
int run_operation(const run_options& options, transfer& run, const std::function<void()>& job,
                  const std::function<int()>& summary);
