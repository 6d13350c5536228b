// A site puts an ORB library of its own in the place of the one built here, with nothing rebuilt:
// the built plugin takes whichever libvlorbST the process has. That one stays in the process when
// the plugin is unloaded, and so does what of the ORB it needs at the end.

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"
#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tests/support/loaded_plugin.h"

#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

template <typename Function>
Function* find(void* library, const char* name) {
    void* const found = dlsym(library, name);
    EXPECT_NE(found, nullptr) << name;
    return reinterpret_cast<Function*>(found);
}

TEST(SiteOrb, IsWhatThePluginReachesTheServiceThrough) {
    void* const site = dlopen(SITE_ORB_FILE, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(site, nullptr) << dlerror();
    find<void()>(site, "find_no_object")();

    const conf_dir files;
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
    setenv("VL_STS_ROOT", files.path().c_str(), 1);
    const sts_session_def_v7_t session = host_session("host");
    const loaded_plugin plugin(PLUGIN_FILE, "");
    const stspi_ep_t& entries = plugin.entries();
    throttling_server_s* server = nullptr;
    ASSERT_EQ(entries.open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 0, &server),
              STS_OK);
    sts_lsu_ref_s lsu = {};
    lsu.server = server;
    const char definition[1024] = {};
    throttling_image_s* image = nullptr;
    entries.create_image_v10(&lsu, reinterpret_cast<const sts_image_def_s*>(definition), 2, &image);
    EXPECT_TRUE(has_logged(STS_SEV_ERROR, "CCloudVLSLClient::Initialize() Failed to connect vlsl"));
    EXPECT_EQ(entries.close_server_v7(server), STS_OK);
    unsetenv("VL_STS_ROOT");

    const std::string attempt =
        "setOrbRequestTimeout(5.0)\n"
        "connect(\"localhost\", \"vlsl\", \"HSFactory\", 5.0, 0.0, true, false)\n";
    EXPECT_EQ(
        std::string(find<const char*()>(site, "asked_of_the_orb")()),
        "Orb(\"\", \"COrbClient\", \"\", false, 1024)\ninit(null)\n" + // one for the settings,
            attempt + attempt + attempt + "~Orb\n"); // the claim, and what is given back
}

} // namespace
