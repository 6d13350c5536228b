// The call behind one that the program has put its own in place of.
#pragma once

#include <dlfcn.h>

/// The function of that name in the libraries behind the program.
template <typename Function>
Function* next_function(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
