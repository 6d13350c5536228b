// The process of a scripted service: PORT AUTHORITY KEY. It says true on its standard output when
// it answers, then takes its script on its standard input until that ends.
//
//   HSFactory -> session -> manager -> query, modify
//
// Five objects under fixed keys, so that a client's references go on working in a process that
// comes after this one. They are one servant, which reads each request by a table of the
// operations.

#include "tests/support/scripted_service_channel.h"

#include <chrono>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <omniORB4/CORBA.h>
#include <omniORB4/sslContext.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vlsl.hh>

OMNI_USING_NAMESPACE(omni) // where newer releases of the ORB have sslContext

namespace {

using Corvane::Vaultaro::SL::VLSLOpException;
using Corvane::Vaultaro::SL::CloudMgmt::MeteringDataInfo;
using Corvane::Vaultaro::SL::CloudMgmt::MeteringDataInfo_init;
using Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth;
using Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth_init;

// --- the script and the record

std::mutex guard; // of both
std::map<std::string, std::vector<scripted_answer>> script;
std::vector<std::string> requests;

/// Keeps the request and picks its answer.
scripted_answer answer_to(const std::string& operation, const std::string& request) {
    const std::lock_guard<std::mutex> lock(guard);
    requests.push_back(request);
    std::vector<scripted_answer>& answers = script[operation];
    if (answers.empty()) {
        return {};
    }
    const scripted_answer answer = answers.front();
    if (answers.size() > 1) {
        answers.erase(answers.begin());
    }
    return answer;
}

// --- what an operation takes and gives

enum class kind { nothing, number, wide_number, text, object };

struct operation {
    kind result;
    std::string arguments; ///< a letter each: (s)tring, (l)ong, (b)oolean, (T)hrottlingBandwidth,
                           ///< (M)eteringDataInfo; (o)ut string
    std::string object;    ///< key of what it hands out
};

const std::map<std::string, operation> operations = {
    {"getHostSession", {kind::object, "ss", "session"}},
    {"getInactivityTimeout", {kind::wide_number, "", ""}},
    {"destroy", {kind::nothing, "", ""}},
    {"getCloudManager", {kind::object, "", "manager"}},
    {"aqueryFacet", {kind::object, "", "query"}},
    {"amodifyFacet", {kind::object, "", "modify"}},
    {"check_connections", {kind::number, "sslo", ""}},
    {"check_bandwidth", {kind::number, "ssTo", ""}},
    {"getCloudConfigBlob", {kind::text, "s", ""}},
    {"update_ThrottleConfigParams", {kind::number, "s", ""}},
    {"update_MeteringData", {kind::number, "ssMb", ""}},
    {"setCloudConfigBlob", {kind::nothing, "ss", ""}},
};

const std::map<std::string, std::string> interface_of = {
    // by the object's key
    {"HSFactory", "IDL:Orvessa/Vaultaro/HostSessionFactory:1.0"},
    {"session", "IDL:Orvessa/Vaultaro/HostSession:1.0"},
    {"manager", "IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudManager:1.0"},
    {"query", "IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudQueryFacet:1.0"},
    {"modify", "IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudModifiableFacet:1.0"},
    {"plain", "IDL:Corvane/Vaultaro/SL/CommonMgmt:1.0"},
};

CORBA::TypeCode_ptr type_of(char letter) {
    switch (letter) {
    case 'l':
        return CORBA::_tc_long;
    case 'b':
        return CORBA::_tc_boolean;
    case 'T':
        return Corvane::Vaultaro::SL::CloudMgmt::_tc_ThrottlingBandwidth;
    case 'M':
        return Corvane::Vaultaro::SL::CloudMgmt::_tc_MeteringDataInfo;
    default:
        return CORBA::_tc_string;
    }
}

/// An argument as it stands in the line of a request.
std::string line_of(char letter, const CORBA::Any& value) {
    const char* text = "?";
    CORBA::Long number = 0;
    CORBA::Boolean flag = false;
    ThrottlingBandwidth* sample = nullptr;
    MeteringDataInfo* meter = nullptr;
    const auto numbers = [](std::initializer_list<uint64_t> all) {
        std::string line;
        for (const uint64_t each : all) {
            line += (line.empty() ? "{" : ", ") + std::to_string(each);
        }
        return line + "}";
    };
    switch (letter) {
    case 'l':
        value >>= number;
        return std::to_string(number);
    case 'b':
        value >>= CORBA::Any::to_boolean(flag);
        return flag ? "true" : "false";
    case 'T':
        value >>= sample;
        return sample == nullptr ? "null"
                                 : numbers({sample->operation_type(), sample->start_time(),
                                            sample->end_time(), sample->data_length()});
    case 'M':
        value >>= meter;
        return meter == nullptr
                   ? "null"
                   : numbers({meter->num_reads(), meter->num_writes(), meter->bytes_read(),
                              meter->bytes_written(), meter->num_failed_reads(),
                              meter->num_failed_writes(), meter->bytes_failed_read(),
                              meter->bytes_failed_write()});
    default:
        value >>= text;
        return std::string("\"") + text + "\"";
    }
}

// --- exceptions

CORBA::Any operation_failed(const std::vector<int>& codes) {
    VLSLOpException exception;
    exception.domain = 1;
    exception.when = 2;
    exception.hostName = "host";
    exception.errRecSeq.length(static_cast<CORBA::ULong>(codes.size()));
    for (CORBA::ULong i = 0; i < exception.errRecSeq.length(); ++i) {
        exception.errRecSeq[i].errorCode = codes[i];
        exception.errRecSeq[i].recIndex = static_cast<CORBA::Long>(i);
        exception.errRecSeq[i].localizedMsg = CORBA::wstring_dup(L"it failed");
        exception.errRecSeq[i].additionalMsg = CORBA::wstring_dup(L"");
    }
    CORBA::Any any;
    any <<= exception;
    return any;
}

CORBA::Any exception_of(const scripted_answer& answer) {
    if (answer.raises == "VLSLOpException") {
        return operation_failed(answer.codes);
    }
    CORBA::Any any;
    if (answer.raises == "ActionFailedException") {
        Orvessa::Vaultaro::ActionFailedException exception;
        exception.eventSeq.length(1);
        CORBA::Any reason;
        reason <<= "of the service's own";
        exception.eventSeq[0].when = 9;
        exception.eventSeq[0].id.domain = 7;
        exception.eventSeq[0].id.number = 8;
        exception.eventSeq[0].msg_info.unknownError(reason);
        any <<= exception;
    } else if (answer.raises == "NO_RESOURCES") {
        any <<= CORBA::NO_RESOURCES(0, CORBA::COMPLETED_NO);
    } else if (answer.raises == "OBJECT_NOT_EXIST") {
        any <<= CORBA::OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO);
    } else if (answer.raises == "TRANSIENT") {
        any <<= CORBA::TRANSIENT(0, CORBA::COMPLETED_NO);
    } else if (answer.raises == "COMM_FAILURE") {
        any <<= CORBA::COMM_FAILURE(0, CORBA::COMPLETED_NO);
    } else {
        any <<= CORBA::UNKNOWN(0, CORBA::COMPLETED_MAYBE);
    }
    return any;
}

