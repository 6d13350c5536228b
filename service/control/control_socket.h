// The Unix socket by which the service is asked and steered on its host. What may be read there is
// for its group, as the file's mode says; it is there as long as the service is.
#pragma once

#include "common/descriptor.h"

#include <stdexcept>
#include <string>

/// Why the socket can't be had. Names the file.
struct control_socket_error : std::runtime_error {
    using runtime_error::runtime_error;
};

class control_socket {
  public:
    /// Binds a socket of mode 0660 at `path`; its directory is made where it isn't there, the
    /// owner's and the group's. One that a service left which is gone is replaced. Throws
    /// control_socket_error where a living one answers, where something else is in its place, and
    /// when it can't be made. The mask for new files is changed for a moment.
    explicit control_socket(const std::string& path);
    /// Removes it, unless another one has taken its place.
    ~control_socket();
    control_socket(const control_socket&) = delete;
    control_socket& operator=(const control_socket&) = delete;

    int get() const { return socket_.get(); }

  private:
    const std::string path_;
    descriptor lock_; ///< held by whoever has the socket; it ends with the process
    descriptor socket_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};
