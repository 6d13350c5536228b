#include "tests/entries/world.h"

#include "plugin/throttling_log.h"
#include "tests/entries/unmetered.h"

#include <cstring>

namespace {

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
    take_lines_of_file();
    std::string all;
    for (const next_argument& each : call.arguments) {
        all += (all.empty() ? "" : ", ") + text_of(each);
    }
    host_log().push_back({0, "-> " + call.operation + "(" + all + ")", ""});
}

world::world() : lsu(static_cast<sts_lsu_ref_s*>(malloc(sizeof(sts_lsu_ref_s)))) {
    leave_unmetered(session);
    leave_unmetered(own_session);
    leave_client_unmetered();
    sts_api = unmetered_table();
    next_layer().observer = [this](const next_call& call) { watch(call); };
    server = open_named();
    count_ = &server->open_handles;
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
    next.name(&moved, "moved");
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

server_ptr world::open_named() {
    server_ptr opened = open();
    next_layer().name(opened->next_server, "server'");
    next_layer().name(opened->next_session, "session'");
    return opened;
}

world::~world() {
    next_layer().answers.clear();
    next_layer().effects.clear();
    sts_api = unmetered_table();
    server->magic = SERVER_MAGIC;
    server->next_server = next_server_;
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
        if (*each) {
            (*each)->magic = IMAGE_MAGIC;
            (*each)->lsu.server = server.get();
            each->reset();
        }
    }
    free(lsu);
    next_layer().observer = nullptr; // it looks at members
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
        case parameter_t::moved:
            arguments.push_back(address(&moved));
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
    if (text == server->server_name) {
        text = "CS_throttle:global:";
    }
}

void world::call(const operation& called, const std::vector<uint64_t>& arguments,
                 const std::string& slot, int answer, int at, memory_meter::refused refused) {
    int number = 0;
    const auto usual_effect = next_layer().effects[slot];
    next_layer().answers[slot] = at == 1 ? answer : 0;
    next_layer().effects[slot] = [&](const next_call& arrived) {
        next_layer().answers[slot] = ++number + 1 == at ? answer : 0; // of the next call
        if (usual_effect) {
            usual_effect(arrived);
        }
    };
    const int32_t handles_before = *count_;
    memory_meter::start(refused);
    status = called.call(arguments);
    memory = memory_meter::stop();
    handles_added = *count_ - handles_before;
    next_layer().answers.clear();
    next_layer().effects.clear();
    take_story();
}

void world::read_log_file() {
    file_.emplace();
    log_init(5); // every severity
}

void world::take_lines_of_file() {
    if (!file_) {
        return;
    }
    static const std::map<std::string, int> severities = {
        {"[INFO]", 1}, {"[WARN]", 2}, {"[DEBUG]", 3}, {"[ERROR]", 4}};
    const std::string label = " [no session]";
    const lines entries = file_->entries();
    for (; lines_taken_ < entries.size(); ++lines_taken_) {
        const std::string& entry = entries[lines_taken_];
        const size_t tag_end = entry.find(label);
        if (tag_end != std::string::npos) {
            host_log().push_back({severities.at(entry.substr(0, tag_end)),
                                  entry.substr(tag_end + label.size()), "no session"});
        }
    }
}

void world::take_story() {
    take_lines_of_file();
    story.clear();
    sessions.clear();
    for (const logged& each : host_log()) {
        if (each.severity == 0) {
            story.push_back(each.text);
        } else if (each.text.rfind("[throttling_", 0) == 0 ||
                   each.text.rfind("[create_or_open_image_v10]", 0) == 0) {
            story.push_back(std::to_string(each.severity) + " " + each.text);
            sessions.push_back(each.session);
        }
    }
    forget();
}
