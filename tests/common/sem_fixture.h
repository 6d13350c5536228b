// A set of semaphores with a lock on its first and a condition on its next two, and nothing of an
// earlier test in the calls.
#pragma once

#include "tests/common/sem_calls.h"

#include <gtest/gtest.h>

/// One set of four: index 0 is `lock`, 1 guards the state of `cond`, 2 is its gate, 3 is free.
class semaphores : public testing::Test {
  protected:
    semaphores() {
        set.init(4);
        sem_locker_init(&lock, set);
        sem_cond_init(&cond, set);
        sem_calls::clear();
    }
    ~semaphores() override {
        sem_calls::clear();
        sem_cond_destroy(&cond, set);
        sem_locker_destroy(&lock, set);
    }

    SemSet set;
    sem_locker_t lock = {};
    sem_cond_t cond = {};
};
