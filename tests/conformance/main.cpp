// The suite is one program that is run once for each stack of layers:
//
//   conformance_test --stack=disk|plugin|two-layers [options of the test framework]
//
// One run is about one stack, because the libraries and their settings are the whole process's.

#include "tests/conformance/stack.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

// What the sanitizers pass over. The faults of the tests replace operator new but for the form that
// doesn't throw, which a library below the plugin uses; and by the rules of a list of groups a
// layer keeps one that couldn't be opened, and a server on which one was closed, for ever.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "alloc_dealloc_mismatch=0";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:throttling_open_image_group_list\nleak:throttling_open_server_v7\n";
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
