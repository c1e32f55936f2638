#include "OrvBgp/GunkAttributes.h"

#include "OrvBgp/PathAttributesSerializeStore.h"
#include "support/InternContract.h"
#include "support/TsharkHelpers.h"

#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <vector>

namespace Routing::Bgp {
namespace {

std::vector<uint8_t> bytes(std::initializer_list<uint8_t> b) {
    return b;
}

Mel::PtrConst<GunkPathAttr> gunk(uint8_t type, uint8_t flags, const std::vector<uint8_t>& data) {
    return gunkPathAttrFactory(type, flags, uint16_t(data.size()), data);
}

std::vector<uint8_t> vec(const Mel::Bytes& b) {
    return {b.begin(), b.end()};
}

// ---- one attribute

TEST(GunkPathAttr, WireFormsMatchVectors) {
    auto vectors = OrvTest::readWireVectors(ORV_TEST_DATA_DIR "/Gunk/wire.txt");
    const auto d3 = bytes({0x0a, 0x0b, 0x0c});
    std::vector<uint8_t> d300(300);
    std::iota(d300.begin(), d300.end(), uint8_t(0)); // 0..255, 0..43
    const std::map<std::string, Mel::PtrConst<GunkPathAttr>> attrs = {
        {"optional_transitive_gets_partial", gunk(200, 0xc0, d3)},
        {"optional_nontransitive_unchanged", gunk(200, 0x80, d3)},
        {"wellknown_transitive_gets_partial", gunk(201, 0x40, d3)},
        {"already_partial", gunk(202, 0xe0, d3)},
        {"extended_length_kept", gunk(203, 0xd0, d3)},
        {"empty_value", gunk(204, 0xc0, {})},
        {"value_300", gunk(205, 0xc0, d300)},
    };
    ASSERT_EQ(vectors.size(), attrs.size());
    for (const auto& [name, attr] : attrs) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(vectors.count(name));
        EXPECT_EQ(vec(attr->serialize()), vectors.at(name));
        AttrSetStringStore store;
        attr->serialize(store);
        EXPECT_EQ(vec(store.bytes()), vectors.at(name));
    }
}

// Received with and without Partial, an attribute is two values (both sent with it: the vectors).
TEST(GunkPathAttr, InternsByAllFourFields) {
    auto a = gunk(200, 0xc0, {1, 2, 3});
    EXPECT_TRUE(a->transitive());
    EXPECT_FALSE(gunk(200, 0x80, {1})->transitive());
    std::vector<Mel::PtrConst<GunkPathAttr>> others = {
        gunk(201, 0xc0, {1, 2, 3}), gunk(200, 0x80, {1, 2, 3}), gunk(200, 0xe0, {1, 2, 3}),
        gunk(200, 0xc0, {1, 2, 4}), gunk(200, 0xc0, {1, 2}),    gunk(200, 0xc0, {})};
    for (const auto& o : others)
        EXPECT_NE(o.get(), a.get()) << o.get();
    // An attribute built apart, by either constructor, interns into the same object.
    EXPECT_EQ(GunkPathAttrIs(200, 0xc0, 3, Mel::Bytes({1, 2, 3}))->dedup().get(), a.get());
    const std::vector<uint8_t> data = {1, 2, 3};
    Mel::Ptr<GunkPathAttr> built(new (MelStash::ExtraBytes{3}) GunkPathAttr(200, 0xc0, 3, data));
    EXPECT_EQ(built->dedup().get(), a.get());
    EXPECT_EQ(GunkPathAttrDedupTable::instance()
                  .find(GunkPathAttrContent(200, 0xc0, 3, a->gunkAttrData()))
                  .get(),
              a.get());
}

// ---- the list

Mel::Ptr<GunkPathAttrList> listOf(std::initializer_list<Mel::PtrConst<GunkPathAttr>> attrs) {
    Mel::Ptr<GunkPathAttrList> l(new GunkPathAttrList);
    for (const auto& a : attrs)
        l->gunkIs(a);
    return l;
}

std::vector<uint8_t> typesOf(const GunkPathAttrList& l) {
    std::vector<uint8_t> out;
    for (const auto& e : l)
        out.push_back(e->attrType());
    return out;
}

TEST(GunkPathAttrList, KeepsOnePerTypeInTypeOrder) {
    auto l = listOf({gunk(210, 0xc0, {1}), gunk(200, 0xc0, {2}), gunk(205, 0x80, {3})});
    EXPECT_EQ(typesOf(*l), bytes({200, 205, 210}));
    l->gunkIs(gunk(205, 0xc0, {9})); // replaces the type-205 attribute
    EXPECT_EQ(typesOf(*l), bytes({200, 205, 210}));
    EXPECT_EQ(l->gunk(205), gunk(205, 0xc0, {9}).get());
    EXPECT_EQ(l->gunk(201), nullptr);

    EXPECT_TRUE(l->gunkDel(uint8_t(200)));
    EXPECT_FALSE(l->gunkDel(uint8_t(200)));
    l->gunkDel(l->begin() + 1); // by position: the type-210 attribute
    EXPECT_EQ(typesOf(*l), bytes({205}));
    l->gunkDelAll();
    EXPECT_EQ(l->gunkCount(), 0u);
}

TEST(GunkPathAttrList, EqualListsAreOneInternedObject) {
    auto a = listOf({gunk(200, 0xc0, {1}), gunk(201, 0x80, {2})})->dedup();
    auto b = listOf({gunk(201, 0x80, {2}), gunk(200, 0xc0, {1})})->dedup();
    EXPECT_EQ(a.get(), b.get());
    auto empty = listOf({})->dedup();
    EXPECT_EQ(listOf({})->dedup().get(), empty.get());
    // One fewer, one other, one more.
    for (auto other : {listOf({}), listOf({gunk(200, 0xc0, {1})}),
                       listOf({gunk(200, 0xc0, {1}), gunk(201, 0x80, {3})}),
                       listOf({gunk(200, 0xc0, {1}), gunk(201, 0x80, {2}), gunk(202, 0x80, {2})})})
        EXPECT_NE(other->dedup().get(), a.get());
}

TEST(GunkPathAttrList, SerializesAndPrintsInTypeOrder) {
    auto l = listOf({gunk(210, 0x80, {1}), gunk(200, 0xc0, {2, 3})})->dedup();
    AttrSetStringStore store;
    l->serialize(store);
    EXPECT_EQ(store.attrTypes(), bytes({200, 210}));
    EXPECT_EQ(store.bytes(), Mel::Bytes::fromHex("e0 c8 02 02 03  80 d2 01 01"));
    EXPECT_EQ(l->toStrep(),
              "type=200,flags=0xc0,len=2,data=0203 type=210,flags=0x80,len=1,data=01 ");
    std::ostringstream os; // an attribute alone, null or without data
    os << static_cast<const GunkPathAttr*>(nullptr) << ' ' << gunk(9, 0x80, {}).get();
    EXPECT_EQ(os.str(), "NULL type=9,flags=0x80,len=0,data=");
}

// A stored attribute or list reads back as the interned object of its value, whichever table holds
// the stored one; another stored class has no reader.
TEST(GunkPathAttrList, StoredObjectsReadBackInterned) {
    auto& store = MelStash::StoreManager::instance();
    auto a = gunk(200, 0xc0, {1, 2, 3});
    auto list = listOf({a, gunk(150, 0x80, {})})->dedup();
    EXPECT_EQ(GunkPathAttr::destash(a.get(), &store).get(), a.get());
    EXPECT_EQ(GunkPathAttrList::destash(list.get(), &store).get(), list.get());
    GunkPathAttrDedupTable other("GunkPathAttrTestTable");
    auto elsewhere = other.findOrCreate(GunkPathAttrContent(200, 0xc0, 3, a->gunkAttrData()));
    EXPECT_NE(elsewhere.get(), a.get());
    EXPECT_EQ(GunkPathAttr::destash(elsewhere.get(), &store).get(), a.get());
    EXPECT_DEATH(GunkPathAttr::destash(list.get(), &store), "nullptr != reader");
    EXPECT_DEATH(GunkPathAttrList::destash(a.get(), &store), "nullptr != reader");
}

// A length other than the data's, an object without room for its data inline, a list entry not
// interned, a list changed once shared.
TEST(GunkPathAttrDeathTest, Preconditions) {
    EXPECT_DEATH(GunkPathAttrIs(200, 0xc0, 4, Mel::Bytes({1, 2, 3})),
                 "c.gunkAttrData.size\\(\\) == c.attrLength");
    const std::vector<uint8_t> data(40, 1);
    EXPECT_DEATH((void)new (MelStash::ExtraBytes{40}) GunkPathAttr(200, 0xc0, 39, data),
                 "data.size\\(\\) == attrLength");
    EXPECT_DEATH((void)new GunkPathAttr(200, 0xc0, 40, data), "blockSize");

    auto loose = GunkPathAttrIs(200, 0xc0, 1, Mel::Bytes({1}));
    EXPECT_DEATH(listOf({Mel::PtrConst<GunkPathAttr>(loose)})->hash(), "attr->isDeduped\\(\\)");
    auto shared = listOf({gunk(200, 0xc0, {1})});
    ASSERT_EQ(shared->dedup().get(), shared.get());
    EXPECT_DEATH(shared->gunkIs(gunk(201, 0xc0, {1})), "!everDeduped\\(\\)");
    EXPECT_DEATH(shared->gunkDelAll(), "!everDeduped\\(\\)");
}

// ---- the interning contract

struct GunkPathAttrTraits : InternTableOf<GunkPathAttrDedupTable> {
    using Object = GunkPathAttr;
    static int content(int i) { return i; }
    static Mel::PtrConst<GunkPathAttr> intern(int i) {
        std::vector<uint8_t> data(size_t(i % 9), uint8_t(i));
        return gunk(uint8_t(150 + i % 50), i % 2 ? 0xc0 : 0x80, data);
    }
    static auto dedup(const Mel::PtrConst<GunkPathAttr>& p) { return p->dedup(); }
};

struct GunkPathAttrListTraits : InternTableOf<GunkPathAttrListDedupTable> {
    using Object = GunkPathAttrList;
    static int content(int i) { return i; }
    static Mel::PtrConst<GunkPathAttrList> intern(int i) {
        Mel::Ptr<GunkPathAttrList> l(new GunkPathAttrList);
        for (int k = 0; k <= i % 3; ++k)
            l->gunkIs(gunk(uint8_t(100 + k), 0xc0, {uint8_t(i)}));
        return l->dedup();
    }
    static auto dedup(const Mel::PtrConst<GunkPathAttrList>& p) { return p->dedup(); }
};

INSTANTIATE_TYPED_TEST_SUITE_P(GunkPathAttr, InternContract, ::testing::Types<GunkPathAttrTraits>);
INSTANTIATE_TYPED_TEST_SUITE_P(GunkPathAttrList, InternContract,
                               ::testing::Types<GunkPathAttrListTraits>);

} // namespace
} // namespace Routing::Bgp
