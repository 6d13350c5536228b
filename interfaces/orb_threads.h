// The threads that the ORB of this process makes, which end some time after the ORB itself.
#pragma once

/// From now on the threads that the ORB makes are known. Call once for each ORB, when it is started.
void watch_orb_threads();

/// Waits, a second at most, until they are gone. To be called once the ORB is destroyed, which doesn't
/// wait for them altogether: what its library does at the end of a thread is no good beside what it does at
/// the end of the process.
void await_orb_threads();
