// Server names, the one string by which the host addresses a stack of layers:
//
//   CS_throttle:TYPE:NEXT     NEXT is the next layer's name and may hold colons of its own;
//                             SERVER, the storage, is what is behind the last colon of all
//
// Nothing is trusted about a name but that it ends.

#include "plugin/throttling.h"

#include <cstring>

void store_server_name(void* record, size_t offset, const char* name) {
    char* const field = static_cast<char*>(record) + offset;
    strncpy(field, name, STS_NAME_SIZE - 1);
    field[STS_NAME_SIZE - 1] = '\0';
}

bool has_server_prefix(const char* name) {
    return name != nullptr && strncmp(name, server_prefix, server_prefix_length) == 0;
}

int get_field_ptr_in_name(const char* name, int32_t field, const char** out) {
    if (name == nullptr || out == nullptr || name[0] == '\0' || name[0] == ':') {
        return 1;
    }
    const char* found = name;
    if (field < 0) {
        const char* const last = strrchr(name, ':'); // any negative field is the last one
        if (last == nullptr) {
            return -1;
        }
        found = last + 1;
    }
    for (; field > 0; --field) {
        const char* const colon = strchr(found, ':');
        if (colon == nullptr) {
            return -1;
        }
        found = colon + 1;
    }
    *out = found;
    return 0;
}

void get_net_server_name_type(const char* name, char* server, char* type) {
    memset(server, 0, STS_NAME_SIZE);
    memset(type, 0, STS_NAME_SIZE);
    const char* last = nullptr;
    if (get_field_ptr_in_name(name, -1, &last) == 0) {
        strncpy(server, last, STS_NAME_SIZE - 1);
    }
    const char* rest = nullptr;
    if (get_field_ptr_in_name(name, 2, &rest) == 0) {
        const auto distance = static_cast<size_t>(rest - name);
        if (distance > server_prefix_length && distance <= STS_NAME_SIZE) {
            memcpy(type, name + server_prefix_length, distance - server_prefix_length - 1);
        }
    }
}
