// The references of the notification service's channels, which two of the interface's operations hand
// out. The library that has that service's stubs is large, takes as long to load as all others
// together, and is needed for nothing else: it is loaded with the first such reference.

#include <COS/CosNotifyChannelAdmin.hh>

#include <dlfcn.h>

namespace {

using reference = CosNotifyChannelAdmin::EventChannel_ptr;

#define HELPER "_ZN21CosNotifyChannelAdmin19EventChannel_Helper"

/// The library's own function. CORBA::NO_IMPLEMENT where there is no such library.
template <typename Function>
Function* in_library(const char* symbol) {
    // It stays: the ORB knows its factories of references from then on.
    void* const library = dlopen(NOTIFICATION_LIBRARY, RTLD_NOW | RTLD_NODELETE);
    void* const found = library != nullptr ? dlsym(library, symbol) : nullptr;
    if (found == nullptr) {
        throw CORBA::NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    }
    return reinterpret_cast<Function*>(found);
}

} // namespace

reference CosNotifyChannelAdmin::EventChannel_Helper::_nil() {
    return in_library<reference()>(HELPER "4_nilEv")();
}

CORBA::Boolean CosNotifyChannelAdmin::EventChannel_Helper::is_nil(reference channel) {
    return CORBA::is_nil(channel);
}

void CosNotifyChannelAdmin::EventChannel_Helper::release(reference channel) {
    CORBA::release(channel);
}

void CosNotifyChannelAdmin::EventChannel_Helper::duplicate(reference channel) {
    in_library<void(reference)>(HELPER "9duplicateEPNS_20_objref_EventChannelE")(channel);
}

void CosNotifyChannelAdmin::EventChannel_Helper::marshalObjRef(reference channel,
                                                               cdrStream& stream) {
    in_library<void(reference, cdrStream&)>(
        HELPER "13marshalObjRefEPNS_20_objref_EventChannelER9cdrStream")(channel, stream);
}

reference CosNotifyChannelAdmin::EventChannel_Helper::unmarshalObjRef(cdrStream& stream) {
    return in_library<reference(cdrStream&)>(HELPER "15unmarshalObjRefER9cdrStream")(stream);
}
