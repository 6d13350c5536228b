// A tiny plugin on the storage library, for tests of how that loads and calls plugins. What it is
// comes from its file's name, so that copies of one file are different plugins:
//
//   NAME.so          claims server names that begin with "NAME:" and opens the rest of the name at
//                    the storage library
//   NAME-KIND.so     the same, but for what its kind says (test_plugin_kind)
//
// It tells the program that loads it what it is told to do, by a function that the program has.
#pragma once

extern "C" {

/// Gets every line of every test plugin: "NAME DOES SOMETHING".
void test_plugin_says(const char* line);
}
