// What loading and unloading the sentry's unit builds and releases, in order: each row's text, then
// the sentry; the rows again from the last to the first, and never the sentry. Allocations are the
// trace: a text makes one as soon as it is longer than a string keeps inside itself.

#include "tests/common/allocation_trace.h"
#include "tests/common/fixed_tables_unit.h"

#include <algorithm>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

/// The sizes that building the catalogue and a sentry allocates.
std::vector<size_t> expected_sizes() {
    constexpr size_t sentry_size = 8;
    const size_t kept_inside = std::string().capacity();
    std::vector<size_t> sizes;
    for (const auto& row : tables_1().rows) {
        const std::string& text = std::get<2>(row);
        if (text.size() > kept_inside) {
            sizes.push_back(text.size() + 1);
        }
    }
    sizes.push_back(sentry_size);
    return sizes;
}

TEST(SentryUnit, BuildsTheCatalogueInRowOrderThenTheSentryWhichItNeverDeletes) {
    start_allocation_trace();
    void* const library = dlopen(SENTRY_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    end_allocation_trace();
    ASSERT_NE(library, nullptr) << dlerror();

    std::vector<size_t> sizes;
    std::vector<void*> addresses;
    for (const allocation& each : allocations()) {
        sizes.push_back(each.size);
        addresses.push_back(each.address);
    }
    ASSERT_EQ(sizes, expected_sizes());

    void* const sentry = addresses.back();
    addresses.pop_back();
    std::reverse(addresses.begin(), addresses.end());
    start_allocation_trace();
    dlclose(library);
    end_allocation_trace();
    EXPECT_EQ(releases(), addresses);
    operator delete(sentry);
}

} // namespace
