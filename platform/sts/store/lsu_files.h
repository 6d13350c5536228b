// An LSU on disk: a directory of the root with its images (image_files.h), its label and its peers
// (replication.h).
//
// It is made in ROOT/.new and takes its place by one rename; by another it goes back there when it
// is deleted. So a process killed at any moment leaves a whole LSU or none. What it left in
// ROOT/.new is removed when a server is opened next.
#pragma once

#include "platform/sts/store/store.h"

#include <string>

namespace disk {

/// EEXIST's status where there is one of that name.
void make_lsu(const store& files, const std::string& name, const std::string& label);

/// ENOTEMPTY's status when the LSU holds an image, also one that is being written, or anything that
/// isn't ours to remove.
void remove_lsu(const lsu_place& place);

/// Removes what was left behind while LSUs were made or removed.
void remove_abandoned_lsus(const store& files);

/// Empty where there is none; EBADMSG's status for one that is too long to be ours.
std::string label_of(int lsu);
void set_label(const lsu_place& place, const std::string& label);

} // namespace disk
