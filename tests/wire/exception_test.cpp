// The exceptions of the interface, octet by octet: as a servant sends them and as a stub reads
// them.
#include "tests/wire/pattern.h"
#include "tests/wire/recorder.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>

using namespace wire;
namespace SL = Corvane::Vaultaro::SL;
namespace Vaultaro = Orvessa::Vaultaro;
namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;

namespace {

constexpr uint32_t CODE_SETS_CONTEXT = 1;

/// A manager whose facet raises what a test has it raise.
class raising_manager : public virtual POA_Corvane::Vaultaro::SL::CloudMgmt::CloudManager {
  public:
    explicit raising_manager(std::function<void()> raise) : raise_(std::move(raise)) {}
    CORBA::Boolean isManagerActive() override { return true; }
    SL::ModifiableFacet_ptr amodifyFacet() override { return SL::ModifiableFacet::_nil(); }
    SL::QueryableFacet_ptr aqueryFacet() override {
        raise_();
        return SL::QueryableFacet::_nil();
    }

  private:
    std::function<void()> raise_;
};

/// What a servant that raises answers to a peer without an ORB.
giop::reply raised_by_servant(std::function<void()> raise) {
    const CORBA::Object_var root = orb()->resolve_initial_references("RootPOA");
    const PortableServer::POA_var poa = PortableServer::POA::_narrow(root);
    const PortableServer::POAManager_var manager = poa->the_POAManager();
    manager->activate();
    const PortableServer::Servant_var<raising_manager> servant(
        new raising_manager(std::move(raise)));
    const PortableServer::ObjectId_var id = poa->activate_object(servant.in());
    const CORBA::Object_var object = poa->id_to_reference(id);
    const CORBA::String_var ior = orb()->object_to_string(object);
    const giop::reference reference = giop::parse_reference(ior.in());

    giop::cdr_writer code_sets = giop::cdr_writer::encapsulation();
    code_sets.number<uint32_t>(0x00010001); // ISO 8859-1
    code_sets.number<uint32_t>(0x00010109); // UTF-16
    giop::connection client = giop::connection::to(reference.port);
    client.send(giop::make_request(1, reference.object_key, "aqueryFacet", {},
                                   {{CODE_SETS_CONTEXT, code_sets.bytes()}}));
    const std::optional<giop::message> answer = client.receive();
    poa->deactivate_object(id);
    return giop::parse_reply(answer.value());
}

Vaultaro::ActionFailedException failure_with(const Vaultaro::ErrorMsg& message) {
    Vaultaro::ActionFailedException failure;
    failure.eventSeq.length(1);
    Vaultaro::ActionFailedEvent& event = failure.eventSeq[0];
    event.when = 1;
    event.id.domain = 2;
    event.id.number = 3;
    event.msg_info = message;
    return failure;
}

giop::octets octets_of(const Vaultaro::ErrorMsg& message) {
    cdrMemoryStream stream;
    message >>= stream;
    return written(stream);
}

/// What `getHostSession` raises when it is answered so.
template <typename Exception>
std::unique_ptr<Exception> raised_by_stub(const giop::cdr_writer& body) {
    recorder peer;
    peer.answer_with(giop::reply_status::user_exception, body);
    const CORBA::Object_var object = peer.object("factory");
    const Vaultaro::HostSessionFactory_var factory =
        Vaultaro::HostSessionFactory::_unchecked_narrow(object);
    try {
        factory->getHostSession("user", "host");
    } catch (const Exception& exception) {
        return std::make_unique<Exception>(exception);
    }
    return nullptr;
}

/// A VLSLOpException of one record, but for the record's two texts.
const std::string up_to_its_texts = R"(
        2c 00 00 00  49 44 4c 3a  43 6f 72 76 | its id
        61 6e 65 2f  56 61 75 6c  74 61 72 6f
        2f 53 4c 2f  56 4c 53 4c  4f 70 45 78
        63 65 70 74  69 6f 6e 3a  31 2e 30 00
        0b 00 00 00  0c 00 00 00              | domain, when
        07 00 00 00  6d 61 73 74  65 72 00 .. | hostName
        01 00 00 00                           | one record
        f4 6e 1f 00  01 00 00 00              | errorCode, recIndex
        )";

