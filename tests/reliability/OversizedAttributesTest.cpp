// Attributes whose held value is legal but too long for the 2-byte length field when written: each
// writer throws PathAttributeTooLongException, naming the attribute and the length, and the process
// goes on.
#include "EveryAttributeHelpers.h"

#include "OrvBgp/BgpPathAttrType.h"
#include "Serialize/Serialize.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using namespace Routing::Bgp;

TEST(OversizedAttributes, EveryWriterThrowsTheLengthItCannotWrite) {
    OrvTest::SetParts parts;
    // 16,384 standard communities, cluster ids or 4-byte AS numbers are 65,536 bytes.
    constexpr size_t n = 16384;
    std::vector<OriginatorId> ids;
    for (size_t i = 0; i < n; ++i)
        ids.push_back(OriginatorId::fromHostOrder(uint32_t(0x0a000000 + i)));
    const auto clusters = clusterListFactory(ClusterListContent(OriginatorId(), ids));
    // Two unparsed TLVs of 40,000 bytes each: each fits its own 2-byte length, the pair does not.
    TunnelEncapContent te;
    for (uint16_t t : {100, 101})
        te.tunnelTlvIs(TunnelEncapTlvUnparsed::intern(
            TunnelEncapTlvUnparsedContent(t, 40000, Mel::Bytes(std::vector<uint8_t>(40000, 7)))));
    const auto tunnel = TunnelEncap::intern(te);
    // 32,000 2-byte AS numbers (as received from a 2-byte peer over extended messages) are 64,250
    // bytes as received, 128,250 with 4-byte numbers.
    const auto path = OrvTest::aspath(OrvTest::asRun(1, 32000));
    const auto set = OrvTest::fullSet(parts, uint32_t(n));

    struct Case {
        const char* what;
        std::function<void()> write;
        uint8_t type;
        size_t valueLen;
    };
    const Case cases[] = {
        {"AS_PATH with 4-byte numbers",
         [&] {
             AspathAttrCanonicalSerializer::serialize(path.get(), BgpPathAttrType::asPath_, false,
                                                      true, true, 0, false);
         },
         2, 2 * 126 + 4 * 32000},
        {"AS4_PATH",
         [&] {
             AspathAttrCanonicalSerializer::serialize(path.get(), BgpPathAttrType::as4Path_, false,
                                                      true, true, 0, false);
         },
         17, 2 * 126 + 4 * 32000},
        {"CLUSTER_LIST",
         [&] {
             AttrSetStringStore store;
             clusters->serialize(store);
         },
         10, 4 * n},
        {"tunnel encapsulation", [&] { tunnel->serialize(); }, 23, 2 * (4 + 40000)},
        {"COMMUNITIES in a set",
         [&] {
             AttrSetStringStore store;
             set->serializeInternal(&store, true, true, true);
         },
         8, 4 * n},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            c.write();
            ADD_FAILURE() << "written";
        } catch (const PathAttributeTooLongException& e) {
            EXPECT_EQ(e.type(), c.type);
            EXPECT_EQ(e.valueLen(), c.valueLen);
            EXPECT_NE(std::string(e.what()).find(std::to_string(c.valueLen) + " bytes"),
                      std::string::npos)
                << e.what();
        }
    }
    // The same path still goes to a 2-byte peer, and the objects stay usable.
    EXPECT_EQ(AspathAttrCanonicalSerializer::serialize(path.get(), BgpPathAttrType::asPath_, false,
                                                       true, false, 0, false)
                  .bytes()
                  .size(),
              4 + 2 * 126 + 2 * 32000u);
    EXPECT_EQ(tunnel->tunnelTlvs(), 2u);
}

} // namespace
