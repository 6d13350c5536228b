// Conditions: what they are made of, and the order of the calls in each operation. A signal is sent
// from behind one of the waiter's own calls, so that no test here ever sleeps.

#include "tests/common/sem_fixture.h"

#include <cerrno>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Condition : public semaphores {
  protected:
    /// Sends a signal when the waiter has made that call, and forgets the calls up to then.
    void signal_after(const std::string& call) {
        sem_calls::after(call, [this] {
            sem_calls::take();
            EXPECT_EQ(sem_cond_signal(&cond), 0);
            sem_calls::take();
        });
    }
};

void expect_words(const sem_locker_t& locker, unsigned short number, short unlock, short lock) {
    EXPECT_EQ(locker.unlock_op.sem_num, number);
    EXPECT_EQ(locker.unlock_op.sem_op, unlock);
    EXPECT_EQ(locker.unlock_op.sem_flg, 0x1000);
    EXPECT_EQ(locker.lock_op.sem_num, number);
    EXPECT_EQ(locker.lock_op.sem_op, lock);
    EXPECT_EQ(locker.lock_op.sem_flg, 0x1000);
    EXPECT_EQ(locker.id.semnum, number);
}

TEST_F(Condition, InitTakesTwoSemaphoresALockAndAClosedGate) {
    SemSet two;
    two.init(2);
    sem_cond_t another = {};
    another.signaled = 7;
    sem_calls::take();
    EXPECT_EQ(sem_cond_init(&another, two), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semctl 0 SETVAL 1", "semctl 1 SETVAL 1"));
    EXPECT_EQ(another.signaled, 0);
    expect_words(another.state_lock, 0, 1, -1);
    expect_words(another.event, 1, -1, 0);
    EXPECT_EQ(another.event.id.semid, another.state_lock.id.semid);
    EXPECT_EQ(sem_calls::value(another.state_lock.id), 1);
    EXPECT_EQ(sem_calls::value(another.event.id), 1);
    EXPECT_EQ(two.getSemId().semnum, -1);
    EXPECT_EQ(sem_cond_destroy(&another, two), 0);
}

TEST_F(Condition, InitWithASingleFreeSemaphoreGivesItBack) {
    sem_cond_t another = {};
    EXPECT_EQ(sem_cond_init(&another, set), -1);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(set.getSemId().semnum, 3);
    EXPECT_EQ(sem_cond_init(&another, set), -1); // none left at all
    set.returnSemId({lock.id.semid, 3});
}

TEST_F(Condition, DestroyGivesBothSemaphoresBack) {
    SemSet two;
    two.init(2);
    sem_cond_t another = {};
    sem_cond_init(&another, two);
    sem_calls::take();
    EXPECT_EQ(sem_cond_destroy(&another, two), 0);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(two.getSemId().semnum, 0);
    EXPECT_EQ(two.getSemId().semnum, 1);
    two.returnSemId(another.state_lock.id);
    two.returnSemId(another.event.id);
}

TEST_F(Condition, NullIsRefused) {
    const timespec second = {1, 0};
    EXPECT_EQ(sem_cond_init(nullptr, set), -1);
    EXPECT_EQ(set.getSemId().semnum, 3); // and takes no semaphore
    set.returnSemId({lock.id.semid, 3});
    EXPECT_EQ(sem_cond_destroy(nullptr, set), -1);
    EXPECT_EQ(sem_cond_wait(nullptr, &lock), -1);
    EXPECT_EQ(sem_cond_wait(&cond, nullptr), -1);
    EXPECT_EQ(sem_cond_timedwait(nullptr, &lock, &second), -1);
    EXPECT_EQ(sem_cond_timedwait(&cond, nullptr, &second), -1);
    EXPECT_EQ(sem_cond_signal(nullptr), -1);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
}

TEST_F(Condition, SignalOpensAClosedGateUnderTheStateLock) {
    EXPECT_EQ(sem_cond_signal(&cond), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semop 1 -1 undo", "semctl 2 GETVAL",
                                               "semop 2 -1 undo", "semop 1 1 undo"));
    EXPECT_EQ(cond.signaled, 1);
    EXPECT_EQ(sem_calls::value(cond.event.id), 0);
    EXPECT_EQ(sem_calls::value(cond.state_lock.id), 1);
}