/// An operation that the exception is declared for.
void ask_for_manager(const recorder& peer) {
    const CORBA::Object_var object = peer.object("session");
    const Vaultaro::HostSession_var session = Vaultaro::HostSession::_unchecked_narrow(object);
    const CloudMgmt::CloudManager_var manager = session->getCloudManager();
}

} // namespace

TEST(VLSLOpException, OfAServantIsTheseOctets) {
    const giop::reply reply = raised_by_servant([] {
        SL::ErrorRecordSeq records;
        records.length(1);
        records[0].errorCode = 2060020;
        records[0].recIndex = 1;
        records[0].localizedMsg = CORBA::wstring_dup(L"no");
        records[0].additionalMsg = CORBA::wstring_dup(L"");
        throw SL::VLSLOpException(11, 12, "master", records);
    });
    EXPECT_EQ(reply.status, giop::reply_status::user_exception);
    EXPECT_TRUE(match(up_to_its_texts + R"(
        06 00 00 00  ff fe 6e 00  6f 00 .. .. | localizedMsg
        00 00 00 00                           | additionalMsg
        )",
                      reply.body));
}

TEST(VLSLOpException, WithoutRecordsIsReadAsSuch) {
    recorder peer;
    giop::cdr_writer body;
    body.text("IDL:Corvane/Vaultaro/SL/VLSLOpException:1.0");
    body.number<int32_t>(1);
    body.number<int32_t>(2);
    body.text("");
    body.number<uint32_t>(0);
    peer.answer_with(giop::reply_status::user_exception, body);
    try {
        ask_for_manager(peer);
        FAIL() << "nothing was raised";
    } catch (const CORBA::Exception& exception) {
        const auto* const refusal = SL::VLSLOpException::_downcast(&exception);
        ASSERT_NE(refusal, nullptr);
        EXPECT_EQ(refusal->errRecSeq.length(), 0u);
    }
}

TEST(VLSLOpException, IsReadFromTheseOctets) {
    recorder peer;
    giop::cdr_writer body;
    body.raw(wire::octets_of(up_to_its_texts + R"(
        04 00 00 00  00 6e 00 6f              | localizedMsg, without a byte order mark
        06 00 00 00  fe ff 6e 2f  4f 60       | additionalMsg, with one
        )"));
    peer.answer_with(giop::reply_status::user_exception, body);
    try {
        ask_for_manager(peer);
        FAIL() << "nothing was raised";
    } catch (const SL::VLSLOpException& refusal) {
        EXPECT_EQ(refusal.domain, 11);
        EXPECT_EQ(refusal.when, 12);
        EXPECT_STREQ(refusal.hostName, "master");
        ASSERT_EQ(refusal.errRecSeq.length(), 1u);
        EXPECT_EQ(refusal.errRecSeq[0].errorCode, 2060020);
        EXPECT_EQ(refusal.errRecSeq[0].recIndex, 1);
        EXPECT_STREQ(refusal.errRecSeq[0].localizedMsg, L"no");
        EXPECT_STREQ(refusal.errRecSeq[0].additionalMsg, L"\u6e2f\u4f60");
    }
}

TEST(Exceptions, DowncastToTheirOwnTypeAlone) {
    const CORBA::NO_PERMISSION system;
    const Vaultaro::ActionFailedException user;
    EXPECT_EQ(SL::VLSLOpException::_downcast(&static_cast<const CORBA::Exception&>(system)),
              nullptr);
    EXPECT_EQ(SL::VLSLOpException::_downcast(&static_cast<const CORBA::Exception&>(user)), nullptr);
    EXPECT_EQ(
        Vaultaro::ActionFailedException::_downcast(&static_cast<const CORBA::Exception&>(user)),
        &user);
}

TEST(Exceptions, WithoutMembersAreTheirIdAlone) {
    recorder peer;
    giop::cdr_writer body;
    body.text("IDL:Orvessa/Vaultaro/IndexOutOfBoundsException:1.0");
    peer.answer_with(giop::reply_status::user_exception, body);
    for (int i = 0; i < operation_count; ++i) {
        const operation& operation = operations[i];
        const std::string interface = operation.interface;
        if (interface == "IDL:Orvessa/Vaultaro/RandomBlockAccessor:1.0" &&
            operation.raise_count != 0) {
            const CORBA::Object_var object = peer.object("blocks");
            call call = {object, sampler(1, peer.port()), {}};
            operation.invoke(call);
            EXPECT_EQ(call.told.text(),
                      "raises IDL:Orvessa/Vaultaro/IndexOutOfBoundsException:1.0\n");
        }
    }
    EXPECT_GT(peer.request_count(), 0u);
}

TEST(ErrorMsg, WithAnUnknownErrorHoldsAnAny) {
    Vaultaro::ErrorMsg message;
    CORBA::Any any;
    any <<= CORBA::Long{-2};
    message.unknownError(any);
    EXPECT_TRUE(match("00 00 00 00  03 00 00 00  fe ff ff ff", octets_of(message)));
}

TEST(ErrorMsg, OfAnApplicationHoldsItsTextAndParameters) {
    Vaultaro::ErrorMsg message;
    Vaultaro::ApplicationMsg text;
    text.message = CORBA::string_dup("no");
    text.parameters.name = CORBA::string_dup("why");
    text.parameters.value <<= "x";
    message.appMsg(text);
    EXPECT_TRUE(match(R"(01 00 00 00
        03 00 00 00  6e 6f 00 ..  04 00 00 00  77 68 79 00
        12 00 00 00  00 00 00 00  02 00 00 00  78 00)",
                      octets_of(message)));
}

