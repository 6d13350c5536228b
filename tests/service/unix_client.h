// A client of HTTP on a Unix socket that may send what it likes, as any user.
#pragma once

#include <string>
#include <sys/types.h>

/// Sends `request` to the socket at `path` and reads until its end. What was read; where it can't
/// connect, "errno " and the number.
std::string answer_at(const std::string& path, const std::string& request);

/// The same as another user and group, for which we have to be root.
std::string answer_to_user(uid_t user, gid_t group, const std::string& path,
                           const std::string& request);

std::string get_request(const std::string& page);
std::string post_request(const std::string& page, const std::string& body);
