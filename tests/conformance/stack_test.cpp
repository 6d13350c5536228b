// The stack itself: that there are as many layers as the run says, and what only they have.

#include "tests/conformance/storage.h"

#include <algorithm>
#include <dlfcn.h>

namespace {

class Stack : public Storage {};

TEST_F(Stack, HasAsManyLayersAsItsNameSays) {
    store("image", "content");
    session = host_session("host");
    take_log();
    EXPECT_EQ(call::close_server(server), STS_OK);
    server = open_server();
    const handle image = open("image");
    take_log();
    EXPECT_EQ(read(image), "content");
    const std::vector<std::string> log = take_log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "3 [throttling_read_image_v7]read->."),
              stack::current().layers());
    EXPECT_EQ(close(image), STS_OK);
}

TEST_F(Stack, StandsOnASecondCopyOfTheLibraryWhereItHasTwoLayers) {
    const char* const listed = getenv("VL_STS_PLUGINS");
    EXPECT_EQ(listed != nullptr, stack::current().layers() == 2);
    if (listed == nullptr) {
        return;
    }
    void* const lower = dlopen(listed, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(lower, nullptr);
    EXPECT_NE(dlsym(lower, "ep"), static_cast<const void*>(stack::current().entries));
    const auto* const bound = static_cast<const sts_api_t* const*>(dlsym(lower, "sts_api"));
    ASSERT_NE(bound, nullptr);
    EXPECT_NE(*bound, nullptr);
    dlclose(lower);
}

TEST_F(Stack, ClaimsTheNamesOfItsLayers) {
    if (!differs(rules::claims)) {
        EXPECT_EQ(stack::current().entries, nullptr);
        return;
    }
    const stspi_ep_t& entries = *stack::current().entries;
    EXPECT_EQ(entries.claim_v7(server_name().c_str()), STS_OK);
    EXPECT_EQ(entries.claim_v7(storage_name().c_str()), STS_ERR_NOT_CLAIMED);
}

TEST_F(Stack, DoesntSupportTwelveOperations) {
    if (!differs(rules::unsupported)) {
        EXPECT_EQ(stack::current().entries, nullptr);
        return;
    }
    const stspi_ep_t& entries = *stack::current().entries;
    int refused = 0;
#define SUPPORTED(name, arguments)
#define UNSUPPORTED(name)                                                                          \
    EXPECT_EQ(entries.name(), STS_ERR_NOT_SUPPORTED) << #name;                                     \
    ++refused;
    STSPI_ENTRIES(SUPPORTED, UNSUPPORTED)
#undef SUPPORTED
#undef UNSUPPORTED
    EXPECT_EQ(refused, 12);
}

TEST_F(Stack, CanBeStoppedAndStartedAgain) {
    store("image", "content");
    EXPECT_EQ(call::close_server(server), STS_OK);
    ASSERT_EQ(stack::current().stop(), STS_OK);
    ASSERT_NO_FATAL_FAILURE(stack::current().start());
    server = open_server();
    EXPECT_EQ(content_of("image"), "content");
}

} // namespace
