// Values: their versions in one sequence, nulls, indirections, copies and factories.
#include "tests/support/fault.h"
#include "tests/wire/pattern.h"
#include "tests/wire/recorder.h"

#include <gtest/gtest.h>

using namespace wire;
namespace ApplianceMgmt = Corvane::Vaultaro::SL::ApplianceMgmt;
namespace JobMgmt = Corvane::Vaultaro::SL::JobMgmt;
namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;

namespace {

const char JOB_INFO[] = "IDL:Corvane/Vaultaro/SL/JobMgmt/JobInfo:1.0";
const char JOB_INFO_9_1_0[] = "IDL:Corvane/Vaultaro/SL/JobMgmt/VLT_9_1_0/JobInfo:1.0";
const char PAIR[] = "IDL:Corvane/Vaultaro/SL/CloudMgmt/SRKeyValuePair:1.0";

using Pair = OBV_Corvane::Vaultaro::SL::CloudMgmt::SRKeyValuePair;
using Monitor = OBV_Corvane::Vaultaro::SL::ApplianceMgmt::HWMonitor;
using Hardware = OBV_Corvane::Vaultaro::SL::ApplianceMgmt::HWMonWithTopology;
using NewConfig = OBV_Corvane::Vaultaro::SL::CloudMgmt::VLT_7_7::ConfigServiceInfo;

/// What the page of a job iterator gives when it is answered so.
JobMgmt::JobInfoSeq* page_of(const giop::cdr_writer& body) {
    recorder peer;
    peer.answer_with(giop::reply_status::no_exception, body);
    const CORBA::Object_var object = peer.object("jobs");
    const JobMgmt::JobInfoIterator_var jobs = JobMgmt::JobInfoIterator::_unchecked_narrow(object);
    return jobs->getNextPage();
}

CloudMgmt::SRKeyValuePairSeq* pairs_of(const giop::cdr_writer& body) {
    recorder peer;
    peer.answer_with(giop::reply_status::no_exception, body);
    const CORBA::Object_var object = peer.object("facet");
    const CloudMgmt::CloudQueryFacet_var facet =
        CloudMgmt::CloudQueryFacet::_unchecked_narrow(object);
    return facet->getAllSupportedRegions("a", "b");
}

void put_pair(giop::cdr_writer& out, const char* region) {
    out.number(giop::VALUE_TAG_WITH_ID);
    out.text(PAIR);
    out.text(region);
    out.text("address");
}

/// Without the factory of one type while it lives.
class no_factory {
  public:
    explicit no_factory(const char* id) : id_(id) { orb()->unregister_value_factory(id); }
    ~no_factory() {
        CORBA::ValueFactoryBase* const factory = class_of(id_).factory();
        orb()->register_value_factory(id_, factory);
        factory->_remove_ref();
    }
    no_factory(const no_factory&) = delete;
    no_factory& operator=(const no_factory&) = delete;

  private:
    const char* id_;
};

std::string told(CORBA::ValueBase* value) {
    teller told;
    tell_value(told, value);
    return told.text();
}

} // namespace

// --- versions ----------------------------------------------------------------------------------

TEST(JobInfoSeq, HoldsAnUnversionedAndAVersionedJob) {
    giop::cdr_writer body;
    sampler values(1, 1);
    writer model(values, body);
    body.number<uint32_t>(2);
    model.put_value(type_of(JOB_INFO));
    model.put_value(type_of(JOB_INFO_9_1_0));
    JobMgmt::JobInfoSeq_var page = page_of(body);

    ASSERT_EQ(page->length(), 2u);
    EXPECT_EQ(told(page[0].in()) + told(page[1].in()), model.told());
    EXPECT_EQ(JobMgmt::VLT_9_1_0::JobInfo::_downcast(page[0].in()), nullptr);
    const auto* const versioned = JobMgmt::VLT_9_1_0::JobInfo::_downcast(page[1].in());
    ASSERT_NE(versioned, nullptr);
    EXPECT_NE(JobMgmt::VLT_7_5::JobInfo::_downcast(page[1].in()), nullptr);
}

TEST(JobInfoSeq, HoldsEveryVersionOfAJob) {
    const type& job = types[type_of(JOB_INFO)];
    EXPECT_EQ(job.version_count, 6);
    giop::cdr_writer body;
    sampler values(2, 1);
    writer model(values, body);
    body.number(static_cast<uint32_t>(job.version_count));
    for (int i = 0; i < job.version_count; ++i) {
        model.put_value(job.versions[i]);
    }
    JobMgmt::JobInfoSeq_var page = page_of(body);

    ASSERT_EQ(page->length(), static_cast<CORBA::ULong>(job.version_count));
    std::string read;
    for (CORBA::ULong i = 0; i < page->length(); ++i) {
        read += told(page[i].in());
    }
    EXPECT_EQ(read, model.told());
}

