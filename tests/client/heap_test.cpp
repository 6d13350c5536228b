// What a client gives back, and the one text that it doesn't.

#include "tests/client/client_fixture.h"

#include <malloc.h>
#include <vlsl.hh>

#ifdef IS_SANITIZED
extern "C" size_t __sanitizer_get_current_allocated_bytes(); // g++ comes without the header
#endif

namespace {

size_t bytes_in_use() {
#ifdef IS_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

class ClientHeap : public Client {};

TEST_F(ClientHeap, NothingStaysOfTheReferencesOfASession) {
    const auto client = make();
    const auto some_sessions = [&] {
        for (int i = 0; i < 100; ++i) {
            client->newSession("localhost", 0, false, 10);
            ASSERT_TRUE(client->Initialize());
        }
    };
    some_sessions();
    const size_t before = bytes_in_use();
    some_sessions();
    EXPECT_LT(bytes_in_use(), before + 5000); // a reference has more than 100 bytes
}

TEST_F(ClientHeap, NothingStaysOfTheReferencesOfASessionThatFails) {
    for (const char* const operation : {"getHostSession", "getCloudManager", "aqueryFacet"}) {
        service.answer(operation, raises("NO_RESOURCES"));
        const auto client = make();
        const auto some_failures = [&] {
            for (int i = 0; i < 100; ++i) {
                client->newSession("localhost", 0, false, 10);
                ASSERT_THROW(client->Initialize(), CORBA::SystemException);
            }
        };
        some_failures();
        const size_t before = bytes_in_use();
        some_failures();
        EXPECT_LT(bytes_in_use(), before + 5000) << operation;
        service.answer(operation, {});
    }
}

TEST_F(ClientHeap, TheTextOfAConfigurationStaysAllocated) {
    constexpr size_t size = 100'000;
    constexpr size_t times = 10;
    const auto client = make_connected();
    service.answer("getCloudConfigBlob", returns_text(std::string(size, 'x')));
    const exchange_shape& shape = shape_of("getStorageServerConfig");
    EXPECT_EQ(shape.run(*client), STS_OK);
    const size_t before = bytes_in_use();
    for (size_t i = 0; i < times; ++i) {
        EXPECT_EQ(shape.run(*client), STS_OK);
    }
    EXPECT_GT(bytes_in_use(), before + times * size);
}

} // namespace