// --- the objects

/// Those that stand as it is called: a client may have made its next one before the last is
/// dropped.
void drop_connections() {
    std::vector<int> connections;
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        sockaddr_storage peer = {};
        socklen_t length = sizeof peer;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length) == 0) {
            connections.push_back(descriptor);
        }
    }
    for (const int connection : connections) {
        shutdown(connection, SHUT_RDWR);
    }
}

class scripted_object : public PortableServer::DynamicImplementation {
  public:
    scripted_object(CORBA::ORB_ptr orb, PortableServer::POA_ptr adapter)
        : orb_(orb), adapter_(adapter) {}

    void invoke(CORBA::ServerRequest_ptr request) override {
        const auto found = operations.find(request->operation());
        if (found == operations.end()) {
            throw CORBA::NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
        }
        const auto& [name, shape] = *found;
        CORBA::NVList_ptr arguments = arguments_of(request, shape);
        const scripted_answer answer = answer_to(name, line_of(name, shape, arguments));

        std::this_thread::sleep_for(std::chrono::milliseconds(answer.delay));
        if (answer.fate == "die") {
            _exit(1);
        }
        if (answer.fate == "drop") {
            drop_connections();
        }
        if (answer.raises.empty()) {
            give(request, shape, answer, arguments);
        } else {
            request->set_exception(exception_of(answer));
        }
    }

    char* _primary_interface(const PortableServer::ObjectId& key,
                             PortableServer::POA_ptr /*adapter*/) override {
        const CORBA::String_var name = PortableServer::ObjectId_to_string(key);
        return CORBA::string_dup(interface_of.at(name.in()).c_str());
    }

