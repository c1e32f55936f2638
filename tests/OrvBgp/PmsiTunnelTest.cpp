// PMSI tunnel: wire forms of every class against the vectors, the tunnel-type vocabulary, the text
// forms and their parsing back, reading back from the store, and the interning contract.
#include "OrvBgp/PmsiTunnel.h"

#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <vector>

namespace Routing::Bgp {
namespace {

using Flags = PmsiTunnel::Flags;
using OrvTest::assertionPattern;
using OrvTest::hexOf;

Orvnet::IpGenAddr addr(const char* text) {
    return Orvnet::IpGenAddr::fromString(text);
}

Mel::PtrConst<PmsiTunnelIdentifier> identifier(const std::string& hex) {
    return pmsiTunnelIdentifierFactory(OrvTest::bytesFromHex(hex));
}

// ---- Interning contract

struct IdentifierTraits : InternTableDedupOf<PmsiTunnelIdentifierDedupTable> {
    using Object = PmsiTunnelIdentifier;
    // Lengths 0..63, so that a prefix of another identifier is a different one.
    static std::vector<uint8_t> content(int i) { return std::vector<uint8_t>(size_t(i), 0xab); }
    static Mel::PtrConst<PmsiTunnelIdentifier> intern(const std::vector<uint8_t>& b) {
        return pmsiTunnelIdentifierFactory(b);
    }
};

struct GeneralTraits : InternTableDedupOf<PmsiTunnelDedupTable> {
    using Object = PmsiTunnelGeneral;
    struct Content {
        Flags flags;
        PmsiTunnel::TunnelType type;
        uint32_t label;
        std::vector<uint8_t> id;
    };
    static Content content(int i) {
        return {Flags(uint8_t(i & 1)), PmsiTunnel::TunnelType(i % 3), uint32_t(i / 6),
                std::vector<uint8_t>(size_t(i % 2), 0x11)};
    }
    static Mel::PtrConst<PmsiTunnelGeneral> intern(const Content& c) {
        return pmsiTunnelGeneralFactory(c.flags, c.type, c.label,
                                        c.id.empty() ? nullptr : pmsiTunnelIdentifierFactory(c.id));
    }
};

struct PimTraits : InternTableDedupOf<PmsiTunnelPimDedupTable> {
    using Object = PmsiTunnelPim;
    static PmsiTunnelPimContent content(int i) {
        const bool v6 = i % 2;
        const std::string n = std::to_string(i);
        return PmsiTunnelPimContent(
            PmsiTunnelContent(PmsiTunnel::tunnelTypePimSsmTree, Flags(), 0),
            addr(v6 ? ("2001:db8::" + n).c_str() : ("192.0.2." + n).c_str()),
            addr(v6 ? "ff3e::1" : "232.1.1.1"));
    }
    static Mel::PtrConst<PmsiTunnelPim> intern(const PmsiTunnelPimContent& c) {
        return pmsiTunnelPimFactory(c);
    }
};

struct IngressReplicationTraits : InternTableDedupOf<PmsiTunnelDedupTable> {
    using Object = PmsiTunnelIngressReplication;
    static std::pair<uint32_t, Orvnet::IpGenAddr> content(int i) {
        return {uint32_t(i % 4), Orvnet::IpAddr::fromHostOrder(0x0a000000 + i / 4)};
    }
    static Mel::PtrConst<PmsiTunnelIngressReplication>
    intern(const std::pair<uint32_t, Orvnet::IpGenAddr>& c) {
        return pmsiTunnelIngressReplicationFactory(Flags(), c.first, c.second);
    }
};

struct MldpTraits : InternTableDedupOf<PmsiTunnelMldpP2mpGenericLspIdDedupTable> {
    using Object = PmsiTunnelMldpP2mpGenericLspId;
    static std::pair<uint32_t, uint32_t> content(int i) { return {uint32_t(i % 8), uint32_t(i)}; }
    static Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
    intern(const std::pair<uint32_t, uint32_t>& c) {
        return pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), c.first, addr("192.0.2.1"), c.second);
    }
};

using PmsiTypes = ::testing::Types<IdentifierTraits, GeneralTraits, PimTraits,
                                   IngressReplicationTraits, MldpTraits>;
INSTANTIATE_TYPED_TEST_SUITE_P(Pmsi, InternContract, PmsiTypes);

