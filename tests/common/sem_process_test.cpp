// Locks and conditions between processes: byte copies, holders and signallers that die, signals.

#include "tests/common/process.h"
#include "tests/common/sem_fixture.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <sched.h>
#include <unistd.h>
#include <vector>

namespace {

/// As the other tests' set, with the condition where other processes see it.
class Processes : public semaphores {
  protected:
    Processes() { *shared_cond = cond; }

    sem_cond_t* condition() const { return shared_cond.get(); }

    shared_memory<sem_cond_t> shared_cond;
    shared_memory<std::atomic<int>> number;
};

/// Ends by its signal's default action as soon as there is one.
int rest() {
    while (true) {
        pause();
    }
}

TEST_F(Processes, AByteCopyOfALockIsTheSameLockRealWait) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    process other([&] {
        sem_locker_t copy = {};
        if (read(ends[0], &copy, sizeof copy) != sizeof copy) {
            return 1;
        }
        return sem_locker_lock(&copy) == 0 && sem_calls::value(copy.id) == 0 &&
                       sem_locker_unlock(&copy) == 0
                   ? 0
                   : 2;
    });
    sem_locker_t made_later = {}; // so the other process knows it from its bytes alone
    sem_locker_init(&made_later, set);
    sem_locker_lock(&made_later);
    EXPECT_EQ(write(ends[1], &made_later, sizeof made_later),
              static_cast<ssize_t>(sizeof made_later));
    EXPECT_TRUE(comes_true([&] { return sem_calls::takers(made_later.id) == 1; }));
    sem_locker_unlock(&made_later);
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(sem_calls::value(made_later.id), 1);
    sem_locker_destroy(&made_later, set);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Processes, TakeTurns) {
    std::vector<std::unique_ptr<process>> all;
    for (int i = 0; i < 4; ++i) {
        all.push_back(std::make_unique<process>([&] {
            for (int round = 0; round < 250; ++round) {
                sem_locker_lock(&lock);
                const int seen = *number;
                sched_yield();
                *number = seen + 1;
                sem_locker_unlock(&lock);
            }
            return 0;
        }));
    }
    for (const auto& each : all) {
        EXPECT_EQ(each->wait(), 0);
    }
    EXPECT_EQ(*number, 1000);
}

TEST_F(Processes, AKilledHoldersLockIsFreeAgainRealWait) {
    process holder([&] {
        sem_locker_lock(&lock);
        *number = 1;
        return rest();
    });
    ASSERT_TRUE(comes_true([&] { return *number == 1; }));
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    holder.send(SIGKILL);
    EXPECT_EQ(holder.wait(), -SIGKILL);
    EXPECT_EQ(sem_calls::value(lock.id), 1);
    EXPECT_EQ(sem_locker_lock(&lock), 0);
    sem_locker_unlock(&lock);
}

TEST_F(Processes, AKilledHoldersLockGoesToItsWaiterRealWait) {
    process holder([&] {
        sem_locker_lock(&lock);
        *number = 1;
        return rest();
    });
    ASSERT_TRUE(comes_true([&] { return *number == 1; }));
    process waiter([&] { return sem_locker_lock(&lock); });
    ASSERT_TRUE(comes_true([&] { return sem_calls::takers(lock.id) == 1; }));
    holder.send(SIGKILL);
    EXPECT_EQ(waiter.wait(), 0);
    EXPECT_EQ(sem_calls::value(lock.id), 1); // the waiter has ended too
}

TEST_F(Processes, AKilledWaiterLeavesTheLockWithItsHolderRealWait) {
    sem_locker_lock(&lock);
    process waiter([&] { return sem_locker_lock(&lock); });
    ASSERT_TRUE(comes_true([&] { return sem_calls::takers(lock.id) == 1; }));
    waiter.send(SIGKILL);
    EXPECT_EQ(waiter.wait(), -SIGKILL);
    EXPECT_EQ(sem_calls::value(lock.id), 0);
    sem_locker_unlock(&lock);
    EXPECT_EQ(sem_calls::value(lock.id), 1);
}

