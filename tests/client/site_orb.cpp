// A libvlorbST of a site's own, for the plugin as it is built: it keeps what is asked of it and
// finds no object.

#include "tests/client/recording_orb.h"

/// What was asked of it so far, a line each. The text is good until the next call.
extern "C" __attribute__((visibility("default"))) const char* asked_of_the_orb() {
    static std::string all;
    all.clear();
    for (const std::string& call : orbs().calls) {
        all += call + "\n";
    }
    return all.c_str();
}

extern "C" __attribute__((visibility("default"))) void find_no_object() {
    orbs().connects_to = [] { return CORBA::Object::_nil(); };
}
