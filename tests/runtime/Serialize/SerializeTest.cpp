#include "Serialize/Serialize.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::string hexOf(const Serialize& s) {
    return s.serializedBytes().toHex();
}

std::vector<uint8_t> filler(size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = uint8_t(i * 7 + 1);
    return v;
}

} // namespace

TEST(Serialize, NetworkOrderWriters) {
    Serialize s;
    s.addU8(0xab);
    s.addU16hton(0x0102);
    s.addU24hton(0xff030405); // high byte ignored
    s.addU32hton(0x06070809);
    s.addU64hton(0x0a0b0c0d0e0f1011ull);
    EXPECT_EQ(hexOf(s), "ab010203040506070809"
                        "0a0b0c0d0e0f1011");
    EXPECT_EQ(s.serializedString().size(), s.size());
    EXPECT_EQ(s.serializedString()[0], '\xab');
}

TEST(Serialize, MplsLabelField) {
    struct Case {
        uint32_t label;
        bool bos;
        const char* hex;
    };
    for (auto [label, bos, hex] : {
             Case{0, false, "000000"}, Case{16, false, "000100"}, Case{16, true, "000101"},
             Case{0xfffff, false, "fffff0"}, Case{0xfffff, true, "fffff1"},
             Case{0x100003, false, "000030"}, // bits above the label's 20 are dropped
         }) {
        Serialize s;
        s.add3octetMplsLabelHton(label, bos);
        EXPECT_EQ(hexOf(s), hex) << label;
    }
}

TEST(Serialize, AddressesAndRawData) {
    Serialize s;
    s.addIpv4Addr(Orvnet::IpAddr::fromString("10.0.0.1"));
    s.addIpGenAddr(Orvnet::IpGenAddr()); // writes nothing
    s.addIpGenAddr(Orvnet::IpGenAddr::fromString("1.2.3.4"));
    s.addIpv6Addr(Orvnet::Ip6Addr::fromString("2001:db8::1"));
    s.addIpGenAddr(Orvnet::IpGenAddr::fromString("::ffff:1.2.3.4"));
    EXPECT_EQ(hexOf(s), "0a000001"
                        "01020304"
                        "20010db8000000000000000000000001"
                        "00000000000000000000ffff01020304");
    Serialize r;
    r.addBytes(Mel::Bytes{1, 2});
    r.addBytes(Mel::Bytes());
    r.addData(std::string_view("AB"));
    r.addData(nullptr, 0);
    EXPECT_EQ(hexOf(r), "01024142");
}

TEST(Serialize, AsNumbersTwoByteRule) {
    Serialize s;
    EXPECT_FALSE(s.addAs2(65535));
    EXPECT_TRUE(s.addAs2(65536));
    EXPECT_TRUE(s.addAs2(4294967295u));
    EXPECT_FALSE(s.addAs2(Orvnet::AS_TRANS)); // AS_TRANS itself is not a substitution
    s.addAs4(65536);
    EXPECT_EQ(hexOf(s), "ffff"
                        "5ba0"
                        "5ba0"
                        "5ba0"
                        "00010000");
}

TEST(Serialize, PatchAndTruncate) {
    Serialize s;
    s.addZeros(8);
    s.patchU8(0, 0x11);
    s.patchU16hton(1, 0x2233);
    s.patchU32hton(4, 0x44556677);
    EXPECT_EQ(hexOf(s), "1122330044556677");
    s.truncate(3);
    EXPECT_EQ(hexOf(s), "112233");
}

TEST(Serialize, InlineCapacityDoesNotReallocate) {
    Serialize s;
    const uint8_t* start = s.data();
    std::vector<uint8_t> chunk = filler(64);
    for (size_t i = 0; i < Serialize::inlineCapacity / chunk.size(); ++i)
        s.addData(chunk);
    EXPECT_EQ(s.size(), 4096u);
    EXPECT_EQ(s.data(), start);
    EXPECT_TRUE(s.isInline());
    s.addU8(0);
    EXPECT_FALSE(s.isInline());
    // Contents survive the move to the heap.
    EXPECT_EQ(Mel::Bytes(s.serializedBytes().span().subspan(4032, 64)), Mel::Bytes(chunk));
}

