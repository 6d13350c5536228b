// The storage library on many threads at once.

#include "tests/platform/sts/disk_store.h"

#include <atomic>
#include <functional>
#include <thread>

using testing::SizeIs;

namespace {

class StsThreads : public DiskStore {
  protected:
    StsThreads() { set("STS:SYNC_AT_CLOSE", 0); }

    static void run(int count, const std::function<void(int)>& body) {
        std::vector<std::thread> threads;
        threads.reserve(static_cast<size_t>(count));
        for (int each = 0; each < count; ++each) {
            threads.emplace_back(body, each);
        }
        for (std::thread& each : threads) {
            each.join();
        }
    }
};

TEST_F(StsThreads, WorkOnImagesOfTheirOwn) {
    run(8, [&](int thread) {
        for (int round = 0; round < 10; ++round) {
            const std::string name = std::to_string(thread) + "." + std::to_string(round);
            const std::string content(static_cast<size_t>(1000 + round),
                                      static_cast<char>('a' + thread));
            store(name, content, std::to_string(thread));
            EXPECT_EQ(content_of(name), content);
            if (round % 2 == 0) {
                EXPECT_EQ(delete_image(name), STS_OK);
            }
        }
    });
    EXPECT_THAT(image_names(), SizeIs(40));
}

TEST_F(StsThreads, WriteAndReadRangesOfOneImage) {
    sts_next_image_s* const image = create("image");
    constexpr uint64_t range = 10000;
    run(8, [&](int thread) {
        const std::string content(range, static_cast<char>('a' + thread));
        const auto position = static_cast<uint64_t>(thread) * range;
        for (int round = 0; round < 20; ++round) {
            write(image, content, position);
            EXPECT_EQ(read(image, range, position), content);
        }
    });
    EXPECT_EQ(close(image), STS_OK);
    const std::string whole = content_of("image");
    for (size_t thread = 0; thread < 8; ++thread) {
        EXPECT_EQ(whole.substr(thread * range, range),
                  std::string(range, static_cast<char>('a' + thread)));
    }
}

TEST_F(StsThreads, RaceToCreateOneImageAndOneWins) {
    std::atomic<int> winners{0};
    run(8, [&](int thread) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s definition = image_def("image");
        sts_next_image_s* image = nullptr;
        int status = api->create_image(&lsu, &definition, 0, &image);
        if (status == STS_OK) {
            write(image, std::string(100, static_cast<char>('a' + thread)));
            status = close(image);
        }
        winners += status == STS_OK ? 1 : 0;
        EXPECT_TRUE(status == STS_OK || status == errno_status(EEXIST)) << status;
    });
    EXPECT_EQ(winners, 1);
    const std::string content = content_of("image");
    EXPECT_EQ(content, std::string(100, content[0]));
}

TEST_F(StsThreads, ReadAnImageThatIsWrittenAgainAndAgainAsAWhole) {
    store("image", std::string(1000, 'a'));
    std::atomic<bool> done{false};
    run(4, [&](int thread) {
        if (thread == 0) {
            for (char letter = 'b'; letter <= 'z'; ++letter) {
                sts_next_image_s* const writer = open("image", STS_IMAGE_WRITE);
                write(writer, std::string(static_cast<size_t>(1000 + letter), letter));
                EXPECT_EQ(close(writer), STS_OK);
            }
            done = true;
            return;
        }
        do {
            const std::string content = content_of("image");
            EXPECT_EQ(content, std::string(content.size(), content[0]));
            EXPECT_EQ(image_names().size(), 1U);
        } while (!done);
    });
}

TEST_F(StsThreads, RaceToCloseOneHandleAndOneWins) {
    for (int round = 0; round < 50; ++round) {
        sts_next_image_s* const image = create("image");
        write(image, "content");
        std::atomic<int> winners{0};
        run(4, [&](int) {
            const int status = close(image, STS_CLOSE_ABANDON);
            winners += status == STS_OK ? 1 : 0;
            EXPECT_TRUE(status == STS_OK || status == STS_ERR_INVALID) << status;
        });
        EXPECT_EQ(winners, 1);
    }
}

