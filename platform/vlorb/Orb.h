// One ORB of the process, as the plugin's client of the management service uses it. The library is
// the product's; the one built here stands in for it, over omniORB, on a machine that has nothing
// of the product. All that only this ORB has (starting it, time-outs, finding an object, TLS) is
// behind this class.
#pragma once

#include <ace/Time_Value.h>

#include <ace/Abstract_Timer_Queue.h> // can't be read before the time
#include <omniORB4/CORBA.h>

#include <string>

class ACE_Event_Handler;

/// The order of the virtual operations and the first data member are the library's contract.
/// Making, starting and deleting objects of this class must be serialised; the rest may be called
/// on any number of threads.
class __attribute__((visibility("default"))) Orb {
  public:
    /// Starts nothing. The arguments are taken for the contract's sake and aren't used here.
    Orb(const std::string& configuration, const std::string& name, const std::string& arguments,
        bool flag, unsigned long size);

    /// Stops the ORB: its connections and threads go with the last Orb of the process.
    virtual ~Orb();

    /// The object `key` of `service` on `host`; the caller owns the reference. Null when
    /// VLSL_PORT is no port, which the log tells. Where the name has several addresses, each is
    /// asked in the resolver's order whether the object is there, until one answers; the last one,
    /// mostly the only one, is taken unasked, and nothing remote happens until the reference is
    /// used. All addresses together get `timeout`, zero is no bound: one that refuses is passed over
    /// at once, one that says nothing costs its equal part. The other arguments aren't used here.
    virtual CORBA::Object* connect(const std::string& host, const std::string& service,
                                   const std::string& key, const ACE_Time_Value& timeout,
                                   const ACE_Time_Value& second_timeout, const bool& first_flag,
                                   const bool& second_flag);

    /// Bounds each call on `object`; zero takes the bound of the whole ORB again. Answers `object`.
    virtual CORBA::Object* setObjectRequestTimeout(CORBA::Object* object,
                                                   const ACE_Time_Value& timeout);

    Orb(const Orb&) = delete;
    Orb& operator=(const Orb&) = delete;

    /// Starts the ORB, once. `timers` may be null and isn't used here. Throws what the ORB throws
    /// when it can't be started, CORBA::INITIALIZE for example.
    void init(ACE_Abstract_Timer_Queue<ACE_Event_Handler*>* timers);

    /// Bounds each call of this process; zero takes the bound away.
    void setOrbRequestTimeout(const ACE_Time_Value& timeout);

    CORBA::ORB* orb = nullptr;   ///< owned; null until init
    bool force_oxss_iop = false; ///< objects are reached over TLS; set before init
};
