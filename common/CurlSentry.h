// Starts and stops the HTTP library and the TLS library together, counted, so that several users in
// one process share one start. Nothing in this system asks it to: no HTTP request is ever sent.
//
// The count isn't locked: start and stop are one thread's.
#pragma once

#include <cstdint>

class __attribute__((visibility("default"))) CurlSentry {
  public:
    /// Not started, and free to start.
    CurlSentry();
    CurlSentry(const CurlSentry&) = delete;
    CurlSentry& operator=(const CurlSentry&) = delete;

    /// Calls cleanup once when starts are outstanding.
    ~CurlSentry();

    /// The process's own, which exists from load on and is never deleted.
    static CurlSentry* instance();

    /// False: initialize and cleanup do nothing, for a host that runs the libraries itself.
    bool isInitEnable();
    void setInitEnable(bool enable);

    /// The first call starts the TLS library, then the HTTP library, and returns that one's status;
    /// further ones return 0. Each counts, also a failed one.
    int initialize();

    /// The last call stops the HTTP library, then the TLS library. So does one too many. Always 0.
    int cleanup();

    /// Starts the HTTP library alone, with all of its global features. Its status.
    int initCurl();

    /// Stops the HTTP library alone.
    void cleanupCurl();

  private:
    int32_t m_refcount = 0; ///< starts outstanding
    bool m_initEnable = true;

    static CurlSentry* m_instance;
};
