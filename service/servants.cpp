#include "service/servants.h"

#include "service/asking_peer.h"

#include <cstring>
#include <memory>
#include <refusing_servants.hh>

namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;
namespace SL = Corvane::Vaultaro::SL;
using Orvessa::Vaultaro::HostSession;

namespace {

constexpr const char* factory_name = "HSFactory";

constexpr const char* adapter_names[object_kinds] = {"session", "manager", "query", "modify"};

[[noreturn]] void throw_no_object() { throw CORBA::OBJECT_NOT_EXIST(); }

/// Not to be had by counting, so that clients of earlier runs keep theirs.
session_number new_number() {
    const key_secret random = new_secret();
    session_number number = 0;
    memcpy(&number, random.data(), sizeof number);
    return number;
}

/// What all servants share: the ledger, and the adapters that references are made in.
struct house {
    ledger& book;
    const object_keys& keys;
    PortableServer::Current_var current;
    PortableServer::POA_var adapters[object_kinds];

    /// The session whose object of the `kind` is being asked, and who asks.
    caller asking(object_kind kind) const {
        const PortableServer::ObjectId_var id = current->get_object_id();
        const PortableServer::ObjectId& key = id.in();
        const auto number =
            keys.read(kind, {reinterpret_cast<const char*>(key.get_buffer()), key.length()});
        if (!number) {
            book.count_false_key();
            throw_no_object();
        }
        return {*number, asking_peer()};
    }
    /// What the book says to whoever may ask.
    template <typename Question>
    auto ask(Question question) const {
        try {
            return question();
        } catch (const session_has_ended&) {
            throw_no_object();
        }
    }
    /// The same; it spoke, so its lease begins anew.
    session_number hear(object_kind kind) const {
        const caller who = asking(kind);
        ask([&] { book.hear(who, this_moment()); });
        return who.session;
    }

    template <typename Interface>
    typename Interface::_ptr_type reference(object_kind which, session_number number) const {
        const PortableServer::ObjectId_var id =
            PortableServer::string_to_ObjectId(keys.make(which, number).c_str());
        const CORBA::Object_var object =
            adapters[which]->create_reference_with_id(id, Interface::_PD_repoId);
        return Interface::_unchecked_narrow(object);
    }
};
using house_ptr = std::shared_ptr<house>;

/// A servant with the house at hand.
template <typename Refusing>
class servant : public Refusing {
  public:
    explicit servant(house_ptr all) : all_(std::move(all)) {}

  protected:
    const house_ptr all_;
};

class factory : public servant<refusing::HostSessionFactory> {
    using servant::servant;

    HostSession::_ptr_type getHostSession(const char* /*host*/, const char* /*locale*/) override {
        const session_number number = new_number();
        if (!all_->ask([&] { return all_->book.open({number, asking_peer()}, this_moment()); })) {
            throw CORBA::NO_RESOURCES();
        }
        return all_->reference<HostSession>(session_kind, number);
    }
    CORBA::LongLong getInactivityTimeout() override { return all_->book.lease(); }
};

class session : public servant<refusing::HostSession> {
    using servant::servant;

    CloudMgmt::CloudManager::_ptr_type getCloudManager() override {
        return all_->reference<CloudMgmt::CloudManager>(manager_kind, all_->hear(session_kind));
    }
    void destroy() override {
        all_->ask([&] { all_->book.close(all_->asking(session_kind), this_moment()); });
    }
};

class manager : public servant<refusing::CloudManager> {
    using servant::servant;

    SL::QueryableFacet::_ptr_type aqueryFacet() override {
        return all_->reference<CloudMgmt::CloudQueryFacet>(query_kind, all_->hear(manager_kind));
    }
    SL::ModifiableFacet::_ptr_type amodifyFacet() override {
        return all_->reference<CloudMgmt::CloudModifiableFacet>(modify_kind,
                                                                all_->hear(manager_kind));
    }
};

class query_facet : public servant<refusing::CloudQueryFacet> {
    using servant::servant;

