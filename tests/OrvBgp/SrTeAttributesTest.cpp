// Prefix SID: the attribute and its label-index and SRGB TLVs against the wire vectors, member
// identity and the never-interned check, text forms and parsing back, reading back from the store.
#include "OrvBgp/SrTeAttributes.h"

#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace Routing::Bgp {
namespace {

using OrvTest::assertionPattern;
using OrvTest::hexOf;

const std::vector<SrgbRange> srgb16k = {SrgbRange(16000, 8000)};
const std::vector<SrgbRange> srgbTwo = {SrgbRange(16000, 8000), SrgbRange(100000, 1000)};

Mel::PtrConst<Srv6ServiceTlv> srv6L3() {
    return srv6ServiceTlvFactory(
        Srv6ServiceTlvContent(true, Orvnet::Ip6Addr::fromString("2001:db8::1"), 19, {}));
}

Mel::PtrConst<PrefixSid> allThree() {
    return prefixSidFactory(labelIndexTlvFactory(100), originatorSrgbTlvFactory(srgb16k), srv6L3());
}

// ---- Interning contract

struct LabelIndexTraits : InternTableOf<LabelIndexTlvDedupTable> {
    using Object = LabelIndexTlv;
    static uint32_t content(int i) { return uint32_t(i) * 1000003u; }
    static Mel::PtrConst<LabelIndexTlv> intern(uint32_t i) { return labelIndexTlvFactory(i); }
    static auto dedup(const Mel::PtrConst<LabelIndexTlv>& p) {
        return p->dedup(LabelIndexTlvDedupTable::instance());
    }
};

struct SrgbTraits : InternTableOf<OriginatorSrgbTlvDedupTable> {
    using Object = OriginatorSrgbTlv;
    // Lists of 1-4 ranges; a list and its own prefix are different TLVs.
    static std::vector<SrgbRange> content(int i) {
        std::vector<SrgbRange> r;
        for (int k = 0; k <= i % 4; ++k)
            r.emplace_back(16000 + 1000 * (i / 4), 8000 + k);
        return r;
    }
    static Mel::PtrConst<OriginatorSrgbTlv> intern(const std::vector<SrgbRange>& r) {
        return originatorSrgbTlvFactory(r);
    }
    static auto dedup(const Mel::PtrConst<OriginatorSrgbTlv>& p) {
        return p->dedup(OriginatorSrgbTlvDedupTable::instance());
    }
};

struct PrefixSidTraits : InternTableOf<PrefixSidDedupTable> {
    using Object = PrefixSid;
    // Members interned fresh for each lookup: the attribute must find its object by their identity.
    static int content(int i) { return i; }
    static Mel::PtrConst<PrefixSid> intern(int i) {
        return prefixSidFactory(i / 2 ? labelIndexTlvFactory(uint32_t(i / 2)) : nullptr,
                                i % 2 ? originatorSrgbTlvFactory(srgb16k) : nullptr,
                                i % 3 ? nullptr : srv6L3());
    }
    static auto dedup(const Mel::PtrConst<PrefixSid>& p) {
        return p->dedup(PrefixSidDedupTable::instance());
    }
};

using SrTypes = ::testing::Types<LabelIndexTraits, SrgbTraits, PrefixSidTraits>;
INSTANTIATE_TYPED_TEST_SUITE_P(SrTe, InternContract, SrTypes);

// ---- Wire forms

TEST(PrefixSid, WireFormsMatchVectors) {
    const auto v = OrvTest::attrWireVectors("PrefixSid");
    auto structured = srv6ServiceTlvFactory(
        Srv6ServiceTlvContent(true, Orvnet::Ip6Addr::fromString("2001:db8:0:1::"), 63,
                              Srv6SidStructureTlvContent(32, 16, 16, 0, 16, 64)));
    auto l2 = srv6ServiceTlvFactory(
        Srv6ServiceTlvContent(false, Orvnet::Ip6Addr::fromString("2001:db8::1"), 21, {}));
    // Only locBlockLen decides whether the SID structure is written: other lengths without it
    // are not.
    auto noBlock = srv6ServiceTlvFactory(
        Srv6ServiceTlvContent(true, Orvnet::Ip6Addr::fromString("2001:db8::1"), 19,
                              Srv6SidStructureTlvContent(0, 16, 16, 0, 0, 0)));
    struct Case {
        const char* name;
        Mel::PtrConst<PrefixSid> sid;
    } cases[] = {
        {"label_index", prefixSidFactory(labelIndexTlvFactory(100), nullptr, nullptr)},
        {"srgb_one", prefixSidFactory(nullptr, originatorSrgbTlvFactory(srgb16k), nullptr)},
        {"srgb_two", prefixSidFactory(nullptr, originatorSrgbTlvFactory(srgbTwo), nullptr)},
        {"srgb_empty", prefixSidFactory(nullptr, originatorSrgbTlvFactory({}), nullptr)},
        {"srv6_l3", prefixSidFactory(nullptr, nullptr, srv6L3())},
        {"srv6_l3", prefixSidFactory(nullptr, nullptr, noBlock)},
        {"srv6_l3_structure", prefixSidFactory(nullptr, nullptr, structured)},
        {"srv6_l2", prefixSidFactory(nullptr, nullptr, l2)},
        {"all_three", allThree()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(hexOf(c.sid->serialize()), hexOf(v.at(c.name)));
    }
    EXPECT_EQ(labelIndexTlvFactory(0xffffffff)->serialize(),
              Mel::Bytes::fromHex("01 0007 00 0000 ffffffff"));
    // The largest 24-bit base and range still fit.
    EXPECT_EQ(originatorSrgbTlvFactory(std::vector<SrgbRange>{{0xffffff, 0xffffff}})->serialize(),
              Mel::Bytes::fromHex("03 0008 0000 ffffff ffffff"));
}

// At trace level 5 each part is named, and the bytes stay the same.
TEST(PrefixSid, SerializeTracesEachPartAtLevelFive) {
    OrvTest::TraceCapture at5(5);
    EXPECT_EQ(allThree()->serialize(), OrvTest::attrWireVectors("PrefixSid").at("all_three"));
    EXPECT_EQ(at5.lines, (std::vector<std::string>{"Serializing: PrefixSid::serialize()",
                                                   "Serializing: LabelIndexTlv::serialize()",
                                                   "Serializing: OriginatorSrgbTlv::serialize()",
                                                   "Serializing: Srv6ServiceTlv::serialize()"}));
}

// ---- Assertions

// Members are interned before the attribute is hashed; SRGB values fit 24 bits.
TEST(PrefixSidDeathTest, Preconditions) {
    const std::string pattern = assertionPattern(
        "OrvBgp/SrTeAttributes",
        "__null == ( p ) || ( p )->dedupState() != Keel::dedupHandleStateNeverDeduped()");
    EXPECT_DEATH(prefixSidFactory(LabelIndexTlv::create(LabelIndexTlvContent(1)), nullptr, nullptr),
                 pattern);
    EXPECT_DEATH(prefixSidFactory(nullptr, OriginatorSrgbTlv::create(srgb16k), nullptr), pattern);
    EXPECT_DEATH(
        PrefixSidContent(nullptr, nullptr, Srv6ServiceTlv::create(srv6L3()->content())).hash(),
        pattern);
    // SRGB bases and ranges have 24 bits on the wire.
    auto base = originatorSrgbTlvFactory(std::vector<SrgbRange>{{16000, 10}, {0x1000000, 10}});
    EXPECT_DEATH(base->serialize(),
                 assertionPattern("OrvBgp/SrTeAttributes", "( i->base() & 0xFF000000 ) == 0"));
    auto range = originatorSrgbTlvFactory(std::vector<SrgbRange>{{16000, 0x1000000}});
    EXPECT_DEATH(range->serialize(),
                 assertionPattern("OrvBgp/SrTeAttributes", "( i->range() & 0xFF000000 ) == 0"));
}

// ---- Contents and text forms

TEST(PrefixSidContent, TruthAndRecycling) {
    PrefixSidContent c;
    EXPECT_FALSE(c);
    c.srv6ServiceIs(srv6L3());
    EXPECT_TRUE(c);
    auto label = labelIndexTlvFactory(424242);
    const uint32_t refs = label->refCount();
    c.valueSet(label, originatorSrgbTlvFactory(srgb16k), nullptr);
    EXPECT_EQ(label->refCount(), refs + 1);
    c.prepareForRecycle();
    EXPECT_FALSE(c);
    EXPECT_EQ(label->refCount(), refs);
}

TEST(PrefixSidContent, TextFormIsExactAndParsesBackToTheSameTlvs) {
    PrefixSidContent c(labelIndexTlvFactory(100), originatorSrgbTlvFactory(srgbTwo), nullptr);
    const std::string text = c.toStrep();
    EXPECT_EQ(text, "Value('Routing::Bgp::PrefixSidContent', ** {'labelIndex': 100, "
                    "'originatorSrgb': Value('Routing::Bgp::OriginatorSrgbTlvContent', ** {'srgb': "
                    "[Value('Routing::Bgp::SrgbRange', ** {'base': 16000, 'range': 8000}), "
                    "Value('Routing::Bgp::SrgbRange', ** {'base': 100000, 'range': 1000})]}), "
                    "'srv6Service': None})");
    PrefixSidContent back = PrefixSidContent::fromStrep(text);
    EXPECT_TRUE(back == c) << "the same interned TLVs";

    PrefixSidContent srv6(nullptr, nullptr, srv6L3());
    PrefixSidContent srv6Back = PrefixSidContent::fromStrep(srv6.toStrep());
    EXPECT_EQ(srv6Back.dedup(PrefixSidDedupTable::instance()).get(), prefixSidFactory(srv6).get());
    EXPECT_FALSE(PrefixSidContent::fromStrep(
        "Value('Routing::Bgp::PrefixSidContent', ** {'labelIndex': None})"));
    EXPECT_THROW(PrefixSidContent::fromStrep(
                     "Value('Routing::Bgp::PrefixSidContent', ** {'labelIndex': -1})"),
                 Mel::ParseException);
}

TEST(PrefixSid, DisplayForms) {
    auto all =
        prefixSidFactory(labelIndexTlvFactory(100), originatorSrgbTlvFactory(srgbTwo), srv6L3());
    std::ostringstream os;
    all->formatForTraceDisplay(os);
    EXPECT_EQ(os.str(), "prefixSID=< labelIndex=100 SRGB=< [16000:8000][100000:1000]"
                        "srv6Service=L3 2001:db8::1, End.DT4 >");
    EXPECT_EQ(prefixSidFactory(labelIndexTlvFactory(7), nullptr, nullptr)->toStrep(),
              "prefixSID=< labelIndex=7  >");
    EXPECT_EQ(prefixSidFactory(nullptr, originatorSrgbTlvFactory(srgb16k), nullptr)->toStrep(),
              "prefixSID=< SRGB=< [16000:8000] >");
    EXPECT_EQ(originatorSrgbTlvFactory(srgbTwo)->toStrep(), "[16000:8000][100000:1000]");
    EXPECT_EQ(originatorSrgbTlvFactory({})->toStrep(), "");
    EXPECT_EQ(labelIndexTlvFactory(7)->toStrep(), "7");
    EXPECT_EQ(Mel::valueToStrep(LabelIndexTlvContent(7)), "7");
}

// ---- Building, interning and reading back

// Built objects hash as their contents do: the factory finds them once taken in.
TEST(PrefixSid, DedupOfBuiltObjects) {
    const std::vector<SrgbRange> ranges = {{20000, 1}, {30000, 2}, {40000, 3}};
    auto srgb = OriginatorSrgbTlv::create(ranges)->dedup(OriginatorSrgbTlvDedupTable::instance());
    OriginatorSrgbTlvContent content;
    for (const SrgbRange& r : ranges)
        content.srgbEnq(r);
    EXPECT_EQ(
        OriginatorSrgbTlv::dedupContent(OriginatorSrgbTlvDedupTable::instance(), content).get(),
        srgb.get());
    auto sid = PrefixSid::create(PrefixSidContent(nullptr, srgb, nullptr))
                   ->dedup(PrefixSidDedupTable::instance());
    EXPECT_EQ(prefixSidFactory(nullptr, srgb, nullptr).get(), sid.get());
}

TEST(PrefixSid, DestashReadsMembersBackThroughTheirReaders) {
    auto* store = &MelStash::StoreManager::instance();
    auto sid = allThree();
    Mel::Ptr<PrefixSidDestashed> d = PrefixSid::destash(sid.get(), store);
    ASSERT_TRUE(d);
    EXPECT_EQ(d->serialize(), sid->serialize());
    EXPECT_EQ(d->toStrep(), sid->toStrep());
    EXPECT_EQ(prefixSidFactory(d->content()).get(), sid.get());

    d->valueSet(labelIndexTlvFactory(100), nullptr, nullptr);
    EXPECT_EQ(d->serialize(), OrvTest::attrWireVectors("PrefixSid").at("label_index"));

    EXPECT_EQ(LabelIndexTlv::destash(sid->labelIndexGet(), store).get(), sid->labelIndexGet());
    EXPECT_EQ(OriginatorSrgbTlv::destash(sid->originatorSrgbGet(), store).get(),
              sid->originatorSrgbGet());
    auto* reader =
        MelStash::StashReaderRegistry::readerFor<PrefixSidStashReader>(typeid(PrefixSid));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->stashSerialize(sid.get()), sid->serialize());
    EXPECT_EQ(reader->stashStrep(sid.get()), sid->toStrep());
}

} // namespace
} // namespace Routing::Bgp
