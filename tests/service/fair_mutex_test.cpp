// A lock that peers take in turn.

#include "service/fair_mutex.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

/// Threads that wait for a lock, in the order in which they were started, and the order in which
/// they had it.
class FairMutex : public testing::Test {
  protected:
    FairMutex() { mutex.lock("first"); }

    void wait_as(const std::string& peer) {
        threads.emplace_back([this, peer] {
            mutex.lock(peer);
            served += peer;
            mutex.unlock();
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // until it waits
    }
    std::string order() {
        mutex.unlock();
        for (std::thread& each : threads) {
            each.join();
        }
        return served;
    }

    fair_mutex mutex;
    std::string served;
    std::vector<std::thread> threads;
};

TEST_F(FairMutex, APeerWithManyThreadsLetsAnotherInAfterOne) {
    for (const char* each : {"a", "a", "a", "a", "b"}) {
        wait_as(each);
    }
    EXPECT_EQ(order().substr(0, 2), "ab");
}

TEST_F(FairMutex, PeersAreServedInTurn) {
    for (const char* each : {"a", "a", "b", "b", "c", "c"}) {
        wait_as(each);
    }
    EXPECT_EQ(order().substr(0, 5), "abcab");
}

TEST_F(FairMutex, ThreadsOfOnePeerAreAllServed) {
    for (int each = 0; each < 5; ++each) {
        wait_as("a");
    }
    EXPECT_EQ(order(), "aaaaa");
}

TEST(FairMutexAlone, LetsOneInAtATime) {
    fair_mutex mutex;
    int counted = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, peer = std::to_string(thread % 3)] {
            for (int round = 0; round < 5000; ++round) {
                mutex.lock(peer);
                ++counted;
                mutex.unlock();
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    EXPECT_EQ(counted, 8 * 5000);
}

} // namespace
