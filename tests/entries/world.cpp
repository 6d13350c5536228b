#include "tests/entries/world.h"

#include <cstring>

namespace {

/// The recording next layer, where the meter stands still.
template <auto slot>
struct unmetered;

template <typename... Arguments, int (*sts_api_t::*slot)(Arguments...)>
struct unmetered<slot> {
    static int call(Arguments... arguments) {
        const pause_metering paused;
        return (fake_next_layer::table()->*slot)(arguments...);
    }
};

const sts_api_t* unmetered_table() {
    static const sts_api_t the_table = [] {
        sts_api_t table = {};
#define UNMETERED(slot) table.slot = unmetered<&sts_api_t::slot>::call;
        UNMETERED(add_evsource)
        UNMETERED(async_cancel)
        UNMETERED(async_copy_image)
        UNMETERED(async_wait)
        UNMETERED(close_handle)
        UNMETERED(copy_extent)
        UNMETERED(create_lsu)
        UNMETERED(delete_event)
        UNMETERED(delete_files)
        UNMETERED(delete_image)
        UNMETERED(delete_lsu)
        UNMETERED(find_lsu)
        UNMETERED(flush)
        UNMETERED(get_event)
        UNMETERED(get_event_payload)
        UNMETERED(get_image_group)
        UNMETERED(get_image_group_byname)
        UNMETERED(get_image_prop)
        UNMETERED(get_image_prop_byname)
        UNMETERED(get_lsu_prop_byname)
        UNMETERED(get_lsu_replication_prop)
        UNMETERED(get_server_config)
        UNMETERED(include_in_image)
        UNMETERED(ioctl)
        UNMETERED(label_lsu)
        UNMETERED(list_image)
        UNMETERED(list_lsu)
        UNMETERED(open_evchannel)
        UNMETERED(open_image)
        UNMETERED(open_image_group_list)
        UNMETERED(open_image_list)
        UNMETERED(open_lsu_list)
        UNMETERED(open_server)
        UNMETERED(open_session)
        UNMETERED(read_image_meta)
        UNMETERED(set_server_config)
        UNMETERED(write_image_meta)
#undef UNMETERED
        return table;
    }();
    return &the_table;
}

/// The host's callback, where the meter stands still.
void log_unmetered(const char* session_id, const char* message, sts_severity_v7_t severity) {
    const pause_metering paused;
    static const auto keep = host_session().log;
    keep(session_id, message, severity);
}

/// An argument as the lines show it.
std::string text_of(const next_argument& argument) {
    for (size_t place = 1; place <= 9; ++place) {
        if (argument.value == forwarded(place)) {
            return "f" + std::to_string(place);
        }
        if (argument.value == static_cast<uint32_t>(forwarded(place))) {
            return "u" + std::to_string(place);
        }
        if (argument.value == static_cast<uint64_t>(static_cast<int32_t>(forwarded(place)))) {
            return "i" + std::to_string(place);
        }
    }
    return argument.text[0] == '#' ? "new" : argument.text;
}

template <typename Pointer>
uint64_t address(Pointer* pointer) {
    return reinterpret_cast<uint64_t>(pointer);
}

} // namespace

void world::watch(const next_call& call) {
    std::string all;
    for (const next_argument& each : call.arguments) {
        all += (all.empty() ? "" : ", ") + text_of(each);
    }
    host_log().push_back({0, "-> " + call.operation + "(" + all + ")", ""});
}

world::world() : lsu(static_cast<sts_lsu_ref_s*>(malloc(sizeof(sts_lsu_ref_s)))) {
    session.log = own_session.log = log_unmetered;
    sts_api = unmetered_table();
    next_layer().observer = watch;
    server = open();
    image = open_image(server);
    other = open_image(server);
    *lsu = lsu_of(server.get());
    EXPECT_EQ(throttling_open_lsu_list_v11(server.get(), 0, &lsu_list), STS_OK);
    EXPECT_EQ(throttling_open_image_list_v7(lsu, 4, &image_list), STS_OK);
    text = server->server_name;
    EXPECT_EQ(throttling_open_evchannel(&own_session, text.c_str(), record.data(), 0, 0, 0, 0, 0,
                                        &channel),
              STS_OK);
    next_server_ = server->next_server;
    next_channel_ = channel->next_channel;
    fake_next_layer& next = next_layer();
    next.name(server->next_server, "server'");
    next.name(image->next_image, "image'");
    next.name(other->next_image, "other'");
    next.name(lsu_list->next_list, "lsu_list'");
    next.name(image_list->next_list, "image_list'");
    next.name(channel->next_session, "session'");
    next.name(channel->next_channel, "channel'");
    next.name(holder, "operation'");
    next.name(&own_session, "session");
    next.name(record.data(), "record");
    next.name(other_record.data(), "other_record");
    next.name(buffer.data(), "buffer");
    next.name(&used, "used");
    next.name(untouched<const sts_image_def_s>(), "definition");
    next.name(untouched<const sts_lsu_def_s>(), "definition");
    record.fill('Z');
    other_record.fill('Z');
    buffer.fill('Z');
    for (size_t i = 0; i < sizeof params.opaque; ++i) {
        params.opaque[i] = static_cast<unsigned char>(255 - i);
    }
    forget();
}

