// Tells the ORB which value types it can read: those that the service may send to this client.
#pragma once

#include "platform/vlorb/Orb.h"

#include <string>

namespace Corvane::Vaultaro::SL::VLT_77 {

/// Registers the factory of UserInfo with `orb`, which keeps it until it ends. A failure goes no
/// further than the product's log. An exception that would leave it ends the process.
void register_obv_factories(CORBA::ORB* orb) noexcept;

/// What this library registered last for one value type. Another copy of it may keep the process's
/// ORB running when this one is unloaded: what is registered still goes before its code does.
class registration {
  public:
    /// `id` is the value type's repository id, a constant.
    explicit registration(const char* id) : id_(id) {}
    ~registration();
    registration(const registration&) = delete;
    registration& operator=(const registration&) = delete;

    /// `factory` is registered with `orb` now.
    void note(CORBA::ORB* orb, const CORBA::ValueFactoryBase* factory) noexcept;

  private:
    const char* id_;
    /// A reference of ours, or null. Not an ORB_var: that makes the ORB's nil object, and where
    /// there is no memory for it the ORB keeps a lock that all nil objects need.
    CORBA::ORB* orb_ = nullptr;
    const CORBA::ValueFactoryBase* factory_ = nullptr; ///< never followed: it may be gone
};

/// The one of a value type. It lives as long as this library.
registration& registration_of(const char* id);

/// Registers a new `Factory` for the value type `Value`; a factory that was registered for it
/// before is released. False when anything was thrown on the way.
template <class Factory, class Value>
bool register_value_factory(CORBA::ORB* orb) noexcept {
    try {
        const CORBA::ValueFactoryBase_var factory = new Factory;
        registration& last = registration_of(Value::_PD_repoId);
        const CORBA::ValueFactoryBase_var former =
            orb->register_value_factory(Value::_PD_repoId, factory);
        last.note(orb, factory);
        return true;
    } catch (...) {
        return false;
    }
}

/// `prefix` followed by the repository id of `Value`.
template <class Value>
std::string append_failure_string(const std::string& prefix) noexcept {
    return prefix + Value::_PD_repoId;
}

} // namespace Corvane::Vaultaro::SL::VLT_77
