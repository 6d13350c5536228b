#include "plugin/stsapi.h"
#pragma GCC visibility push(default)
int stsm_init(uint64_t, const char*, const sts_api_t**) { return 0; }
int stsm_terminate() { return 0; }
