// LSUs on disk: making, removing and labelling them.

#include "platform/sts/store/lsu_files.h"

#include "platform/sts/caller/failure.h"
#include "platform/sts/store/image_files.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace disk {

namespace {

constexpr const char* work_name = ".new";
constexpr const char* label_name = "label";

// All that we put into an LSU's directory; those that have to be empty first.
constexpr const char* lsu_directories[] = {"new", "images"};
constexpr const char* lsu_files[] = {"label", "label.new", "replication", "replication.new"};

template <size_t count>
bool is_one_of(const char* const (&names)[count], const std::string& name) {
    return std::find(names, names + count, name) != names + count;
}

bool is_ours(int lsu, const std::string& name) {
    return is_directory(lsu, name) ? is_one_of(lsu_directories, name) : is_one_of(lsu_files, name);
}

/// Fails with ENOTEMPTY's status when the LSU holds anything that isn't ours to remove.
void require_empty(int lsu) {
    const std::vector<std::string> names = names_in(lsu);
    const auto is_own = [&](const std::string& name) { return is_ours(lsu, name); };
    if (!std::all_of(names.begin(), names.end(), is_own) || !image_names(lsu).empty()) {
        fail_errno(ENOTEMPTY);
    }
}

/// Removes an LSU that has left its place, or never took it; what can't be removed stays.
void remove_files(int work, const std::string& id) noexcept {
    (void)status_of([&] {
        const unique_fd lsu = open_directory(work, id);
        for (const char* const each : lsu_directories) {
            (void)unlinkat(lsu.get(), each, AT_REMOVEDIR);
        }
        for (const char* const each : lsu_files) {
            (void)unlinkat(lsu.get(), each, 0);
        }
    });
    (void)unlinkat(work, id.c_str(), AT_REMOVEDIR);
}

/// Where LSUs are made and removed. Whoever does so shares its lock until it has come to an end.
class workplace {
  public:
    explicit workplace(const store& files)
        : directory_(make_directory(files.directory.get(), work_name)),
          lock_(directory_.get(), directory_lock::kind::shared, files.waiter) {}
    int directory() const { return directory_.get(); }

  private:
    unique_fd directory_;
    directory_lock lock_;
};

} // namespace

void make_lsu(const store& files, const std::string& name, const std::string& label) {
    const int root = files.directory.get();
    const workplace work(files);
    const std::string id = unused_name();
    make_new_directory(work.directory(), id);
    const int status = status_of([&] {
        if (!label.empty()) {
            replace_file(open_directory(work.directory(), id).get(), label_name, label,
                         durability::synced);
        }
        checked(renameat2(work.directory(), id.c_str(), root, name.c_str(), RENAME_NOREPLACE));
        sync_file(root);
    });
    if (status != STS_OK) {
        remove_files(work.directory(), id);
        fail(status);
    }
}

void remove_lsu(const lsu_place& place) {
    const int root = place.files->directory.get();
    const int lsu = place.directory.get();
    // Nobody begins an image meanwhile; one that was begun keeps its draft in the LSU.
    const directory_lock lock(lsu, directory_lock::kind::exclusive, place.files->waiter);
    require_in_place(*place.files, place.name, lsu); // another may have been quicker
    require_empty(lsu);
    remove_abandoned_drafts(lsu);
    for (const char* const each : lsu_directories) { // an LSU is whole without them
        if (unlinkat(lsu, each, AT_REMOVEDIR) != 0 && errno != ENOENT) {
            fail_errno(errno);
        }
    }
    const workplace work(*place.files);
    const std::string id = unused_name();
    checked(renameat(root, place.name.c_str(), work.directory(), id.c_str()));
    remove_files(work.directory(), id);
    sync_file(root);
}

void remove_abandoned_lsus(const store& files) {
    const int root = files.directory.get();
    if (!is_directory(root, work_name)) {
        return;
    }
    const unique_fd work = open_directory(root, work_name);
    const auto lock = directory_lock::try_exclusive(work.get());
    if (!lock) {
        return; // somebody is at work there
    }
    for (const std::string& each : names_in(work.get())) {
        remove_files(work.get(), each);
    }
}

std::string label_of(int lsu) { return read_file(lsu, label_name, STS_NAME_SIZE - 1).value_or(""); }

void set_label(const lsu_place& place, const std::string& label) {
    const int lsu = place.directory.get();
    const directory_lock lock(lsu, directory_lock::kind::exclusive, place.files->waiter);
    replace_file(lsu, label_name, label, durability::synced);
}

} // namespace disk
