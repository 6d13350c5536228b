// What clients see over CORBA: the factory, which hands out sessions; a session, which hands out
// its cloud manager; this, which hands out its two facets; and those, which put their questions to
// the ledger. All other operations are refused.
//
//   object                     key
//   HostSessionFactory         HSFactory
//   HostSession                session/NUMBER
//   CloudManager               manager/NUMBER
//   CloudQueryFacet            query/NUMBER
//   CloudModifiableFacet       modify/NUMBER
//
// NUMBER is the session's, in 16 hexadecimal digits. No object is kept: one servant for each kind
// takes the number from the key that a request came with, so a reference also works with a service
// that was started after it was made.
#pragma once

#include "service/ledger.h"

#include <omniORB4/CORBA.h>

/// Answers for the objects on `orb`, under the name "HSFactory" and in adapters of their own.
/// `book` is borrowed for as long as the ORB runs.
void publish(CORBA::ORB_ptr orb, ledger& book);