// General and ingress replication share a table: equal common fields and equal wire bytes must
// still give two objects of their own classes.
TEST(PmsiTunnel, ClassesSharingATableStayApart) {
    auto ir = pmsiTunnelIngressReplicationFactory(Flags(), 3, addr("10.0.0.1"));
    auto general = pmsiTunnelGeneralFactory(Flags(), PmsiTunnel::tunnelTypeIngressReplication, 3,
                                            identifier("0a000001"));
    EXPECT_EQ(ir->serialize(), general->serialize());
    EXPECT_NE(static_cast<const PmsiTunnel*>(ir.get()),
              static_cast<const PmsiTunnel*>(general.get()));
    EXPECT_FALSE(ir->compare(general.get()));
    EXPECT_FALSE(general->compare(ir.get()));
    EXPECT_EQ(ir->castToIngressReplication(), ir.get());
    EXPECT_EQ(ir->castToGeneral(), nullptr);
    EXPECT_EQ(general->castToGeneral(), general.get());
    EXPECT_EQ(general->castToIngressReplication(), nullptr);
}

// A label keeps its 20 bits everywhere: every class interns 0x123456 as 0x23456, shows 144470 and
// writes 0x23456 in the label field.
TEST(PmsiTunnel, LabelKeepsTwentyBitsInIdentityTextAndWire) {
    struct Case {
        const char* name;
        std::function<Mel::PtrConst<PmsiTunnel>(uint32_t)> make;
    };
    const Case cases[] = {
        {"general",
         [](uint32_t l) {
             return pmsiTunnelGeneralFactory(Flags(), PmsiTunnel::tunnelTypeRsvpTeP2mpLsp, l,
                                             identifier("0a000001"));
         }},
        {"pim",
         [](uint32_t l) {
             return pmsiTunnelPimFactory(Flags(), PmsiTunnel::tunnelTypePimSmTree, l,
                                         addr("192.0.2.1"), addr("232.1.1.1"));
         }},
        {"ingress replication",
         [](uint32_t l) {
             return pmsiTunnelIngressReplicationFactory(Flags(), l, addr("10.0.0.1"));
         }},
        {"mldp",
         [](uint32_t l) {
             return pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), l, addr("192.0.2.1"), 9);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto wide = c.make(0x123456);
        auto narrow = c.make(0x23456);
        EXPECT_EQ(wide.get(), narrow.get());
        EXPECT_EQ(wide->mplsLabel(), 0x23456u);
        EXPECT_NE(wide->toStrepForUI().find("MPLS Label: 144470,"), std::string::npos);
        EXPECT_NE(wide->toStrep().find("mplsLabel=144470"), std::string::npos);
        // Header (3 bytes), flags, type, then the label field: 0x23456 in its high 20 bits.
        EXPECT_EQ(wide->serialize().toHex().substr(10, 6), "234560");
    }
    PmsiTunnelContent c(PmsiTunnel::tunnelTypeIngressReplication, Flags(), 0x123456);
    EXPECT_EQ(c.mplsLabel(), 0x23456u);
    c.mplsLabelIs(0xfff00001);
    EXPECT_EQ(c.mplsLabel(), 1u);
}

// ---- Wire forms

TEST(PmsiTunnel, WireFormsMatchVectors) {
    const auto v = OrvTest::attrWireVectors("PmsiTunnel");
    const Flags leaf(0x80);
    struct Case {
        const char* name;
        Mel::PtrConst<PmsiTunnel> tunnel;
    } cases[] = {
        {"ir_v4", pmsiTunnelIngressReplicationFactory(Flags(), 3, addr("10.0.0.1"))},
        {"ir_v6_leaf", pmsiTunnelIngressReplicationFactory(leaf, 1000, addr("2001:db8::1"))},
        {"pim_ssm_v4", pmsiTunnelPimFactory(Flags(), PmsiTunnel::tunnelTypePimSsmTree, 0,
                                            addr("192.0.2.1"), addr("232.1.1.1"))},
        {"pim_ssm_v6", pmsiTunnelPimFactory(Flags(), PmsiTunnel::tunnelTypePimSsmTree, 0,
                                            addr("2001:db8::1"), addr("ff3e::1234"))},
        {"mldp_generic_v4",
         pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), 0, addr("192.0.2.1"), 0x01020304)},
        {"mldp_generic_v6",
         pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), 17, addr("2001:db8::1"), 7)},
        {"general_rsvp",
         pmsiTunnelGeneralFactory(Flags(0x01), PmsiTunnel::tunnelTypeRsvpTeP2mpLsp, 0xfffff,
                                  identifier("0a000001 00000007 0a000002"))},
        {"general_noinfo", pmsiTunnelGeneralFactory(
                               Flags(), PmsiTunnel::tunnelTypeNoTunnelInformation, 100, nullptr)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(hexOf(c.tunnel->serialize()), hexOf(v.at(c.name)));
    }
    EXPECT_EQ(cases[3].tunnel->serializedTunnelIdentifierSize(), 32u);       // pim_ssm_v6
    EXPECT_EQ(cases[5].tunnel->serializedTunnelIdentifierSize(), 16u + 13u); // mldp_generic_v6
}

