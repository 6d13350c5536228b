// Reads and writes: when the engine is asked, what the next layer gets, and how bytes are counted.

#include "tests/plugin/frame.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Transfer : public Frame {
  protected:
    Transfer() {
        next_layer().name(buffer, "buffer");
        next_layer().name(&moved, "moved");
    }

    int read() { return throttling_read_image_v7(image.get(), buffer, 4096, 8192, &moved); }
    int write() { return throttling_write_image_v7(image.get(), 5, buffer, 4096, 8192, &moved); }

    void open_server_and_image() {
        server = open();
        image = open_image(server);
    }
    unsigned long counted(operation_type_t operation) const {
        return server->bandwidth[operation].data_length;
    }

    static std::string read_failure(const std::string& message) {
        return error_line("throttling_read_image_v7", message);
    }
    static std::string write_failure(const std::string& message) {
        return error_line("throttling_write_image_v7", message);
    }

    const lines plain_read = {"3 [throttling_read_image_v7]read->.",
                              "-> read_image(#3, buffer, 4096, 8192, moved)",
                              "3 [throttling_read_image_v7]<-read."};
    const lines plain_write = {"3 [throttling_write_image_v7]write->.",
                               "-> write_image(#3, 5, buffer, 4096, 8192, moved)",
                               "3 [throttling_write_image_v7]<-write."};

    char buffer[4096];
    uint64_t moved = 77;
    server_ptr server;
    image_ptr image;
};

// --- throttling off ----------------------------------------------------------------------------

class TransferUnthrottled : public Transfer {
  protected:
    TransferUnthrottled() { open_server_and_image(); }
};

TEST_F(TransferUnthrottled, FlowsStraightThroughWithoutAskingTheEngine) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(read(), STS_OK);
        EXPECT_EQ(moved, 4096U);
        EXPECT_EQ(take_whole_story(), plain_read);
        EXPECT_EQ(write(), STS_OK);
        EXPECT_EQ(take_whole_story(), plain_write);
    }
    EXPECT_EQ(throttling_close_image_v7(image.release(), 0, 0), STS_OK);
    EXPECT_EQ(take_whole_story(), lines{"-> close_handle(#3, 0)"});
    EXPECT_THAT(service().exchanges, IsEmpty());
    EXPECT_EQ(service().clients_made, 0);
    EXPECT_EQ(clock.reads, 1); // when the server was opened
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(TransferUnthrottled, MarksItsDirectionAsBegunAndCountsItsBytes) {
    read();
    EXPECT_EQ(image->io_flags, 1U);
    read();
    EXPECT_EQ(counted(OPERATION_READ), 8192U);
    EXPECT_EQ(counted(OPERATION_WRITE), 0U);
    write();
    EXPECT_EQ(image->io_flags, 3U);
    EXPECT_EQ(counted(OPERATION_READ), 8192U);
    EXPECT_EQ(counted(OPERATION_WRITE), 4096U);
}

TEST_F(TransferUnthrottled, CountsWhatTheNextLayerSaysWasMoved) {
    next_layer().effects["read_image"] = [](const next_call& call) {
        *call.pointer<uint64_t>(4) = 10;
    };
    next_layer().effects["write_image"] = [](const next_call& call) {
        *call.pointer<uint64_t>(5) = 20;
    };
    read();
    write();
    EXPECT_EQ(counted(OPERATION_READ), 10U);
    EXPECT_EQ(counted(OPERATION_WRITE), 20U);
}

TEST_F(TransferUnthrottled, ImagesOfOneServerCountTogether) {
    const image_ptr second = open_image(server);
    write();
    throttling_write_image_v7(second.get(), 5, buffer, 100, 0, &moved);
    EXPECT_EQ(counted(OPERATION_WRITE), 4196U);
}

TEST_F(TransferUnthrottled, OfNoBytesIsForwardedAndAddsNothing) {
    EXPECT_EQ(throttling_write_image_v7(image.get(), 5, buffer, 0, 8192, &moved), STS_OK);
    EXPECT_EQ(moved, 0U);
    EXPECT_EQ(next_layer().last("write_image").line(),
              "write_image(#3, 5, buffer, 0, 8192, moved)");
    EXPECT_EQ(counted(OPERATION_WRITE), 0U);
    EXPECT_EQ(image->io_flags, 2U);
}

TEST_F(TransferUnthrottled, PassesEveryForwardedBitOn) {
    throttling_read_image_v7(image.get(), buffer, UINT64_MAX, UINT64_MAX - 1, &moved);
    throttling_write_image_v7(image.get(), UINT64_MAX - 2, buffer, UINT64_MAX, UINT64_MAX - 1,
                              &moved);
    EXPECT_THAT(next_layer().take(),
                ElementsAre("read_image(#3, buffer, 18446744073709551615, 18446744073709551614, "
                            "moved)",
                            "write_image(#3, 18446744073709551613, buffer, 18446744073709551615, "
                            "18446744073709551614, moved)"));
}

