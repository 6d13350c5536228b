// The semaphore calls of the C library as tests see them: kept in order as texts, made to fail,
// followed by an action, and watched for sets that nobody removed. Linking this in replaces semget,
// semctl, semop, semtimedop and usleep for the whole program; usleep never sleeps.
//
//   "semget private 3 666"    count, permissions
//   "semctl 1 SETVAL 1"       index, command and value; also GETVAL and IPC_RMID, without a value
//   "semop 0 -1 undo"         index, step, flag
//   "semtimedop 2 0 undo, 5.000000000 s", "semtimedop 2 0 undo, no limit"
//   "usleep 1000"             microseconds
#pragma once

#include "common/threads_sync.h"

#include <functional>
#include <string>
#include <vector>

namespace sem_calls {

/// Every call of this process since the last take, of all its threads.
std::vector<std::string> take();

/// The next `times` calls of that text fail with `error` in errno and do nothing; 0: they pass
/// without doing anything.
void fail(const std::string& call, int error, int times = 1);

/// Runs `action` once, after the next call of that text.
void after(const std::string& call, std::function<void()> action);

/// No failures, no actions, nothing kept.
void clear();

/// Calls that a signal really interrupted, in this process and those forked from it.
int interruptions();

/// A semaphore's value, how many wait to take it, and how many wait for it to be 0.
int value(const SemId& id);
int takers(const SemId& id);
int waiters(const SemId& id);

/// Whether the system has the set.
bool exists(int set);
/// Removes a set that a test means to leave behind.
void remove(int set);

} // namespace sem_calls

/// Waits in real time until `reached` holds. False after a minute without.
bool comes_true(const std::function<bool()>& reached);
