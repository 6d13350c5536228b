// A request is sent again only where its service can't have begun it, and then once:
//
//   nothing of it was sent    an idle connection that has ended, or on which anything has come in,
//                             isn't written to; another one is taken. One that can't be made leads
//                             to the reference's next address.
//   not all of it was sent    the connection broke while it was written.
//   it was sent back          CloseConnection came for an answer, or the reply says that it is to
//                             be asked elsewhere.
//
// Anything else, such as a connection that ends without a word before the answer, fails at once:
// the service may have begun, and a connection that counts twice would be one too many.
//
// The ORB itself repeats just these, since it repeats nothing that isn't told as COMPLETED_NO, and
// asks the handlers below for the rest; but it does so again and again. It always comes by
// `starts`, with the same call and the same deadline.

#include "platform/vlorb/resend.h"

#include <cerrno>
#include <poll.h>

// The call behind a request, which the ORB's interceptors don't tell of; in this order alone.
// clang-format off
#include <omniORB4/CORBA.h>
#include <omniORB4/callDescriptor.h>
#include <omniORB4/minorCode.h>
#include <omniORB4/omniInterceptors.h>
#include <omniORB4/internal/giopStream.h>
#include <omniORB4/internal/giopRope.h>
#include <omniORB4/internal/giopStrand.h>
#include <omniORB4/internal/GIOP_C.h>
#include <omniORB4/tcpConnection.h>
#include <omniORB4/sslContext.h>
#include <omniORB4/sslConnection.h>
// clang-format on

namespace {

using omni::omniInterceptors;

constexpr int most_sendings = 2;

/// The call that a thread is making.
struct call_under_way {
    const omniCallDescriptor* call = nullptr; ///< null: answered or failed
    omni_time_t deadline;
    int sendings = 0; ///< times that a connection was there to write it to
};
thread_local call_under_way current;

template <class Failure>
CORBA::Boolean fails_at_once(void*, CORBA::ULong, const Failure&) {
    current = {};
    return false;
}

int socket_of(omni::giopConnection* connection) {
    if (const auto* const plain = dynamic_cast<omni::tcpConnection*>(connection)) {
        return plain->handle();
    }
    const auto* const secure = dynamic_cast<omni::sslConnection*>(connection);
    return secure != nullptr ? secure->handle() : -1;
}

/// Whether an idle connection is of no more use. Nobody has asked anything on it, so all that can
/// come in is its end, in good order or not; it may also stand behind the last answer already.
bool has_ended(const omni::giopStrand& idle) {
    if (idle.head != nullptr) {
        return true;
    }
    pollfd socket = {socket_of(idle.connection), POLLIN | POLLRDHUP, 0};
    int ready = 0;
    do {
        ready = poll(&socket, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

/// Called for each request before anything of it is sent.
CORBA::Boolean starts(omniInterceptors::clientSendRequest_T::info_T& request) {
    omniCallDescriptor* const call = request.giop_c.calldescriptor();
    if (call != current.call || !(call->getDeadline() == current.deadline)) {
        current = {call, call->getDeadline(), 0};
    }
    if (current.sendings == most_sendings) {
        current = {};
        throw CORBA::COMM_FAILURE(omni::COMM_FAILURE_WaitingForReply, CORBA::COMPLETED_NO);
    }
    omni::giopStrand& strand = request.giop_c.strand();
    if (strand.connection == nullptr) {
        return true; // see connects
    }
    if (has_ended(strand)) {
        strand.state(omni::giopStrand::DYING);
        throw omni::giopStream::CommFailure(omni::TRANSIENT_ConnectionClosed, CORBA::COMPLETED_NO,
                                            true);
    }
    ++current.sendings;
    return true;
}

/// Called for each connection that is made, which happens when a request is to be written to it.
CORBA::Boolean connects(omniInterceptors::clientOpenConnection_T::info_T&) {
    ++current.sendings;
    return true;
}

CORBA::Boolean is_answered(omniInterceptors::clientReceiveReply_T::info_T& reply) {
    const GIOP::ReplyStatusType status = reply.giop_c.replyStatus();
    if (status == GIOP::LOCATION_FORWARD || status == GIOP::LOCATION_FORWARD_PERM) {
        return true; // it is sent there
    }
    current = {};
    if (status == GIOP::NEEDS_ADDRESSING_MODE) { // this ORB can't read the answer behind that one
        throw CORBA::COMM_FAILURE(omni::COMM_FAILURE_WaitingForReply, CORBA::COMPLETED_NO);
    }
    return true;
}

} // namespace

void send_again_only_what_was_not_begun() {
    omniORB::installTransientExceptionHandler(nullptr, fails_at_once<CORBA::TRANSIENT>);
    omniORB::installTimeoutExceptionHandler(nullptr, fails_at_once<CORBA::TIMEOUT>);
    omniORB::installCommFailureExceptionHandler(nullptr, fails_at_once<CORBA::COMM_FAILURE>);
    omniORB::installSystemExceptionHandler(nullptr, fails_at_once<CORBA::SystemException>);
    omniORB::getInterceptors()->clientSendRequest.add(starts);
    omniORB::getInterceptors()->clientOpenConnection.add(connects);
    omniORB::getInterceptors()->clientReceiveReply.add(is_answered);
}
