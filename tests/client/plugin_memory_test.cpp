// An open without memory for its connection to the service: it goes on without one.

#include "tests/client/plugin_fixture.h"
#include "tests/support/failing_strdup.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PluginWithoutMemory : public Plugin {
  protected:
    /// The server's first image, which finds no memory for the text of its session.
    throttling_image_s* create_without(throttling_server_s* server) {
        const failing_strdup none;
        return create(server, "first");
    }
};

TEST_F(PluginWithoutMemory, IsToldAndGoesOnWithoutTheServiceUntilTheNextImage) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const first = create_without(server);
    EXPECT_EQ(status, STS_OK);
    EXPECT_THAT(take_errors(),
                ElementsAre("4 [create_or_open_image_v10]connect service error:2060002."));
    write(first, 10);
    EXPECT_THAT(asked(), IsEmpty());
    create(server, "second");
    EXPECT_EQ(asked(), join({new_session,
                             {"settings(cloud, s3)", "check_connections(\"a:s3\", \"a_b\", 1)"}}));
}

TEST_F(PluginWithoutMemory, LeavesASurplusCloseWhichGoesToTheServiceToo) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const first = create_without(server);
    write(first, 10); // isn't counted: there is no connection yet
    create(server, "second");
    asked();
    close(first);
    EXPECT_EQ(asked().back(), "check_connections(\"w:s3\", \"a_b\", -1)");
    throttling_image_s* const third = create(server, "third");
    write(third, 10);
    take_log();
    close(third); // takes the count from 0 to -1 again
    EXPECT_EQ(asked().back(), "check_connections(\"w:s3\", \"a_b\", -1)");
}

TEST_F(PluginWithoutMemory, LeavesThePaceOfTheDefaultsAndASampleThatBeginsAgainEachSecond) {
    throttling_image_s* const image = create_without(open_server());
    write(image, 300);
    const auto measured = [&] {
        take_log();
        write(image, 1);
        return told_by("check_bandwidth");
    };
    const std::string rate = "bandwidth_per_second=104857600,conne#=1.";
    EXPECT_THAT(measured(), ElementsAre("enter.", rate, "gap_seconds=0,bandwidth->data_length=300.",
                                        "wait_seconds_=0."));
    clock.advance(1);
    EXPECT_EQ(measured().at(2), "gap_seconds=1,bandwidth->data_length=301.");
    EXPECT_EQ(measured().at(2), "gap_seconds=0,bandwidth->data_length=1.");
    EXPECT_THAT(asked(), IsEmpty());
}

} // namespace