  private:
    /// The list stays the request's.
    CORBA::NVList_ptr arguments_of(CORBA::ServerRequest_ptr request, const operation& shape) const {
        CORBA::NVList_ptr list = CORBA::NVList::_nil();
        orb_->create_list(0, list);
        for (const char letter : shape.arguments) {
            CORBA::Any empty;
            empty.replace(type_of(letter), nullptr);
            list->add_value("", empty, letter == 'o' ? CORBA::ARG_OUT : CORBA::ARG_IN);
        }
        request->arguments(list);
        return list;
    }

    static std::string line_of(const std::string& name, const operation& shape,
                               CORBA::NVList_ptr arguments) {
        std::string line;
        for (CORBA::ULong i = 0; i < shape.arguments.size(); ++i) {
            if (shape.arguments[i] != 'o') {
                line += (line.empty() ? "" : ", ") +
                        ::line_of(shape.arguments[i], *arguments->item(i)->value());
            }
        }
        return name + "(" + line + ")";
    }

    void give(CORBA::ServerRequest_ptr request, const operation& shape,
              const scripted_answer& answer, CORBA::NVList_ptr arguments) const {
        std::string text;
        for (long i = 0; i < answer.repeat; ++i) {
            text += answer.text;
        }
        for (CORBA::ULong i = 0; i < shape.arguments.size(); ++i) {
            if (shape.arguments[i] == 'o') {
                *arguments->item(i)->value() <<= text.c_str();
            }
        }
        CORBA::Any result;
        switch (shape.result) {
        case kind::nothing:
            return;
        case kind::number:
            result <<= static_cast<CORBA::Long>(answer.status);
            break;
        case kind::wide_number:
            result <<= static_cast<CORBA::LongLong>(answer.status);
            break;
        case kind::text:
            result <<= text.c_str();
            break;
        case kind::object:
            insert_object(result, answer.object.empty() ? shape.object : answer.object);
            break;
        }
        request->set_result(result);
    }

    void insert_object(CORBA::Any& result, const std::string& key) const {
        if (key == "nil") {
            cdrMemoryStream stream; // an Any can read a nil reference, but takes none
            CORBA::TypeCode::marshalTypeCode(CORBA::_tc_Object, stream);
            CORBA::Object::_marshalObjRef(CORBA::Object::_nil(), stream);
            result <<= stream;
            return;
        }
        const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(key.c_str());
        const CORBA::Object_var object =
            adapter_->create_reference_with_id(id, interface_of.at(key).c_str());
        result <<= object.in();
    }

    CORBA::ORB_ptr orb_;
    PortableServer::POA_ptr adapter_;
};

// --- the process

CORBA::ORB_ptr start_orb(const std::string& port, const char* authority, const char* key) {
    const bool secure = *key != '\0';
    if (secure) {
        sslContext::certificate_authority_file = authority;
        sslContext::key_file = key;
        sslContext::key_file_password = "";
    }
    const std::string endpoint = (secure ? "giop:ssl:127.0.0.1:" : "giop:tcp:127.0.0.1:") + port;
    const char* options[][2] = {{"endPoint", endpoint.c_str()},
                                {"giopMaxMsgSize", "268435456"},
                                {"nativeWCharCodeSet", "UTF-16"},
                                {"traceLevel", "0"},
                                {nullptr, nullptr}};
    int no_arguments = 0;
    return CORBA::ORB_init(no_arguments, nullptr, "omniORB4", options);
}

void take_orders() {
    for (;;) {
        const nlohmann::json order = receive_value(stdin);
        if (order.is_discarded()) {
            return;
        }
        const std::lock_guard<std::mutex> lock(guard);
        if (order == "take") {
            send_value(stdout, std::exchange(requests, {}));
        } else {
            script[order["operation"]] = order["answers"].get<std::vector<scripted_answer>>();
            send_value(stdout, true);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    const CORBA::ORB_var orb = start_orb(argv[1], argv[2], argv[3]);
    orb->register_value_factory("IDL:Corvane/Vaultaro/SL/CloudMgmt/ThrottlingBandwidth:1.0",
                                new ThrottlingBandwidth_init);
    orb->register_value_factory("IDL:Corvane/Vaultaro/SL/CloudMgmt/MeteringDataInfo:1.0",
                                new MeteringDataInfo_init);
    const CORBA::Object_var found = orb->resolve_initial_references("omniINSPOA");
    const PortableServer::POA_var adapter = PortableServer::POA::_narrow(found);
    for (const auto& [key, interface] : interface_of) {
        const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(key.c_str());
        adapter->activate_object_with_id(id, new scripted_object(orb, adapter));
    }
    const PortableServer::POAManager_var manager = adapter->the_POAManager();
    manager->activate();
    send_value(stdout, true);
    take_orders();
    _exit(0);
}
