// Whoever makes or deletes an LSU is killed at any moment: the LSU is there as a whole, with its
// label and its peers, or it isn't there, and the next one can be made and deleted.

#include "tests/platform/sts/store/kill_store.h"

#include <filesystem>
#include <memory>

namespace fs = std::filesystem;
using testing::Contains;

namespace {

constexpr unsigned lsu_count = 2;

class StsKillLsu : public KillStore {
  protected:
    static std::string label_for(const std::string& name) { return "label of " + name; }

    int make(const std::string& name) {
        const sts_lsu_def_s definition = lsu_def(name, label_for(name));
        void* lsu = nullptr;
        const int status = api->create_lsu(server, &definition, &lsu);
        return status == STS_OK ? close(lsu) : status;
    }
    int remove(const std::string& name) {
        const sts_lsu_ref_s lsu = ref(name);
        return api->delete_lsu(&lsu);
    }
    bool is_listed(const std::string& name) {
        const std::vector<std::string> names = lsu_names();
        return std::count(names.begin(), names.end(), name) == 1;
    }
    /// That an LSU has all that it was made with, and takes images.
    void expect_whole_lsu(const std::string& name) {
        const sts_lsu_ref_s lsu = ref(name);
        const auto info = std::make_unique<sts_lsu_info_s>();
        ASSERT_EQ(api->get_lsu_prop_byname(&lsu, info.get()), STS_OK);
        EXPECT_EQ(info->label, label_for(name));
        EXPECT_EQ(info->image_count, 0U);
        store("image", "content", "", name);
        EXPECT_EQ(content_of("image", name), "content");
        EXPECT_EQ(delete_image("image", name), STS_OK);
    }
    /// Leaves "second" there with the LSU "lsu" as a peer.
    void make_with_peer() {
        if (!is_listed("second")) {
            ASSERT_EQ(make("second"), STS_OK);
        }
        if (image_names().empty()) {
            store("image", "content");
        }
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s source = image_def("image");
        sts_copy_target_s target = {};
        set_field(target.lsu, "second");
        set_field(target.image, "copy");
        sts_next_operation_s* copy = nullptr;
        sts_async_status_s last = {};
        ASSERT_EQ(
            api->async_copy_image(nullptr, forward(&source), &lsu, forward(&target), &copy, 0, {}),
            STS_OK);
        ASSERT_EQ(api->async_wait(nullptr, copy, -1, &last), STS_OK);
        ASSERT_EQ(last.result, STS_OK);
        ASSERT_EQ(delete_image("copy", "second"), STS_OK);
    }
    std::string peer_of_second() {
        const sts_lsu_ref_s lsu = ref("second");
        sts_replication_peer_s peer = {};
        EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 1, &peer, 0, nullptr), STS_OK);
        return peer.lsu;
    }
};

TEST_F(StsKillLsu, AtAnyOf50MomentsLeavesWholeLsusOrNone) {
    size_t found = 0;
    const auto check = [&] {
        for (unsigned each = 0; each < lsu_count; ++each) {
            const std::string name = "lsu" + std::to_string(each);
            EXPECT_EQ(fs::exists(path("store/" + name)), is_listed(name));
            if (is_listed(name)) {
                expect_whole_lsu(name);
                EXPECT_EQ(remove(name), STS_OK);
                ++found;
            }
            EXPECT_EQ(make(name), STS_OK);
        }
    };
    set("STS:EVENTS_KEPT", 20);
    at_random_moments(
        50, 8000,
        [this](std::mt19937& random) {
            const std::string name = "lsu" + std::to_string(random() % lsu_count);
            (void)(random() % 2 == 0 ? make(name) : remove(name));
        },
        check);
    EXPECT_GT(found, 0U); // they were met at their work
    EXPECT_GT(left_behind, 0U);
}

TEST_F(StsKillLsu, AtEveryCallOfACreateLeavesTheWholeLsuOrNone) {
    bool was_missing = false;
    at_every_call(
        [this] {
            if (is_listed("second")) {
                ASSERT_EQ(remove("second"), STS_OK);
            }
        },
        [this] { EXPECT_EQ(make("second"), STS_OK); },
        [&] {
            if (is_listed("second")) {
                expect_whole_lsu("second");
            } else {
                was_missing = true;
                EXPECT_FALSE(fs::exists(path("store/second")));
            }
        });
    EXPECT_TRUE(was_missing);
    EXPECT_THAT(lsu_names(), Contains("second"));
}

TEST_F(StsKillLsu, AtEveryCallOfADeleteLeavesTheWholeLsuOrNone) {
    bool was_there = false;
    at_every_call([this] { make_with_peer(); }, [this] { EXPECT_EQ(remove("second"), STS_OK); },
                  [&] {
                      if (is_listed("second")) {
                          EXPECT_EQ(peer_of_second(), "lsu");
                          expect_whole_lsu("second");
                          was_there = true;
                      } else {
                          EXPECT_FALSE(fs::exists(path("store/second")));
                      }
                  });
    EXPECT_TRUE(was_there);
    EXPECT_FALSE(is_listed("second"));
}

} // namespace
