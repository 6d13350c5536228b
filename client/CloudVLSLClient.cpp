#include "client/CloudVLSLClient.h"

#include "client/ValuetypeRegistrations.h"
#include "common/onet_proxy_hint.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <utility>

namespace Orvessa::Vaultaro {

using Corvane::Vaultaro::SL::VLSLOpException;

/// What an exchange answers and logs when it fails. An exception of the service always gives its
/// own code to the log.
struct service_call_s {
    const char* operation; ///< by its name at the service
    const char* verb;      ///< of the line that tells of an exception of the service
    bool passes_code;      ///< such an exception's code is the status, else STS_ERR_FILE is
    int failed;            ///< any other CORBA exception
    int odd;               ///< anything else
    int odd_logged;        ///< the number in its line
};

/// A reference that the service doesn't hand out: the start of a connection has failed.
struct missing_reference {
    const char* who;  ///< missed it
    const char* what; ///< failed, for the log
};

namespace {

constexpr int refused = STS_ERR_MAX_CONNECTIONS;

constexpr service_call_s set_params_call = {
    "update_ThrottleConfigParams", "while", false, STS_ERR_FILE, STS_ERR_FILE, STS_ERR_FILE};
constexpr service_call_s bandwidth_call = {"check_bandwidth", "while",      false,
                                           STS_ERR_FILE,      STS_ERR_FILE, STS_ERR_FILE};
constexpr service_call_s connections_call = {"check_connections", "while",      false,
                                             STS_ERR_FILE,        STS_ERR_FILE, STS_ERR_FILE};
constexpr service_call_s meter_call = {
    "update_MeteringData", "while", true, refused, refused, refused};
constexpr service_call_s get_blob_call = {
    "getCloudConfigBlob", "occured while", true, refused, refused, STS_OK};
constexpr service_call_s set_blob_call = {
    "setCloudConfigBlob", "occured while", true, refused, -1, STS_OK};

void registerFactory(CORBA::ORB* orb) {
    Corvane::Vaultaro::SL::VLT_77::register_obv_factories(orb);
}

/// Runs `body` and lets these kinds of exception out of it; any other ends the process.
template <class Body>
auto letting_out_failures(Body body) noexcept(false) -> decltype(body()) {
    try {
        return body();
    } catch (const missing_reference&) {
        throw;
    } catch (const ActionFailedException&) {
        throw;
    } catch (const CORBA::SystemException&) {
        throw;
    } catch (...) {
        std::terminate();
    }
}

void require(bool there, const char* who, const char* what) {
    if (!there) {
        throw missing_reference{who, what};
    }
}

/// Its event is handed over and not copied: a reason for which there is no memory can't be.
ActionFailedException action_failed(CCloudVLSLClient& client) {
    ActionFailedEventSeq_var events = new ActionFailedEventSeq;
    events->length(1);
    client.InitializeActionFailedException(events);
    ActionFailedException failure;
    const CORBA::ULong room = events->maximum();
    failure.eventSeq.replace(room, 1, events->get_buffer(true), true);
    return failure;
}

} // namespace

// --- lifecycle ---------------------------------------------------------------------------------

CCloudVLSLClient::CCloudVLSLClient(const sts_session_def_v7_t* session, std::string host,
                                   bool force_oxss_iop, unsigned long value, int timeout_seconds)
    : m_session_def(session) {
    newSession(std::move(host), value, force_oxss_iop, timeout_seconds);
}

CCloudVLSLClient::~CCloudVLSLClient() { Shutdown(); }

void CCloudVLSLClient::newSession(std::string host, unsigned long value, bool force_oxss_iop,
                                  int timeout_seconds) {
    Shutdown();
    m_locale = CORBA::string_dup("C");
    m_host = CORBA::string_dup(host.c_str());
    m_timeout_seconds = timeout_seconds;
    m_force_oxss_iop = force_oxss_iop;
    m_session_value = value;
}

void CCloudVLSLClient::Shutdown() {
    letting_out_failures([this] {
        if (!CORBA::is_nil(m_host_session)) {
            try {
                m_host_session->destroy();
            } catch (const CORBA::Exception&) {
                // the session ends by its lease then
            }
        }
        m_host_session = HostSession::_nil();
        m_host_session_factory = HostSessionFactory::_nil();
        m_force_oxss_iop = false;
        m_cloud_manager = CloudManager::_nil();
        m_modifiable_facet = CloudModifiableFacet::_nil();
        m_query_facet = CloudQueryFacet::_nil();
    });
}

// --- the chain ---------------------------------------------------------------------------------

/// The host's log may call back here, so it is told when no lock is held any more.
void CCloudVLSLClient::tell(const missing_reference& missing) {
    LogMsg(STS_SEV_ERROR, "CCloudVLSLClient::%s() Failed to %s", missing.who, missing.what);
}

/// Runs `body`, which builds what is missing of the chain; what is missing still is told and
/// thrown.
template <class Body>
auto CCloudVLSLClient::telling_failures(Body body) -> decltype(body()) {
    return letting_out_failures([&] {
        try {
            return body();
        } catch (const missing_reference& missing) {
            tell(missing);
            throw action_failed(*this);
        }
    });
}

void CCloudVLSLClient::connect_session() {
    constexpr const char* who = "Initialize";
    if (m_force_oxss_iop) {
        m_orb_client.forceOxSSIOP();
    }
    m_orb_client.init(registerFactory);
    const ACE_Time_Value timeout(m_timeout_seconds, 0);
    m_orb_client.SetOrbRequestTimeout(timeout);
    const CORBA::Object_var object = m_orb_client.connectToObject(m_host.in(), "vlsl", "HSFactory",
                                                                  timeout, ACE_Time_Value::zero);
    require(!CORBA::is_nil(object), who, "connect vlsl");
    m_host_session_factory = HostSessionFactory::_narrow(object);
    require(!CORBA::is_nil(m_host_session_factory), who, "get instance of HostSessionFactory");
    m_host_session = m_host_session_factory->getHostSession(m_host, m_locale);
    require(!CORBA::is_nil(m_host_session), who, "get instance of HostSession");
    ++m_session_id;
}

void CCloudVLSLClient::connect_cloud_manager() {
    m_cloud_manager = m_host_session->getCloudManager();
    require(!CORBA::is_nil(m_cloud_manager), "InitializeCloudManager",
            "get instance of CloudManager from vlsl");
}

/// Builds what is missing of the chain.
void CCloudVLSLClient::connect() {
    if (CORBA::is_nil(m_host_session)) {
        connect_session();
    }
    if (CORBA::is_nil(m_cloud_manager)) {
        connect_cloud_manager();
    }
    if (CORBA::is_nil(m_query_facet)) {
        const Corvane::Vaultaro::SL::QueryableFacet_var facet = m_cloud_manager->aqueryFacet();
        m_query_facet = CloudQueryFacet::_narrow(facet);
    }
    if (CORBA::is_nil(m_modifiable_facet)) {
        const Corvane::Vaultaro::SL::ModifiableFacet_var facet = m_cloud_manager->amodifyFacet();
        m_modifiable_facet = CloudModifiableFacet::_narrow(facet);
    }
}

bool CCloudVLSLClient::Initialize() {
    return telling_failures([this] {
        connect();
        return !CORBA::is_nil(m_host_session);
    });
}

bool CCloudVLSLClient::InitializeCloudManager() {
    return telling_failures([this] {
        connect();
        return !CORBA::is_nil(m_cloud_manager);
    });
}

CloudManager::_ptr_type CCloudVLSLClient::GetCloudManager() {
    return telling_failures([this] {
        if (CORBA::is_nil(m_cloud_manager)) {
            connect();
            require(!CORBA::is_nil(m_cloud_manager), "GetCloudManager",
                    "get instance of CloudManager from vlsl");
        }
        return m_cloud_manager._retn();
    });
}

long CCloudVLSLClient::getInactivityTimeout() {
    return letting_out_failures([this]() -> long {
        return Initialize() ? m_host_session_factory->getInactivityTimeout() : 0;
    });
}

int CCloudVLSLClient::getSessionID() { return m_session_id; }

CORBA::Object* CCloudVLSLClient::setObjectRequestTimeout(CORBA::Object* object,
                                                         const ACE_Time_Value& timeout) {
    return m_orb_client.setObjectRequestTimeout(object, timeout);
}

// --- the exchanges -----------------------------------------------------------------------------

/// The facet, once the chain is tried where it is nil; it may be nil still. An exchange that waited
/// for another one's failed attempt has failed with it, so that a mute service holds each of them
/// up for one time-out only.
template <class Facet>
typename Facet::_ptr_type CCloudVLSLClient::connected(typename Facet::_var_type& facet) {
    const unsigned failures_before = m_failures;
    const std::lock_guard connecting(m_connecting);
    if (CORBA::is_nil(facet)) {
        if (m_failures != failures_before) {
            throw CORBA::TRANSIENT();
        }
        try {
            letting_out_failures([this] { connect(); });
        } catch (...) {
            ++m_failures;
            throw;
        }
    }
    return Facet::_duplicate(facet);
}

/// Runs `call` on the facet, which is connected first where needed.
template <class Facet, class Call>
int CCloudVLSLClient::ask(const service_call_s& row, typename Facet::_var_type& facet, Call call) {
    try {
        const typename Facet::_var_type target = connected<Facet>(facet);
        if (CORBA::is_nil(target)) {
            return report_corba(row, STS_ERR_FILE);
        }
        return call(target);
    } catch (const missing_reference& missing) {
        tell(missing);
        return report_corba(row, row.failed);
    } catch (CORBA::Exception& failure) {
        const VLSLOpException* const raised = VLSLOpException::_downcast(&failure);
        return raised != nullptr ? report_raised(row, *raised) : report_corba(row, row.failed);
    } catch (...) {
        LogMsg(STS_SEV_ERROR, "Unknown exception occured while processing %s, return code =%d",
               row.operation, row.odd_logged);
        return row.odd;
    }
}

int CCloudVLSLClient::report_corba(const service_call_s& row, int status) {
    LogMsg(STS_SEV_ERROR, "Unknown CORBA exception occured while processing %s, return code =%d",
           row.operation, status);
    return status;
}

int CCloudVLSLClient::report_raised(const service_call_s& row, const VLSLOpException& raised) {
    const bool has_record = raised.errRecSeq.length() != 0;
    const int code = has_record ? raised.errRecSeq[0].errorCode : 0;
    LogMsg(STS_SEV_ERROR, "VLSLOpException %s processing %s, return code =%d", row.verb,
           row.operation, code);
    return row.passes_code && has_record ? code : STS_ERR_FILE;
}

int CCloudVLSLClient::set_config_params(const char* params) {
    return ask<CloudModifiableFacet>(set_params_call, m_modifiable_facet, [&](auto& facet) {
        return facet->update_ThrottleConfigParams(params);
    });
}

int CCloudVLSLClient::check_bandwidth(const char* key, const char* session_text,
                                      ThrottlingBandwidth_var value, std::string& out) {
    return ask<CloudQueryFacet>(bandwidth_call, m_query_facet, [&](auto& facet) {
        CORBA::String_var answer;
        const int status = facet->check_bandwidth(key, session_text, value, answer);
        out = answer.in();
        return status;
    });
}

int CCloudVLSLClient::check_connections(const char* key, const char* session_text, int delta,
                                        std::string& out) {
    return ask<CloudQueryFacet>(connections_call, m_query_facet, [&](auto& facet) {
        CORBA::String_var answer;
        const int status = facet->check_connections(key, session_text, delta, answer);
        out = answer.in();
        return status;
    });
}

int CCloudVLSLClient::send_meter(const char* key, const char* session_text,
                                 MeteringDataInfo_var value, bool flag) {
    return ask<CloudModifiableFacet>(meter_call, m_modifiable_facet, [&](auto& facet) {
        return facet->update_MeteringData(key, session_text, value.in(), flag);
    });
}

int CCloudVLSLClient::getStorageServerConfig(std::string name, std::string& out) {
    out.clear();
    return ask<CloudQueryFacet>(get_blob_call, m_query_facet, [&](auto& facet) -> int {
        out = facet->getCloudConfigBlob(name.c_str()); // the text stays allocated
        return STS_OK;
    });
}

int CCloudVLSLClient::setStorageServerConfig(std::string name, std::string config) {
    return ask<CloudModifiableFacet>(set_blob_call, m_modifiable_facet, [&](auto& facet) -> int {
        facet->setCloudConfigBlob(name.c_str(), config.c_str());
        return STS_OK;
    });
}

// --- what failed -------------------------------------------------------------------------------

void CCloudVLSLClient::InitializeActionFailedException(ActionFailedEventSeq_var& seq) {
    ActionFailedEvent& event = seq[0U];
    event.id.domain = 4;
    event.id.number = 195;
    event.when = 0;
    event.hostName = "";
    event.serviceName = "";
    event.locale = "";
    CORBA::Any reason;
    reason <<= "Corba error";
    auto* const copy = new (std::nothrow) CORBA::Any(reason);
    if (copy == nullptr) {
        errno = ENOMEM;
    }
    event.msg_info.unknownError(copy); // or a null pointer
}

void CCloudVLSLClient::LogMsg(sts_severity_v7_t severity, const char* format, ...) {
    if (m_session_def == nullptr || m_session_def->log == nullptr) {
        return;
    }
    char text[1024] = {};
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    m_session_def->log(m_session_def->session_id, text, severity);
}

} // namespace Orvessa::Vaultaro
