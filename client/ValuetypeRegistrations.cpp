#include "client/ValuetypeRegistrations.h"

#include "platform/common/vlcommon.h"

#include <map>
#include <vlsl.hh>

namespace Corvane::Vaultaro::SL::VLT_77 {

namespace {

class registration {
  public:
    registration(CORBA::ORB* orb, const char* id, const CORBA::ValueFactoryBase* factory)
        : orb_(CORBA::ORB::_duplicate(orb)), id_(id), factory_(factory) {}
    ~registration() {
        try {
            const CORBA::ValueFactoryBase_var present = orb_->lookup_value_factory(id_);
            if (present.in() == factory_) {
                orb_->unregister_value_factory(id_);
            }
        } catch (const CORBA::Exception&) {
            // the ORB is gone, and what it held
        }
    }
    registration(const registration&) = delete;
    registration& operator=(const registration&) = delete;

  private:
    CORBA::ORB_var orb_;
    const char* id_;
    const CORBA::ValueFactoryBase* factory_; ///< never followed: the ORB may have released it
};

std::map<std::string, registration> last_registrations; ///< by repository id

} // namespace

void take_back_at_unload(CORBA::ORB* orb, const char* id, const CORBA::ValueFactoryBase* factory) {
    last_registrations.erase(id);
    last_registrations.try_emplace(id, orb, id, factory);
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
