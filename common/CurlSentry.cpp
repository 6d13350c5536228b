// One counted start and stop for both libraries: the TLS library starts first and stops last.

#include "common/CurlSentry.h"

#include "common/cloud_error_catalogue.h" // built before the instance below
#include "platform/common/vlcommon.h"

CurlSentry* CurlSentry::m_instance = new CurlSentry;

CurlSentry::CurlSentry() = default;

CurlSentry::~CurlSentry() {
    if (m_refcount != 0) {
        cleanup();
    }
}

CurlSentry* CurlSentry::instance() { return m_instance; }

bool CurlSentry::isInitEnable() { return m_initEnable; }

void CurlSentry::setInitEnable(bool enable) { m_initEnable = enable; }

int CurlSentry::initialize() {
    if (!isInitEnable()) {
        return 0;
    }
    int status = 0;
    if (m_refcount == 0) {
        VL_101_vlopenssl_init();
        status = initCurl();
    }
    ++m_refcount;
    return status;
}

int CurlSentry::cleanup() {
    if (!isInitEnable()) {
        return 0;
    }
    if (m_refcount != 0 && --m_refcount != 0) {
        return 0;
    }
    cleanupCurl();
    VL_101_vlopenssl_fini(0);
    return 0;
}

int CurlSentry::initCurl() {
    constexpr long all_features = 3;
    return VL_curl_global_init(all_features);
}

void CurlSentry::cleanupCurl() { VL_curl_global_cleanup(); }
