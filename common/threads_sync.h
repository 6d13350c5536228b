// A mutex and a condition variable made of System V semaphores, the allocator that hands out single
// semaphores of one set, and a sleep in milliseconds.
//
//   SemSet::init                            one set in the kernel
//     sem_locker_init, sem_cond_init        take semaphores of it
//       lock, unlock, wait, signal          need the objects alone, in any thread or process
//     sem_locker_destroy, sem_cond_destroy  give them back
//   SemSet::destroy                         the set is gone
//
// Locks and conditions hold numbers only, so a byte copy of a lock is the same lock in every
// process that may use the set; a condition holds a flag too and is shared memory's to carry. Every
// change of a semaphore is undone by the kernel when its process dies: a dead holder's lock is free
// again.
//
// What should never fail is asserted, in every build: the process prints what didn't hold and
// aborts. -1 comes back only where it says so below.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/sem.h>
#include <type_traits>
#include <vector>

#pragma GCC visibility push(default)

/// One semaphore; (-1, -1) is none.
struct SemId {
    int32_t semid;  ///< the set, as semget returned it
    int32_t semnum; ///< index in the set
};

/// One set of semaphores and the record of which are taken. Used by one thread at a time.
class SemSet {
  public:
    /// No set yet.
    SemSet();
    SemSet(const SemSet&) = delete;
    SemSet& operator=(const SemSet&) = delete;

    /// As destroy.
    ~SemSet();

    /// Makes a set of `count` semaphores that every process may use. With a set already there it
    /// does nothing, whatever the count. Always 0; asserts that the system gives the set.
    int init(int count);

    /// Takes the lowest free semaphore; (-1, -1) when there is none, or no set.
    SemId getSemId();

    /// Gives a semaphore back. False, and nothing changes, when it isn't one of this set's that is
    /// taken.
    bool returnSemId(const SemId& id);

    /// Removes the set from the system. Always 0; asserts that no semaphore is taken and that the
    /// system removes it. The record of indexes stays, and a later init appends to it.
    int destroy();

  private:
    std::vector<bool> m_used; ///< by index: handed out
    int32_t m_semid = -1;     ///< -1 while there is no set
};

/// A lock.
struct sem_locker_t {
    struct sembuf unlock_op;
    struct sembuf lock_op;
    SemId id;
};

/// A condition variable. All who use one share its memory.
struct sem_cond_t {
    int32_t signaled;        ///< 0 while waiters may block, 1 once a signal has come
    sem_locker_t state_lock; ///< guards the test of `signaled` against a signal
    sem_locker_t event; ///< the gate that waiters sleep on: 1 is closed, 0 lets everyone through
};

/// Takes a semaphore and prepares the lock, unlocked. 0; -1: the set has none left, the system
/// refuses its first value (the semaphore is given back), or `locker` is null, which costs the set
/// a semaphore.
int sem_locker_init(sem_locker_t* locker, SemSet& set);

/// Gives the semaphore back. 0; -1: `locker` is null or the set refuses it.
int sem_locker_destroy(sem_locker_t* locker, SemSet& set);

/// Blocks until the lock is held, through signals. 0, or -1 when `locker` is null.
int sem_locker_lock(sem_locker_t* locker);

/// Releases the lock. 0, or -1 when `locker` is null.
int sem_locker_unlock(sem_locker_t* locker);

/// Takes two semaphores and prepares the condition. 0; -1: `cond` is null or the set has less than
/// two left, and then none is taken.
int sem_cond_init(sem_cond_t* cond, SemSet& set);

/// Gives both semaphores back, and asserts that the set takes them. 0, or -1 when `cond` is null.
int sem_cond_destroy(sem_cond_t* cond, SemSet& set);

/// Releases the lock, which the caller holds, sleeps until a signal comes, and takes the lock
/// again. A signal sent before the call is lost, and another waiter's call may outlast one: test
/// what is waited for in a loop. 0, or -1 when one of the two is null.
int sem_cond_wait(sem_cond_t* cond, sem_locker_t* lock);

/// As sem_cond_wait, with an interval that the sleep may last; a signal to the process starts it
/// anew. Null: no limit. An interval that runs out is an assertion that fails: the process aborts.
int sem_cond_timedwait(sem_cond_t* cond, sem_locker_t* lock, const timespec* timeout);

/// Wakes every waiter, with or without the waiters' lock held. 0, or -1 when `cond` is null.
int sem_cond_signal(sem_cond_t* cond);

/// Blocks the calling thread. The microseconds are kept in 32 bits and wrap: 4294968 ms sleep 0.7.
void sleepMilliSec(int milliseconds);

#pragma GCC visibility pop

// Other processes hold copies of these.
static_assert(sizeof(SemId) == 8);
static_assert(sizeof(struct sembuf) == 6);
static_assert(offsetof(sem_locker_t, unlock_op) == 0);
static_assert(offsetof(sem_locker_t, lock_op) == 6);
static_assert(offsetof(sem_locker_t, id) == 12);
static_assert(sizeof(sem_locker_t) == 20);
static_assert(offsetof(sem_cond_t, signaled) == 0);
static_assert(offsetof(sem_cond_t, state_lock) == 4);
static_assert(offsetof(sem_cond_t, event) == 24);
static_assert(sizeof(sem_cond_t) == 44);
static_assert(std::is_trivially_copyable_v<sem_cond_t>);
