// What a set hands out and takes back.

#include "tests/common/sem_calls.h"
#include "tests/support/fault.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

static bool operator==(const SemId& one, const SemId& other) {
    return one.semid == other.semid && one.semnum == other.semnum;
}

namespace {

constexpr SemId none = {-1, -1};

class Set : public testing::Test {
  protected:
    Set() { sem_calls::clear(); }
    ~Set() override { sem_calls::clear(); }

    /// Makes the set and takes all of its semaphores. The first one.
    SemId take_all(int count) {
        set.init(count);
        const SemId first = set.getSemId();
        while (!(set.getSemId() == none)) {
        }
        return first;
    }

    void give_back(int semid, int count) {
        for (int i = 0; i < count; ++i) {
            EXPECT_TRUE(set.returnSemId({semid, i}));
        }
    }

    SemSet set;
};

TEST_F(Set, HasNothingToGiveBeforeInit) {
    EXPECT_EQ(set.getSemId(), none);
    EXPECT_FALSE(set.returnSemId({-1, -1}));
    EXPECT_FALSE(set.returnSemId({-1, 0}));
    EXPECT_EQ(set.destroy(), 0);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
}

TEST_F(Set, IsPrivateAndOpenToEveryProcess) {
    EXPECT_EQ(set.init(3), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semget private 3 666"));
}

TEST_F(Set, InitOnALiveSetKeepsItAndItsSizeWhateverTheCount) {
    set.init(2);
    const SemId first = set.getSemId();
    sem_calls::take();
    for (const int count : {5, 2, 0, -1}) {
        EXPECT_EQ(set.init(count), 0);
    }
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(set.getSemId(), (SemId{first.semid, 1}));
    EXPECT_EQ(set.getSemId(), none);
    give_back(first.semid, 2);
}

TEST_F(Set, HandsOutTheLowestFreeIndex) {
    const SemId first = take_all(4);
    EXPECT_EQ(first.semnum, 0);
    EXPECT_TRUE(set.returnSemId({first.semid, 3}));
    EXPECT_TRUE(set.returnSemId({first.semid, 1}));
    EXPECT_EQ(set.getSemId(), (SemId{first.semid, 1}));
    EXPECT_TRUE(set.returnSemId(first));
    EXPECT_EQ(set.getSemId(), first);
    EXPECT_EQ(set.getSemId(), (SemId{first.semid, 3}));
    give_back(first.semid, 4);
}

TEST_F(Set, HandsOutNothingWhenFull) {
    const SemId first = take_all(2);
    EXPECT_EQ(set.getSemId(), none);
    EXPECT_EQ(set.getSemId(), none);
    give_back(first.semid, 2);
}

TEST_F(Set, RefusesASecondReturnAnotherSetsIdAndAnIndexOutOfRange) {
    const SemId first = take_all(2);
    SemSet another;
    another.init(2);
    const SemId foreign = another.getSemId();
    ASSERT_TRUE(set.returnSemId(first));
    for (const SemId& id : {first, foreign, SemId{first.semid, 2}, SemId{first.semid, -1},
                            SemId{first.semid, 1000000}, SemId{first.semid, INT32_MIN},
                            SemId{first.semid, INT32_MAX}, SemId{-1, 1}, none}) {
        EXPECT_FALSE(set.returnSemId(id)) << id.semid << ", " << id.semnum;
    }
    // Nothing changed: one is free here, and the other set's is still taken.
    EXPECT_EQ(set.getSemId(), first);
    EXPECT_EQ(set.getSemId(), none);
    EXPECT_TRUE(another.returnSemId(foreign));
    give_back(first.semid, 2);
}

TEST_F(Set, DestroyRemovesTheSetOnce) {
    const SemId first = take_all(1);
    give_back(first.semid, 1);
    sem_calls::take();
    EXPECT_EQ(set.destroy(), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semctl 0 IPC_RMID"));
    EXPECT_FALSE(sem_calls::exists(first.semid));
    EXPECT_EQ(set.destroy(), 0);
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(set.getSemId(), none);
    EXPECT_FALSE(set.returnSemId(first));
}

TEST_F(Set, GoesWithItsObject) {
    SemId id = none;
    {
        SemSet passing;
        passing.init(1);
        id = passing.getSemId();
        EXPECT_TRUE(sem_calls::exists(id.semid));
        passing.returnSemId(id);
    }
    EXPECT_FALSE(sem_calls::exists(id.semid));
}

TEST_F(Set, MadeAnewHandsOutIndexesPastItsEnd) {
    set.init(2);
    set.destroy();
    sem_calls::take();
    EXPECT_EQ(set.init(3), 0);
    EXPECT_THAT(sem_calls::take(), ElementsAre("semget private 3 666"));
    SemId id = none;
    for (int i = 0; i < 5; ++i) {
        id = set.getSemId();
        EXPECT_EQ(id.semnum, i);
    }
    EXPECT_EQ(set.getSemId(), none);
    EXPECT_NE(sem_calls::value({id.semid, 2}), -1);
    EXPECT_EQ(sem_calls::value({id.semid, 3}), -1);
    give_back(id.semid, 5);
}

TEST_F(Set, PastItsEndALockIsRefusedAndItsIndexFreeAgain) {
    set.init(2);
    set.destroy();
    set.init(1);
    const SemId first = set.getSemId();
    sem_locker_t lock = {};
    EXPECT_EQ(sem_locker_init(&lock, set), -1);
    EXPECT_EQ(set.getSemId(), (SemId{first.semid, 1}));
    give_back(first.semid, 2);
}

TEST_F(Set, WithoutMemoryForItsRecordIsNotMade) {
    fault::fail_new_after(0);
    EXPECT_THROW(set.init(3), std::bad_alloc);
    fault::clear();
    EXPECT_THAT(sem_calls::take(), IsEmpty());
    EXPECT_EQ(set.init(3), 0);
    EXPECT_EQ(set.getSemId().semnum, 0);
    give_back(take_all(3).semid, 3);
}

} // namespace
