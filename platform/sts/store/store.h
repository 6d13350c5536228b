// A store: the directory tree behind one server name.
//
//   ROOT/.server/          the server's own: settings (settings.h), events (events/log.h)
//   ROOT/LSU/images/IMAGE/ the images (image_files.h)
//   ROOT/LSU/new/          images that are being written
//   ROOT/LSU/label         (lsu_files.h)
//   ROOT/LSU/replication   (replication.h)
//   ROOT/.new/             LSUs that are being made or removed (lsu_files.h)
//
// Any directory in ROOT is an LSU, also one that an operator made; what is below it is made when it
// is needed. Several processes may work on one store at a time.
#pragma once

#include "platform/sts/store/files.h"
#include "platform/sts/store/locks.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace disk {

struct store {
    std::string server_name; ///< as it was given
    unique_fd directory;
    lock_waiter waiter;               ///< whom waits for its locks are for
    std::atomic<int> open_handles{0}; ///< images and lists
};

/// Keeps a store's count of open handles up for as long as it lives.
class counted_store {
  public:
    explicit counted_store(std::shared_ptr<store> counted) : counted_(std::move(counted)) {
        ++counted_->open_handles;
    }
    counted_store(const counted_store&) = delete;
    counted_store& operator=(const counted_store&) = delete;
    ~counted_store() { --counted_->open_handles; }

    const std::shared_ptr<store>& shared() const { return counted_; }
    store* operator->() const { return counted_.get(); }
    store& operator*() const { return *counted_; }

  private:
    std::shared_ptr<store> counted_;
};

/// An LSU that is there.
struct lsu_place {
    std::shared_ptr<store> files;
    std::string name;
    unique_fd directory;
};

enum class missing_root { fails, is_made };

/// Whether a server of that name is ours: all other names are for plugins (plugins/manager.h).
bool is_disk_name(const char* server_name);

/// The store behind a server name; STS_ERR_NOT_CLAIMED for a name that isn't ours.
std::shared_ptr<store> open_store(const char* server_name, missing_root treatment,
                                  const lock_waiter& waiter);
/// The same store for another waiter.
std::shared_ptr<store> open_store(const store& files, const lock_waiter& waiter);

/// Whether an LSU may have that name.
bool is_lsu_name(const std::string& name);
std::vector<std::string> lsu_names(const store& files);
/// The directories of the store that hold data and that others than the owner can get into, through
/// the root, and then read or look through; with the mode of each.
std::vector<std::string> names_open_to_others(const store& files);
/// Fails with ENOENT's status where there is none.
lsu_place open_lsu(std::shared_ptr<store> files, std::string name);

/// Fails with ENOENT's status unless the LSU is still where it was opened. One that is about to be
/// deleted can be opened; nothing may be made in it then.
void require_in_place(const store& files, const std::string& name, int lsu);

/// The server's own directory, made where there is none; `find` gives nothing instead.
unique_fd make_control_directory(const store& files);
unique_fd find_control_directory(const store& files);

/// Capacity and free bytes of the file system.
struct space {
    uint64_t capacity;
    uint64_t free;
};
space space_of(int directory);

} // namespace disk
