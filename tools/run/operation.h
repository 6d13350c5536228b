// The operations of a run, their options, and the frame in which each is run, watched and reported.
#pragma once

#include "tools/host/block.h"
#include "tools/host/connection.h"
#include "tools/run/files/tree.h"
#include "tools/run/streams/transfer.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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
    bool subsecond_times = false; ///< kept of every file
};

struct restore_options : run_options {
    std::string target;
    bool force = false; ///< also into a directory that isn't empty
};

struct verify_options : run_options {
    std::vector<std::string> directories;
    std::string restored; ///< compare with what a restore put there instead
};

struct pipe_options : server_options {
    std::string label;              ///< names the pipe to the service; empty: the program's
    uint64_t block = default_block; ///< bytes that go on at once at most
    uint64_t size = 0;              ///< bytes that are expected; 0: nobody knows
    bool reads = false;             ///< paced as reads
    bool is_quiet = false;          ///< shows no progress
};

/// Each returns what the program ends with.
int run_backup(const backup_options& options);
int run_restore(const restore_options& options);
int run_verify(const verify_options& options);
int run_pipe(const pipe_options& options);
int run_list(const run_options& options); ///< of the server's LSUs when `lsu` is empty

std::vector<tree_root> roots_of(const std::vector<std::string>& directories);

/// Says now and then how many entries a walk has found, and ends it as `abandoned` when the run is
/// to stop.
class entries_found {
  public:
    explicit entries_found(transfer& run) : run_(run) {}
    void add();
    void tell() const;

  private:
    transfer& run_;
    size_t count_ = 0;
};

/// Runs `job` in a thread of its own, shows its progress, ends it on SIGINT or SIGTERM, and reports
/// what it moved. `summary` is printed when it is done and returns what the program ends with.
int run_operation(const run_options& options, transfer& run, const std::function<void()>& job,
                  const std::function<int()>& summary);
