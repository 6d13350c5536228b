#include "tests/plugin/wrapped.h"

#include "config/throttling_util.h"
#include "engine/service_connector.h"

#include <cstddef>

namespace wrapped {

int connector_init = 0;
int connector_terminate = 0;
int connector_disconnect = 0;
int read_config = 0;
bool calloc_fails = false;
bool strdup_fails = false;

void clear() {
    connector_init = connector_terminate = connector_disconnect = read_config = 0;
    calloc_fails = strdup_fails = false;
}

} // namespace wrapped

// The names are those of the linker; CMakeLists.txt lists them.
extern "C" {

int __real__ZN16ServiceConnector4initEv();
int __wrap__ZN16ServiceConnector4initEv() {
    return wrapped::connector_init != 0 ? wrapped::connector_init
                                        : __real__ZN16ServiceConnector4initEv();
}

int __real__ZN16ServiceConnector9terminateEv();
int __wrap__ZN16ServiceConnector9terminateEv() {
    return wrapped::connector_terminate != 0 ? wrapped::connector_terminate
                                             : __real__ZN16ServiceConnector9terminateEv();
}

int __real__ZN16ServiceConnector18disconnect_serviceEv(ServiceConnector* connector);
int __wrap__ZN16ServiceConnector18disconnect_serviceEv(ServiceConnector* connector) {
    const int status = __real__ZN16ServiceConnector18disconnect_serviceEv(connector);
    return wrapped::connector_disconnect != 0 ? wrapped::connector_disconnect : status;
}

int __real__Z23read_config_file_to_varPK20sts_session_def_v7_tP19throttling_config_sR13settings_seen(
    const sts_session_def_v7_t* session, throttling_config_s* config, settings_seen& seen);
int __wrap__Z23read_config_file_to_varPK20sts_session_def_v7_tP19throttling_config_sR13settings_seen(
    const sts_session_def_v7_t* session, throttling_config_s* config, settings_seen& seen) {
    return wrapped::read_config != 0
               ? wrapped::read_config
               : __real__Z23read_config_file_to_varPK20sts_session_def_v7_tP19throttling_config_sR13settings_seen(
                     session, config, seen);
}

void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
    return wrapped::calloc_fails ? nullptr : __real_calloc(count, size);
}

char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text) {
    return wrapped::strdup_fails ? nullptr : __real_strdup(text);
}

} // extern "C"
