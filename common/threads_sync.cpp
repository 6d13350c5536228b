// Semaphores of one set as locks and condition variables.
//
// A lock's semaphore is 1 when free. A condition's gate is 1 when closed: its waiters wait for 0,
// and one -1 lets all of them through. The gate is closed by each wait on entry and not by the
// signal.
//
//   wait     signaled = 0, close the gate, release the caller's lock,
//            under state_lock: has a signal come?   no: sleep at the gate
//            take the caller's lock
//   signal   under state_lock: signaled = 1, open the gate unless it is open

#include "common/threads_sync.h"

// The assertions of this file hold in release builds too.
#undef NDEBUG
#include <cassert>
#include <cerrno>
#include <unistd.h>

/// As assert, under the path that this unit has in the product.
#define ALWAYS_ASSERT(condition)                                                                   \
    ((condition) ? static_cast<void>(0)                                                            \
                 : __assert_fail(#condition, "../../common/threads_sync", __LINE__,                \
                                 static_cast<const char*>(__PRETTY_FUNCTION__)))

namespace {

/// semctl's fourth argument, which its callers declare.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

int set_value(const SemId& id, int value) {
    semun argument = {};
    argument.val = value;
    return semctl(id.semid, id.semnum, SETVAL, argument);
}

/// The lock or gate on `id` with the two steps that its words take.
sem_locker_t prepared(const SemId& id, short unlock, short lock) {
    const auto number = static_cast<unsigned short>(id.semnum);
    return {{number, unlock, SEM_UNDO}, {number, lock, SEM_UNDO}, id};
}

sem_locker_t lock_on(const SemId& id) { return prepared(id, 1, -1); }

sem_locker_t gate_on(const SemId& id) { return prepared(id, -1, 0); }

bool is_none(const SemId& id) { return id.semid == -1 && id.semnum == -1; }

// `signaled` is written by waiters under a lock that signallers needn't hold. The semaphores order
// what matters; the access itself has to be atomic.

void set_signaled(sem_cond_t* cond, int32_t signaled) {
    __atomic_store_n(&cond->signaled, signaled, __ATOMIC_SEQ_CST);
}

bool is_signaled(const sem_cond_t* cond) {
    return __atomic_load_n(&cond->signaled, __ATOMIC_SEQ_CST) != 0;
}

/// A wait's entry: forgets signals that came before it. 0, or semctl's failure.
int close_gate(sem_cond_t* cond) {
    set_signaled(cond, 0);
    return set_value(cond->event.id, 1);
}

/// Releases the caller's lock and tells whether a signal has come since the gate was closed.
bool signaled_after_release(sem_cond_t* cond, sem_locker_t* lock) {
    sem_locker_unlock(lock);
    sem_locker_lock(&cond->state_lock);
    const bool signaled = is_signaled(cond);
    sem_locker_unlock(&cond->state_lock);
    return signaled;
}

} // namespace

// --- the set -----------------------------------------------------------------------------------

SemSet::SemSet() = default;

SemSet::~SemSet() { destroy(); }

int SemSet::init(int count) {
    if (m_semid != -1 && !m_used.empty()) {
        return 0;
    }
    if (count > 0) {
        m_used.reserve(m_used.size() + static_cast<size_t>(count)); // or a set could be left behind
    }
    m_semid = semget(IPC_PRIVATE, count, 0666);
    ALWAYS_ASSERT(m_semid != -1);
    m_used.insert(m_used.end(), static_cast<size_t>(count), false);
    return 0;
}

SemId SemSet::getSemId() {
    if (m_semid == -1) {
        return {-1, -1};
    }
    for (size_t i = 0; i < m_used.size(); ++i) {
        if (!m_used[i]) {
            m_used[i] = true;
            return {m_semid, static_cast<int32_t>(i)};
        }
    }
    return {-1, -1};
}

bool SemSet::returnSemId(const SemId& id) {
    if (m_semid == -1 || id.semid != m_semid || id.semnum < 0) {
        return false;
    }
    const auto index = static_cast<size_t>(id.semnum);
    if (index >= m_used.size() || !m_used[index]) {
        return false;
    }
    m_used[index] = false;
    return true;
}