TEST_F(StsThreads, TransferUntilTheImageIsClosedUnderThem) {
    for (int round = 0; round < 20; ++round) {
        sts_next_image_s* const image = create("image" + std::to_string(round));
        std::atomic<int> transfers{0};
        run(4, [&](int thread) {
            if (thread == 0) {
                while (transfers < 20) {
                    std::this_thread::yield();
                }
                EXPECT_EQ(close(image), STS_OK);
                return;
            }
            char byte = 'x';
            uint64_t count = 0;
            int status = STS_OK;
            while (status == STS_OK) {
                status =
                    api->write_image(image, 0, &byte, 1, static_cast<uint64_t>(thread), &count);
                ++transfers;
            }
            EXPECT_EQ(status, STS_ERR_INVALID);
        });
    }
    EXPECT_THAT(image_names(), SizeIs(20));
}

TEST_F(StsThreads, TakeEachEntryOfOneListOnce) {
    for (int each = 0; each < 40; ++each) {
        store(std::to_string(each), "");
    }
    const sts_lsu_ref_s lsu = ref();
    sts_next_image_list_s* list = nullptr;
    ASSERT_EQ(api->open_image_list(&lsu, 0, &list), STS_OK);
    std::atomic<int> taken{0};
    run(4, [&](int) {
        sts_image_entry_s entry = {};
        sts_image_info_s info = {};
        while (api->list_image(list, &entry) == STS_OK) {
            ++taken;
            (void)api->get_image_prop(list, &info);
        }
    });
    EXPECT_EQ(taken, 40);
}

TEST_F(StsThreads, ChangeSettingsWithoutLosingEachOthers) {
    const char* const keys[] = {"STS:EVENTS_KEPT", "STS:SYNC_AT_CLOSE"};
    for (int round = 0; round < 50; ++round) {
        run(2, [&](int thread) { set(keys[thread], round % 2); });
        char text[STS_CONFIG_SIZE];
        uint32_t used = 0;
        ASSERT_EQ(api->get_server_config(server, text, sizeof text, &used), STS_OK);
        const std::string old_value = round % 2 == 0 ? "value=1," : "value=0,";
        EXPECT_EQ(std::string(text).find(old_value), std::string::npos) << text;
    }
}

TEST_F(StsThreads, OpenAndCloseServersWhileOthersWrite) {
    run(4, [&](int thread) {
        for (int round = 0; round < 10; ++round) {
            if (thread % 2 == 0) {
                store(std::to_string(thread) + "." + std::to_string(round), "content");
            } else {
                EXPECT_EQ(close(open_server()), STS_OK);
            }
        }
    });
    EXPECT_THAT(image_names(), SizeIs(20));
}

TEST_F(StsThreads, CreateAndDeleteLsusWhileOthersWriteToThem) {
    run(4, [&](int thread) {
        const sts_lsu_ref_s lsu = ref("shared");
        const sts_image_def_s definition = image_def(std::to_string(thread));
        sts_lsu_def_s lsu_definition = {};
        lsu_definition.name[0] = 's';
        std::copy_n("shared", 6, lsu_definition.name);
        for (int round = 0; round < 20; ++round) {
            void* made = nullptr;
            if (api->create_lsu(server, &lsu_definition, &made) == STS_OK) {
                EXPECT_EQ(close(made), STS_OK);
            }
            sts_next_image_s* image = nullptr;
            if (api->create_image(&lsu, &definition, 0, &image) == STS_OK) {
                write(image, "content");
                EXPECT_EQ(close(image), STS_OK); // its LSU can't have gone meanwhile
                EXPECT_EQ(api->delete_image(&lsu, &definition, 0), STS_OK);
            }
            (void)api->delete_lsu(&lsu);
        }
    });
}

} // namespace