TEST_F(Condition, SignalLeavesAnOpenGateAlone) {
    sem_cond_signal(&cond);
    sem_calls::take();
    EXPECT_EQ(sem_cond_signal(&cond), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semop 1 -1 undo", "semctl 2 GETVAL", "semop 1 1 undo"));
    EXPECT_EQ(cond.signaled, 1);
    EXPECT_EQ(sem_calls::value(cond.event.id), 0);
}

TEST_F(Condition, SignalSetsItsFlagOnceItHoldsTheStateLock) {
    int before = -1;
    sem_calls::after("semop 1 -1 undo", [&] { before = cond.signaled; });
    int at_the_gate = -1;
    sem_calls::after("semctl 2 GETVAL", [&] { at_the_gate = cond.signaled; });
    sem_cond_signal(&cond);
    EXPECT_EQ(before, 0);
    EXPECT_EQ(at_the_gate, 1);
}

TEST_F(Condition, WaitClosesTheGateReleasesLooksSleepsAndTakesTheLockAgain) {
    sem_locker_lock(&lock);
    sem_calls::take();
    sem_calls::after("semop 1 1 undo", [this] {
        EXPECT_THAT(sem_calls::take(), ElementsAre("semctl 2 SETVAL 1", "semop 0 1 undo",
                                                   "semop 1 -1 undo", "semop 1 1 undo"));
        EXPECT_EQ(sem_calls::value(lock.id), 1);
        EXPECT_EQ(sem_calls::value(cond.state_lock.id), 1);
        sem_cond_signal(&cond);
        sem_calls::take();
    });
    EXPECT_EQ(sem_cond_wait(&cond, &lock), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semop 2 0 undo", "semop 0 -1 undo"));
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    EXPECT_EQ(sem_calls::value(cond.event.id), 0); // open until the next wait
    sem_locker_unlock(&lock);
}

TEST_F(Condition, TimedWaitTakesTheSameStepsWithItsIntervalAtTheGate) {
    sem_locker_lock(&lock);
    const timespec interval = {5, 250};
    sem_calls::take();
    sem_calls::after("semop 1 1 undo", [this] {
        EXPECT_THAT(sem_calls::take(), ElementsAre("semctl 2 SETVAL 1", "semop 0 1 undo",
                                                   "semop 1 -1 undo", "semop 1 1 undo"));
        sem_cond_signal(&cond);
        sem_calls::take();
    });
    EXPECT_EQ(sem_cond_timedwait(&cond, &lock, &interval), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semtimedop 2 0 undo, 5.000000250 s", "semop 0 -1 undo"));
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    sem_locker_unlock(&lock);
}

TEST_F(Condition, TimedWaitWithoutAnIntervalHasNoLimit) {
    sem_locker_lock(&lock);
    signal_after("semop 1 1 undo");
    EXPECT_EQ(sem_cond_timedwait(&cond, &lock, nullptr), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semtimedop 2 0 undo, no limit", "semop 0 -1 undo"));
    sem_locker_unlock(&lock);
}

TEST_F(Condition, ASignalBeforeTheWaitIsForgottenByIt) {
    sem_cond_signal(&cond);
    EXPECT_EQ(cond.signaled, 1);
    EXPECT_EQ(sem_calls::value(cond.event.id), 0);
    sem_locker_lock(&lock);
    sem_calls::take();
    sem_calls::after("semctl 2 SETVAL 1", [this] {
        EXPECT_EQ(cond.signaled, 0);
        EXPECT_EQ(sem_calls::value(cond.event.id), 1);
        EXPECT_EQ(sem_calls::value(lock.id), 0); // still held
    });
    sem_calls::after("semop 1 1 undo", [this] { sem_cond_signal(&cond); });
    EXPECT_EQ(sem_cond_wait(&cond, &lock), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semctl 2 SETVAL 1", "semop 0 1 undo", "semop 1 -1 undo",
                            "semop 1 1 undo", "semop 1 -1 undo", "semctl 2 GETVAL",
                            "semop 2 -1 undo", "semop 1 1 undo", "semop 2 0 undo",
                            "semop 0 -1 undo"));
    sem_locker_unlock(&lock);
}

TEST_F(Condition, ASignalBetweenTheReleaseAndTheStateLockIsNotLost) {
    sem_locker_lock(&lock);
    signal_after("semop 0 1 undo");
    EXPECT_EQ(sem_cond_wait(&cond, &lock), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semop 1 -1 undo", "semop 1 1 undo", "semop 0 -1 undo"));

    const timespec interval = {5, 0};
    signal_after("semop 0 1 undo");
    EXPECT_EQ(sem_cond_timedwait(&cond, &lock, &interval), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semop 1 -1 undo", "semop 1 1 undo", "semop 0 -1 undo"));
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    sem_locker_unlock(&lock);
}

TEST_F(Condition, WaitGoesOnThroughSignalsOfTheSystem) {
    sem_locker_lock(&lock);
    signal_after("semop 1 1 undo");
    sem_calls::fail("semop 2 0 undo", EINTR, 2);
    sem_calls::fail("semop 0 -1 undo", EINTR);
    EXPECT_EQ(sem_cond_wait(&cond, &lock), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semop 2 0 undo", "semop 2 0 undo", "semop 2 0 undo",
                                               "semop 0 -1 undo", "semop 0 -1 undo"));
    sem_locker_unlock(&lock);
}

TEST_F(Condition, TimedWaitStartsItsWholeIntervalAgainAfterASignalOfTheSystem) {
    sem_locker_lock(&lock);
    const timespec interval = {5, 0};
    signal_after("semop 1 1 undo");
    sem_calls::fail("semtimedop 2 0 undo, 5.000000000 s", EINTR, 2);
    EXPECT_EQ(sem_cond_timedwait(&cond, &lock, &interval), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semtimedop 2 0 undo, 5.000000000 s",
                            "semtimedop 2 0 undo, 5.000000000 s",
                            "semtimedop 2 0 undo, 5.000000000 s", "semop 0 -1 undo"));
    sem_locker_unlock(&lock);
}

} // namespace
