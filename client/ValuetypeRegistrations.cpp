#include "client/ValuetypeRegistrations.h"

#include "common/onet_proxy_hint.h"
#include "platform/common/vlcommon.h"

#include <map>
#include <vlsl.hh>

namespace Corvane::Vaultaro::SL::VLT_77 {

registration::~registration() {
    if (factory_ == nullptr) {
        return;
    }
    try {
        const CORBA::ValueFactoryBase_var present = orb_->lookup_value_factory(id_);
        if (present.in() == factory_) {
            orb_->unregister_value_factory(id_);
        }
    } catch (const CORBA::Exception&) {
        // the ORB is gone, and what it held
    }
    CORBA::release(orb_);
}

void registration::note(CORBA::ORB* orb, const CORBA::ValueFactoryBase* factory) noexcept {
    if (orb_ != nullptr) {
        CORBA::release(orb_);
    }
    orb_ = CORBA::ORB::_duplicate(orb);
    factory_ = factory;
}

registration& registration_of(const char* id) {
    static std::map<std::string, registration> all;
    return all.try_emplace(id, id).first->second;
}

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
