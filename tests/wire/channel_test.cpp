// References of the notification service's channels, whose library is loaded with the first of them.

#include "tests/support/next_function.h"
#include "tests/wire/recorder.h"

#include <COS/CosNotifyChannelAdmin.hh>
#include <cstring>
#include <gtest/gtest.h>

using namespace wire;
namespace Vaultaro = Orvessa::Vaultaro;

namespace {

const char CHANNEL[] = "IDL:omg.org/CosNotifyChannelAdmin/EventChannel:1.0";
bool is_library_missing = false;

class Channels : public testing::Test {
  protected:
    ~Channels() override { is_library_missing = false; }

    /// What the peer hands out for a channel.
    CosNotifyChannelAdmin::EventChannel_ptr channel_given_as(const char* type_id) {
        giop::cdr_writer body;
        giop::put_reference(body, {type_id, peer_.port(), "given"});
        peer_.answer_with(giop::reply_status::no_exception, body);
        const CORBA::Object_var object = peer_.object("management");
        const Vaultaro::MgmtInterface_var management =
            Vaultaro::MgmtInterface::_unchecked_narrow(object);
        return management->getEventChannel();
    }

    recorder peer_;
};

TEST_F(Channels, ChannelThatIsHandedOutIsOne) {
    const CORBA::Object_var channel = channel_given_as(CHANNEL);
    ASSERT_FALSE(CORBA::is_nil(channel));
    EXPECT_EQ(peer_.last_request().operation, "getEventChannel");
    EXPECT_EQ(peer_.request_count(), 1U) << "what it is was known without a question";
}

TEST_F(Channels, WithoutTheLibraryACallThatHandsOutAChannelIsNotImplemented) {
#ifdef IS_SANITIZED
    GTEST_SKIP() << "a sanitizer's build is linked with it";
#endif
    is_library_missing = true;
    EXPECT_THROW(channel_given_as(CHANNEL), CORBA::NO_IMPLEMENT);
}

} // namespace

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int how) noexcept {
    if (is_library_missing && strstr(file, "libCOS") != nullptr) {
        return nullptr;
    }
    return next_function<void*(const char*, int)>("dlopen")(file, how);
}
