// Exceptions that the client's connection doesn't let out end the process, whoever stands ready to
// catch them.

#include "tests/client/client_fixture.h"

#include <csignal>
#include <functional>

namespace {

/// The child runs the test again, with a service of its own.
class ProcessEnd : public Client {
  protected:
    ProcessEnd() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void expect_abort(const std::function<void()>& call) {
        EXPECT_EXIT(
            {
                try {
                    call();
                } catch (...) {
                }
            },
            testing::KilledBySignal(SIGABRT), "");
    }
};

class ProcessEndInTheChain : public ProcessEnd, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, ProcessEndInTheChain,
                         testing::Values("getCloudManager", "aqueryFacet", "amodifyFacet"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(ProcessEndInTheChain, AnExceptionOfTheServiceAbortsInitialize) {
    service.answer(GetParam(), raises_operation_failed({1}));
    expect_abort([this] { make()->Initialize(); });
}

TEST_P(ProcessEndInTheChain, AnExceptionOfTheServiceAbortsInitializeCloudManager) {
    service.answer(GetParam(), raises_operation_failed({1}));
    expect_abort([this] { make()->InitializeCloudManager(); });
}

TEST_P(ProcessEndInTheChain, AnExceptionOfTheServiceAbortsGetCloudManager) {
    service.answer(GetParam(), raises_operation_failed({1}));
    expect_abort([this] { make()->GetCloudManager(); });
}

TEST_P(ProcessEndInTheChain, AnExceptionOfTheServiceAbortsGetInactivityTimeout) {
    service.answer(GetParam(), raises_operation_failed({1}));
    expect_abort([this] { make()->getInactivityTimeout(); });
}

TEST_P(ProcessEndInTheChain, AnExceptionOfTheServiceAbortsAnExchangeThatCatchesAllElse) {
    service.answer(GetParam(), raises_operation_failed({1}));
    expect_abort([this] { shape_of("check_connections").run(*make()); });
}

} // namespace