TEST(PmsiTunnel, IdentifierOf251BytesTakesTheExtendedLength) {
    for (size_t n : {250u, 251u}) {
        auto t = pmsiTunnelGeneralFactory(Flags(), PmsiTunnel::tunnelTypeTransportTunnel, 0,
                                          pmsiTunnelIdentifierFactory(std::vector<uint8_t>(n, 7)));
        const Mel::Bytes b = t->serialize();
        const size_t header = n + 5 <= 255 ? 3 : 4;
        ASSERT_EQ(b.size(), header + n + 5);
        EXPECT_EQ(hexOf(Mel::Bytes(b.data(), header)), header == 3 ? "c0 16 ff" : "d0 16 01 00");
        EXPECT_EQ(b[b.size() - 1], 7);
    }
}

TEST(PmsiTunnelIdentifier, PopulateResizesToExactlyTheLength) {
    PmsiTunnelIdentifierContent c;
    const uint8_t longer[] = {1, 2, 3, 4, 5};
    c.populateTunnelIdentifier(longer, sizeof longer);
    c.populateTunnelIdentifierBytes(Mel::Bytes::fromHex("0a0b"));
    EXPECT_EQ(c.serializedSize(), 2u);
    EXPECT_EQ(pmsiTunnelIdentifierFactory(c).get(), identifier("0a 0b").get());
    EXPECT_EQ(identifier("0a0b")->toHex(), "0a0b");
    c.populateTunnelIdentifier(nullptr, 0);
    EXPECT_EQ(pmsiTunnelIdentifierFactory(c)->serializedSize(), 0u);
}

TEST(PmsiTunnel, SerializeTracesAtLevelFiveWithoutChangingTheBytes) {
    auto t = pmsiTunnelIngressReplicationFactory(Flags(), 3, addr("10.0.0.1"));
    const Mel::Bytes quiet = t->serialize();
    OrvTest::TraceCapture at5(5);
    EXPECT_EQ(t->serialize(), quiet);
    EXPECT_EQ(at5.lines, std::vector<std::string>{"Serializing: PmsiTunnel::serialize()"});
}

// ---- Vocabulary

TEST(PmsiTunnel, TunnelTypeNamesAndClasses) {
    int known = 0;
    for (unsigned code = 0; code < 256; ++code) {
        const bool isKnown = PmsiTunnel::knownTunnelType(uint8_t(code));
        known += isKnown;
        EXPECT_EQ(isKnown, code <= 8 || code == 10 || code == 11 || code == 255) << code;
        EXPECT_EQ(std::string(PmsiTunnel::tunnelTypeJsonName(uint8_t(code))) == "unknown", !isKnown)
            << code;
        EXPECT_EQ(PmsiTunnel::compositeTunnelType(uint8_t(code)), code >= 0x80 && code <= 0xfa)
            << code;
    }
    EXPECT_EQ(known, 12);
    EXPECT_STREQ(PmsiTunnel::tunnelTypeJsonName(9), "unknown");
    EXPECT_STREQ(PmsiTunnel::tunnelTypeDisplayName(9), "-");
    EXPECT_STREQ(PmsiTunnel::tunnelTypeJsonName(2), "mLdpP2mpLsp");
    EXPECT_STREQ(PmsiTunnel::tunnelTypeDisplayName(5), "PIM Bidir Tree");
    EXPECT_STREQ(PmsiTunnel::tunnelTypeJsonName(11), "bier");
    EXPECT_STREQ(PmsiTunnel::tunnelTypeDisplayName(255), "Wildcard Transport");
    auto ir = pmsiTunnelIngressReplicationFactory(Flags(), 3, addr("10.0.0.1"));
    EXPECT_STREQ(ir->jsonName(), "ingressReplication");
}

