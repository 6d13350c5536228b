// Tells the ORB which value types it can read: those that the service may send to this client.
#pragma once

#include "platform/vlorb/Orb.h"

#include <string>

namespace Corvane::Vaultaro::SL::VLT_77 {

/// Registers the factory of UserInfo with `orb`, which keeps it until it ends. A failure goes no
/// further than the product's log. An exception that would leave it ends the process.
void register_obv_factories(CORBA::ORB* orb) noexcept;

/// Another copy of this library may keep the process's ORB running when this one is unloaded: what
/// was registered and noted here goes before its code does. `id` must be a constant.
void take_back_at_unload(CORBA::ORB* orb, const char* id, const CORBA::ValueFactoryBase* factory);

/// Registers a new `Factory` for the value type `Value`; a factory that was registered for it
/// before is released. False when anything was thrown on the way.
template <class Factory, class Value>
bool register_value_factory(CORBA::ORB* orb) noexcept {
    try {
        const CORBA::ValueFactoryBase_var factory = new Factory;
        const CORBA::ValueFactoryBase_var former =
            orb->register_value_factory(Value::_PD_repoId, factory);
        take_back_at_unload(orb, Value::_PD_repoId, factory);
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
