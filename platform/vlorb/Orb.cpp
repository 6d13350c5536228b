// Orb over omniORB.
//
//   object      corbaloc:iiop:1.2@ADDRESS:PORT/KEY, or ssliop where TLS is forced, at the first
//               address of the host, in the resolver's order, that answers
//   PORT        the environment's VLSL_PORT, else the entry SERVICE/tcp of services(5), else 5638;
//               a VLSL_PORT that is no port is told in the product's log, and nothing is reached
//   TLS         VLSL_TLS_CA: certificates that are trusted; VLSL_TLS_KEY: own certificate and key;
//               both are files in PEM form
//
// omniORB's ORB is one for the whole process, however many Orb objects there are: it is started for
// the first and destroyed with the last.

#include "platform/vlorb/Orb.h"

#include "interfaces/orb_threads.h"
#include "interfaces/wide_code_set.h"
#include "platform/common/vlcommon.h"
#include "platform/vlorb/addresses.h"
#include "platform/vlorb/resend.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <omniORB4/minorCode.h>
#include <omniORB4/omniORB.h>
#include <omniORB4/sslContext.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

OMNI_USING_NAMESPACE(omni) // where newer releases of the ORB have sslContext

namespace {

using clock = std::chrono::steady_clock;

constexpr const char* fallback_port = "5638";

std::mutex running_guard; // two libraries may have an Orb each
unsigned running = 0;     ///< Orb objects that are started

/// What the wire needs, whatever a machine's own configuration of the ORB says.
using option = const char* [2];
option options[] = {
    {"traceLevel", "0"},                   // the host's standard error isn't ours
    {"nativeCharCodeSet", "ISO-8859-1"},   // narrow text goes byte for byte
    {"defaultCharCodeSet", "ISO-8859-1"},  // and a name in a corbaloc carries no code set
    {"nativeWCharCodeSet", WIDE_CODE_SET}, // wide text beyond the first 65,536 characters too
    {"defaultWCharCodeSet", "UTF-16"},
    {"verifyObjectExistsAndType", "0"},  // no question to the service but those that are asked
    {"resetTimeOutOnRetries", "0"},      // the time-out is that of the whole call,
    {"clientConnectTimeOutPeriod", "0"}, // making its connection included
    {"oneCallPerConnection", "1"},       // what comes in on an idle one is its end
    {"retainAddressOrder", "1"},         // an object's address is chosen once
    {nullptr, nullptr},
};

/// Those of them that this release of the ORB knows. From 4.3 on it chooses among an object's addresses anew
/// whenever a connection is lost, unless told not to, and where memory ends meanwhile waits for that for ever.
option* known_options() {
    constexpr CORBA::ULong chooses_anew = 0x04030000;
    if (omniORB::versionHex() < chooses_anew) {
        std::fill_n(options[std::size(options) - 2], 2, nullptr);
    }
    return options;
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

/// omniORB's 0 is no bound; what is longer than it can tell is the longest that it can.
CORBA::ULong milliseconds(const ACE_Time_Value& time) {
    constexpr ACE_UINT64 longest = std::numeric_limits<CORBA::ULong>::max();
    const ACE_UINT64 asked = time > ACE_Time_Value::zero ? time.get_msec() : 0;
    return static_cast<CORBA::ULong>(std::min(asked, longest));
}

std::string corbaloc(bool is_secure, const std::string& address, const std::string& port,
                     const std::string& key) {
    const bool is_ipv6 = address.find(':') != std::string::npos;
    return std::string("corbaloc:") + (is_secure ? "ssliop" : "iiop") + ":1.2@" +
           (is_ipv6 ? "[" + address + "]" : address) + ":" + port + "/" + key;
}

/// The time, in milliseconds, that the next of so many addresses gets of what is left of `whole`:
/// as much as each of those behind it, so that none of them keeps the others from their turn.
CORBA::ULong part_of(const ACE_Time_Value& whole, clock::duration spent, size_t addresses) {
    const CORBA::ULong all = milliseconds(whole);
    if (all == 0) {
        return 0; // no bound
    }
    const auto gone = std::chrono::duration_cast<std::chrono::milliseconds>(spent).count();
    const int64_t rest = std::max<int64_t>(int64_t{all} - gone, 0);
    return static_cast<CORBA::ULong>(std::max<int64_t>(rest / static_cast<int64_t>(addresses), 1));
}

/// Whether anybody answers for the object within so many milliseconds, whatever the answer. Asks
/// what begins nothing.
bool answers(CORBA::Object* object, CORBA::ULong timeout) {
    omniORB::setClientCallTimeout(object, timeout);
    try {
        object->_non_existent();
    } catch (const CORBA::COMM_FAILURE&) {
        return false;
    } catch (const CORBA::TRANSIENT&) {
        return false;
    } catch (const CORBA::TIMEOUT&) {
        return false;
    } catch (const CORBA::SystemException&) {
        // an answer, too
    }
    omniORB::setClientCallTimeout(object, 0); // it has the bound of the whole ORB
    return true;
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
        await_orb_threads();
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
    orb = CORBA::ORB_init(argc, argv, "omniORB4", known_options());
    if (running++ == 0) {
        watch_orb_threads();
        send_again_only_what_was_not_begun();
    }
}

void Orb::setOrbRequestTimeout(const ACE_Time_Value& timeout) {
    omniORB::setClientCallTimeout(milliseconds(timeout));
}

CORBA::Object* Orb::connect(const std::string& host, const std::string& service,
                            const std::string& key, const ACE_Time_Value& timeout,
                            const ACE_Time_Value& /*second_timeout*/, const bool& /*first_flag*/,
                            const bool& /*second_flag*/) {
    const std::string port = port_of(service);
    if (port.empty()) {
        return nullptr;
    }
    std::vector<std::string> addresses = addresses_of(host);
    if (addresses.empty()) {
        addresses.push_back(host); // whoever uses the object hears that it has none
    }
    // The last one, mostly the only one, is taken unasked: whoever uses it hears what is wrong.
    const clock::time_point start = clock::now();
    for (size_t tried = 0;; ++tried) {
        const size_t left = addresses.size() - tried;
        const std::string name = corbaloc(force_oxss_iop, addresses[tried], port, key);
        CORBA::Object_var object = orb->string_to_object(name.c_str());
        const CORBA::ULong part = part_of(timeout, clock::now() - start, left);
        if (left == 1) {
            omniORB::setClientCallTimeout(object, addresses.size() > 1 ? part : 0);
            return object._retn();
        }
        if (answers(object, part)) {
            return object._retn();
        }
    }
}

CORBA::Object* Orb::setObjectRequestTimeout(CORBA::Object* object, const ACE_Time_Value& timeout) {
    omniORB::setClientCallTimeout(object, milliseconds(timeout));
    return object;
}