TEST_F(TransferUnthrottled, ThatTheNextLayerFailsIsLoggedAndCountsNothingButHasBegun) {
    next_layer().answers = {{"read_image", 4711}, {"write_image", -9}};
    EXPECT_EQ(read(), 4711);
    EXPECT_EQ(take_whole_story(), (lines{plain_read[0], plain_read[1],
                                         read_failure("fail to read image, return code: 4711")}));
    EXPECT_EQ(write(), -9);
    EXPECT_EQ(take_whole_story(), (lines{plain_write[0], plain_write[1],
                                         write_failure("fail to write image , error code: -9.")}));
    EXPECT_EQ(counted(OPERATION_READ), 0U);
    EXPECT_EQ(counted(OPERATION_WRITE), 0U);
    EXPECT_EQ(image->io_flags, 3U);
}

TEST_F(TransferUnthrottled, WithNoNextLayerBoundAnswersNotInitAndLeavesItsArgumentsAlone) {
    sts_api = nullptr;
    EXPECT_EQ(read(), STS_ERR_NOT_INIT);
    EXPECT_EQ(write(), STS_ERR_NOT_INIT);
    EXPECT_EQ(moved, 77U);
}

TEST_F(TransferUnthrottled, BadArgumentsAreRefusedWithoutALineAndBeginNothing) {
    EXPECT_EQ(throttling_read_image_v7(nullptr, buffer, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(throttling_read_image_v7(image.get(), nullptr, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(throttling_read_image_v7(image.get(), buffer, 1, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(throttling_write_image_v7(nullptr, 5, buffer, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(throttling_write_image_v7(image.get(), 5, nullptr, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(throttling_write_image_v7(image.get(), 5, buffer, 1, 0, nullptr), STS_ERR_INVALID);
    image->magic = SERVER_MAGIC;
    EXPECT_EQ(read(), STS_ERR_INVALID);
    EXPECT_EQ(write(), STS_ERR_INVALID);
    image->magic = IMAGE_MAGIC;
    EXPECT_EQ(image->io_flags, 0U);
    EXPECT_EQ(take_whole_story(), lines{});
}

// --- throttling on -----------------------------------------------------------------------------

class TransferThrottled : public Transfer {
  protected:
    TransferThrottled() {
        turn_throttling_on();
        open_server_and_image();
    }

    /// The engine's lines of a check that neither sleeps nor reports, up to where these part.
    static lines check(unsigned long gap, unsigned long counted) {
        return {"3 [check_bandwidth]enter.",
                "3 [get_bandwidth_per_second]Enter.",
                "3 [get_bandwidth_per_second]Leave.",
                "3 [check_bandwidth]bandwidth_per_second=1000,conne#=1.",
                "3 [check_bandwidth]gap_seconds=" + std::to_string(gap) +
                    ",bandwidth->data_length=" + std::to_string(counted) + ".",
                "3 [check_bandwidth]wait_seconds_=0."};
    }
    static lines join(std::initializer_list<lines> parts) {
        lines all;
        for (const lines& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    const lines claimed = {"3 [check_connections]enter.",
                           "3 [check_connections]Add reference count for r/w == 1, leave."};
    /// Those of a report that the service takes.
    static lines reported(const std::string& what) {
        return {"=> check_bandwidth(" + what + ")",
                "3 [check_bandwidth]response:0,connection# for r:1,connection# for w:1,free "
                "flow:0,wait seconds:0",
                "3 [check_bandwidth]leaving with return vale 0"};
    }
    /// Those of one that doesn't reach it.
    static lines failed(const std::string& what) {
        return {"=> check_bandwidth(" + what + ")", "3 [check_bandwidth]response recived =",
                "3 [check_bandwidth]leaving with return vale 2060017"};
    }
};

TEST_F(TransferThrottled, FirstReadClaimsAConnectionThenReportsThenReads) {
    EXPECT_EQ(read(), STS_OK);
    EXPECT_EQ(take_whole_story(),
              join({claimed, check(0, 0), reported("r:s3, a_b, 0 bytes"), plain_read}));
}

TEST_F(TransferThrottled, SecondReadClaimsNothingAndIsNotForced) {
    read();
    forget();
    clock.advance(10);
    EXPECT_EQ(read(), STS_OK);
    EXPECT_EQ(take_whole_story(), join({check(10, 4096), plain_read}));
    EXPECT_THAT(service().exchanges, IsEmpty());
}

TEST_F(TransferThrottled, FirstWriteClaimsAConnectionThenReportsThenWrites) {
    EXPECT_EQ(write(), STS_OK);
    EXPECT_EQ(take_whole_story(),
              join({claimed, check(0, 0), reported("w:s3, a_b, 0 bytes"), plain_write}));
}

TEST_F(TransferThrottled, SecondWriteClaimsNothingAndIsNotForced) {
    write();
    forget();
    clock.advance(10);
    EXPECT_EQ(write(), STS_OK);
    EXPECT_EQ(take_whole_story(), join({check(10, 4096), plain_write}));
}

TEST_F(TransferThrottled, WaitsForTheBytesOfEarlierTransfersAndNeverItsOwn) {
    write();
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    write(); // 4096 bytes at 1000 bytes per second, none of which have passed
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U));
    write(); // twice that, of which 4 seconds have passed
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U));
    read(); // has a sample of its own
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(TransferThrottled, WriteOfNoBytesIsCheckedLikeAnyOther) {
    EXPECT_EQ(throttling_write_image_v7(image.get(), 5, buffer, 0, 0, &moved), STS_OK);
    EXPECT_EQ(counted(OPERATION_WRITE), 0U);
    EXPECT_EQ(service().take().size(), 1U);
    forget();
    EXPECT_EQ(throttling_write_image_v7(image.get(), 5, buffer, 0, 0, &moved), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [check_bandwidth]enter.", "3 [throttling_write_image_v7]write->.",
                     "-> write_image(#3, 5, buffer, 0, 0, moved)",
                     "3 [throttling_write_image_v7]<-write."}));
}

TEST_F(TransferThrottled, DueSampleIsReportedAndRestarts) {
    read();
    service().take();
    clock.advance(30);
    const time_t due = clock.now();
    read();
    const std::vector<exchange> exchanges = service().take();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].data_length, 4096U);
    EXPECT_EQ(exchanges[0].start_time, static_cast<uint32_t>(due - 30));
    EXPECT_EQ(exchanges[0].end_time, static_cast<uint32_t>(due));
    EXPECT_EQ(counted(OPERATION_READ), 4096U); // those of the read itself
    EXPECT_EQ(server->bandwidth[OPERATION_READ].start_time, due);
}

TEST_F(TransferThrottled, ReportThatFailsIsLoggedAndDataFlows) {
    service().usual = {STS_ERR_FILE, "", false, false};
    EXPECT_EQ(read(), STS_OK);
    EXPECT_EQ(take_whole_story(), join({claimed,
                                        check(0, 0),
                                        failed("r:s3, a_b, 0 bytes"),
                                        {read_failure("fail to check bandwidth from service.")},
                                        plain_read}));
    EXPECT_EQ(write(), STS_OK);
    EXPECT_EQ(take_whole_story(), join({claimed,
                                        check(0, 0),
                                        failed("w:s3, a_b, 0 bytes"),
                                        {write_failure("fail to check bandwidth from service.")},
                                        plain_write}));
}

TEST_F(TransferThrottled, EvenARefusalOfAReportStopsNothing) {
    service().usual.status = STS_ERR_MAX_CONNECTIONS;
    EXPECT_EQ(read(), STS_OK);
    EXPECT_EQ(write(), STS_OK);
}

TEST_F(TransferThrottled, EngineThatRunsOutOfMemoryIsLoggedAndDataFlows) {
    service().usual.throws = true;
    EXPECT_EQ(read(), STS_OK);
    EXPECT_TRUE(has_logged(STS_SEV_ERROR, "[throttling_read_image_v7]fail to check bandwidth from "
                                          "service."));
    EXPECT_EQ(write(), STS_OK);
    EXPECT_TRUE(has_logged(STS_SEV_ERROR, "[throttling_write_image_v7]fail to check bandwidth from "
                                          "service."));
    EXPECT_EQ(moved, 4096U);
}

TEST_F(TransferThrottled, ThatTheNextLayerFailsHasStillBegun) {
    next_layer().answers = {{"read_image", 4711}, {"write_image", 4711}};
    EXPECT_EQ(read(), 4711);
    EXPECT_EQ(write(), 4711);
    EXPECT_EQ(counted(OPERATION_READ), 0U);
    EXPECT_EQ(counted(OPERATION_WRITE), 0U);
    next_layer().answers.clear();
    forget();
    EXPECT_EQ(read(), STS_OK); // neither claims nor forces a report
    EXPECT_EQ(take_whole_story(), join({{"3 [check_bandwidth]enter."}, plain_read}));
}

TEST_F(TransferThrottled, OnAGlobalServerIsPacedByTheDefaultSettingsAndTellsNobody) {
    image.reset();
    server = open("CS_throttle:global:disk:s3");
    image = open_image(server);
    next_layer().effects["write_image"] = [](const next_call& call) {
        *call.pointer<uint64_t>(5) = 104857600UL * 3;
    };
    EXPECT_EQ(write(), STS_OK);
    EXPECT_EQ(write(), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_THAT(service().exchanges, IsEmpty());
}

} // namespace