TEST(JobInfoSeq, WithAVersionThatHasNoFactoryIsRefusedWhole) {
    const no_factory without(JOB_INFO_9_1_0);
    giop::cdr_writer body;
    sampler values(1, 1);
    body.number<uint32_t>(1);
    writer(values, body).put_value(type_of(JOB_INFO_9_1_0));
    EXPECT_THROW(page_of(body), CORBA::MARSHAL) << "it doesn't fall back to the version it knows";
}

TEST(JobInfoSeq, WithAnIdThatNobodyKnowsIsRefused) {
    giop::cdr_writer body;
    body.number<uint32_t>(1);
    body.number(giop::VALUE_TAG_WITH_ID);
    body.text("IDL:Corvane/Vaultaro/SL/JobMgmt/VLT_99/JobInfo:1.0");
    EXPECT_THROW(page_of(body), CORBA::MARSHAL);
}

// --- nulls and indirections --------------------------------------------------------------------

TEST(NullValue, IsReadAsANullPointer) {
    giop::cdr_writer body;
    body.number<uint32_t>(2);
    body.number<uint32_t>(0);
    put_pair(body, "region");
    CloudMgmt::SRKeyValuePairSeq_var pairs = pairs_of(body);
    ASSERT_EQ(pairs->length(), 2u);
    EXPECT_EQ(pairs[0].in(), nullptr);
    EXPECT_STREQ(pairs[1]->regionName(), "region");
}

TEST(NullValue, IsWrittenAsZero) {
    cdrMemoryStream stream;
    CloudMgmt::SRKeyValuePair::_NP_marshal(nullptr, stream);
    EXPECT_TRUE(match("00 00 00 00", written(stream)));
}

TEST(ValueTwiceInASequence, IsWrittenOnceAndThenAsAnIndirection) {
    const CloudMgmt::SRKeyValuePair_var pair = new Pair("r", "u");
    CloudMgmt::SRKeyValuePairSeq pairs;
    pairs.length(2);
    for (CORBA::ULong i = 0; i < 2; ++i) {
        CORBA::add_ref(pair.in());
        pairs[i] = pair.in();
    }
    cdrMemoryStream stream;
    pairs >>= stream;
    giop::cdr_writer expected;
    expected.number<uint32_t>(2);
    const auto start = static_cast<int32_t>(expected.size());
    expected.number(giop::VALUE_TAG_WITH_ID);
    expected.text(PAIR);
    expected.text("r");
    expected.text("u");
    expected.number(giop::INDIRECTION_TAG);
    expected.number(start - static_cast<int32_t>(expected.size()));
    EXPECT_TRUE(expected.matches(written(stream))) << giop::hex(written(stream));
}

TEST(ValueTwiceInASequence, IsReadAsOneObjectWithAReferenceForEach) {
    giop::cdr_writer body;
    body.number<uint32_t>(2);
    const auto start = static_cast<int32_t>(body.size());
    put_pair(body, "region");
    body.number(giop::INDIRECTION_TAG);
    body.number(start - static_cast<int32_t>(body.size()));
    CloudMgmt::SRKeyValuePairSeq_var pairs = pairs_of(body);
    ASSERT_EQ(pairs->length(), 2u);
    EXPECT_EQ(pairs[0].in(), pairs[1].in());
    EXPECT_EQ(pairs[0]->_refcount_value(), 2u);
}

TEST(Indirection, ToWhereNoValueStartsIsRefused) {
    for (const int32_t offset : {-5, -6, -400, 0, 4, 0x7fffffff}) {
        SCOPED_TRACE(offset);
        giop::cdr_writer body;
        body.number<uint32_t>(2);
        put_pair(body, "region");
        body.number(giop::INDIRECTION_TAG);
        body.number(offset);
        EXPECT_THROW(pairs_of(body), CORBA::MARSHAL);
    }
}

TEST(ValueTag, ThatIsNoneIsRefused) {
    for (const uint32_t tag : {1u, 2u, 0x7ffffeffu, 0x80000000u}) {
        SCOPED_TRACE(tag);
        giop::cdr_writer body;
        body.number<uint32_t>(1);
        body.number(tag);
        body.text(PAIR);
        body.text("region");
        body.text("address");
        EXPECT_THROW(pairs_of(body), CORBA::MARSHAL);
    }
}

// --- constructors ------------------------------------------------------------------------------

TEST(InitialisingConstructor, TakesTheOldestAncestorsMembersFirst) {
    const CloudMgmt::VLT_7_7::ConfigServiceInfo_var config =
        new NewConfig("port", 1, "server", "master port", 2);
    EXPECT_STREQ(config->port_(), "port");
    EXPECT_EQ(config->secureMode(), 1);
    EXPECT_STREQ(config->masterCsscServer(), "server");
    EXPECT_STREQ(config->masterCsscPort(), "master port");
    EXPECT_EQ(config->masterCsscSecureMode(), 2);
}

// --- _copy_value -------------------------------------------------------------------------------