TEST(PmsiTunnel, MulticastTunnelTypeMapping) {
    EXPECT_EQ(PmsiTunnel::fromMulticastTunnel(0), PmsiTunnel::tunnelTypePimSmTree);
    EXPECT_EQ(PmsiTunnel::fromMulticastTunnel(1), PmsiTunnel::tunnelTypePimSsmTree);
    EXPECT_EQ(PmsiTunnel::fromMulticastTunnel(2), PmsiTunnel::tunnelTypeBidirPimTree);
    EXPECT_EQ(PmsiTunnel::fromMulticastTunnel(3), PmsiTunnel::tunnelTypeNoTunnelInformation);
    for (unsigned code = 0; code < 256; ++code) {
        const unsigned expected = code == 4 ? 0 : code == 5 ? 2 : 1;
        EXPECT_EQ(PmsiTunnel::toMulticastTunnel(uint8_t(code)), expected) << code;
    }
}

// ---- Text forms

TEST(PmsiTunnel, DisplayForms) {
    auto ir = pmsiTunnelIngressReplicationFactory(Flags(0x80), 3, addr("10.0.0.1"));
    EXPECT_EQ(ir->toStrepForUI(),
              "Ingress Replication, MPLS Label: 3, Leaf Information Required: true, "
              "Tunnel ID: 10.0.0.1");
    // A reserved bit is not the leaf bit, and still goes on the wire.
    auto reserved = pmsiTunnelIngressReplicationFactory(Flags(0x01), 3, addr("10.0.0.1"));
    EXPECT_EQ(reserved->toStrepForUI(),
              "Ingress Replication, MPLS Label: 3, Leaf Information Required: false, "
              "Tunnel ID: 10.0.0.1");
    EXPECT_EQ(reserved->serialize()[3], 0x01);
    auto pim = pmsiTunnelPimFactory(Flags(), PmsiTunnel::tunnelTypePimSmTree, 16, addr("192.0.2.1"),
                                    addr("239.1.1.1"));
    EXPECT_EQ(pim->toStrepForUI(), "PIM-SM Tree, MPLS Label: 16, Leaf Information Required: "
                                   "false, Tunnel ID: 192.0.2.1, 239.1.1.1");
    auto unknown = pmsiTunnelGeneralFactory(Flags(), PmsiTunnel::TunnelType(9), 0, nullptr);
    EXPECT_EQ(unknown->toStrepForUI(), "-, MPLS Label: 0, Leaf Information Required: false");
    auto mldp = pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), 5, addr("192.0.2.1"), 9);
    EXPECT_EQ(mldp->toStrepForUI(),
              "MLDP P2MP LSP, MPLS Label: 5, Leaf Information Required: false");
}

TEST(PmsiTunnel, DebugForms) {
    auto text = [](const PmsiTunnel& t) {
        std::ostringstream os;
        os << t;
        EXPECT_EQ(os.str(), t.toStrep());
        return os.str();
    };
    EXPECT_EQ(text(*pmsiTunnelIngressReplicationFactory(Flags(0x81), 3, addr("10.0.0.1"))),
              "IngressReplication;mplsLabel=3;leafInformationRequired;flags=0x01;"
              "endpoint=10.0.0.1");
    EXPECT_EQ(text(*pmsiTunnelPimFactory(Flags(), PmsiTunnel::tunnelTypePimSsmTree, 7,
                                         addr("192.0.2.1"), addr("232.1.1.1"))),
              "Pim;mplsLabel=7;type=pimSsmTree(3);sender=192.0.2.1;group=232.1.1.1");
    EXPECT_EQ(text(*pmsiTunnelGeneralFactory(Flags(), PmsiTunnel::tunnelTypeRsvpTeP2mpLsp, 1,
                                             identifier("0a000001"))),
              "General;type=rsvpTeP2mpLsp(1);mplsLabel=1;tunnelIdentifier=0x0a000001");
    EXPECT_EQ(text(*pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(0x80), 0, addr("192.0.2.1"), 9)),
              "MLDP P2MP, Root Address: 192.0.2.1, LSP ID: 9;mplsLabel=0;leafInformationRequired");
}

