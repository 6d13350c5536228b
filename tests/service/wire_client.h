// A client of the service, over the wire.
#pragma once

#include <cstdint>
#include <string>
#include <vlsl.hh>

/// The ORB of this process, which asks each question once. It speaks TLS alone where the
/// environment has VLSL_TLS_CA and VLSL_TLS_KEY.
CORBA::ORB_ptr client_orb();

/// The service's entry object on `port` of this host, unasked.
Orvessa::Vaultaro::HostSessionFactory_ptr find_factory(int port);

/// What an exchange came to.
struct exchange {
    int status;
    std::string text;
};

/// A session and the objects that it leads to.
struct remote_session {
    explicit remote_session(Orvessa::Vaultaro::HostSessionFactory_ptr factory);
    explicit remote_session(int port);

    exchange check_connections(const std::string& key, int delta) const;
    /// `bytes` moved in `seconds`.
    exchange report(const std::string& key, uint64_t bytes = 0, uint32_t seconds = 0) const;
    int configure(const std::string& text) const;

    Orvessa::Vaultaro::HostSession_var session;
    Corvane::Vaultaro::SL::CloudMgmt::CloudManager_var manager;
    Corvane::Vaultaro::SL::CloudMgmt::CloudQueryFacet_var query;
    Corvane::Vaultaro::SL::CloudMgmt::CloudModifiableFacet_var modify;
};
