// The assertions, in a unit built as for release: what each prints, and that the process aborts.

#include "tests/common/sem_fixture.h"

#include <cerrno>
#include <csignal>

namespace {

/// The line that a failed assertion prints. Compilers differ in where they set blanks.
std::string failed(const std::string& function, const std::string& text) {
    return "\\.\\./\\.\\./common/threads_sync:[0-9]+: int " + function + ": Assertion `" + text +
           "' failed\\.";
}

const std::string lock_function = "sem_locker_lock\\(sem_locker_t ?\\*\\)";
const std::string unlock_function = "sem_locker_unlock\\(sem_locker_t ?\\*\\)";
const std::string wait_function = "sem_cond_wait\\(sem_cond_t ?\\*, sem_locker_t ?\\*\\)";
const std::string timedwait_function =
    "sem_cond_timedwait\\(sem_cond_t ?\\*, sem_locker_t ?\\*, (const )?timespec ?(const)? ?\\*\\)";

#define EXPECT_ABORT(statement, function, text)                                                    \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), failed(function, text))

/// Each test makes what it needs ahead of the process that aborts, which leaves no set behind then.
class SetAssertion : public testing::Test {
  protected:
    ~SetAssertion() override { sem_calls::clear(); }

    SemSet set;
};

TEST_F(SetAssertion, InitNeedsACountOfAtLeastOne) {
    for (const int count : {0, -1, INT32_MIN}) {
        EXPECT_ABORT(set.init(count), "SemSet::init\\(int\\)", "m_semid != -1");
    }
}

TEST_F(SetAssertion, InitNeedsASetOfTheSystem) {
    sem_calls::fail("semget private 2 666", ENOSPC);
    EXPECT_ABORT(set.init(2), "SemSet::init\\(int\\)", "m_semid != -1");
}

TEST_F(SetAssertion, DestroyNeedsEveryIdBack) {
    set.init(3);
    const SemId first = set.getSemId();
    const SemId second = set.getSemId();
    set.returnSemId(first);
    EXPECT_ABORT(set.destroy(), "SemSet::destroy\\(\\)", "i == size");
    set.returnSemId(second);
    EXPECT_EQ(set.destroy(), 0);
}

TEST_F(SetAssertion, TheDestructorNeedsEveryIdBack) {
    alignas(SemSet) unsigned char memory[sizeof(SemSet)];
    auto* const held = new (memory) SemSet;
    held->init(1);
    const SemId id = held->getSemId();
    EXPECT_ABORT(held->~SemSet(), "SemSet::destroy\\(\\)", "i == size");
    held->returnSemId(id);
    held->~SemSet();
    EXPECT_FALSE(sem_calls::exists(id.semid));
}

TEST_F(SetAssertion, DestroyNeedsTheSystemToRemoveTheSet) {
    set.init(1);
    sem_calls::fail("semctl 0 IPC_RMID", EIDRM);
    EXPECT_ABORT(set.destroy(), "SemSet::destroy\\(\\)", "ret != -1");
}

TEST_F(SetAssertion, AConditionCantLiePastTheSetsEnd) {
    set.init(2);
    set.destroy();
    set.init(1);
    sem_cond_t cond = {};
    EXPECT_ABORT(sem_cond_init(&cond, set), "sem_cond_init\\(sem_cond_t ?\\*, SemSet ?&\\)",
                 "ret != -1");
}

// --- locks and conditions ----------------------------------------------------------------------

using Assertion = semaphores;

TEST_F(Assertion, LockNeedsItsStep) {
    sem_calls::fail("semop 0 -1 undo", EIDRM);
    EXPECT_ABORT(sem_locker_lock(&lock), lock_function, "ret == 0");
}

TEST_F(Assertion, UnlockIsNotTriedAgainWhenASignalInterruptsIt) {
    sem_locker_lock(&lock);
    sem_calls::fail("semop 0 1 undo", EINTR);
    EXPECT_ABORT(sem_locker_unlock(&lock), unlock_function, "ret == 0");
    sem_calls::clear();
    sem_locker_unlock(&lock);
}

TEST_F(Assertion, ConditionInitNeedsBothValues) {
    SemSet two;
    two.init(2);
    sem_cond_t another = {};
    for (const char* call : {"semctl 0 SETVAL 1", "semctl 1 SETVAL 1"}) {
        sem_calls::fail(call, ERANGE);
        EXPECT_ABORT(sem_cond_init(&another, two), "sem_cond_init\\(sem_cond_t ?\\*, SemSet ?&\\)",
                     "ret != -1");
        sem_calls::clear();
    }
}

TEST_F(Assertion, ConditionDestroyNeedsTheSetToTakeBothIds) {
    const std::string function = "sem_cond_destroy\\(sem_cond_t ?\\*, SemSet ?&\\)";
    for (const SemId& id : {cond.state_lock.id, cond.event.id}) {
        const auto destroyed_without = [&] {
            set.returnSemId(id);
            sem_cond_destroy(&cond, set);
        };
        EXPECT_ABORT(destroyed_without(), function, "ret == 0");
    }
}

TEST_F(Assertion, SignalNeedsEachStep) {
    sem_calls::fail("semop 1 -1 undo", EINVAL);
    EXPECT_ABORT(sem_cond_signal(&cond), lock_function, "ret == 0");
    sem_calls::clear();
    sem_calls::fail("semop 2 -1 undo", EINVAL);
    EXPECT_ABORT(sem_cond_signal(&cond), unlock_function, "ret == 0");
    sem_calls::clear();
    sem_calls::fail("semop 1 1 undo", EINVAL);
    EXPECT_ABORT(sem_cond_signal(&cond), unlock_function, "ret == 0");
}

TEST_F(Assertion, SignalThatCantReadTheGateTriesToOpenItAllTheSame) {
    sem_calls::fail("semctl 2 GETVAL", EACCES);
    sem_calls::fail("semop 2 -1 undo", EACCES);
    EXPECT_ABORT(sem_cond_signal(&cond), unlock_function, "ret == 0");
}

TEST_F(Assertion, WaitNeedsEachStep) {
    const struct {
        const char* call;
        const std::string& function;
    } steps[] = {
        {"semctl 2 SETVAL 1", wait_function}, {"semop 0 1 undo", unlock_function},
        {"semop 1 -1 undo", lock_function},   {"semop 1 1 undo", unlock_function},
        {"semop 2 0 undo", lock_function},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.call);
        sem_cond_signal(&cond); // a gate that isn't closed would let the wait through
        sem_locker_lock(&lock);
        sem_calls::fail(step.call, EINVAL);
        EXPECT_ABORT(sem_cond_wait(&cond, &lock), step.function, "ret == 0");
        sem_calls::clear();
        sem_locker_unlock(&lock);
    }
}

