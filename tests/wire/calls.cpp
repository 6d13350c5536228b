#include "tests/wire/calls.h"

#include "interfaces/wide_code_set.h"

#include <cstring>
#include <stdexcept>

namespace wire {

namespace {

/// As the client's own ORB is started, but for what only a lasting service needs.
const char* options[][2] = {
    {"nativeCharCodeSet", "ISO-8859-1"},
    {"defaultCharCodeSet", "ISO-8859-1"},
    {"nativeWCharCodeSet", WIDE_CODE_SET},
    {"defaultWCharCodeSet", "UTF-16"},
    {"traceLevel", "0"},
    {"verifyObjectExistsAndType", "0"},
    {"endPoint", "giop:tcp:127.0.0.1:"},
    {nullptr, nullptr},
};

CORBA::ORB_ptr start() {
    register_wide_code_set();
    int argc = 0;
    CORBA::ORB_ptr started = CORBA::ORB_init(argc, nullptr, "omniORB4", options);
    for (int i = 0; i < value_class_count; ++i) {
        CORBA::ValueFactoryBase* const factory = value_classes[i].factory();
        started->register_value_factory(types[value_classes[i].type].id, factory);
        factory->_remove_ref();
    }
    return started;
}

/// Ends the ORB before the program's own statics go.
struct started_orb {
    CORBA::ORB_var orb = start();
    ~started_orb() { orb->destroy(); }
};

} // namespace

CORBA::ORB_ptr orb() {
    static started_orb the_one;
    return the_one.orb;
}

const value_class& class_of(const char* id) {
    for (int i = 0; i < value_class_count; ++i) {
        if (std::strcmp(types[value_classes[i].type].id, id) == 0) {
            return value_classes[i];
        }
    }
    throw std::out_of_range(id);
}

giop::octets written(cdrMemoryStream& stream) {
    const auto* const start = static_cast<const unsigned char*>(stream.bufPtr());
    return giop::octets(start, start + stream.bufSize());
}

void sample(sampler& s, CORBA::Any& x) {
    switch (s.choose(4)) {
    case 0:
        x = CORBA::Any();
        break;
    case 1:
        x <<= static_cast<CORBA::Long>(s.bits());
        break;
    case 2:
        x <<= CORBA::Any::from_boolean(s.choose(2) != 0);
        break;
    default:
        x <<= s.text().c_str();
    }
}

void tell(teller& t, const CORBA::Any& x) {
    CORBA::Long number;
    CORBA::Boolean truth;
    const char* text;
    const CORBA::TypeCode_var type = x.type();
    if (type->kind() == CORBA::tk_null) {
        t.line("any of nothing");
    } else if (x >>= number) {
        t.line("any of " + std::to_string(number));
    } else if (x >>= CORBA::Any::to_boolean(truth)) {
        t.line(std::string("any of ") + (truth ? "true" : "false"));
    } else if (x >>= text) {
        t.line("any of \"" + std::string(text) + "\"");
    } else {
        t.line("any of another type");
    }
}

char* sampled_text(sampler& s) { return CORBA::string_dup(s.text().c_str()); }

CORBA::WChar* sampled_wide_text(sampler& s) {
    const std::u32string text = s.wide_text();
    return CORBA::wstring_dup(std::wstring(text.begin(), text.end()).c_str());
}

CORBA::ValueBase* sampled_value(sampler& s, int type) {
    const int version = s.version(types[type]);
    if (version < 0) {
        return nullptr;
    }
    const sampler::nested deeper(s);
    const value_class& of_version = class_of(types[version].id);
    CORBA::ValueBase* const value = of_version.make();
    of_version.fill(s, value);
    return value;
}

CORBA::Object_ptr sampled_object(sampler& s, const char* id) {
    const giop::reference reference = s.reference(id);
    return orb()->string_to_object(giop::stringified(reference).c_str());
}

void tell_text(teller& t, const char* x) { x == nullptr ? t.line("null") : t.string(x); }

void tell_text(teller& t, const CORBA::WChar* x) {
    if (x == nullptr) {
        t.line("null");
        return;
    }
    const std::wstring text = x;
    t.wide_string(std::u32string(text.begin(), text.end()));
}

void tell_value(teller& t, CORBA::ValueBase* x) {
    if (x == nullptr) {
        t.line("null");
        return;
    }
    t.line(x->_NP_repositoryId());
    class_of(x->_NP_repositoryId()).tell(t, x);
}

void tell_object(teller& t, CORBA::Object_ptr x) {
    const CORBA::String_var text = orb()->object_to_string(x);
    t.line(text.in());
}

} // namespace wire