world::~world() {
    next_layer().answers.clear();
    next_layer().effects.clear();
    sts_api = unmetered_table();
    if (server) {
        server->magic = SERVER_MAGIC;
        server->next_server = next_server_;
        image->lsu.server = server.get();
    }
    if (lsu_list != nullptr) {
        lsu_list->magic = LSU_LIST_MAGIC;
        throttling_close_lsu_list_v7(lsu_list);
    }
    if (image_list != nullptr) {
        image_list->magic = IMAGE_LIST_MAGIC;
        throttling_close_image_list_v7(image_list);
    }
    if (channel != nullptr) {
        channel->next_channel = next_channel_;
        throttling_close_evchannel(channel);
    }
    for (image_ptr* each : {&image, &other}) {
        (*each)->magic = IMAGE_MAGIC;
        each->reset();
    }
    free(lsu);
}

std::vector<uint64_t> world::arguments_for(const operation& called) {
    std::vector<uint64_t> arguments;
    bool image_given = false;
    bool record_given = false;
    for (const parameter_t each : called.parameters) {
        switch (each) {
        case parameter_t::number:
            arguments.push_back(forwarded(arguments.size() + 1));
            break;
        case parameter_t::server:
            arguments.push_back(address(server.get()));
            break;
        case parameter_t::image:
            arguments.push_back(address(image_given ? other.get() : image.get()));
            image_given = true;
            break;
        case parameter_t::lsu_list:
            arguments.push_back(address(lsu_list));
            break;
        case parameter_t::image_list:
            arguments.push_back(address(image_list));
            break;
        case parameter_t::channel:
            arguments.push_back(address(channel));
            break;
        case parameter_t::lsu:
            arguments.push_back(address(lsu));
            break;
        case parameter_t::session:
            arguments.push_back(address(&own_session));
            break;
        case parameter_t::holder:
            arguments.push_back(address(&holder));
            break;
        case parameter_t::out:
            arguments.push_back(address(&out));
            break;
        case parameter_t::count:
            arguments.push_back(address(&used));
            break;
        case parameter_t::const_text:
            arguments.push_back(address(text.c_str()));
            break;
        case parameter_t::text:
            arguments.push_back(address(buffer.data()));
            break;
        case parameter_t::image_def:
        case parameter_t::lsu_def:
            arguments.push_back(address(untouched<const sts_image_def_s>()));
            break;
        case parameter_t::copy_params:
            arguments.push_back(address(&params));
            break;
        case parameter_t::record:
            arguments.push_back(address(record_given ? other_record.data() : record.data()));
            record_given = true;
            break;
        }
    }
    return arguments;
}

void world::cut_off() {
    server->next_server = nullptr;
    channel->next_channel = nullptr;
    text = "CS_throttle:global:";
}

void world::call(const operation& called, const std::vector<uint64_t>& arguments,
                 const std::string& slot, int answer, int at, bool refuse_memory) {
    int number = 0;
    next_layer().answers[slot] = at == 1 ? answer : 0;
    next_layer().effects[slot] = [&](const next_call&) {
        next_layer().answers[slot] = ++number + 1 == at ? answer : 0; // of the next call
    };
    const int32_t handles_before = server->open_handles;
    memory_meter::start(refuse_memory);
    status = called.call(arguments);
    memory = memory_meter::stop();
    handles_added = server->open_handles - handles_before;
    next_layer().answers.clear();
    next_layer().effects.clear();
    take_story();
}

void world::take_story() {
    story.clear();
    sessions.clear();
    for (const logged& each : host_log()) {
        if (each.severity == 0) {
            story.push_back(each.text);
        } else if (each.text.rfind("[throttling_", 0) == 0) {
            story.push_back(std::to_string(each.severity) + " " + each.text);
            sessions.push_back(each.session);
        }
    }
    forget();
}
