// The matrix: every operation that is handed on, under everything that can be wrong with its
// arguments, with the layer below it or with the memory. Each cell is held by its status, the lines
// and calls in their order, what the host is left with, the server's count and the memory.

#include "tests/entries/cells.h"
#include "tests/entries/row_world.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <set>

using testing::Each;

namespace {

class cell_run {
  public:
    explicit cell_run(const cell& it) : it_(it), of_(*it.of), in_(*it.of) {}

    void run() {
        prepare();
        in_.call_with(arguments_, it_.what == condition::answered ? it_.value : 0,
                      it_.what == condition::without_memory);
        sts_api = layer_;
        expected_ = expected_of(it_);
        expect_lines();
        expect_outs();
        expect_texts();
        EXPECT_EQ(in_.handles_added, expected_.counts);
        EXPECT_EQ(in_.memory.kept, expected_.kept);
        if (!of_.without_memory) {
            EXPECT_EQ(in_.memory.asked, 0);
        }
    }

  private:
    void prepare() {
        if (it_.what == condition::cut_off) {
            in_.cut_off();
        }
        arguments_ = in_.good_arguments();
        record_before_ = in_.record;
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

    void* handle_of(int kind) const {
        void* const handles[kinds] = {in_.server.get(), in_.image.get(), in_.lsu_list,
                                      in_.image_list};
        return handles[kind];
    }

    /// Puts a server where the argument has its own.
    void put_server(void* server) {
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

    void expect_lines() {
        EXPECT_EQ(in_.status, expected_.status);
        lines story = expected_.story;
        const std::string who = of_.who.empty() ? "throttling_" + of_.operation : of_.who;
        const size_t second_colon = in_.text.find(':', in_.text.find(':') + 1);
        for (std::string& each : story) {
            if (each[0] != '-') {
                each.insert(2, "[" + who + "]");
            }
            each = replaced(each, "{NEXT}", in_.text.substr(second_colon + 1));
            each = replaced(each, "{NAME}", in_.text);
            each = replaced(each, "{TYPE}", std::to_string(static_cast<int32_t>(forwarded(2))));
        }
        EXPECT_EQ(in_.story, story);
        const bool own_session =
            has_parameter(of_, parameter_t::session) || has_parameter(of_, parameter_t::channel);
        EXPECT_THAT(in_.sessions, Each(own_session ? "own" : "a:b"));
    }

    void expect_outs() {
        EXPECT_EQ(in_.out != untouched<void>(), expected_.out);
        auto record = record_before_;
        if (expected_.named) {
            char* const name = record.data() + *of_.name_at;
            memset(name, 0, STS_NAME_SIZE);
            strcpy(name, in_.server->server_name);
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

    /// The texts of the configuration, in a buffer of each door's own.
    void expect_texts() {
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
            if (!refused &&
                status != STS_ERR_NOMEM) { // the file is read before the buffer is cleared
                const uint32_t count = fill(record.data(), status, 0);
                memcpy(record.data() + STS_CONFIG_SIZE, &count, sizeof count);
            }
            EXPECT_TRUE(in_.record == record);
        }
    }

    /// Our text where all went well, nothing otherwise; its length, or the count as it was.
    uint32_t fill(char* text, int status, uint32_t count) {
        memset(text, 0, STS_CONFIG_SIZE);
        if (status != STS_OK) {
            return count;
        }
        char type[] = "cloud";
        char storage[] = "s3";
        read_config_file_to_buf(nullptr, text, type, storage);
        return static_cast<uint32_t>(strlen(text));
    }

    const cell& it_;
    const row& of_;
    row_world in_;
    const sts_api_t* const layer_ = sts_api;
    std::vector<uint64_t> arguments_;
    std::array<char, 16384> record_before_;
    outcome expected_;
};

/// Runs every cell of those conditions; a test without one would hold nothing.
void run_cells(const std::set<condition>& conditions) {
    int ran = 0;
    for (const cell& each : all_cells()) {
        if (conditions.count(each.what) != 0 && each.left_out == nullptr) {
            SCOPED_TRACE(title_of(each));
            cell_run(each).run();
            ++ran;
        }
    }
    EXPECT_GT(ran, 0);
}

TEST(Matrix, EveryStatusOfTheNextLayerReachesTheHost) { run_cells({condition::answered}); }

TEST(Matrix, EveryOperationAnswersNotInitWithNoLayerBound) { run_cells({condition::unbound}); }

TEST(Matrix, ServerWithoutNextLayerDoesWhatEachOperationSays) { run_cells({condition::cut_off}); }

TEST(Matrix, NullArgumentIsRefusedInSilenceOrHandedOn) { run_cells({condition::null}); }

TEST(Matrix, ServerThatIsNoneOrStaleOrOfAnotherKindIsRefusedWhereItIsLookedAt) {
    run_cells({condition::null_server, condition::stale_server, condition::other_server});
}

TEST(Matrix, HandleThatIsStaleOrOfAnotherKindIsRefusedWhereItIsLookedAt) {
    run_cells({condition::stale_handle, condition::other_handle});
}

TEST(Matrix, WithoutMemoryOnlyWhatNeedsSomeFails) { run_cells({condition::without_memory}); }

TEST(Matrix, LeavesOutACellForAReasonOnly) {
    std::map<std::string, int> left_out;
    int ran = 0;
    for (const cell& each : all_cells()) {
        ++(each.left_out != nullptr ? left_out[each.left_out] : ran);
    }
    std::cout << ran << " cells run\n";
    for (const auto& [reason, count] : left_out) {
        std::cout << count << " left out: " << reason << '\n';
    }
    EXPECT_EQ(ran, 452);
    EXPECT_EQ(left_out,
              (std::map<std::string, int>{
                  {unchecked, 25}, {unread_magic, 54}, {no_magic, 4}, {held_by_first, 20}}));
}

// --- nothing of the table is forgotten ---------------------------------------------------------

TEST(Matrix, EveryOperationOfTheTablesHasARowOrAReasonForNone) {
    std::set<std::string> with_row;
    for (const row& each : rows()) {
        with_row.insert(each.operation);
    }
    size_t unsupported = 0;
    for (const operation& each : operations()) {
        const bool in_row = with_row.erase(each.name) == 1;
        const bool elsewhere = without_row().count(each.name) == 1;
        EXPECT_EQ(int{in_row} + int{elsewhere} + int{!each.supported}, 1) << each.name;
        unsupported += each.supported ? 0 : 1;
    }
    EXPECT_EQ(with_row, std::set<std::string>());
    EXPECT_EQ(unsupported, 12U);
    EXPECT_EQ(operations().size(), STSPI_ENTRY_COUNT + 2);
}

TEST(Matrix, UnsupportedTwelveAnswerSoEvenWithNoLayerBoundAndInSilence) {
    world in;
    for (const bool bound : {true, false}) {
        const sts_api_t* const layer = sts_api;
        sts_api = bound ? layer : nullptr;
        for (const operation& each : operations()) {
            if (!each.supported) {
                in.call(each, {});
                EXPECT_EQ(in.status, 2060016) << each.name;
                EXPECT_EQ(in.story, lines{}) << each.name;
                EXPECT_EQ(in.memory.asked, 0) << each.name;
            }
        }
        sts_api = layer;
    }
}

} // namespace
