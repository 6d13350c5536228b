// An open server, and the LSUs that its callers name.
#pragma once

#include "platform/sts/caller/handles.h"
#include "platform/sts/store/store.h"

#include <memory>
#include <utility>

namespace disk {

struct server : object {
    static constexpr handle_kind kind = handle_kind::server;
    server(const sts_session_def_v7_t& owner, std::shared_ptr<store> opened)
        : session(owner), files(std::move(opened)) {}
    closing close(int32_t mode) override;

    sts_session_def_v7_t session;
    std::shared_ptr<store> files;
};

/// The LSU that a caller's record names.
lsu_place open_lsu(const sts_lsu_ref_s* lsu);

} // namespace disk
