// Orb over omniORB.
//
//   object      corbaloc:iiop:1.2@HOST:PORT/KEY, or ssliop where TLS is forced
//   PORT        the environment's VLSL_PORT, else the entry SERVICE/tcp of services(5), else 5638
//   TLS         VLSL_TLS_CA: certificates that are trusted; VLSL_TLS_KEY: own certificate and key;
//               both are files in PEM form
//
// omniORB's ORB is one for the whole process, however many Orb objects there are: it is started for
// the first and destroyed with the last.

#include "platform/vlorb/Orb.h"

#include "interfaces/wide_code_set.h"

#include <cstdlib>
#include <mutex>
#include <netdb.h>
#include <omniORB4/omniORB.h>
#include <omniORB4/sslContext.h>

namespace {

constexpr const char* fallback_port = "5638";

std::mutex running_guard; // two libraries may have an Orb each
unsigned running = 0;     ///< Orb objects that are started

/// What the wire needs, whatever a machine's own configuration of the ORB says.
const char* options[][2] = {
    {"traceLevel", "0"},                   // the host's standard error isn't ours
    {"nativeCharCodeSet", "ISO-8859-1"},   // narrow text goes byte for byte
    {"nativeWCharCodeSet", WIDE_CODE_SET}, // wide text beyond the first 65,536 characters too
    {"defaultWCharCodeSet", "UTF-16"},     // a name in a corbaloc carries no code set
    {"verifyObjectExistsAndType", "0"},    // no question to the service but those that are asked
    {"resetTimeOutOnRetries", "0"},        // the time-out is that of the whole call
    {nullptr, nullptr},
};

// Nothing is sent twice: what the ORB would send again by itself fails at once.
CORBA::Boolean transient(void*, CORBA::ULong, const CORBA::TRANSIENT&) { return false; }
CORBA::Boolean timed_out(void*, CORBA::ULong, const CORBA::TIMEOUT&) { return false; }
CORBA::Boolean broken(void*, CORBA::ULong, const CORBA::COMM_FAILURE&) { return false; }
CORBA::Boolean failed(void*, CORBA::ULong, const CORBA::SystemException&) { return false; }

void switch_off_retries() {
    omniORB::installTransientExceptionHandler(nullptr, transient);
    omniORB::installTimeoutExceptionHandler(nullptr, timed_out);
    omniORB::installCommFailureExceptionHandler(nullptr, broken);
    omniORB::installSystemExceptionHandler(nullptr, failed);
}

/// The certificates are read when the ORB starts, and then stand for the whole process.
void name_certificates() {
    sslContext::certificate_authority_file = getenv("VLSL_TLS_CA");
    sslContext::key_file = getenv("VLSL_TLS_KEY");
    sslContext::key_file_password = "";
}

std::string port_of(const std::string& service) {
    if (const char* const port = getenv("VLSL_PORT"); port != nullptr && *port != '\0') {
        return port;
    }
    servent entry = {};
    servent* found = nullptr;
    char texts[1024];
    if (getservbyname_r(service.c_str(), "tcp", &entry, texts, sizeof texts, &found) == 0 &&
        found != nullptr) {
        return std::to_string(ntohs(static_cast<uint16_t>(found->s_port)));
    }
    return fallback_port;
}

std::string address_of(const std::string& host) {
    return host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

/// omniORB's 0 is no bound.
CORBA::ULong milliseconds(const ACE_Time_Value& time) {
    return static_cast<CORBA::ULong>(time.msec());
}

} // namespace

Orb::Orb(const std::string&, const std::string&, const std::string&, bool, unsigned long) {}

Orb::~Orb() {
    if (orb == nullptr) {
        return;
    }
    const std::lock_guard lock(running_guard);
    if (--running == 0) {
        orb->destroy();
    }
    CORBA::release(orb);
}

void Orb::init(ACE_Abstract_Timer_Queue<ACE_Event_Handler*>* /*timers*/) {
    if (orb != nullptr) {
        return;
    }
    const std::lock_guard lock(running_guard);
    if (force_oxss_iop) {
        name_certificates();
    }
    register_wide_code_set();
    int argc = 0;
    char* argv[] = {nullptr};
    orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
    ++running;
    switch_off_retries();
}

void Orb::setOrbRequestTimeout(const ACE_Time_Value& timeout) {
    omniORB::setClientCallTimeout(milliseconds(timeout));
}

CORBA::Object* Orb::connect(const std::string& host, const std::string& service,
                            const std::string& key, const ACE_Time_Value& timeout,
                            const ACE_Time_Value& /*second_timeout*/, const bool& /*first_flag*/,
                            const bool& /*second_flag*/) {
    omniORB::setClientConnectTimeout(milliseconds(timeout));
    const std::string transport = force_oxss_iop ? "ssliop" : "iiop";
    const std::string name =
        "corbaloc:" + transport + ":1.2@" + address_of(host) + ":" + port_of(service) + "/" + key;
    return orb->string_to_object(name.c_str());
}

CORBA::Object* Orb::setObjectRequestTimeout(CORBA::Object* object, const ACE_Time_Value& timeout) {
    omniORB::setClientCallTimeout(object, milliseconds(timeout));
    return object;
}