TEST(ErrorMsg, OfTheFrameworkHoldsItsIdsAndInsertions) {
    Vaultaro::ErrorMsg message;
    Orvessa::CSF::I18nMessage text;
    text.originatorId = 5;
    text.message.textId = 6;
    text.message.catalogId = CORBA::string_dup("c");
    text.message.insertions.length(2);
    text.message.insertions[1] <<= CORBA::Any::from_boolean(true);
    message.csfMsg(text);
    EXPECT_TRUE(match(R"(02 00 00 00  05 00 00 00  06 00 00 00  02 00 00 00  63 00 .. ..
        02 00 00 00  00 00 00 00  08 00 00 00  01)",
                      octets_of(message)));
}

TEST(ErrorMsg, WithADiscriminatorOfNoCaseIsThatAlone) {
    Vaultaro::ErrorMsg message;
    message._d(3);
    EXPECT_TRUE(match("03 00 00 00", octets_of(message)));
    message._d(-1);
    EXPECT_TRUE(match("ff ff ff ff", octets_of(message)));
}

TEST(ActionFailedException, IsReadWithEachKindOfMessage) {
    Vaultaro::ErrorMsg messages[4];
    CORBA::Any any;
    any <<= "why";
    messages[0].unknownError(any);
    messages[1].appMsg(Vaultaro::ApplicationMsg());
    messages[2].csfMsg(Orvessa::CSF::I18nMessage());
    messages[3]._d(3);
    for (CORBA::Long kind = 0; kind < 4; ++kind) {
        SCOPED_TRACE(kind);
        const Vaultaro::ActionFailedException sent = failure_with(messages[kind]);
        giop::cdr_writer body;
        body.text(sent._rep_id());
        cdrMemoryStream members;
        sent >>= members;
        body.align(4); // no member needs more
        body.raw(written(members));
        const auto read = raised_by_stub<Vaultaro::ActionFailedException>(body);
        ASSERT_NE(read, nullptr);
        ASSERT_EQ(read->eventSeq.length(), 1u);
        EXPECT_EQ(read->eventSeq[0].id.number, 3);
        EXPECT_EQ(read->eventSeq[0].msg_info._d(), kind);
    }
}

TEST(ActionFailedException, MayCarryAValueInItsAny) {
    const SL::CloudMgmt::SRKeyValuePair_var pair =
        new OBV_Corvane::Vaultaro::SL::CloudMgmt::SRKeyValuePair("region", "address");
    CORBA::Any any;
    any <<= pair.in();
    Vaultaro::ErrorMsg message;
    message.unknownError(any);
    cdrMemoryStream out;
    failure_with(message) >>= out;

    const giop::octets octets = written(out);
    cdrMemoryStream in(const_cast<unsigned char*>(octets.data()), octets.size());
    Vaultaro::ActionFailedException read;
    read <<= in;
    SL::CloudMgmt::SRKeyValuePair* held = nullptr;
    ASSERT_TRUE(read.eventSeq[0].msg_info.unknownError() >>= held);
    EXPECT_STREQ(held->regionName(), "region");
    EXPECT_STREQ(held->regionUrl(), "address");
}
