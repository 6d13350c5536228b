#include "tests/service/wire_client.h"

#include <cstdlib>
#include <ctime>
#include <omniORB4/sslContext.h>

OMNI_USING_NAMESPACE(omni) // where newer releases of the ORB have sslContext

namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;
namespace SL = Corvane::Vaultaro::SL;
using Orvessa::Vaultaro::HostSessionFactory;

namespace {

/// Nothing is asked twice: a failure is to be seen.
template <typename Exception>
CORBA::Boolean give_up(void*, CORBA::ULong, const Exception&) {
    return false;
}

/// Whether to speak TLS, with the files of the environment.
bool has_tls() { return getenv("VLSL_TLS_KEY") != nullptr; }

CORBA::ORB_ptr start_orb() {
    if (has_tls()) {
        sslContext::certificate_authority_file = getenv("VLSL_TLS_CA");
        sslContext::key_file = getenv("VLSL_TLS_KEY");
        sslContext::key_file_password = "";
    }
    // A question that isn't answered in a minute fails, rather than the test standing still.
    const char* options[][2] = {{"clientCallTimeOutPeriod", "60000"},
                                {"nativeCharCodeSet", "ISO-8859-1"},
                                {"traceLevel", "0"},
                                // Threads that ask at once have a connection each.
                                {"maxGIOPConnectionPerServer", "300"},
                                {"clientTransportRule", has_tls() ? "* ssl" : "* tcp"},
                                {nullptr, nullptr}};
    int count = 0;
    CORBA::ORB_ptr orb = CORBA::ORB_init(count, nullptr, "omniORB4", options);
    omniORB::installTransientExceptionHandler(nullptr, give_up<CORBA::TRANSIENT>);
    omniORB::installCommFailureExceptionHandler(nullptr, give_up<CORBA::COMM_FAILURE>);
    return orb;
}

} // namespace

CORBA::ORB_ptr client_orb() {
    static const CORBA::ORB_var orb = start_orb();
    return orb;
}

HostSessionFactory::_ptr_type find_factory(int port) {
    const std::string name = std::string("corbaloc:") + (has_tls() ? "ssliop" : "iiop") +
                             ":1.2@127.0.0.1:" + std::to_string(port) + "/HSFactory";
    const CORBA::Object_var object = client_orb()->string_to_object(name.c_str());
    return HostSessionFactory::_unchecked_narrow(object);
}

remote_session::remote_session(HostSessionFactory::_ptr_type factory)
    : session(factory->getHostSession("localhost", "C")), manager(session->getCloudManager()) {
    const SL::QueryableFacet_var plain_query = manager->aqueryFacet();
    query = CloudMgmt::CloudQueryFacet::_narrow(plain_query);
    const SL::ModifiableFacet_var plain_modify = manager->amodifyFacet();
    modify = CloudMgmt::CloudModifiableFacet::_narrow(plain_modify);
}

remote_session::remote_session(int port)
    : remote_session(Orvessa::Vaultaro::HostSessionFactory_var(find_factory(port)).in()) {}

exchange remote_session::check_connections(const std::string& key, int delta) const {
    CORBA::String_var text;
    const int status = query->check_connections(key.c_str(), "host_1", delta, text.out());
    return {status, text.in()};
}

exchange remote_session::report(const std::string& key, uint64_t bytes, uint32_t seconds) const {
    const auto now = static_cast<CORBA::ULong>(time(nullptr));
    const CORBA::ULong operation = key[0] == 'r' ? 0 : 1;
    const CloudMgmt::ThrottlingBandwidth_var value =
        new OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth(operation, now - seconds, now,
                                                                      bytes);
    CORBA::String_var text;
    const int status = query->check_bandwidth(key.c_str(), "host_1", value, text.out());
    return {status, text.in()};
}

int remote_session::configure(const std::string& text) const {
    return modify->update_ThrottleConfigParams(text.c_str());
}
