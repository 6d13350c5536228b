#include "client/OrbClient.h"

#include "common/onet_proxy_hint.h"

#include <dlfcn.h>
#include <mutex>

Orb* COrbClient::s_pOrb = nullptr;
bool COrbClient::s_bInitDone = false;
int COrbClient::s_nRefCount = 0;

namespace {

std::mutex users_guard;    // servers open, close and first connect on any thread
bool handing_over = false; // the ORB runs, and a callback of init has it now

/// The library of the ORB's dynamic types hooks itself into the ORB's own one, which calls it back
/// when the process ends. Where that one outlives us, held by whatever libvlorbST the process has,
/// this one must, too: it stays loaded.
[[maybe_unused]] const bool dynamic_types_stay = [] {
    Dl_info library = {};
    return dladdr(&CORBA::_tc_long, &library) != 0 &&
           dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
}();

} // namespace

COrbClient::COrbClient() {
    const std::lock_guard lock(users_guard);
    if (s_pOrb == nullptr) {
        s_pOrb = new Orb("", "COrbClient", "", false, 1024);
        s_bInitDone = false;
        s_nRefCount = 0;
    }
    ++s_nRefCount;
}

COrbClient::~COrbClient() {
    const std::lock_guard lock(users_guard);
    if (--s_nRefCount != 0) {
        return;
    }
    delete s_pOrb;
    s_pOrb = nullptr;
    s_bInitDone = false;
}

/// The callback runs without the lock: it may make and delete clients, or wait for who does.
void COrbClient::init(void (*callback)(CORBA::ORB*)) {
    {
        const std::lock_guard lock(users_guard);
        if (s_bInitDone || handing_over) {
            return;
        }
        s_pOrb->init(nullptr);
        handing_over = true;
    }
    const auto handed_over = [](bool done) {
        const std::lock_guard lock(users_guard);
        handing_over = false;
        s_bInitDone = done;
    };
    try {
        if (callback != nullptr) {
            callback(getOrb());
        }
    } catch (...) {
        handed_over(false);
        throw;
    }
    handed_over(true);
}

CORBA::ORB* COrbClient::getOrb() { return s_pOrb->orb; }

CORBA::Object* COrbClient::connectToObject(const std::string& host, const std::string& service,
                                           const std::string& object_key,
                                           const ACE_Time_Value& timeout,
                                           const ACE_Time_Value& second_timeout) {
    return s_pOrb->connect(host, service, object_key, timeout, second_timeout, true, false);
}

CORBA::Object* COrbClient::setObjectRequestTimeout(CORBA::Object* object,
                                                   const ACE_Time_Value& timeout) {
    return s_pOrb->setObjectRequestTimeout(object, timeout);
}

void COrbClient::SetOrbRequestTimeout(ACE_Time_Value timeout) {
    s_pOrb->setOrbRequestTimeout(timeout);
}

void COrbClient::forceOxSSIOP() { s_pOrb->force_oxss_iop = true; }
