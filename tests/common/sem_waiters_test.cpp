// Several threads at one condition. Each test waits in real time until the threads have come to
// where it needs them.

#include "tests/common/sem_fixture.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

class Waiters : public semaphores {
  protected:
    ~Waiters() override {
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void start_waiter() {
        threads.emplace_back([this] {
            sem_locker_lock(&lock);
            sem_cond_wait(&cond, &lock);
            ++woken;
            sem_locker_unlock(&lock);
        });
    }

    bool asleep(int count) {
        return comes_true([this, count] { return sem_calls::waiters(cond.event.id) == count; });
    }

    bool awake(int count) {
        return comes_true([this, count] { return woken == count; });
    }

    std::atomic<int> woken{0};
    std::vector<std::thread> threads;
};

TEST_F(Waiters, AllWakeByOneSignalRealWait) {
    for (int i = 0; i < 5; ++i) {
        start_waiter();
    }
    EXPECT_TRUE(asleep(5));
    EXPECT_EQ(woken, 0);
    sem_cond_signal(&cond);
    EXPECT_TRUE(awake(5));
}

TEST_F(Waiters, AllWakeByASignalUnderTheirLockOnceItIsReleasedRealWait) {
    start_waiter();
    start_waiter();
    EXPECT_TRUE(asleep(2));
    sem_locker_lock(&lock);
    sem_cond_signal(&cond);
    EXPECT_TRUE(asleep(0));
    EXPECT_TRUE(comes_true([this] { return sem_calls::takers(lock.id) == 2; }));
    EXPECT_EQ(woken, 0);
    sem_locker_unlock(&lock);
    EXPECT_TRUE(awake(2));
}

TEST_F(Waiters, OneThatComesAfterASignalSleepsRealWait) {
    sem_cond_signal(&cond);
    start_waiter();
    EXPECT_TRUE(asleep(1));
    EXPECT_EQ(woken, 0);
    sem_cond_signal(&cond);
    EXPECT_TRUE(awake(1));
}

TEST_F(Waiters, ANewOneClosesTheGateOnAnEarlierOneRealWait) {
    sem_calls::after("semop 1 1 undo", [this] { // the earlier one is on its way to the gate
        sem_cond_signal(&cond);
        EXPECT_EQ(sem_calls::value(cond.event.id), 0);
        start_waiter();
        EXPECT_TRUE(asleep(1));
        EXPECT_EQ(__atomic_load_n(&cond.signaled, __ATOMIC_SEQ_CST), 0);
    });
    std::thread earlier([this] {
        sem_locker_lock(&lock);
        sem_cond_wait(&cond, &lock);
        ++woken;
        sem_locker_unlock(&lock);
    });
    EXPECT_TRUE(asleep(2));
    EXPECT_EQ(woken, 0);
    sem_cond_signal(&cond);
    EXPECT_TRUE(awake(2));
    earlier.join();
}

TEST_F(Waiters, WithALimitWakeByASignalRealWait) {
    threads.emplace_back([this] {
        const timespec minute = {60, 0};
        sem_locker_lock(&lock);
        sem_cond_timedwait(&cond, &lock, &minute);
        ++woken;
        sem_locker_unlock(&lock);
    });
    EXPECT_TRUE(asleep(1));
    sem_cond_signal(&cond);
    EXPECT_TRUE(awake(1));
}

TEST_F(Waiters, ThatTestInALoopTakeEveryItemOfAQueueRealWait) {
    constexpr int items = 300;
    std::atomic<int> queued{0}; // all three are changed under the lock, in several steps
    std::atomic<int> taken{0};
    std::atomic<bool> done{false};
    const auto consume = [&] {
        sem_locker_lock(&lock);
        while (queued != 0 || !done) {
            if (queued == 0) {
                sem_cond_wait(&cond, &lock);
            } else {
                queued = queued - 1;
                taken = taken + 1;
            }
        }
        sem_locker_unlock(&lock);
    };
    std::thread consumers[] = {std::thread(consume), std::thread(consume), std::thread(consume)};
    for (int i = 0; i <= items; ++i) {
        sem_locker_lock(&lock);
        if (i < items) {
            queued = queued + 1;
        } else {
            done = true;
        }
        sem_locker_unlock(&lock);
        sem_cond_signal(&cond);
    }
    for (std::thread& consumer : consumers) {
        consumer.join();
    }
    EXPECT_EQ(taken, items);
}

} // namespace
