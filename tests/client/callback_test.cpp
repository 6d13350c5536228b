// What a host's callbacks may do: no lock is held while one runs.

#include "tests/client/client_fixture.h"

#include <functional>
#include <thread>
#include <utility>
#include <vlsl.hh>

namespace {

std::function<void()> at_next_line;

class Callback : public EachExchange {
  protected:
    Callback() {
        session.log = [](const char*, const char*, sts_severity_v7_t) {
            if (const auto once = std::exchange(at_next_line, nullptr)) {
                once();
            }
        };
    }
    ~Callback() override { at_next_line = nullptr; }
};

INSTANTIATE_TEST_SUITE_P(Each, Callback, each_exchange(), exchange_name);

TEST_P(Callback, OfTheLogMayMakeAnExchangeOnTheSameClient) {
    service.answer("getHostSession", {hands_out("nil"), {}});
    const auto client = make();
    int status = -2;
    at_next_line = [&] { status = shape.run(*client); };
    EXPECT_EQ(shape.run(*client), shape.corba_status);
    EXPECT_EQ(status, STS_OK);
    service.answer(shape.asked, {raises("NO_RESOURCES"), {}});
    status = -2;
    at_next_line = [&] { status = shape.run(*client); };
    EXPECT_EQ(shape.run(*client), shape.corba_status);
    EXPECT_EQ(status, STS_OK);
}

TEST_P(Callback, OfTheLogMayWaitForAnotherThreadsExchange) {
    service.answer("getCloudManager", {hands_out("nil"), {}});
    const auto client = make();
    int status = -2;
    at_next_line = [&] { std::thread([&] { status = shape.run(*client); }).join(); };
    EXPECT_EQ(shape.run(*client), shape.corba_status);
    EXPECT_EQ(status, STS_OK);
}

} // namespace
