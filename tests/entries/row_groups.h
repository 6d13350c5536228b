// The groups that make up the table of rows, and the words that they share.
#pragma once

#include "tests/entries/rows.h"

std::vector<row> layer_rows();
std::vector<row> server_rows();
std::vector<row> image_rows();
std::vector<row> throttled_image_rows();
std::vector<row> forwarded_rows();
std::vector<row> list_rows();
std::vector<row> lsu_and_async_rows();
std::vector<row> config_rows();
std::vector<row> channel_rows();

inline const std::string lsu = "{server' \"lsu1\"}";

/// A call that takes an LSU first.
inline std::string on_lsu(const std::string& slot, const std::string& others) {
    return slot + "(" + lsu + others + ")";
}

inline const lines enter = {"3 enter."};
inline const lines leave = {"3 leave."};
inline const std::string failed_next =
    "4 fail to call the next plugin in the stack, error code = %d";

/// Blocks that a server keeps while it is connected to the service: the session's text, the client,
/// the ORB of the first one, the storage of its settings.
constexpr int connected = 4;

/// What a row says of a claim that fails.
inline const std::string unclaimed = "4 fail to check connections from service.";

inline lines operator+(lines first, const lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}
