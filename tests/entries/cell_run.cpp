#include "tests/entries/cell_run.h"

#include <algorithm>
#include <cstring>

using testing::Each;

void cell_run::run() {
    call_with(it_.what == condition::without_any ? memory_meter::all_refused
                                                 : memory_meter::refused{});
    expect(expected_of(it_));
}

bool cell_run::call_without(int number) {
    call_with(memory_meter::only(number));
    return in_.memory.asked >= number;
}

bool cell_run::was(const outcome& expected) const {
    return in_.status == expected.status && in_.story == story_of(expected) &&
           in_.memory.kept == expected.kept;
}

void cell_run::expect(const outcome& expected) {
    expected_ = expected;
    EXPECT_EQ(in_.status, expected_.status);
    EXPECT_EQ(in_.story, story_of(expected_));
    expect_sessions();
    expect_outs();
    expect_texts();
    expect_samples();
    EXPECT_EQ(in_.handles_added, expected_.counts);
    EXPECT_EQ(in_.memory.kept, expected_.kept);
    EXPECT_EQ(bound_after_, expected_.unbinds ? nullptr : bound_before_);
    if (of_.shortages.empty()) {
        EXPECT_EQ(in_.memory.asked, 0);
    }
    expect_file();
}

void cell_run::call_with(memory_meter::refused refused) {
    prepare();
    bound_before_ = sts_api;
    in_.call_with(arguments_, it_.what == condition::answered ? it_.value : 0, refused);
    bound_after_ = sts_api;
    sts_api = layer_;
}

void cell_run::prepare() {
    if (it_.what == condition::cut_off) {
        in_.cut_off();
    }
    arguments_ = in_.good_arguments();
    record_before_ = in_.record;
    file_before_ = in_.file();
    text_given_ = in_.text;
    switch (it_.what) {
    case condition::unbound:
        sts_api = nullptr;
        break;
    case condition::null:
        arguments_[it_.place - 1] = 0;
        break;
    case condition::null_server:
        put_server(nullptr);
        break;
    case condition::stale_server:
        in_.server->magic = 0;
        break;
    case condition::other_server:
        put_server(handle_of(it_.value));
        break;
    case condition::stale_handle:
        *reinterpret_cast<uint32_t*>(arguments_[it_.place - 1]) = 0;
        break;
    case condition::other_handle:
        arguments_[it_.place - 1] = reinterpret_cast<uint64_t>(handle_of(it_.value));
        break;
    default:
        break;
    }
}

void* cell_run::handle_of(int kind) const {
    void* const handles[kinds] = {in_.server.get(), in_.image.get(), in_.lsu_list, in_.image_list};
    return handles[kind];
}

/// Puts a server where the argument has its own.
void cell_run::put_server(void* server) {
    switch (in_.called.parameters[it_.place - 1]) {
    case parameter_t::lsu:
        in_.lsu->server = server;
        break;
    case parameter_t::image:
        in_.image->lsu.server = server;
        break;
    default:
        arguments_[it_.place - 1] = reinterpret_cast<uint64_t>(server);
    }
}

/// The lines as the row's operation logs them in this cell's world.
lines cell_run::story_of(const outcome& expected) const {
    lines story = expected.story;
    const std::string who = of_.who.empty() ? "throttling_" + of_.operation : of_.who;
    const size_t second_colon = text_given_.find(':', text_given_.find(':') + 1);
    for (std::string& each : story) {
        if (each[0] != '-' && each[0] != '=') {
            each.insert(2, "[" + who + "]");
        }
        each = replaced(each, "{NEXT}", text_given_.substr(second_colon + 1));
        each = replaced(each, "{NAME}", text_given_);
        each = replaced(each, "{TYPE}", std::to_string(static_cast<int32_t>(forwarded(2))));
    }
    return story;
}

void cell_run::expect_sessions() {
    const bool own_session =
        has_parameter(of_, parameter_t::session) || has_parameter(of_, parameter_t::channel);
    EXPECT_THAT(in_.sessions, Each(of_.needs_no_layer ? "no session"
                                   : own_session      ? "own"
                                                      : "a:b"));
}

