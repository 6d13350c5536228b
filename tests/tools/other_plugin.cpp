// A plugin that isn't quite the throttling plugin. The environment's OTHER_PLUGIN says in what:
//
//   version, table, prefix, label, text   that part of the record is another
//   start                                 it can't be started
//   refuse                                a usual record; creating an image is refused
//   damaged                               the same; its list of images never gives one nor ends
//   vanishing                             the same; what its lists give is gone by then
//   unclosable                            the same; its server can't be closed
//
// Its settings can't be set, nor read once somebody has tried.

#include "plugin/stspi_entries.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

bool is_asked_for(const char* what) {
    const char* const asked = getenv("OTHER_PLUGIN");
    return asked != nullptr && strcmp(asked, what) == 0;
}

char some_server;
char some_list;
int images_left = 0;
bool was_image_listed = false;
bool was_set = false;
constexpr int no_such_file = 2061002;

template <typename Handle>
Handle* handle_at(char& place) {
    return reinterpret_cast<Handle*>(&place);
}

stspi_ep_t make_table() {
    stspi_ep_t table = {};
    table.claim_v7 = [](const char*) { return int{STS_OK}; };
    table.open_server_v7 = [](const sts_session_def_v7_t*, const char*, const sts_server_def_s*,
                              sts_forwarded_t, throttling_server_s** out) {
        *out = handle_at<throttling_server_s>(some_server);
        return int{STS_OK};
    };
    table.close_server_v7 = [](throttling_server_s*) {
        return is_asked_for("unclosable") ? int{STS_ERR_FILE} : int{STS_OK};
    };
    table.terminate_v7 = [] { return int{STS_OK}; };
    table.open_lsu_list_v11 = [](throttling_server_s*, sts_forwarded_t,
                                 throttling_lsu_list_s** out) {
        images_left = 1;
        *out = handle_at<throttling_lsu_list_s>(some_list);
        return int{STS_OK};
    };
    table.list_lsu_v7 = [](throttling_lsu_list_s*, void* entry) {
        strcpy(static_cast<char*>(entry), "daily");
        return images_left-- > 0 ? int{STS_OK} : int{STS_ERR_END_OF_LIST};
    };
    table.close_lsu_list_v7 = [](throttling_lsu_list_s*) { return int{STS_OK}; };
    table.open_image_list_v7 = [](const sts_lsu_ref_s*, int32_t, throttling_image_list_s** out) {
        *out = handle_at<throttling_image_list_s>(some_list);
        return int{STS_OK};
    };
    table.list_image_v10 = [](throttling_image_list_s*, void* entry) {
        strcpy(static_cast<char*>(entry), "a");
        if (is_asked_for("vanishing") && !was_image_listed) {
            was_image_listed = true;
            return int{STS_OK};
        }
        return is_asked_for("damaged") ? 2061074 : int{STS_ERR_END_OF_LIST};
    };
    table.get_lsu_prop_byname_v11 = [](const sts_lsu_ref_s*, sts_lsu_info_s*) {
        return no_such_file;
    };
    table.get_image_prop_byname_v10 = [](const sts_lsu_ref_s*, const sts_image_def_s*,
                                         sts_image_info_s*) { return no_such_file; };
    table.open_evchannel = [](const sts_session_def_v7_t*, const char*, void*, sts_forwarded_t,
                              sts_forwarded_t, sts_forwarded_t, sts_forwarded_t, sts_forwarded_t,
                              throttling_evchannel_s** out) {
        *out = handle_at<throttling_evchannel_s>(some_list);
        return int{STS_OK};
    };
    table.get_event = [](throttling_evchannel_s*, sts_event_s*) { return int{STS_ERR_NO_EVENT}; };
    table.close_evchannel = [](throttling_evchannel_s*) { return int{STS_OK}; };
    table.close_image_list_v7 = [](throttling_image_list_s*) { return int{STS_OK}; };
    table.create_image_v10 = [](const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t,
                                throttling_image_s**) { return int{STS_ERR_MAX_CONNECTIONS}; };
    table.get_server_config_v11 = [](throttling_server_s*, char* buffer, uint32_t, uint32_t*) {
        strcpy(buffer, "name=STS:KEPT,description=of events,type=int,value=7,fixed=n;");
        return was_set ? int{STS_ERR_INVALID} : int{STS_OK};
    };
    table.set_server_config_v11 = [](throttling_server_s*, const char*, char* error, uint32_t) {
        was_set = true;
        strcpy(error, "full");
        return int{STS_ERR_FILE};
    };
    return table;
}

const stspi_ep_t table = make_table();
void* const second_table[22] = {};

} // namespace

extern "C" {

__attribute__((visibility("default"))) int stspi_init(uint64_t, const char*,
                                                      stspi_api_rec_t* record) {
    if (is_asked_for("start")) {
        return STS_ERR_OPEN;
    }
    *record = {};
    record->version = is_asked_for("version") ? 9 : 11;
    record->ep = is_asked_for("table") ? nullptr : &table;
    strcpy(record->prefix, is_asked_for("prefix") ? "CS_copies:" : "CS_throttle:");
    strcpy(record->label, is_asked_for("label") ? "Copying Plugin" : "Throttling Plugin");
    strcpy(record->version_text, is_asked_for("text") ? "" : "1 other");
    return STS_OK;
}

__attribute__((visibility("default"))) int stspi_init2(uint64_t, stspi_api2_rec_t* record) {
    record->version = 11;
    record->entry_points = second_table;
    return STS_OK;
}

} // extern "C"
