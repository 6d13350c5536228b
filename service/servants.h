// What clients see over CORBA: the factory, which hands out sessions; a session, which hands out
// its cloud manager; this, which hands out its two facets; and those, which put their questions to
// the ledger. All other operations are refused.
//
//   object                     key
//   HostSessionFactory         HSFactory
//   HostSession                session/KEY
//   CloudManager               manager/KEY
//   CloudQueryFacet            query/KEY
//   CloudModifiableFacet       modify/KEY
//
// KEY is the session's number and the proof that the key was made here (object_key.h). No object is
// kept: one servant for each kind takes the number from the key that a request came with, so a
// reference also works with a service that was started after it was made. A key that wasn't made
// here, and that of a session which its client has ended, is OBJECT_NOT_EXIST.
#pragma once

#include "service/ledger.h"
#include "service/object_key.h"

#include <omniORB4/CORBA.h>

/// Answers for the objects on `orb`, under the name "HSFactory" and in adapters of their own.
/// `book` and `keys` are borrowed for as long as the ORB runs.
void publish(CORBA::ORB_ptr orb, ledger& book, const object_keys& keys);