TEST(PmsiTunnelContent, TextFormIsExactAndParsesBack) {
    PmsiTunnelContent c(PmsiTunnel::tunnelTypeIngressReplication, Flags(0x81), 3);
    const std::string text = c.toStrep();
    EXPECT_EQ(text, "Value('Routing::Bgp::PmsiTunnelContent', ** {'tunnelType': "
                    "'tunnelTypeIngressReplication', 'flags': "
                    "Value('Routing::Bgp::PmsiTunnel::Flags', ** {'flagunspecified0x01': True, "
                    "'flagunspecified0x02': False, 'flagunspecified0x04': False, "
                    "'flagunspecified0x08': False, 'flagunspecified0x10': False, "
                    "'flagunspecified0x20': False, 'flagunspecified0x40': False, "
                    "'flagLeafInformationRequired': True}), 'mplsLabel': 3})");
    EXPECT_EQ(PmsiTunnelContent::fromStrep(text), c);
    // A code without a name prints and parses as its number.
    PmsiTunnelContent unnamed(PmsiTunnel::TunnelType(200), Flags(0x7f), 0xfffff);
    EXPECT_NE(unnamed.toStrep().find("'tunnelType': 200,"), std::string::npos);
    EXPECT_EQ(PmsiTunnelContent::fromStrep(unnamed.toStrep()), unnamed);
}

TEST(PmsiTunnelContent, DerivedContentsRoundTrip) {
    PmsiTunnelPimContent pim(PmsiTunnelContent(PmsiTunnel::tunnelTypeBidirPimTree, Flags(), 4),
                             addr("2001:db8::1"), addr("ff3e::1234"));
    EXPECT_EQ(pim.toStrep(),
              "Value('Routing::Bgp::PmsiTunnelPimContent', ** {'tunnelType': "
              "'tunnelTypeBidirPimTree', 'flags': Value('Routing::Bgp::PmsiTunnel::Flags', ** "
              "{'flagunspecified0x01': False, 'flagunspecified0x02': False, "
              "'flagunspecified0x04': False, 'flagunspecified0x08': False, "
              "'flagunspecified0x10': False, 'flagunspecified0x20': False, "
              "'flagunspecified0x40': False, 'flagLeafInformationRequired': False}), "
              "'mplsLabel': 4, 'senderAddr': '2001:db8::1', 'multicastGroup': 'ff3e::1234'})");
    EXPECT_EQ(PmsiTunnelPimContent::fromStrep(pim.toStrep()), pim);

    PmsiTunnelMldpP2mpGenericLspIdContent lsp(
        PmsiTunnelMldpP2mpLspContent(
            PmsiTunnelContent(PmsiTunnel::tunnelTypeMldpP2mpLsp, Flags(0x80), 9), addr("192.0.2.1"),
            1),
        77);
    const std::string text = lsp.toStrep();
    EXPECT_NE(text.find("'rootAddress': '192.0.2.1', 'opaqueValueType': 1, 'lspId': 77})"),
              std::string::npos)
        << text;
    EXPECT_EQ(PmsiTunnelMldpP2mpGenericLspIdContent::fromStrep(text), lsp);
    EXPECT_EQ(pmsiTunnelMldpP2mpGenericLspIdFactory(lsp)->genericLspIdContent(), lsp);
    const PmsiTunnelMldpP2mpLspContent& base = lsp;
    EXPECT_EQ(PmsiTunnelMldpP2mpLspContent::fromStrep(base.toStrep()), base);
}

TEST(PmsiTunnelContent, TunnelTypeOutOfRangeIsARangeError) {
    auto parse = [](const std::string& type) {
        PmsiTunnelContent::fromStrep(
            "Value('Routing::Bgp::PmsiTunnelContent', ** {'tunnelType': " + type + "})");
    };
    auto message = [&](const std::string& type) -> std::string {
        try {
            parse(type);
        } catch (const Mel::RangeException& e) {
            return e.what();
        }
        return "no RangeException";
    };
    EXPECT_EQ(message("-1"), "Routing::Bgp::PmsiTunnelContent::tunnelType < min() not allowed");
    EXPECT_EQ(message("256"), "Routing::Bgp::PmsiTunnelContent::tunnelType > max() not allowed");
    EXPECT_NO_THROW(parse("255"));
    EXPECT_NO_THROW(parse("0"));
    EXPECT_THROW(parse("'tunnelTypeNoSuchThing'"), Mel::ParseException);
}

