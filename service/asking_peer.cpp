#include "service/asking_peer.h"

#include "service/transport/orb_transport.h"

#include <omniORB4/CORBA.h>
#include <omniORB4/omniInterceptors.h>

// Each needs what is above it.
#include <omniORB4/internal/giopStrand.h>

#include <omniORB4/internal/giopStream.h>

#include <omniORB4/internal/GIOP_S.h>

namespace {

thread_local std::string asking;

CORBA::Boolean remember(omni::omniInterceptors::serverReceiveRequest_T::info_T& info) {
    asking = transport::peer_name(*info.giop_s.strand().connection);
    return true;
}

} // namespace

void watch_who_asks() { omniORB::getInterceptors()->serverReceiveRequest.add(remember); }

const std::string& asking_peer() { return asking; }
