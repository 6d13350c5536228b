// The ORB runs in every test of the program, also in one that runs alone: values, anys and wide
// text need its tables.

#include "tests/wire/calls.h"

#include <gtest/gtest.h>

namespace {

class running_orb : public testing::Environment {
    void SetUp() override { wire::orb(); }
};

const testing::Environment* const running =
    testing::AddGlobalTestEnvironment(new running_orb); // the framework deletes it

} // namespace
