// What the ORB may send again, and what it never does.
#pragma once

/// From now on a request that its service can't have begun goes out once more, within the time-out
/// of its call: one that found its connection closed, whose connection its service closed in good
/// order instead of an answer, or that its service sends elsewhere. What the service may have begun
/// is never sent again. Call once for each ORB, when it is started.
void send_again_only_what_was_not_begun();