TEST(CopyValue, OfAVersionedValueIsOneOfTheFirstType) {
    const CloudMgmt::VLT_7_7::ConfigServiceInfo_var config =
        new NewConfig("port", 1, "server", "master port", 2);
    const CloudMgmt::ConfigServiceInfo_var copy = config->_copy_value();
    EXPECT_EQ(CloudMgmt::VLT_7_7::ConfigServiceInfo::_downcast(copy.in()), nullptr);
    EXPECT_STREQ(copy->port_(), "port");
    EXPECT_EQ(copy->secureMode(), 1);
}

TEST(CopyValue, OfAnyValueHasTheMembersOfItsChainsFirst) {
    for (int i = 0; i < value_class_count; ++i) {
        const int first = first_of_chain(value_classes[i].type);
        SCOPED_TRACE(types[value_classes[i].type].id);
        owned_value value(value_classes[i].make());
        sampler values(static_cast<uint64_t>(i), 1);
        const sampler::nested deeper(values);
        value_classes[i].fill(values, value.in());

        const owned_value copy(value->_copy_value());
        EXPECT_STREQ(copy->_NP_repositoryId(), types[first].id);
        teller of_value;
        teller of_copy;
        class_of(types[first].id).tell(of_value, value.in());
        class_of(types[first].id).tell(of_copy, copy.in());
        EXPECT_EQ(of_copy.text(), of_value.text());
        EXPECT_EQ(copy->_refcount_value(), 1u);
    }
}

TEST(CopyValue, NeedsNoFactory) {
    const no_factory without(PAIR);
    const CloudMgmt::SRKeyValuePair_var pair = new Pair("region", "address");
    const CloudMgmt::SRKeyValuePair_var copy = pair->_copy_value();
    EXPECT_STREQ(copy->regionName(), "region");
}

TEST(CopyValue, ReadsThroughTheAccessors) {
    class Translated : public Pair {
      public:
        Translated() : Pair("region", "address") {}
        const char* regionName() const override { return "another"; }
        using Pair::regionName;
    };
    const CloudMgmt::SRKeyValuePair_var pair = new Translated;
    const CloudMgmt::SRKeyValuePair_var copy = pair->_copy_value();
    EXPECT_STREQ(copy->regionName(), "another");
    EXPECT_STREQ(copy->regionUrl(), "address");
}

TEST(CopyValue, SharesNestedValuesAsTheConstructorDoes) {
    using ApplianceMgmt::HWMonWithTopology_var;
    const ApplianceMgmt::HWMonitor_var monitor = new Monitor;
    ApplianceMgmt::HWMonSeq none;
    const HWMonWithTopology_var hardware = new Hardware(monitor, none);
    EXPECT_EQ(hardware->master(), monitor.in());
    EXPECT_EQ(monitor->_refcount_value(), 2u) << "its creator's and the value's";
    {
        const HWMonWithTopology_var copy = hardware->_copy_value();
        EXPECT_EQ(copy->master(), monitor.in());
        EXPECT_EQ(monitor->_refcount_value(), 3u);
    }
    EXPECT_EQ(monitor->_refcount_value(), 2u);
}

TEST(CopyValue, TakesANullMember) {
    const ApplianceMgmt::HWMonWithTopology_var hardware = new Hardware;
    const ApplianceMgmt::HWMonWithTopology_var copy = hardware->_copy_value();
    EXPECT_EQ(copy->master(), nullptr);
}

TEST(CopyValue, HasTextsOfItsOwn) {
    const CloudMgmt::SRKeyValuePair_var pair = new Pair("region", "address");
    const CloudMgmt::SRKeyValuePair_var copy = pair->_copy_value();
    pair->regionName("changed");
    EXPECT_STREQ(copy->regionName(), "region");
}

TEST(CopyValue, ThrowsNoMemoryWhenAnAllocationFails) {
    const CloudMgmt::SRKeyValuePair_var pair = new Pair("region", "address");
    int failed = 0;
    for (bool whole = false; !whole; ++failed) {
        fault::fail_new_after(failed);
        try {
            const CloudMgmt::SRKeyValuePair_var copy = pair->_copy_value();
            whole = true;
        } catch (const CORBA::NO_MEMORY&) {
        }
        fault::clear();
        ASSERT_LT(failed, 100);
    }
    EXPECT_GT(failed, 1) << "none of its allocations failed";
}

TEST(CreateForUnmarshal, ThrowsNoMemoryWhenTheAllocationFails) {
    struct opened : CloudMgmt::SRKeyValuePair_init {
        using SRKeyValuePair_init::create_for_unmarshal;
    };
    auto* const factory = new opened;
    fault::fail_new_after(0);
    EXPECT_THROW(factory->create_for_unmarshal(), CORBA::NO_MEMORY);
    fault::clear();
    const owned_value value(factory->create_for_unmarshal());
    EXPECT_STREQ(value->_NP_repositoryId(), PAIR);
    factory->_remove_ref();
}
