#include "tests/client/recording_orb.h"

#include <cstdlib>
#include <utility>

namespace {

void arrive(const std::string& operation, const std::string& arguments) {
    orbs().calls.push_back(operation + arguments);
    if (const auto at = orbs().at) { // a copy: it may put another in its place
        at(operation);
    }
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string seconds(const ACE_Time_Value& time) {
    return std::to_string(time.sec()) + "." + std::to_string(time.usec());
}

std::string flag(bool value) { return value ? "true" : "false"; }

} // namespace

/// A sanitizer is told that this Orb takes the place of another one on purpose.
extern "C" const char* __asan_default_options() { return "detect_odr_violation=0"; }

orb_record& orbs() {
    static orb_record record;
    return record;
}

std::vector<std::string> orb_record::take() { return std::exchange(calls, {}); }

Orb::Orb(const std::string& configuration, const std::string& name, const std::string& arguments,
         bool a_flag, unsigned long size) {
    arrive("Orb", "(" + quoted(configuration) + ", " + quoted(name) + ", " + quoted(arguments) +
                      ", " + flag(a_flag) + ", " + std::to_string(size) + ")");
    orbs().current = this;
    ++orbs().alive;
}

Orb::~Orb() {
    orbs().calls.emplace_back("~Orb");
    orbs().current = nullptr;
    --orbs().alive;
    if (orb != nullptr) {
        orb->destroy();
        CORBA::release(orb);
    }
}

void Orb::init(ACE_Abstract_Timer_Queue<ACE_Event_Handler*>* timers) {
    arrive("init", std::string(timers == nullptr ? "(null)" : "(timers)") +
                       (force_oxss_iop ? " for TLS" : ""));
    if (orb == nullptr) {
        int no_arguments = 0;
        const char* options[][2] = {{"traceLevel", "0"}, {nullptr, nullptr}};
        orb = CORBA::ORB_init(no_arguments, nullptr, "omniORB4", options);
    }
}

void Orb::setOrbRequestTimeout(const ACE_Time_Value& timeout) {
    arrive("setOrbRequestTimeout", "(" + seconds(timeout) + ")");
}

CORBA::Object* Orb::connect(const std::string& host, const std::string& service,
                            const std::string& key, const ACE_Time_Value& timeout,
                            const ACE_Time_Value& second_timeout, const bool& first_flag,
                            const bool& second_flag) {
    arrive("connect", "(" + quoted(host) + ", " + quoted(service) + ", " + quoted(key) + ", " +
                          seconds(timeout) + ", " + seconds(second_timeout) + ", " +
                          flag(first_flag) + ", " + flag(second_flag) + ")");
    if (orbs().connects_to) {
        return orbs().connects_to();
    }
    const char* const port = getenv("VLSL_PORT");
    const std::string name =
        "corbaloc:iiop:1.2@127.0.0.1:" + std::string(port != nullptr ? port : "1") + "/" + key;
    return orb->string_to_object(name.c_str());
}

CORBA::Object* Orb::setObjectRequestTimeout(CORBA::Object* object, const ACE_Time_Value& timeout) {
    arrive("setObjectRequestTimeout", "(" + std::string(object == nullptr ? "null" : "object") +
                                          ", " + seconds(timeout) + ")");
    return orbs().timed;
}
