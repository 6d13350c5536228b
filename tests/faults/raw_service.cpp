#include "tests/faults/raw_service.h"

#include "tests/support/scripted_service.h"

#include <map>
#include <utility>

namespace {

/// What an ORB asks when it likes, and how it is answered.
const std::map<std::string, bool> questions = {{"_is_a", true}, {"_non_existent", false}};

/// What each operation hands out.
const std::map<std::string, giop::reference> objects = {
    {"getHostSession", {"IDL:Orvessa/Vaultaro/HostSession:1.0", 0, "session"}},
    {"getCloudManager", {"IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudManager:1.0", 0, "manager"}},
    {"aqueryFacet", {"IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudQueryFacet:1.0", 0, "query"}},
    {"amodifyFacet", {"IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudModifiableFacet:1.0", 0, "modify"}},
};

} // namespace

raw_service::raw_service()
    : listener_(
          [this](giop::connection& peer, const giop::message& message) { serve(peer, message); }) {
    look_for_service_at(port());
}

void raw_service::react(const std::string& operation, reaction odd, int times) {
    const std::lock_guard lock(mutex_);
    times_ = times;
    odd_operation_ = operation;
    odd_ = std::move(odd);
}

std::vector<std::string> raw_service::take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(asked_, {});
}

giop::octets raw_service::good_answer(const giop::request& request, const std::string& text) const {
    giop::cdr_writer body;
    if (const auto question = questions.find(request.operation); question != questions.end()) {
        body.octet(question->second ? 1 : 0);
    } else if (const auto object = objects.find(request.operation); object != objects.end()) {
        giop::reference here = object->second;
        here.port = port();
        giop::put_reference(body, here);
    } else if (request.operation == "update_ThrottleConfigParams") {
        body.number<int32_t>(0);
    } else if (request.operation == "check_connections" || request.operation == "check_bandwidth") {
        body.number<int32_t>(0);
        body.text(text);
    }
    return giop::make_reply(request.id, giop::reply_status::no_exception, body.bytes());
}

void raw_service::serve(giop::connection& peer, const giop::message& message) {
    if (message.type() != giop::message_type::request) {
        return;
    }
    const giop::request request = giop::parse_request(message);
    reaction odd;
    {
        const std::lock_guard lock(mutex_);
        if (questions.count(request.operation) == 0) {
            asked_.push_back(request.operation);
        }
        if (request.operation == odd_operation_ && times_ > 0) {
            --times_;
            odd = odd_;
        }
    }
    if (odd) {
        odd(peer, request);
    } else {
        peer.send(good_answer(request));
    }
}
