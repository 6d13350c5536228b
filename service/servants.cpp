#include "service/servants.h"

#include <fmt/format.h>
#include <memory>
#include <random>
#include <refusing_servants.hh>

namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;
namespace SL = Corvane::Vaultaro::SL;
using Orvessa::Vaultaro::HostSession;

namespace {

constexpr const char* factory_name = "HSFactory";

/// The kinds of objects that there is one of for each session.
enum kind { session_kind, manager_kind, query_kind, modify_kind, kinds };
constexpr const char* adapter_names[kinds] = {"session", "manager", "query", "modify"};

[[noreturn]] void throw_no_object() { throw CORBA::OBJECT_NOT_EXIST(); }

session_number number_of(const PortableServer::ObjectId& id) {
    const std::string text(reinterpret_cast<const char*>(id.get_buffer()), id.length());
    if (text.size() != 16 || text.find_first_not_of("0123456789abcdef") != std::string::npos) {
        throw_no_object();
    }
    return std::stoull(text, nullptr, 16);
}

/// Not to be had by counting, so that clients of earlier runs keep theirs.
session_number new_number() {
    std::random_device source;
    return session_number{source()} << 32 | source();
}

/// What all servants share: the ledger, and the adapters that references are made in.
struct house {
    ledger& book;
    PortableServer::Current_var current;
    PortableServer::POA_var adapters[kinds];

    /// The session whose object is being asked.
    session_number asking() const {
        const PortableServer::ObjectId_var id = current->get_object_id();
        return number_of(id.in());
    }
    /// The same; it spoke, so its lease begins anew.
    session_number hear() const {
        const session_number number = asking();
        book.hear(number, this_moment());
        return number;
    }

    template <typename Interface>
    typename Interface::_ptr_type reference(kind which, session_number number) const {
        const PortableServer::ObjectId_var id =
            PortableServer::string_to_ObjectId(fmt::format("{:016x}", number).c_str());
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
        if (!all_->book.open(number, this_moment())) {
            throw CORBA::NO_RESOURCES();
        }
        return all_->reference<HostSession>(session_kind, number);
    }
    CORBA::LongLong getInactivityTimeout() override { return all_->book.lease(); }
};

class session : public servant<refusing::HostSession> {
    using servant::servant;

    CloudMgmt::CloudManager::_ptr_type getCloudManager() override {
        return all_->reference<CloudMgmt::CloudManager>(manager_kind, all_->hear());
    }
    void destroy() override { all_->book.close(all_->asking(), this_moment()); }
};

class manager : public servant<refusing::CloudManager> {
    using servant::servant;

    SL::QueryableFacet::_ptr_type aqueryFacet() override {
        return all_->reference<CloudMgmt::CloudQueryFacet>(query_kind, all_->hear());
    }
    SL::ModifiableFacet::_ptr_type amodifyFacet() override {
        return all_->reference<CloudMgmt::CloudModifiableFacet>(modify_kind, all_->hear());
    }
};

class query_facet : public servant<refusing::CloudQueryFacet> {
    using servant::servant;

    CORBA::Long check_connections(const char* key, const char* session_text, CORBA::Long delta,
                                  CORBA::String_out text) override {
        return hand_over(
            all_->book.check_connections(all_->asking(), key, session_text, delta, this_moment()),
            text);
    }

    CORBA::Long check_bandwidth(const char* key, const char* session_text,
                                CloudMgmt::ThrottlingBandwidth* value,
                                CORBA::String_out text) override {
        const session_number number = all_->asking();
        if (value == nullptr) {
            return hand_over(all_->book.refuse(number, "a null sample", this_moment()), text);
        }
        const sample reported = {value->operation_type(), value->start_time(), value->end_time(),
                                 value->data_length()};
        return hand_over(
            all_->book.check_bandwidth(number, key, session_text, reported, this_moment()), text);
    }

    static CORBA::Long hand_over(const answer& from, CORBA::String_out text) {
        text = CORBA::string_dup(from.text.c_str());
        return from.status;
    }
};

class modifiable_facet : public servant<refusing::CloudModifiableFacet> {
    using servant::servant;

    CORBA::Long update_ThrottleConfigParams(const char* text) override {
        return all_->book.configure(all_->asking(), text, this_moment());
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

void publish(CORBA::ORB_ptr orb, ledger& book) {
    const CORBA::ValueFactoryBase_var samples = new CloudMgmt::ThrottlingBandwidth_init;
    const CORBA::ValueFactoryBase_var earlier =
        orb->register_value_factory(CloudMgmt::ThrottlingBandwidth::_PD_repoId, samples);

    const CORBA::Object_var current = orb->resolve_initial_references("POACurrent");
    const auto all =
        std::make_shared<house>(house{book, PortableServer::Current::_narrow(current), {}});
    const PortableServer::POA_var root = find_adapter(orb, "RootPOA");
    for (int each = 0; each < kinds; ++each) {
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
