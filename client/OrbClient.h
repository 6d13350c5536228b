// The one ORB of the process, shared by all clients of the management service: it is made with the
// first of them, started when one of them first connects, and ends with the last.
#pragma once

#include "platform/vlorb/Orb.h"

#include <string>

/// A user of the ORB. All operations but making and deleting need a live COrbClient, which is what
/// keeps the ORB alive. Making, deleting and starting take turns among all threads.
class COrbClient {
  public:
    /// Makes the Orb if there is none. Throws what making it throws, and then counts nothing.
    COrbClient();
    /// The last user's deletes the Orb.
    virtual ~COrbClient();
    COrbClient(const COrbClient&) = delete;
    COrbClient& operator=(const COrbClient&) = delete;

    /// Starts the ORB, once for each Orb, and hands it to `callback`, which may be null. A later
    /// call does nothing, also one that comes while the callback runs. What the start or the
    /// callback throws passes out, and the next call does it all again. The callback runs without a
    /// lock.
    void init(void (*callback)(CORBA::ORB*));

    /// The ORB, null before init; borrowed.
    CORBA::ORB* getOrb();

    /// The object `object_key` of `service` on `host`; the caller owns it. Null or nil when it
    /// can't be reached; exceptions of the ORB pass out.
    CORBA::Object* connectToObject(const std::string& host, const std::string& service,
                                   const std::string& object_key, const ACE_Time_Value& timeout,
                                   const ACE_Time_Value& second_timeout);

    /// Bounds each call on `object`. Answers what the Orb's own operation answers.
    CORBA::Object* setObjectRequestTimeout(CORBA::Object* object, const ACE_Time_Value& timeout);

    /// Bounds all calls of the ORB.
    void SetOrbRequestTimeout(ACE_Time_Value timeout);

    /// Has the present Orb reach objects over TLS; before init.
    void forceOxSSIOP();

  protected:
    static Orb* s_pOrb;      ///< null while there is no user
    static bool s_bInitDone; ///< the ORB runs
    static int s_nRefCount;  ///< live users
};