    CORBA::Long check_connections(const char* key, const char* session_text, CORBA::Long delta,
                                  CORBA::String_out text) override {
        return hand_over(text, [&](const caller& who) {
            return all_->book.check_connections(who, key, session_text, delta, this_moment());
        });
    }

    CORBA::Long check_bandwidth(const char* key, const char* session_text,
                                CloudMgmt::ThrottlingBandwidth* value,
                                CORBA::String_out text) override {
        return hand_over(text, [&](const caller& who) {
            if (value == nullptr) {
                return all_->book.refuse(who, "a null sample", this_moment());
            }
            const sample reported = {value->operation_type(), value->start_time(),
                                     value->end_time(), value->data_length()};
            return all_->book.check_bandwidth(who, key, session_text, reported, this_moment());
        });
    }

    template <typename Question>
    CORBA::Long hand_over(CORBA::String_out text, Question question) {
        const caller who = all_->asking(query_kind);
        const answer said = all_->ask([&] { return question(who); });
        text = CORBA::string_dup(said.text.c_str());
        return said.status;
    }
};

class modifiable_facet : public servant<refusing::CloudModifiableFacet> {
    using servant::servant;

    CORBA::Long update_ThrottleConfigParams(const char* text) override {
        const caller who = all_->asking(modify_kind);
        return all_->ask([&] { return all_->book.configure(who, text, this_moment()); });
    }
};

/// An adapter whose references outlast the process.
PortableServer::POA_ptr make_adapter(PortableServer::POA_ptr root, const char* name) {
    const PortableServer::POAManager_var manager = root->the_POAManager();
    CORBA::PolicyList policies;
    policies.length(5);
    policies[0] = root->create_lifespan_policy(PortableServer::PERSISTENT);
    policies[1] = root->create_id_assignment_policy(PortableServer::USER_ID);
    policies[2] = root->create_request_processing_policy(PortableServer::USE_DEFAULT_SERVANT);
    policies[3] = root->create_servant_retention_policy(PortableServer::NON_RETAIN);
    policies[4] = root->create_id_uniqueness_policy(PortableServer::MULTIPLE_ID);
    return root->create_POA(name, manager, policies);
}

PortableServer::POA_ptr find_adapter(CORBA::ORB_ptr orb, const char* name) {
    const CORBA::Object_var object = orb->resolve_initial_references(name);
    return PortableServer::POA::_narrow(object);
}

/// A servant, owned by whatever adapter it is given to.
template <typename Servant>
PortableServer::Servant_var<Servant> make(const house_ptr& all) {
    return new Servant(all);
}

} // namespace

void publish(CORBA::ORB_ptr orb, ledger& book, const object_keys& keys) {
    const CORBA::ValueFactoryBase_var samples = new CloudMgmt::ThrottlingBandwidth_init;
    const CORBA::ValueFactoryBase_var earlier =
        orb->register_value_factory(CloudMgmt::ThrottlingBandwidth::_PD_repoId, samples);

    const CORBA::Object_var current = orb->resolve_initial_references("POACurrent");
    const auto all =
        std::make_shared<house>(house{book, keys, PortableServer::Current::_narrow(current), {}});
    const PortableServer::POA_var root = find_adapter(orb, "RootPOA");
    for (int each = 0; each < object_kinds; ++each) {
        all->adapters[each] = make_adapter(root, adapter_names[each]);
    }
    all->adapters[session_kind]->set_servant(make<session>(all).in());
    all->adapters[manager_kind]->set_servant(make<manager>(all).in());
    all->adapters[query_kind]->set_servant(make<query_facet>(all).in());
    all->adapters[modify_kind]->set_servant(make<modifiable_facet>(all).in());

    // Keys of this adapter are plain names, as a corbaloc address has them.
    const PortableServer::POA_var names = find_adapter(orb, "omniINSPOA");
    const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(factory_name);
    names->activate_object_with_id(id, make<factory>(all).in());
    for (const PortableServer::POA_ptr each : {root.in(), names.in()}) {
        const PortableServer::POAManager_var manager_of_each = each->the_POAManager();
        manager_of_each->activate();
    }
}