int SemSet::destroy() {
    if (m_semid == -1 || m_used.empty()) {
        return 0;
    }
    const size_t size = m_used.size();
    size_t i = 0;
    while (i < size && !m_used[i]) {
        ++i;
    }
    ALWAYS_ASSERT(i == size);
    const int ret = semctl(m_semid, 0, IPC_RMID);
    ALWAYS_ASSERT(ret != -1);
    m_semid = -1;
    return 0;
}

// --- the lock ----------------------------------------------------------------------------------

int sem_locker_init(sem_locker_t* locker, SemSet& set) {
    const SemId id = set.getSemId();
    if (locker == nullptr || id.semid == -1 || id.semnum == -1) {
        return -1;
    }
    if (set_value(id, 1) == -1) {
        set.returnSemId(id);
        return -1;
    }
    *locker = lock_on(id);
    return 0;
}

int sem_locker_destroy(sem_locker_t* locker, SemSet& set) {
    return locker != nullptr && set.returnSemId(locker->id) ? 0 : -1;
}

int sem_locker_lock(sem_locker_t* locker) {
    if (locker == nullptr) {
        return -1;
    }
    int ret = 0;
    do {
        ret = semop(locker->id.semid, &locker->lock_op, 1);
    } while (ret != 0 && errno == EINTR);
    ALWAYS_ASSERT(ret == 0);
    return 0;
}

int sem_locker_unlock(sem_locker_t* locker) {
    if (locker == nullptr) {
        return -1;
    }
    const int ret = semop(locker->id.semid, &locker->unlock_op, 1);
    ALWAYS_ASSERT(ret == 0);
    return 0;
}

// --- the condition -----------------------------------------------------------------------------

int sem_cond_init(sem_cond_t* cond, SemSet& set) {
    if (cond == nullptr) {
        return -1;
    }
    const SemId first = set.getSemId();
    if (is_none(first)) {
        return -1;
    }
    const SemId second = set.getSemId();
    if (is_none(second)) {
        set.returnSemId(first);
        return -1;
    }
    int ret = set_value(first, 1);
    ALWAYS_ASSERT(ret != -1);
    ret = set_value(second, 1);
    ALWAYS_ASSERT(ret != -1);
    cond->state_lock = lock_on(first);
    cond->event = gate_on(second);
    cond->signaled = 0;
    return 0;
}

int sem_cond_destroy(sem_cond_t* cond, SemSet& set) {
    if (cond == nullptr) {
        return -1;
    }
    int ret = set.returnSemId(cond->state_lock.id) ? 0 : -1;
    ALWAYS_ASSERT(ret == 0);
    ret = set.returnSemId(cond->event.id) ? 0 : -1;
    ALWAYS_ASSERT(ret == 0);
    return 0;
}

int sem_cond_wait(sem_cond_t* cond, sem_locker_t* lock) {
    if (cond == nullptr || lock == nullptr) {
        return -1;
    }
    const int ret = close_gate(cond);
    ALWAYS_ASSERT(ret == 0);
    if (!signaled_after_release(cond, lock)) {
        sem_locker_lock(&cond->event);
    }
    return sem_locker_lock(lock);
}

int sem_cond_timedwait(sem_cond_t* cond, sem_locker_t* lock, const timespec* timeout) {
    if (cond == nullptr || lock == nullptr) {
        return -1;
    }
    int ret = close_gate(cond);
    ALWAYS_ASSERT(ret == 0);
    if (!signaled_after_release(cond, lock)) {
        do {
            ret = semtimedop(cond->event.id.semid, &cond->event.lock_op, 1, timeout);
        } while (ret != 0 && errno == EINTR);
        ALWAYS_ASSERT(ret == 0);
    }
    return sem_locker_lock(lock);
}

int sem_cond_signal(sem_cond_t* cond) {
    if (cond == nullptr) {
        return -1;
    }
    sem_locker_lock(&cond->state_lock);
    set_signaled(cond, 1);
    // Only a closed gate: at an open one the step would block, with state_lock held.
    if (semctl(cond->event.id.semid, cond->event.id.semnum, GETVAL) != 0) {
        sem_locker_unlock(&cond->event);
    }
    return sem_locker_unlock(&cond->state_lock);
}

// --- the sleep ---------------------------------------------------------------------------------

void sleepMilliSec(int milliseconds) { usleep(static_cast<useconds_t>(milliseconds) * 1000U); }
