// One name, one backup: whoever makes a backup claims its name before anything else is made. The
// claim is an image of that name with ".lock" behind it, whose place the storage gives to one
// alone; its metadata say whose it is. A backup that was killed leaves it behind, and deleting that
// image frees the name.
#pragma once

#include "tools/host/plugin_host.h"

#include <string>

class backup_claim {
  public:
    /// Fails, with who has it, when the name is claimed. The server outlives the claim; its
    /// connections aren't used up by it.
    backup_claim(const plugin_host& host, const host_server& server, std::string lsu,
                 const std::string& backup);
    ~backup_claim() { release(); }
    backup_claim(const backup_claim&) = delete;
    backup_claim& operator=(const backup_claim&) = delete;

    void release();

  private:
    const host_server& server_;
    const std::string lsu_;
    const std::string image_;
    bool is_held_ = false;
};
