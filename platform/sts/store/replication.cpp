// The replication peers of an LSU.

#include "platform/sts/store/replication.h"

#include "platform/sts/caller/failure.h"

#include <algorithm>
#include <cstring>

namespace disk {

namespace {

constexpr const char* peers_name = "replication";
constexpr size_t most_peers = 10000;

struct kept_peer {
    peer_role role;
    sts_replication_peer_s peer;
};

std::vector<kept_peer> read_kept(int lsu) {
    const std::string content =
        read_file(lsu, peers_name, most_peers * sizeof(kept_peer)).value_or("");
    if (content.size() % sizeof(kept_peer) != 0) {
        fail_errno(EBADMSG);
    }
    std::vector<kept_peer> kept(content.size() / sizeof(kept_peer));
    if (!kept.empty()) {
        memcpy(kept.data(), content.data(), content.size());
    }
    for (const kept_peer& each : kept) {
        const bool has_role = each.role == peer_role::source || each.role == peer_role::target;
        if (!has_role || !is_terminated(each.peer.server_name) || !is_terminated(each.peer.lsu)) {
            fail_errno(EBADMSG);
        }
    }
    return kept;
}

} // namespace

replication_peers read_peers(int lsu) {
    replication_peers peers;
    for (const kept_peer& each : read_kept(lsu)) {
        (each.role == peer_role::source ? peers.sources : peers.targets).push_back(each.peer);
    }
    return peers;
}

void add_peer(const lsu_place& place, peer_role role, const lsu_place& peer) {
    const int lsu = place.directory.get();
    kept_peer added = {};
    added.role = role;
    fill(added.peer.server_name, peer.files->server_name);
    fill(added.peer.lsu, peer.name);
    const directory_lock lock(lsu, directory_lock::kind::exclusive, place.files->waiter);
    std::vector<kept_peer> kept = read_kept(lsu);
    const bool known = std::any_of(kept.begin(), kept.end(), [&](const kept_peer& each) {
        return memcmp(&each, &added, sizeof added) == 0;
    });
    if (!known) {
        if (kept.size() == most_peers) {
            fail_errno(EFBIG);
        }
        kept.push_back(added);
        replace_file(lsu, peers_name,
                     {reinterpret_cast<const char*>(kept.data()), kept.size() * sizeof added},
                     durability::synced);
    }
}

void fill_peers(const std::vector<sts_replication_peer_s>& peers, uint32_t room, void* array) {
    auto* const out = static_cast<sts_replication_peer_s*>(array);
    std::copy(peers.begin(), peers.end(), out);
    std::fill(out + peers.size(), out + room, sts_replication_peer_s{});
}

} // namespace disk
