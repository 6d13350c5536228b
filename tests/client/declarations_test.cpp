// What a caller relies on and no exported symbol's name tells: what each function returns, and
// which are static. All else is in the names, which tests/exports.txt holds. What is here holds where
// it compiles.

#include "client/CloudVLSLClient.h"
#include "common/CurlSentry.h"
#include "common/threads_sync.h"
#include "config/throttling_util.h"
#include "engine/service_connector.h"

#include <type_traits>

namespace {

/// A member function of `Class`.
template <typename Class, typename Result, typename... Arguments>
using member = Result (Class::*)(Arguments...);

template <typename Declared, typename Defined>
constexpr bool is(Defined /*function*/) {
    return std::is_same_v<Declared, Defined>;
}

static_assert(is<char* (*)(const char*)>(encodeBase64));
static_assert(
    is<member<ServiceConnector, std::string, const char*, int>>(&ServiceConnector::access_uri));

// --- semaphores ---

static_assert(is<member<SemSet, int, int>>(&SemSet::init));
static_assert(is<member<SemSet, SemId>>(&SemSet::getSemId));
static_assert(is<member<SemSet, bool, const SemId&>>(&SemSet::returnSemId));
static_assert(is<member<SemSet, int>>(&SemSet::destroy));
static_assert(!std::is_polymorphic_v<SemSet>);
static_assert(is<int (*)(sem_locker_t*, SemSet&)>(sem_locker_init));
static_assert(is<int (*)(sem_locker_t*, SemSet&)>(sem_locker_destroy));
static_assert(is<int (*)(sem_locker_t*)>(sem_locker_lock));
static_assert(is<int (*)(sem_locker_t*)>(sem_locker_unlock));
static_assert(is<int (*)(sem_cond_t*, SemSet&)>(sem_cond_init));
static_assert(is<int (*)(sem_cond_t*, SemSet&)>(sem_cond_destroy));
static_assert(is<int (*)(sem_cond_t*, sem_locker_t*)>(sem_cond_wait));
static_assert(is<int (*)(sem_cond_t*, sem_locker_t*, const timespec*)>(sem_cond_timedwait));
static_assert(is<int (*)(sem_cond_t*)>(sem_cond_signal));

// --- the HTTP libraries ---

static_assert(is<CurlSentry* (*)()>(&CurlSentry::instance));
static_assert(is<member<CurlSentry, bool>>(&CurlSentry::isInitEnable));
static_assert(is<member<CurlSentry, void, bool>>(&CurlSentry::setInitEnable));
static_assert(is<member<CurlSentry, int>>(&CurlSentry::initialize));
static_assert(is<member<CurlSentry, int>>(&CurlSentry::cleanup));
static_assert(is<member<CurlSentry, int>>(&CurlSentry::initCurl));
static_assert(is<member<CurlSentry, void>>(&CurlSentry::cleanupCurl));
static_assert(!std::is_polymorphic_v<CurlSentry>);

// --- the client of the service ---

using namespace Orvessa::Vaultaro;
using client = CCloudVLSLClient;

static_assert(std::is_constructible_v<client, const sts_session_def_v7_t*, std::string, bool,
                                      unsigned long, int>);
static_assert(!std::is_polymorphic_v<client>);
static_assert(is<member<client, void, std::string, unsigned long, bool, int>>(&client::newSession));
static_assert(is<member<client, bool>>(&client::Initialize));
static_assert(is<member<client, bool>>(&client::InitializeCloudManager));
static_assert(is<member<client, CloudManager::_ptr_type>>(&client::GetCloudManager));
static_assert(is<member<client, void>>(&client::Shutdown));
static_assert(is<member<client, long>>(&client::getInactivityTimeout));
static_assert(is<member<client, int>>(&client::getSessionID));
static_assert(is<member<client, CORBA::Object*, CORBA::Object*, const ACE_Time_Value&>>(
    &client::setObjectRequestTimeout));
static_assert(is<member<client, int, const char*>>(&client::set_config_params));
static_assert(
    is<member<client, int, const char*, const char*, ThrottlingBandwidth_var, std::string&>>(
        &client::check_bandwidth));
static_assert(is<member<client, int, const char*, const char*, int, std::string&>>(
    &client::check_connections));
static_assert(is<member<client, int, const char*, const char*, MeteringDataInfo_var, bool>>(
    &client::send_meter));
static_assert(is<member<client, int, std::string, std::string&>>(&client::getStorageServerConfig));
static_assert(is<member<client, int, std::string, std::string>>(&client::setStorageServerConfig));
static_assert(
    is<member<client, void, ActionFailedEventSeq_var&>>(&client::InitializeActionFailedException));
static_assert(is<void (client::*)(sts_severity_v7_t, const char*, ...)>(&client::LogMsg));

} // namespace
