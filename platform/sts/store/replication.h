// Which LSUs images of an LSU were copied from and to, kept in LSU/replication as an array of
// records in the order in which they were first met.
#pragma once

#include "platform/sts/store/store.h"
#include "platform/sts/sts_records.h"

#include <string>
#include <vector>

namespace disk {

enum class peer_role : uint64_t { source = 1, target = 2 };

struct replication_peers {
    std::vector<sts_replication_peer_s> sources;
    std::vector<sts_replication_peer_s> targets;
};

replication_peers read_peers(int lsu);

/// Adds another LSU as a peer unless it is one; EFBIG's status when there are ten thousand.
void add_peer(const lsu_place& place, peer_role role, const lsu_place& peer);

/// Copies the peers into an array of `room` records and clears the rest of it.
void fill_peers(const std::vector<sts_replication_peer_s>& peers, uint32_t room, void* array);

} // namespace disk
