// Locks: what they are made of, and each call that they make.

#include "tests/common/sem_fixture.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Locker = semaphores;

void expect_word(const sembuf& word, unsigned short number, short step) {
    EXPECT_EQ(word.sem_num, number);
    EXPECT_EQ(word.sem_op, step);
    EXPECT_EQ(word.sem_flg, 0x1000);
}

TEST_F(Locker, InitTakesASemaphoreAndSetsItFree) {
    sem_locker_t another = {};
    EXPECT_EQ(sem_locker_init(&another, set), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semctl 3 SETVAL 1"));
    EXPECT_EQ(another.id.semid, lock.id.semid);
    EXPECT_EQ(another.id.semnum, 3);
    expect_word(another.unlock_op, 3, 1);
    expect_word(another.lock_op, 3, -1);
    EXPECT_EQ(sem_calls::value(another.id), 1);
    EXPECT_EQ(sem_locker_destroy(&another, set), 0);
}

TEST_F(Locker, InitOfAnExhaustedSetIsRefused) {
    const SemId last = set.getSemId();
    sem_locker_t another = {};
    EXPECT_EQ(sem_locker_init(&another, set), -1);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(another.lock_op.sem_op, 0);
    set.returnSemId(last);
}

TEST_F(Locker, InitWithoutASetIsRefused) {
    SemSet empty;
    EXPECT_EQ(sem_locker_init(&lock, empty), -1);
}

TEST_F(Locker, InitOfANullLockerCostsTheSetASemaphore) {
    EXPECT_EQ(sem_locker_init(nullptr, set), -1);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(set.getSemId().semnum, -1);
    EXPECT_TRUE(set.returnSemId({lock.id.semid, 3}));
}

TEST_F(Locker, InitGivesTheSemaphoreBackWhenItsValueIsRefused) {
    sem_calls::fail("semctl 3 SETVAL 1", ERANGE);
    sem_locker_t another = {};
    EXPECT_EQ(sem_locker_init(&another, set), -1);
    EXPECT_EQ(another.lock_op.sem_op, 0);
    EXPECT_EQ(set.getSemId().semnum, 3);
    set.returnSemId({lock.id.semid, 3});
}

TEST_F(Locker, LocksByMinusOneAndUnlocksByPlusOne) {
    EXPECT_EQ(sem_locker_lock(&lock), 0);
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    EXPECT_EQ(sem_locker_unlock(&lock), 0);
    EXPECT_EQ(sem_calls::value(lock.id), 1);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semop 0 -1 undo", "semop 0 1 undo"));
}

TEST_F(Locker, NullIsRefused) {
    EXPECT_EQ(sem_locker_lock(nullptr), -1);
    EXPECT_EQ(sem_locker_unlock(nullptr), -1);
    EXPECT_EQ(sem_locker_destroy(nullptr, set), -1);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
}

TEST_F(Locker, LockIsTriedAgainWhenASignalInterruptsIt) {
    sem_calls::fail("semop 0 -1 undo", EINTR, 2);
    EXPECT_EQ(sem_locker_lock(&lock), 0);
    EXPECT_THAT(sem_calls::take(),
                ElementsAre("semop 0 -1 undo", "semop 0 -1 undo", "semop 0 -1 undo"));
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    sem_locker_unlock(&lock);
}

TEST_F(Locker, DestroyGivesTheSemaphoreBackAndTouchesNothingElse) {
    sem_locker_t another = {};
    sem_locker_init(&another, set);
    sem_locker_lock(&another);
    const sem_locker_t before = another;
    sem_calls::take();
    EXPECT_EQ(sem_locker_destroy(&another, set), 0);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(memcmp(&another, &before, sizeof before), 0);
    EXPECT_EQ(sem_calls::value(another.id), 0);
    sem_locker_unlock(&another);
    EXPECT_EQ(sem_locker_destroy(&another, set), -1);
    SemSet other;
    EXPECT_EQ(sem_locker_destroy(&lock, other), -1);
}

TEST_F(Locker, ThreadsTakeTurns) {
    std::atomic<int> count{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 250; ++round) {
                sem_locker_lock(&lock);
                const int seen = count;
                std::this_thread::yield();
                count = seen + 1;
                sem_locker_unlock(&lock);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 1000);
}

TEST_F(Locker, BlocksASecondTakerUntilItIsReleasedRealWait) {
    sem_locker_lock(&lock);
    std::atomic<bool> held{false};
    std::thread second([&] {
        sem_locker_lock(&lock);
        held = true;
        sem_locker_unlock(&lock);
    });
    EXPECT_TRUE(comes_true([&] { return sem_calls::takers(lock.id) == 1; }));
    EXPECT_FALSE(held);
    sem_locker_unlock(&lock);
    second.join();
    EXPECT_TRUE(held);
    EXPECT_EQ(sem_calls::value(lock.id), 1);
}

} // namespace
