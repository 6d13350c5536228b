// Orb over omniORB.
//
//   object      corbaloc:iiop:1.2@HOST:PORT/KEY, or ssliop where TLS is forced
//   PORT        the environment's VLSL_PORT, else the entry SERVICE/tcp of services(5), else 5638;
//               a VLSL_PORT that is no port is told in the product's log, and nothing is reached
//   TLS         VLSL_TLS_CA: certificates that are trusted; VLSL_TLS_KEY: own certificate and key;
//               both are files in PEM form
//
// omniORB's ORB is one for the whole process, however many Orb objects there are: it is started for
// the first and destroyed with the last.

#include "platform/vlorb/Orb.h"

#include "interfaces/wide_code_set.h"
#include "platform/common/vlcommon.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <omniORB4/callDescriptor.h>
#include <omniORB4/omniInterceptors.h>
#include <omniORB4/omniORB.h>
#include <omniORB4/sslContext.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

// The call behind a request, which the ORB's interceptors don't tell of; in this order alone.
// clang-format off
#include <omniORB4/internal/giopStream.h>
#include <omniORB4/internal/giopRope.h>
#include <omniORB4/internal/giopStrand.h>
#include <omniORB4/internal/GIOP_C.h>
// clang-format on

namespace {

constexpr const char* fallback_port = "5638";

std::mutex running_guard; // two libraries may have an Orb each
unsigned running = 0;     ///< Orb objects that are started

/// What the wire needs, whatever a machine's own configuration of the ORB says.
const char* options[][2] = {
    {"traceLevel", "0"},                   // the host's standard error isn't ours
    {"nativeCharCodeSet", "ISO-8859-1"},   // narrow text goes byte for byte
    {"defaultCharCodeSet", "ISO-8859-1"},  // and a name in a corbaloc carries no code set
    {"nativeWCharCodeSet", WIDE_CODE_SET}, // wide text beyond the first 65,536 characters too
    {"defaultWCharCodeSet", "UTF-16"},
    {"verifyObjectExistsAndType", "0"}, // no question to the service but those that are asked
    {"resetTimeOutOnRetries", "0"},     // the time-out is that of the whole call
    {nullptr, nullptr},
};

// Nothing is sent twice: what the ORB would send again by itself fails at once. It asks these
// handlers in most cases; a connection that its service closes in good order it replaces without
// asking, again and again, so a request is stopped on its way when it is the very one that its
// thread sent last and that has neither an answer nor failed: the same call, the same deadline.
struct sent_request {
    const omniCallDescriptor* call = nullptr; ///< null: answered or failed
    omni_time_t deadline;
};
thread_local sent_request last_sent;

template <class Failure>
CORBA::Boolean fails_at_once(void*, CORBA::ULong, const Failure&) {
    last_sent = {};
    return false;
}

CORBA::Boolean starts(omni::omniInterceptors::clientSendRequest_T::info_T& request) {
    omniCallDescriptor* const call = request.giop_c.calldescriptor();
    if (call == last_sent.call && call->getDeadline() == last_sent.deadline) {
        last_sent = {};
        throw CORBA::COMM_FAILURE(0, CORBA::COMPLETED_MAYBE);
    }
    last_sent = {call, call->getDeadline()};
    return true;
}

CORBA::Boolean is_answered(omni::omniInterceptors::clientReceiveReply_T::info_T&) {
    last_sent = {};
    return true;
}

void switch_off_repeats() {
    omniORB::installTransientExceptionHandler(nullptr, fails_at_once<CORBA::TRANSIENT>);
    omniORB::installTimeoutExceptionHandler(nullptr, fails_at_once<CORBA::TIMEOUT>);
    omniORB::installCommFailureExceptionHandler(nullptr, fails_at_once<CORBA::COMM_FAILURE>);
    omniORB::installSystemExceptionHandler(nullptr, fails_at_once<CORBA::SystemException>);
    omniORB::getInterceptors()->clientSendRequest.add(starts);
    omniORB::getInterceptors()->clientReceiveReply.add(is_answered);
}

/// The certificates are read when the ORB starts, and then stand for the whole process. It never
/// starts again in a process where it couldn't read them, so they are tried before.
void name_certificates() {
    static std::string authority;
    static std::string key;
    const auto named = [](const char* variable) {
        const char* const file = getenv(variable);
        return std::string(file != nullptr ? file : "");
    };
    authority = named("VLSL_TLS_CA");
    key = named("VLSL_TLS_KEY");
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> trial(SSL_CTX_new(TLS_client_method()),
                                                                  SSL_CTX_free);
    if (trial != nullptr) { // a key under a passphrase isn't asked for on the host's terminal
        SSL_CTX_set_default_passwd_cb(trial.get(), [](char*, int, int, void*) { return 0; });
    }
    if (trial == nullptr ||
        SSL_CTX_load_verify_locations(trial.get(), authority.c_str(), nullptr) != 1 ||
        SSL_CTX_use_certificate_chain_file(trial.get(), key.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(trial.get(), key.c_str(), SSL_FILETYPE_PEM) != 1) {
        ERR_clear_error();
        throw CORBA::INITIALIZE(0, CORBA::COMPLETED_NO);
    }
    sslContext::certificate_authority_file = authority.c_str();
    sslContext::key_file = key.c_str();
    sslContext::key_file_password = "";
}

void name_no_certificates() {
    sslContext::certificate_authority_file = nullptr;
    sslContext::key_file = nullptr;
}

/// Whether the whole of it is a number that a service can have.
bool is_port(const char* text) {
    uint16_t number = 0;
    const char* const end = text + strlen(text);
    const auto read = std::from_chars(text, end, number);
    return read.ec == std::errc() && read.ptr == end && number != 0;
}

/// Empty where the environment names what is no port.
std::string port_of(const std::string& service) {
    if (const char* const port = getenv("VLSL_PORT"); port != nullptr && *port != '\0') {
        if (is_port(port)) {
            return port;
        }
        constexpr int error = 4;
        const std::string line =
            std::string("VLSL_PORT is \"") + port + "\", which is no port (1 to 65535)";
        logmsg(error, line.c_str(), "Orb::connect");
        return "";
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

/// omniORB's 0 is no bound; what is longer than it can tell is the longest that it can.
CORBA::ULong milliseconds(const ACE_Time_Value& time) {
    constexpr ACE_UINT64 longest = std::numeric_limits<CORBA::ULong>::max();
    const ACE_UINT64 asked = time > ACE_Time_Value::zero ? time.get_msec() : 0;
    return static_cast<CORBA::ULong>(std::min(asked, longest));
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
    force_oxss_iop ? name_certificates() : name_no_certificates();
    register_wide_code_set();
    int argc = 0;
    char* argv[] = {nullptr};
    orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
    ++running;
    switch_off_repeats();
}

void Orb::setOrbRequestTimeout(const ACE_Time_Value& timeout) {
    omniORB::setClientCallTimeout(milliseconds(timeout));
}

CORBA::Object* Orb::connect(const std::string& host, const std::string& service,
                            const std::string& key, const ACE_Time_Value& timeout,
                            const ACE_Time_Value& /*second_timeout*/, const bool& /*first_flag*/,
                            const bool& /*second_flag*/) {
    omniORB::setClientConnectTimeout(milliseconds(timeout));
    const std::string port = port_of(service);
    if (port.empty()) {
        return nullptr;
    }
    const std::string transport = force_oxss_iop ? "ssliop" : "iiop";
    const std::string name =
        "corbaloc:" + transport + ":1.2@" + address_of(host) + ":" + port + "/" + key;
    return orb->string_to_object(name.c_str());
}

CORBA::Object* Orb::setObjectRequestTimeout(CORBA::Object* object, const ACE_Time_Value& timeout) {
    omniORB::setClientCallTimeout(object, milliseconds(timeout));
    return object;
}
