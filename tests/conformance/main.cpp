// The suite is one program that is run once for each stack of layers:
//
//   conformance_test --stack=disk|plugin|two-layers [options of the test framework]
//
// One run is about one stack, because the libraries and their settings are the whole process's.

#include "tests/conformance/stack.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

// Where a layer keeps something for ever the test says so (rules.h). With two layers it is far up
// the stack.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:left_for_ever\n";
}
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "malloc_context_size=60";
}

int main(int argument_count, char** arguments) {
    testing::InitGoogleTest(&argument_count, arguments);
    const std::string option = "--stack=";
    const std::string given = argument_count == 2 ? arguments[1] : "";
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    if (given.rfind(option, 0) != 0 || !stack::choose(given.substr(option.size()))) {
        fprintf(stderr, "usage: %s --stack=disk|plugin|two-layers\n", arguments[0]);
        return 2;
    }
    return RUN_ALL_TESTS();
}