TEST_F(Processes, AllWakeByOneSignalRealWait) {
    std::vector<std::unique_ptr<process>> all;
    for (int i = 0; i < 3; ++i) {
        all.push_back(std::make_unique<process>([&] {
            sem_locker_lock(&lock);
            while (*number == 0) {
                sem_cond_wait(condition(), &lock);
            }
            return sem_locker_unlock(&lock);
        }));
    }
    EXPECT_TRUE(comes_true([&] { return sem_calls::waiters(cond.event.id) == 3; }));
    sem_locker_lock(&lock);
    *number = 1;
    sem_locker_unlock(&lock);
    sem_cond_signal(condition());
    for (const auto& each : all) {
        EXPECT_EQ(each->wait(), 0);
    }
}

TEST_F(Processes, TheGateClosesAgainWhenItsSignallerEnds) {
    process signaller(
        [&] { return sem_cond_signal(condition()) + sem_calls::value(cond.event.id); });
    EXPECT_EQ(signaller.wait(), 0);
    EXPECT_EQ(condition()->signaled, 1);
    EXPECT_EQ(sem_calls::value(cond.event.id), 1);
}

TEST_F(Processes, AWaitForgetsWhatADeadSignallerWouldUndoRealWait) {
    process signaller([&] {
        sem_cond_signal(condition());
        *number = 1;
        return rest();
    });
    ASSERT_TRUE(comes_true([&] { return *number == 1; }));
    sem_locker_lock(&lock);
    sem_calls::after("semop 1 1 undo", [&] {
        signaller.send(SIGKILL);
        signaller.wait();
        EXPECT_EQ(sem_calls::value(cond.event.id), 1); // closed once, not twice
        sem_cond_signal(condition());
    });
    EXPECT_EQ(sem_cond_wait(condition(), &lock), 0);
    sem_locker_unlock(&lock);
}

TEST_F(Processes, ASetOutlivesTheProcessThatMadeIt) {
    process maker([&] {
        SemSet left;
        left.init(1);
        *number = left.getSemId().semid;
        _exit(0);
        return 0;
    });
    EXPECT_EQ(maker.wait(), 0);
    EXPECT_TRUE(sem_calls::exists(*number));
    sem_calls::remove(*number);
}

// --- signals -----------------------------------------------------------------------------------

class Interrupted : public Processes {
  protected:
    Interrupted() {
        struct sigaction handled = {};
        handled.sa_handler = [](int) {};
        sigaction(SIGUSR1, &handled, &before);
    }
    ~Interrupted() override { sigaction(SIGUSR1, &before, nullptr); }

    /// Has a signal interrupt `asleep`, which is waiting on `id`, and sees it wait there again.
    void interrupt(const process& asleep, int (*sleepers)(const SemId&), const SemId& id) {
        const auto is_there = [&] { return sleepers(id) == 1; };
        ASSERT_TRUE(comes_true(is_there));
        for (int round = 0; round < 3; ++round) {
            const int interruptions = sem_calls::interruptions();
            asleep.send(SIGUSR1);
            EXPECT_TRUE(comes_true([&] { return sem_calls::interruptions() > interruptions; }));
            EXPECT_TRUE(comes_true(is_there));
        }
    }

    struct sigaction before = {};
};

TEST_F(Interrupted, LockGoesOnWaitingRealWait) {
    sem_locker_lock(&lock);
    process waiter([&] { return sem_locker_lock(&lock); });
    interrupt(waiter, sem_calls::takers, lock.id);
    sem_locker_unlock(&lock);
    EXPECT_EQ(waiter.wait(), 0);
}

TEST_F(Interrupted, WaitGoesOnWaitingRealWait) {
    process waiter([&] {
        sem_locker_lock(&lock);
        return sem_cond_wait(condition(), &lock);
    });
    interrupt(waiter, sem_calls::waiters, cond.event.id);
    sem_cond_signal(condition());
    EXPECT_EQ(waiter.wait(), 0);
}

TEST_F(Interrupted, TimedWaitGoesOnWaitingRealWait) {
    process waiter([&] {
        const timespec interval = {3600, 0};
        sem_locker_lock(&lock);
        return sem_cond_timedwait(condition(), &lock, &interval);
    });
    interrupt(waiter, sem_calls::waiters, cond.event.id);
    sem_cond_signal(condition());
    EXPECT_EQ(waiter.wait(), 0);
}

} // namespace
