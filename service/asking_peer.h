// Who sent the request that a thread answers.
#pragma once

#include <string>

/// To be called once for each ORB, when it was started and before it takes requests.
void watch_who_asks();

/// The name (peer.h) of whoever sent the request that this thread answers; empty outside of one.
const std::string& asking_peer();
