// Object references: what they answer by themselves and what they ask the service.
#include "tests/wire/recorder.h"

#include <gtest/gtest.h>

using namespace wire;
namespace SL = Corvane::Vaultaro::SL;
namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;

namespace {

const char FOREIGN[] = "IDL:omg.org/CosNaming/NamingContext:1.0";

/// A peer that is asked `_is_a` and says so or not.
class References : public testing::Test {
  protected:
    void say(bool yes) {
        giop::cdr_writer body;
        body.octet(yes);
        peer_.answer_with(giop::reply_status::no_exception, body);
    }

    /// Answers with a reference of that type.
    void give(const char* type_id) {
        giop::cdr_writer body;
        giop::put_reference(body, {type_id, peer_.port(), "given"});
        peer_.answer_with(giop::reply_status::no_exception, body);
    }

    CloudMgmt::CloudManager_ptr manager() {
        const CORBA::Object_var object = peer_.object("manager");
        return CloudMgmt::CloudManager::_unchecked_narrow(object);
    }

    /// What a manager hands out for its facet, where the peer answers with a reference of that
    /// type.
    SL::QueryableFacet_ptr facet_given_as(const char* type_id) {
        give(type_id);
        const CloudMgmt::CloudManager_var manager = this->manager();
        return manager->aqueryFacet();
    }

    recorder peer_;
};

} // namespace

TEST_F(References, KnowTheirOwnInterfaceAndItsAncestorsWithoutACall) {
    const CORBA::Object_var object = peer_.object("any");
    for (int i = 0; i < interface_class_count; ++i) {
        const interface_class& interface = interface_classes[i];
        SCOPED_TRACE(interface.id);
        EXPECT_GE(interface.ancestor_count, 2);
        for (int j = 0; j < interface.ancestor_count; ++j) {
            EXPECT_TRUE(interface.is_a(object, interface.ancestors[j])) << interface.ancestors[j];
        }
    }
    EXPECT_EQ(peer_.request_count(), 0u);
}

TEST_F(References, AskTheServiceAboutAForeignInterface) {
    const CloudMgmt::CloudManager_var manager = this->manager();
    say(true);
    EXPECT_TRUE(manager->_is_a(FOREIGN));
    EXPECT_EQ(peer_.request_count(), 1u);
    EXPECT_EQ(peer_.last_request().operation, "_is_a");
    giop::cdr_reader arguments(peer_.last_request().arguments);
    EXPECT_EQ(arguments.text(), FOREIGN);
    say(false);
    EXPECT_FALSE(manager->_is_a(FOREIGN));
    EXPECT_EQ(peer_.request_count(), 2u);
}

TEST_F(References, OfADescendantAreAskedFor) {
    give("");
    const CORBA::Object_var object = peer_.object("facet");
    const SL::QueryableFacet_var facet = SL::QueryableFacet::_unchecked_narrow(object);
    say(true);
    EXPECT_TRUE(facet->_is_a("IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudQueryFacet:1.0"));
    EXPECT_EQ(peer_.request_count(), 1u);
}

TEST_F(References, AreReadWithoutAQuestion) {
    const SL::QueryableFacet_var facet =
        facet_given_as("IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudQueryFacet:1.0");
    EXPECT_FALSE(CORBA::is_nil(facet));
    EXPECT_EQ(peer_.request_count(), 1u);
}

TEST_F(References, NarrowWithoutAQuestionToTheTypeThatTheyName) {
    const SL::QueryableFacet_var facet =
        facet_given_as("IDL:Corvane/Vaultaro/SL/CloudMgmt/CloudQueryFacet:1.0");
    const CloudMgmt::CloudQueryFacet_var narrowed = CloudMgmt::CloudQueryFacet::_narrow(facet);
    EXPECT_FALSE(CORBA::is_nil(narrowed));
    EXPECT_EQ(peer_.request_count(), 1u);
}

TEST_F(References, NarrowToAnotherTypeIfTheServiceSaysSo) {
    const SL::QueryableFacet_var facet =
        facet_given_as("IDL:Corvane/Vaultaro/SL/QueryableFacet:1.0");
    say(false);
    const CloudMgmt::CloudQueryFacet_var refused = CloudMgmt::CloudQueryFacet::_narrow(facet);
    EXPECT_TRUE(CORBA::is_nil(refused));
    EXPECT_EQ(peer_.last_request().operation, "_is_a");
    say(true);
    const CloudMgmt::CloudQueryFacet_var narrowed = CloudMgmt::CloudQueryFacet::_narrow(facet);
    EXPECT_FALSE(CORBA::is_nil(narrowed));
    EXPECT_EQ(peer_.request_count(), 3u);
}

TEST_F(References, NarrowUncheckedWithoutAQuestion) {
    const CloudMgmt::CloudManager_var manager = this->manager();
    EXPECT_FALSE(CORBA::is_nil(manager));
    EXPECT_EQ(peer_.request_count(), 0u);
}

TEST_F(References, ThatAreNilAreReadAndWrittenAsNil) {
    const SL::QueryableFacet_var facet = facet_given_as("");
    EXPECT_TRUE(CORBA::is_nil(facet));

    cdrMemoryStream stream;
    SL::QueryableFacet::_marshalObjRef(SL::QueryableFacet::_nil(), stream);
    giop::cdr_writer expected;
    giop::put_reference(expected, {});
    EXPECT_TRUE(expected.matches(written(stream)));
}

TEST_F(References, ThatAreNilAreOfNoInterface) {
    const SL::QueryableFacet_var nil = SL::QueryableFacet::_nil();
    EXPECT_FALSE(nil->_is_a("IDL:Corvane/Vaultaro/SL/QueryableFacet:1.0"));
    const CloudMgmt::CloudQueryFacet_var narrowed = CloudMgmt::CloudQueryFacet::_narrow(nil);
    EXPECT_TRUE(CORBA::is_nil(narrowed));
}
