// Which stream archives what.

#include "tools/run/share_plan.h"

#include "tests/support/conf_dir.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

namespace fs = std::filesystem;

namespace {

class SharePlan : public testing::Test {
  protected:
    void make(const std::string& name, size_t size) const {
        conf_dir::write(files.path() + "/" + name, std::string(size, 'x'));
    }

    /// The stream of each entry, by its name; the top is ".".
    std::map<std::string, size_t> spread(size_t streams) {
        share_plan plan(streams);
        tree_list list({{files.path(), "."}});
        list.fill({[&](const tree_entry& entry) { plan.note(entry); },
                   [](const std::string&, const std::string&) {}});
        plan.spread(list);
        std::map<std::string, size_t> stream_of;
        std::vector<uint64_t> costs(streams);
        tree_list::reader entries(list);
        for (size_t number = 0; const tree_entry* const entry = entries.next(); ++number) {
            stream_of[entry->name] = plan.stream_of(number);
            costs[plan.stream_of(number)] += cost_of(*entry);
        }
        planned.clear();
        for (size_t stream = 0; stream < streams; ++stream) {
            planned.push_back(plan.planned(stream));
        }
        EXPECT_EQ(planned, costs);
        return stream_of;
    }

    conf_dir files; // a directory of our own
    std::vector<uint64_t> planned;
};

TEST_F(SharePlan, DirectoriesGoToTheFirstStream) {
    fs::create_directories(files.path() + "/a/b/c");
    make("a/large", 100000);
    for (const auto& [name, stream] : spread(3)) {
        EXPECT_TRUE(stream == 0 || name == "a/large") << name;
    }
}

TEST_F(SharePlan, NamesOfOneFileGoToOneStreamAndCountOnce) {
    make("a", 50000);
    for (const char* name : {"b", "c", "d"}) {
        fs::create_hard_link(files.path() + "/a", files.path() + "/" + name);
    }
    make("e", 49000);
    make("f", 48000);
    std::map<std::string, size_t> stream_of = spread(3);
    EXPECT_EQ(stream_of["a"], 0U);
    for (const char* name : {"b", "c", "d"}) {
        EXPECT_EQ(stream_of[name], stream_of["a"]);
    }
    EXPECT_EQ(stream_of["e"], 1U);
    EXPECT_EQ(stream_of["f"], 2U);
}

TEST_F(SharePlan, StreamsCarryAboutTheSame) {
    size_t largest = 0;
    for (size_t number = 0; number < 500; ++number) {
        const size_t size = number * 7919 % 5000;
        make("file" + std::to_string(number), size);
        largest = std::max(largest, size);
    }
    spread(7);
    const auto [least, most] = std::minmax_element(planned.begin(), planned.end());
    EXPECT_LE(*most - *least, largest + 2 * 768);
}

} // namespace
