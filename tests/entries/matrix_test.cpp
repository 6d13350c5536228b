// The matrix: every operation of the tables, under everything that can be wrong with its arguments,
// with the layer below it or with the memory. cell_run tells by what each cell is held.

#include "tests/entries/cell_run.h"

#include <iostream>
#include <set>

namespace {

/// Fails one allocation of the row's call after the other, until it makes fewer. Each outcome that
/// the row tells comes up in its turn, and no other.
void run_without_one(const cell& it) {
    const std::vector<consequence>& all = it.of->shortages;
    size_t at = 0;
    for (int number = 1;; ++number) {
        SCOPED_TRACE("without allocation " + std::to_string(number));
        cell_run one(it);
        if (!one.call_without(number)) {
            one.expect(expected_of({it.of, condition::answered, 0, STS_OK, nullptr}));
            break;
        }
        ASSERT_FALSE(all.empty()) << "it makes none";
        const bool is_next =
            at + 1 < all.size() && !one.was(expected_of(*it.of, all[at])) && number > 1;
        at += is_next ? 1 : 0;
        one.expect(expected_of(*it.of, all[at]));
    }
    EXPECT_EQ(all.empty() ? 0 : at + 1, all.size()) << "not every outcome came up";
}

/// Runs every cell of those conditions; a test without one would hold nothing.
void run_cells(const std::set<condition>& conditions) {
    int ran = 0;
    for (const cell& each : all_cells()) {
        if (conditions.count(each.what) != 0 && each.left_out == nullptr) {
            SCOPED_TRACE(title_of(each));
            if (each.what == condition::without_one) {
                run_without_one(each);
            } else {
                cell_run(each).run();
            }
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

TEST(Matrix, WithoutMemoryOnlyWhatNeedsSomeFails) { run_cells({condition::without_any}); }

TEST(Matrix, CallGetsOverEachAllocationThatFailsInItsTurn) { run_cells({condition::without_one}); }

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
    EXPECT_EQ(ran, 757);
    EXPECT_EQ(left_out, (std::map<std::string, int>{{unchecked, 27},
                                                    {unread_magic, 57},
                                                    {no_magic, 4},
                                                    {calls_nothing, 4},
                                                    {held_by_first, 49}}));
}

// --- nothing of the table is forgotten ---------------------------------------------------------

TEST(Matrix, EverySupportedOperationOfTheTablesHasARow) {
    std::set<std::string> with_row;
    for (const row& each : rows()) {
        with_row.insert(each.operation);
    }
    size_t unsupported = 0;
    for (const operation& each : operations()) {
        EXPECT_EQ(with_row.erase(each.name), each.supported ? 1U : 0U) << each.name;
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