TEST_F(Assertion, WaitNeedsItsLockBack) {
    sem_locker_lock(&lock);
    sem_calls::fail("semop 2 0 undo", 0); // as if the gate were open
    sem_calls::fail("semop 0 -1 undo", EINVAL);
    EXPECT_ABORT(sem_cond_wait(&cond, &lock), lock_function, "ret == 0");
    sem_calls::clear();
    sem_locker_unlock(&lock);
}

TEST_F(Assertion, TimedWaitNeedsEachStep) {
    const timespec interval = {5, 0};
    const struct {
        const char* call;
        const std::string& function;
    } steps[] = {
        {"semctl 2 SETVAL 1", timedwait_function},
        {"semop 0 1 undo", unlock_function},
        {"semop 1 -1 undo", lock_function},
        {"semop 1 1 undo", unlock_function},
        {"semtimedop 2 0 undo, 5.000000000 s", timedwait_function},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.call);
        sem_cond_signal(&cond); // a gate that isn't closed would let the wait through
        sem_locker_lock(&lock);
        sem_calls::fail(step.call, EAGAIN);
        EXPECT_ABORT(sem_cond_timedwait(&cond, &lock, &interval), step.function, "ret == 0");
        sem_calls::clear();
        sem_locker_unlock(&lock);
    }
}

TEST_F(Assertion, TimedWaitThatRunsOutEndsTheProcessRealWait) {
    const timespec interval = {0, 1000000};
    sem_locker_lock(&lock);
    EXPECT_ABORT(sem_cond_timedwait(&cond, &lock, &interval), timedwait_function, "ret == 0");
    sem_locker_unlock(&lock);
}

} // namespace
