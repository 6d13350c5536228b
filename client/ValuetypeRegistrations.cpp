#include "client/ValuetypeRegistrations.h"

#include "platform/common/vlcommon.h"

#include <vlsl.hh>

namespace Corvane::Vaultaro::SL::VLT_77 {

void register_obv_factories(CORBA::ORB* orb) noexcept {
    using UserMgmt::UserInfo;
    using UserMgmt::UserInfo_init;
    constexpr int level = 2;
    const std::string failure = "Couldn't register value factory for ";
    logmsg(level, "UserManagement-ValueType Registaring", __func__);
    if (!register_value_factory<UserInfo_init, UserInfo>(orb)) {
        logmsg(level, append_failure_string<UserInfo>(failure).c_str(), __func__);
    }
    logmsg(level, "UserManagement-ValueType Registration Completed", __func__);
}

} // namespace Corvane::Vaultaro::SL::VLT_77
