/* The binary contract as a host without our headers sees it: every offset is a number here.

   Usage: layout_test PLUGIN.so */

#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

enum { RECORD_SIZE = 592, GUARD = 64, FILL = 0xa5 };

typedef int (*any_entry)(void*, void*, void*, void*, void*, void*);

static uint64_t number_at(const unsigned char* record, size_t offset) {
    uint64_t value;
    memcpy(&value, record + offset, sizeof value);
    return value;
}

static uint32_t number32_at(const unsigned char* record, size_t offset) {
    uint32_t value;
    memcpy(&value, record + offset, sizeof value);
    return value;
}

static void* pointer_at(const unsigned char* record, size_t offset) {
    void* value;
    memcpy(&value, record + offset, sizeof value);
    return value;
}

/* A symbol of the plugin; POSIX lets a pointer to an object hold one to a function. */
static any_entry entry_of(void* pointer) {
    any_entry entry;
    memcpy(&entry, &pointer, sizeof entry);
    return entry;
}

static int all_are(const unsigned char* bytes, size_t count, int value) {
    for (size_t i = 0; i < count; ++i) {
        if (bytes[i] != value) {
            return 0;
        }
    }
    return 1;
}

/* A text and zeros behind it, up to the field's end. */
static int is_padded(const unsigned char* field, size_t size, const char* text) {
    const size_t length = strlen(text);
    return memcmp(field, text, length) == 0 && all_are(field + length, size - length, 0);
}

static void check_unsupported_slots(void* const* slots) {
    static const int unsupported[] = {1, 3, 43, 45, 46, 47, 48, 51, 52, 53, 54, 56};
    unsigned char memory[256];
    memset(memory, FILL, sizeof memory);
    for (size_t i = 0; i < sizeof unsupported / sizeof *unsupported; ++i) {
        const any_entry entry = entry_of(slots[unsupported[i]]);
        CHECK(entry(memory, memory, memory, memory, memory, memory) == 2060016);
    }
    CHECK(all_are(memory, sizeof memory, FILL));
}

static void check_record(const unsigned char* record, void* const* slots) {
    CHECK(number_at(record, 0) == 11);
    CHECK(pointer_at(record, 8) == (const void*)slots);
    CHECK(is_padded(record + 16, 32, "CS_throttle:"));
    CHECK(is_padded(record + 48, 32, "Throttling Plugin"));
    CHECK(all_are(record + 80, 448, FILL));
    CHECK(number32_at(record, 528) == 1);
    CHECK(number32_at(record, 532) == 0);
    CHECK(number_at(record, 536) == 11);
    CHECK(number_at(record, 544) == 2);
    CHECK(number_at(record, 552) == 11);
    CHECK(strcmp((const char*)record + 560, "910000 Vaultaro_9.1.0.1") == 0);
    CHECK(record[591] == 0);
    CHECK(all_are(record + RECORD_SIZE, GUARD, FILL));
}

static void check_second_entry_point(void* plugin) {
    unsigned char record[16 + GUARD];
    memset(record, FILL, sizeof record);
    int (*init2)(uint64_t, void*);
    void* const symbol = dlsym(plugin, "stspi_init2");
    memcpy(&init2, &symbol, sizeof init2);
    CHECK(init2(5, NULL) == 2060001);
    CHECK(init2(10, record) == 2060008);
    CHECK(all_are(record, sizeof record, FILL));
    CHECK(init2(11, record) == 0);
    CHECK(number_at(record, 0) == 11);
    CHECK(all_are(record + 16, GUARD, FILL));
    void* const* const table = pointer_at(record, 8);
    CHECK((const void*)table == dlsym(plugin, "PluginEntryPoints2_v11"));
    for (int i = 0; i < 22; ++i) {
        CHECK(table[i] == (i == 4   ? dlsym(plugin, "throttling_create_lsu")
                           : i == 9 ? dlsym(plugin, "throttling_delete_lsu")
                                    : NULL));
    }
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s PLUGIN.so\n", argv[0]);
        return 2;
    }
    char directory[] = "/tmp/throttling-XXXXXX";
    if (mkdtemp(directory) == NULL || setenv("VL_CONF_DIR", directory, 1) != 0) {
        perror(directory);
        return 2;
    }
    void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }

    void* const* const slots = dlsym(plugin, "ep");
    for (int i = 0; i < 57; ++i) {
        CHECK(slots[i] != NULL);
    }
    check_unsupported_slots(slots); /* before any start */
    check_second_entry_point(plugin);

    unsigned char record[RECORD_SIZE + GUARD];
    memset(record, FILL, sizeof record);
    int (*init)(uint64_t, const char*, void*);
    void* const symbol = dlsym(plugin, "stspi_init");
    memcpy(&init, &symbol, sizeof init);
    CHECK(init(10, directory, record) == 2060008);
    CHECK(all_are(record, sizeof record, FILL));
    CHECK(init(12, directory, record) == 0);
    check_record(record, slots);
    const int32_t* const ismt = dlsym(plugin, "stspi_ismt");
    CHECK(*ismt == 0);
    CHECK(entry_of(slots[35])(NULL, NULL, NULL, NULL, NULL, NULL) == 0); /* the stop */

    /* The plugin isn't unloaded: what it makes at load is never deleted. */
    char settings[64];
    snprintf(settings, sizeof settings, "%s/libstspithrottling.conf", directory);
    unlink(settings);
    rmdir(directory);
    return failures == 0 ? 0 : 1;
}