void cell_run::expect_outs() {
    EXPECT_EQ(in_.out != untouched<void>(), expected_.out);
    if (expected_.out && of_.out_count) {
        const auto* const made = static_cast<const throttling_server_s*>(in_.out);
        EXPECT_EQ(made->open_handles, *of_.out_count);
        if (made->next_server != nullptr) { // then its own
            EXPECT_NE(made->next_server, in_.server->next_server);
        }
    }
    auto record = record_before_;
    if (expected_.named) {
        char* const name = record.data() + *of_.name_at;
        memset(name, 0, STS_NAME_SIZE);
        strcpy(name, has_parameter(of_, parameter_t::const_text) ? text_given_.c_str()
                                                                 : in_.server->server_name);
    }
    if (expected_.status_stored != 0) {
        memcpy(record.data() + *of_.status_at, &expected_.status_stored, sizeof(int32_t));
    }
    if (of_.call.find(", 13, ") == std::string::npos) {
        EXPECT_TRUE(in_.record == record);
    }
    EXPECT_TRUE(std::all_of(in_.other_record.begin(), in_.other_record.end(),
                            [](char each) { return each == 'Z'; }));
}

/// The bytes of a transfer, as the next layer tells them, are counted where it succeeds.
void cell_run::expect_samples() {
    if (!of_.moves) {
        EXPECT_EQ(in_.moved, 77U);
        return;
    }
    const bool called =
        std::count(expected_.story.begin(), expected_.story.end(), "-> " + of_.call) != 0;
    const uint64_t length = forwarded(arguments_.size() - 2);
    EXPECT_EQ(in_.moved, called ? length : 77);
    for (const operation_type_t each : {OPERATION_READ, OPERATION_WRITE}) {
        const bool counted = each == *of_.moves && expected_.status == STS_OK;
        EXPECT_EQ(in_.server->bandwidth[each].data_length, counted ? length : 0);
    }
}

/// The texts of the configuration, in a buffer of each door's own. The host's own is only read.
void cell_run::expect_texts() {
    EXPECT_EQ(in_.text, text_given_);
    const int status = expected_.status;
    const bool refused = status == STS_ERR_INVALID;
    auto buffer = in_.buffer;
    buffer.fill('Z');
    uint32_t used = 77;
    if (of_.operation == "get_server_config_v11" && !refused) {
        used = fill(buffer.data(), status, used);
    } else if (of_.operation == "set_server_config_v11" && status == STS_ERR_NOMEM) {
        strcpy(buffer.data(), "set config fail.");
    }
    EXPECT_TRUE(in_.buffer == buffer);
    EXPECT_EQ(in_.used, used);
    if (of_.call.find(", 13, ") != std::string::npos) {
        auto record = record_before_;
        if (!refused && status != STS_ERR_NOMEM) { // the file is read before the buffer is cleared
            const uint32_t count = fill(record.data(), status, 0);
            memcpy(record.data() + STS_CONFIG_SIZE, &count, sizeof count);
        }
        EXPECT_TRUE(in_.record == record);
    }
}

/// The settings' file is as it was, or as a configuration that was set makes it.
void cell_run::expect_file() {
    const bool sets = of_.text != nullptr && expected_.status == STS_OK;
    EXPECT_EQ(in_.file(),
              sets ? replaced(file_before_, "THR:s3=10\n", "THR:s3=5\n") : file_before_);
}

/// Our text where all went well, nothing otherwise; its length, or the count as it was.
uint32_t cell_run::fill(char* text, int status, uint32_t count) {
    memset(text, 0, STS_CONFIG_SIZE);
    if (status != STS_OK) {
        return count;
    }
    char type[] = "cloud";
    char storage[] = "s3";
    read_config_file_to_buf(nullptr, text, type, storage);
    return static_cast<uint32_t>(strlen(text));
}