// ---- Reading back from the store

TEST(PmsiTunnelDestash, DispatchesOnTheStoredClass) {
    auto* store = &MelStash::StoreManager::instance();
    std::vector<Mel::PtrConst<PmsiTunnel>> tunnels = {
        pmsiTunnelIngressReplicationFactory(Flags(), 3, addr("10.0.0.1")),
        pmsiTunnelPimFactory(Flags(), PmsiTunnel::tunnelTypePimSsmTree, 0, addr("192.0.2.1"),
                             addr("232.1.1.1")),
        pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), 0, addr("192.0.2.1"), 5),
        pmsiTunnelGeneralFactory(Flags(), PmsiTunnel::tunnelTypeRsvpTeP2mpLsp, 0,
                                 identifier("01020304")),
    };
    for (const auto& t : tunnels) {
        SCOPED_TRACE(t->toStrep());
        const void* stored = static_cast<const Keel::DedupHandleBase*>(t.get());
        EXPECT_EQ(PmsiTunnel::destash(stored, store).get(), t.get());
        auto* reader = MelStash::StashReaderRegistry::readerFor<PmsiTunnelStashReader>(
            typeid(*static_cast<const Keel::DedupHandleBase*>(stored)));
        ASSERT_NE(reader, nullptr);
        EXPECT_EQ(reader->stashSerialize(stored), t->serialize());
        EXPECT_EQ(reader->stashStrep(stored), t->toStrep());
    }
    // An equal object built outside the tables reads back as the interned one.
    PmsiTunnelPimContent c(PmsiTunnelContent(PmsiTunnel::tunnelTypePimSsmTree, Flags(), 0),
                           addr("192.0.2.1"), addr("232.1.1.1"));
    Mel::PtrConst<PmsiTunnelPim> loose(new PmsiTunnelPim(c));
    EXPECT_EQ(
        PmsiTunnel::destash(static_cast<const Keel::DedupHandleBase*>(loose.get()), store).get(),
        tunnels[1].get());
}

// ---- Assertions

// PIM addresses of one family, endpoint and root addresses, the opaque value of the base mLDP
// class, a stored class without a reader.
TEST(PmsiTunnelDeathTest, Preconditions) {
    auto dies = [](const char* text) { return assertionPattern("OrvBgp/PmsiTunnel", text); };
    const auto pim = PmsiTunnel::tunnelTypePimSsmTree;
    EXPECT_DEATH(pmsiTunnelPimFactory(Flags(), pim, 0, addr("192.0.2.1"), addr("ff3e::1")),
                 dies("len == 8 || len == 32"));
    EXPECT_DEATH(pmsiTunnelPimFactory(Flags(), pim, 0, Orvnet::IpGenAddr(), addr("232.1.1.1")),
                 dies("len == 8 || len == 32"));
    EXPECT_DEATH(pmsiTunnelIngressReplicationFactory(Flags(), 0, Orvnet::IpGenAddr()),
                 dies("len == 4 || len == 16"));
    EXPECT_DEATH(pmsiTunnelMldpP2mpGenericLspIdFactory(Flags(), 0, Orvnet::IpGenAddr(), 1),
                 dies("len == 4 || len == 16"));
    PmsiTunnelMldpP2mpLspContent c(PmsiTunnelContent(PmsiTunnel::tunnelTypeMldpP2mpLsp, Flags(), 0),
                                   addr("192.0.2.1"), 2);
    Mel::PtrConst<PmsiTunnelMldpP2mpLsp> lsp(new PmsiTunnelMldpP2mpLsp(c));
    EXPECT_DEATH(lsp->serialize(), dies("!(\"Not implemented\")"));
    EXPECT_DEATH(lsp->toStrep(), dies("!(\"Not implemented\")"));
    Mel::PtrConst<OrvTest::UnregisteredStoreObject> u(new OrvTest::UnregisteredStoreObject);
    EXPECT_DEATH(PmsiTunnel::destash(u.get(), &MelStash::StoreManager::instance()),
                 dies("nullptr != reader"));
}

} // namespace
} // namespace Routing::Bgp
