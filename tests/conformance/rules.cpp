#include "tests/conformance/rules.h"

#include "tests/conformance/stack.h"

#include <cstdio>
#include <gtest/gtest.h>

bool differs(const rule& which) {
    if (stack::current().layers() == 0) {
        return false;
    }
    printf("[   RULE   ] %s: %s\n", which.what, which.reason);
    testing::Test::RecordProperty("rule", which.what);
    return true;
}
