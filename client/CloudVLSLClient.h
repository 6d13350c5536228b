// The one class through which the throttling engine reaches the management service.
//
//   HSFactory --getHostSession--> HostSession --getCloudManager--> CloudManager
//                                         aqueryFacet / amodifyFacet --> CloudQueryFacet,
//                                                                        CloudModifiableFacet
//
// The chain is built at the first exchange that needs it, and what is missing of it again at each
// later one. Once it stands it is never renewed: a service that comes back under the same keys is
// found again, for one that doesn't a new session must be asked for.
#pragma once

#include "client/OrbClient.h"
#include "plugin/stsapi.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vlsl.hh>

namespace Orvessa::Vaultaro {

using Corvane::Vaultaro::SL::CloudMgmt::CloudManager;
using Corvane::Vaultaro::SL::CloudMgmt::CloudManager_var;
using Corvane::Vaultaro::SL::CloudMgmt::CloudModifiableFacet;
using Corvane::Vaultaro::SL::CloudMgmt::CloudModifiableFacet_var;
using Corvane::Vaultaro::SL::CloudMgmt::CloudQueryFacet;
using Corvane::Vaultaro::SL::CloudMgmt::CloudQueryFacet_var;
using Corvane::Vaultaro::SL::CloudMgmt::MeteringDataInfo;
using Corvane::Vaultaro::SL::CloudMgmt::MeteringDataInfo_var;
using Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth;
using Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth_var;

struct missing_reference;
struct service_call_s;

/// A client of the management service.
///
/// The six exchanges (set_config_params to setStorageServerConfig) let no exception out and may
/// overlap: they make the connection one at a time and then go side by side. Nothing else may
/// overlap with anything. The session's callback may make an exchange itself. From Initialize,
/// InitializeCloudManager, GetCloudManager, getInactivityTimeout and Shutdown only
/// ActionFailedException and CORBA::SystemException come out; any other exception ends the process.
class __attribute__((visibility("default"))) CCloudVLSLClient {
  public:
    /// Nothing remote happens. `session` gets the log lines; it is borrowed for the client's life
    /// and may be null. `value` is kept and nothing reads it. Each remote call gives up after
    /// `timeout_seconds`, 0 is no bound.
    CCloudVLSLClient(const sts_session_def_v7_t* session, std::string host, bool force_oxss_iop,
                     unsigned long value, int timeout_seconds);
    ~CCloudVLSLClient();
    CCloudVLSLClient(const CCloudVLSLClient&) = delete;
    CCloudVLSLClient& operator=(const CCloudVLSLClient&) = delete;

    /// Ends the session and takes other parameters for the next one.
    void newSession(std::string host, unsigned long value, bool force_oxss_iop,
                    int timeout_seconds);

    /// Makes the session and what hangs on it, where it is missing. True when there is a session.
    bool Initialize();

    /// Makes the cloud manager and its facets, where they are missing, and the session before them.
    /// True when there is a manager; a facet that the service doesn't have stays nil.
    bool InitializeCloudManager();

    /// The cloud manager, which the caller owns from now on: the next call that needs one fetches
    /// another.
    CloudManager::_ptr_type GetCloudManager();

    /// Ends the session at the service, whatever comes of it, and drops all references.
    void Shutdown();

    /// Seconds after which the service ends a silent session; 0 without a session.
    long getInactivityTimeout();

    /// Sessions made so far.
    int getSessionID();

    /// Bounds each call on `object`.
    CORBA::Object* setObjectRequestTimeout(CORBA::Object* object, const ACE_Time_Value& timeout);

    /// Sends the whole configuration in its row form. The service's status, or STS_ERR_FILE when
    /// the call failed in any way.
    int set_config_params(const char* params);

    /// Reports one sample of the flow `key`. `out` gets the service's answer whatever its status,
    /// and is as it was when the call failed. Status as above.
    int check_bandwidth(const char* key, const char* session_text, ThrottlingBandwidth_var value,
                        std::string& out);

    /// Adds (+1) or gives back (-1) a connection of the flow `key`. STS_ERR_MAX_CONNECTIONS is the
    /// service's refusal. Status and `out` as above.
    int check_connections(const char* key, const char* session_text, int delta, std::string& out);

    /// Reports counters of reads and writes. The service's status; its own error code when it
    /// raised one; else STS_ERR_MAX_CONNECTIONS when the call failed.
    int send_meter(const char* key, const char* session_text, MeteringDataInfo_var value,
                   bool flag);

    /// The stored configuration `name`. `out` is empty when the call failed. 0, or as send_meter.
    int getStorageServerConfig(std::string name, std::string& out);

    /// Stores a configuration. 0, or as send_meter; -1 when what failed was no CORBA exception.
    int setStorageServerConfig(std::string name, std::string config);

    /// Fills element 0 of a sequence of one: the failed start of a connection. Where there is no
    /// memory for its reason, that is a null pointer, and errno is ENOMEM.
    void InitializeActionFailedException(ActionFailedEventSeq_var& seq);

    /// Hands one line of 1023 bytes at most to the session's callback, if there is one; its log
    /// mask isn't asked.
    void LogMsg(sts_severity_v7_t severity, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

  private:
    template <class Facet>
    typename Facet::_ptr_type connected(typename Facet::_var_type& facet);
    template <class Facet, class Call>
    int ask(const service_call_s& row, typename Facet::_var_type& facet, Call call);
    int report_corba(const service_call_s& row, int status);
    int report_raised(const service_call_s& row,
                      const Corvane::Vaultaro::SL::VLSLOpException& raised);
    template <class Body>
    auto telling_failures(Body body) -> decltype(body());
    void tell(const missing_reference& missing);
    void connect();
    void connect_session();
    void connect_cloud_manager();

    int m_timeout_seconds = 0;
    COrbClient m_orb_client;
    CORBA::String_var m_host;
    CORBA::String_var m_locale;
    HostSession_var m_host_session;
    HostSessionFactory_var m_host_session_factory;
    CloudManager_var m_cloud_manager;
    CloudQueryFacet_var m_query_facet;
    CloudModifiableFacet_var m_modifiable_facet;
    int m_session_id = 0;
    unsigned long m_session_value = 0;
    bool m_force_oxss_iop = false;
    const sts_session_def_v7_t* m_session_def;
    std::mutex m_connecting;             ///< held by the one exchange that builds the chain
    std::atomic<unsigned> m_failures{0}; ///< times that building it failed
};

} // namespace Orvessa::Vaultaro