// Type 2, flags 0x40: the same header from the known-length writer, the auto-extending
// finisher and the test helper, at each boundary.
TEST(SerializePathAttribute, HeaderAtLengthBoundaries) {
    struct Case {
        size_t len;
        uint8_t flags;
        const char* header;
    };
    for (auto [len, flags, header] : {
             Case{0, 0x40, "400200"},
             Case{1, 0x40, "400201"},
             Case{255, 0x40, "4002ff"},
             Case{256, 0x40, "50020100"},
             Case{65535, 0x40, "5002ffff"},
             Case{5, 0x50, "50020005"}, // an explicit 0x10 keeps the 2-byte length
             Case{255, 0xc0, "c002ff"},
             Case{300, 0xe0, "f002012c"},
         }) {
        std::vector<uint8_t> value = filler(len);
        std::string expected = header + Mel::Bytes(value).toHex();

        Serialize known;
        size_t hdr = SerializePathAttribute(known, 2, flags, len);
        known.addData(value);
        EXPECT_EQ(hdr * 2, std::string(header).size());
        EXPECT_EQ(hexOf(known), expected) << len;

        SerializePathAttributeAutoExtLen autoLen;
        autoLen.addData(value);
        EXPECT_EQ(autoLen.valueSize(), len);
        EXPECT_EQ(autoLen.valueBytes(), Mel::Bytes(value));
        Mel::Bytes attr = autoLen.patchHdrAndStringify(2, flags);
        EXPECT_EQ(attr.toHex(), expected) << len;
        EXPECT_EQ(hexOf(autoLen), expected) << len; // the buffer holds exactly the attribute

        SerializePathAttributeAutoExtLen asString;
        asString.addData(value);
        EXPECT_EQ(Mel::Bytes(asString.patchHdrAndString(2, flags)).toHex(), expected);

        EXPECT_EQ(pathAttributeBytes(2, flags, value).toHex(), expected);
    }
}

// A value too long for the length field is an error the caller handles: both header writers
// throw, name the attribute and the length, and leave nothing half written.
TEST(SerializePathAttribute, TooLongValueThrows) {
    Serialize known;
    known.addU8(0xaa);
    try {
        SerializePathAttribute(known, 2, 0x40, 70000);
        ADD_FAILURE() << "no exception";
    } catch (const PathAttributeTooLongException& e) {
        EXPECT_EQ(std::string(e.what()),
                  "AS_PATH (type 2) cannot be written: value of 70000 bytes, more than 65535");
        EXPECT_EQ(e.type(), 2);
        EXPECT_EQ(e.valueLen(), 70000u);
    }
    EXPECT_EQ(hexOf(known), "aa");

    SerializePathAttributeAutoExtLen autoLen;
    autoLen.addZeros(65536);
    EXPECT_THROW(autoLen.patchHdrAndStringify(99, 0xc0), PathAttributeTooLongException);
    // Still unpatched: the value can be read or cut back.
    EXPECT_EQ(autoLen.valueSize(), 65536u);
}

TEST(SerializeDeathTest, Preconditions) {
    EXPECT_DEATH(
        {
            Serialize s;
            s.addU8(0);
            s.patchU16hton(0, 1);
        },
        "Serialize/Serialize: .*Assertion `offset \\+ 2 <= size\\(\\)' failed\\.");
    EXPECT_DEATH(
        {
            SerializePathAttributeAutoExtLen s;
            s.patchHdrAndStringify(2, 0x40);
            s.patchHdrAndStringify(2, 0x40);
        },
        "Assertion `!patched_' failed\\.");
}
