// All that the service doesn't answer is refused, whatever is asked of whichever object.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <type_traits>
#include <utility>

using EventConsumer = Corvane::Vaultaro::SL::EventManagement::VLSLEventConsumer;

namespace {

/// An argument that says nothing: an empty text or sequence, a nil reference, zero, or a place for
/// a result that never comes.
template <typename Argument>
Argument nothing() {
    if constexpr (std::is_same_v<Argument, const char*>) {
        return "";
    } else if constexpr (std::is_same_v<Argument, EventConsumer::_ptr_type>) {
        return EventConsumer::_nil();
    } else if constexpr (std::is_same_v<Argument, CORBA::String_out>) {
        static char* text;
        return Argument(text);
    } else if constexpr (std::is_same_v<Argument, CORBA::StringSeq_out>) {
        static CORBA::StringSeq* texts;
        return Argument(texts);
    } else if constexpr (std::is_reference_v<Argument>) {
        static std::remove_const_t<std::remove_reference_t<Argument>> value{};
        return value;
    } else {
        return Argument{};
    }
}

struct operation {
    std::string interface;
    std::string name;
    std::function<void(CORBA::Object_ptr)> call;
};

template <typename Interface, typename Result, typename Base, typename... Arguments>
std::function<void(CORBA::Object_ptr)> caller(Result (Base::*call)(Arguments...)) {
    return [call](CORBA::Object_ptr object) {
        const typename Interface::_var_type narrowed = Interface::_unchecked_narrow(object);
        (narrowed.in()->*call)(nothing<Arguments>()...);
    };
}

const operation operations[] = {
#define OPERATION(interface, name)                                                                 \
    {#interface, #name, caller<interface>(&std::remove_pointer_t<interface::_ptr_type>::name)},
#include <every_operation.inc>
#undef OPERATION
};

const std::set<std::string> answered = {
    "getHostSession",  "getInactivityTimeout", "getCloudManager",
    "destroy",         "aqueryFacet",          "amodifyFacet",
    "check_bandwidth", "check_connections",    "update_ThrottleConfigParams"};

bool is_answered(const operation& each) {
    const bool is_sessions_own = each.interface == "Orvessa::Vaultaro::HostSession" &&
                                 each.name == "getHostSession"; // another of the same name
    return answered.count(each.name) != 0 && !is_sessions_own;
}

class Refusal : public testing::Test {
  protected:
    static CORBA::Object_ptr object_of(const remote_session& from, CORBA::Object_ptr factory,
                                       const std::string& interface) {
        if (interface == "Orvessa::Vaultaro::HostSessionFactory") {
            return factory;
        }
        if (interface == "Orvessa::Vaultaro::HostSession") {
            return from.session;
        }
        if (interface == "Corvane::Vaultaro::SL::CloudMgmt::CloudManager") {
            return from.manager;
        }
        if (interface == "Corvane::Vaultaro::SL::CloudMgmt::CloudQueryFacet") {
            return from.query;
        }
        return from.modify;
    }
};

TEST_F(Refusal, EveryOtherOperationRaisesNoImplement) {
    const service_process service;
    const Orvessa::Vaultaro::HostSessionFactory_var factory = find_factory(service.port());
    const remote_session client(factory);
    size_t refused = 0;
    for (const operation& each : operations) {
        if (is_answered(each)) {
            continue;
        }
        SCOPED_TRACE(each.interface + "::" + each.name);
        EXPECT_THROW(each.call(object_of(client, factory, each.interface)), CORBA::NO_IMPLEMENT);
        ++refused;
    }
    EXPECT_EQ(refused, std::size(operations) - answered.size());
    EXPECT_EQ(std::size(operations), 24U + 2 + 39 + 3 + 2 + 1 + 18 + 11);
    EXPECT_EQ(client.check_connections("a:s3", 1).status, 0); // it is as well as before
}

TEST_F(Refusal, OperationsThatNoInterfaceHasAreRefused) {
    const service_process service;
    const remote_session client(service.port());
    for (const CORBA::Object_ptr object : {static_cast<CORBA::Object_ptr>(client.session),
                                           static_cast<CORBA::Object_ptr>(client.query)}) {
        const CORBA::Request_var request = object->_request("noSuchOperation");
        request->set_return_type(CORBA::_tc_void);
        EXPECT_THROW(
            {
                request->invoke();
                request->env()->exception() != nullptr ? request->env()->exception()->_raise()
                                                       : void();
            },
            CORBA::BAD_OPERATION);
    }
}

} // namespace
