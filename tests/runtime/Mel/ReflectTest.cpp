#include "Mel/Reflect.h"

#include "Orvnet/IpGenAddr.h"

#include <boost/container/small_vector.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace MelReflectTest {

enum class Color : uint8_t { red, green, blue = 7 };
BOOST_DESCRIBE_ENUM(Color, red, green, blue)
enum class Plain : int16_t { a = -3 };

struct SrgbRange {
    uint32_t base_ = 0;
    uint32_t range_ = 0;
    bool operator==(const SrgbRange&) const = default;
    MEL_VALUE_TYPE(SrgbRange, "Routing::Bgp::SrgbRange", (base_, range_))
};

struct Empty {
    MEL_VALUE_TYPE(Empty, "Routing::Bgp::Empty", ())
};

struct Ints {
    uint8_t u8_ = 0;
    uint16_t u16_ = 0;
    uint32_t u32_ = 0;
    uint64_t u64_ = 0;
    int8_t i8_ = 0;
    int16_t i16_ = 0;
    int32_t i32_ = 0;
    int64_t i64_ = 0;
    bool b_ = false;
    bool operator==(const Ints&) const = default;
    MEL_VALUE_TYPE(Ints, "Test::Ints", (u8_, u16_, u32_, u64_, i8_, i16_, i32_, i64_, b_))
};

struct Kinds {
    std::string text_;
    Mel::Bytes bytes_;
    Color color_ = Color::red;
    Plain plain_ = Plain::a;
    std::vector<uint16_t> list_;
    boost::container::small_vector<SrgbRange, 2> ranges_;
    std::array<int8_t, 2> pair_{};
    std::optional<uint32_t> maybe_;
    std::optional<SrgbRange> maybeRange_;
    SrgbRange range_;
    Orvnet::IpGenAddr addr_;
    bool operator==(const Kinds&) const = default;
    MEL_VALUE_TYPE(Kinds, "Test::Kinds",
                   (text_, bytes_, color_, plain_, list_, ranges_, pair_, maybe_, maybeRange_,
                    range_, addr_))
};

// A shared, non-interned object: pointers to it read back as new objects.
struct Node : Mel::Object {
    uint32_t id_ = 0;
    Mel::PtrConst<Node> next_;
    MEL_VALUE_TYPE(Node, "Test::Node", (id_, next_))
};

struct Opaque : Mel::Object {
    std::string toStrep() const { return "opaque #1"; }
};

struct Holder {
    Mel::PtrConst<Opaque> opaque_;
    MEL_VALUE_TYPE(Holder, "Test::Holder", (opaque_))
};

// Private members and a base whose fields print first; notPrinted_ takes no part.
class TlvBase {
public:
    void tunnelTypeIs(uint16_t t) { tunnelType_ = t; }
    size_t notPrinted() const { return notPrinted_.size(); }

protected:
    uint16_t tunnelType_ = 0;
    std::vector<int> notPrinted_{1, 2};
    MEL_VALUE_TYPE(TlvBase, "Routing::Bgp::TunnelEncapTlvContentBase", (tunnelType_))
};

class TlvUnparsed : public TlvBase {
public:
    void dataIs(const Mel::Bytes& b) {
        tunnelTlvData_ = b;
        tlvLen_ = uint16_t(b.size());
    }

private:
    uint16_t tlvLen_ = 0;
    Mel::Bytes tunnelTlvData_;
    MEL_VALUE_TYPE_DERIVED(TlvUnparsed, "Routing::Bgp::TunnelEncapTlvUnparsedContent", (TlvBase),
                           (tlvLen_, tunnelTlvData_))
};

// One byte with named bits: read-write fields through getter/setter pairs, one output-only field.
class Flags {
public:
    bool flagunspecified0x01() const { return bits_ & 0x01; }
    void flagunspecified0x01Is(bool on) { set(0x01, on); }
    bool flagLeafInformationRequired() const { return bits_ & 0x80; }
    void flagLeafInformationRequiredIs(bool on) & { set(0x80, on); }
    uint32_t value() const { return bits_; }

private:
    void set(uint8_t bit, bool on) { bits_ = uint8_t(on ? bits_ | bit : bits_ & ~bit); }
    uint8_t bits_ = 0;
    MEL_VALUE_TYPE(Flags, "Routing::Bgp::PmsiTunnel::Flags",
                   (flagunspecified0x01, flagunspecified0x01Is, flagLeafInformationRequired,
                    flagLeafInformationRequiredIs, value))
};

namespace Hooked {

// A type with its own syntax, and an interned-style pointer that reads back from a table.
struct Celsius {
    int tenths = 0;
};
void melFormat(std::ostream& os, const Celsius& c) {
    os << "Celsius(" << c.tenths << ")";
}
void melParse(Mel::ValueParser& p, Celsius& c) {
    p.expect("Celsius");
    p.expect("(");
    c.tenths = int(p.parseSigned(-2730, 100000));
    p.expect(")");
}

struct Interned {
    uint32_t v;
    void refInc() const noexcept {}
    void refDec() const noexcept {}
};
const Interned internedTable[] = {{10}, {20}};
void melFormat(std::ostream& os, const Mel::PtrConst<Interned>& p) {
    if (!p) {
        os << "None";
    } else {
        os << "Interned(" << p->v << ")";
    }
}
void melParse(Mel::ValueParser& p, Mel::PtrConst<Interned>& out) {
    if (p.consume("None")) {
        out = nullptr;
        return;
    }
    p.expect("Interned");
    p.expect("(");
    size_t at = p.offset();
    auto v = uint32_t(p.parseUnsigned(UINT32_MAX));
    p.expect(")");
    for (const Interned& e : internedTable) {
        if (e.v == v) {
            out = &e;
            return;
        }
    }
    p.failAt(at, "no such object");
}

} // namespace Hooked

// A hooked enum: hooks win over the built-in enum form.
enum class Tier { base };
BOOST_DESCRIBE_ENUM(Tier, base)
void melFormat(std::ostream& os, Tier) {
    os << "TIER";
}
void melParse(Mel::ValueParser& p, Tier& t) {
    p.expect("TIER");
    t = Tier::base;
}

struct Reading {
    Hooked::Celsius temp_;
    Mel::PtrConst<Hooked::Interned> obj_;
    Tier tier_ = Tier::base;
    MEL_VALUE_TYPE(Reading, "Test::Reading", (temp_, obj_, tier_))
};

} // namespace MelReflectTest

namespace {

using namespace MelReflectTest;

// The message of the exception of type E that f throws ("" if none).
template <class E>
std::string thrown(const std::function<void()>& f) {
    try {
        f();
    } catch (const E& e) {
        return e.what();
    }
    return "";
}

template <class T>
T roundTrip(const T& v) {
    return Mel::valueFromStrep<T>(Mel::valueToStrep(v));
}

Kinds sampleKinds() {
    Kinds k;
    k.text_ = R"(it's \ ok)";
    k.bytes_ = Mel::Bytes{0xc0, 0x08};
    k.color_ = Color::blue;
    k.list_ = {1, 65535};
    k.ranges_ = {{1, 2}};
    k.pair_ = {-128, 127};
    k.maybeRange_ = SrgbRange{3, 4};
    k.addr_ = Orvnet::IpGenAddr::fromString("10.0.0.1");
    return k;
}

const char* const sampleKindsText =
    R"(Value('Test::Kinds', ** {'text': 'it\'s \\ ok', 'bytes': 'c008', 'color': 'blue', )"
    R"('plain': -3, 'list': [1, 65535], )"
    R"('ranges': [Value('Routing::Bgp::SrgbRange', ** {'base': 1, 'range': 2})], )"
    R"('pair': [-128, 127], 'maybe': None, )"
    R"('maybeRange': Value('Routing::Bgp::SrgbRange', ** {'base': 3, 'range': 4}), )"
    R"('range': Value('Routing::Bgp::SrgbRange', ** {'base': 0, 'range': 0}), )"
    R"('addr': '10.0.0.1'}))";

TEST(ReflectFormat, ExactText) {
    EXPECT_EQ(Mel::valueToStrep(SrgbRange{16000, 8000}),
              "Value('Routing::Bgp::SrgbRange', ** {'base': 16000, 'range': 8000})");
    EXPECT_EQ(Mel::valueToStrep(Empty{}), "Value('Routing::Bgp::Empty', ** {})");
    EXPECT_EQ(Mel::valueToStrep(sampleKinds()), sampleKindsText);

    TlvUnparsed tlv;
    tlv.tunnelTypeIs(8);
    tlv.dataIs(Mel::Bytes{0xab, 0xcd});
    EXPECT_EQ(Mel::valueToStrep(tlv), "Value('Routing::Bgp::TunnelEncapTlvUnparsedContent', ** "
                                      "{'tunnelType': 8, 'tlvLen': 2, 'tunnelTlvData': 'abcd'})");
    EXPECT_EQ(Mel::valueToStrep(static_cast<const TlvBase&>(tlv)),
              "Value('Routing::Bgp::TunnelEncapTlvContentBase', ** {'tunnelType': 8})");

    Flags f;
    f.flagLeafInformationRequiredIs(true);
    EXPECT_EQ(Mel::valueToStrep(f),
              "Value('Routing::Bgp::PmsiTunnel::Flags', ** {'flagunspecified0x01': False, "
              "'flagLeafInformationRequired': True, 'value': 128})");
}

TEST(ReflectRoundTrip, IntegersAndBools) {
    Ints lo{0, 0, 0, 0, INT8_MIN, INT16_MIN, INT32_MIN, INT64_MIN, false};
    Ints hi{UINT8_MAX, UINT16_MAX, UINT32_MAX, UINT64_MAX, INT8_MAX,
            INT16_MAX, INT32_MAX,  INT64_MAX,  true};
    Ints mid{1, 256, 65536, uint64_t(1) << 32, -1, -1, -1, -1, false};
    for (const Ints& v : {lo, hi, mid})
        EXPECT_EQ(roundTrip(v), v);
    EXPECT_EQ(Mel::valueToStrep(hi),
              "Value('Test::Ints', ** {'u8': 255, 'u16': 65535, 'u32': 4294967295, "
              "'u64': 18446744073709551615, 'i8': 127, 'i16': 32767, 'i32': 2147483647, "
              "'i64': 9223372036854775807, 'b': True})");
}

TEST(ReflectRoundTrip, EveryOtherKindOfField) {
    EXPECT_EQ(Mel::valueFromStrep<Kinds>(sampleKindsText), sampleKinds());
    EXPECT_EQ(roundTrip(Kinds{}), Kinds{});

    Kinds k;
    k.text_ = std::string("'\"\\\n\t\x01\x7f\0 caf\xc3\xa9", 14);
    k.color_ = static_cast<Color>(9); // no name: printed and read back as a number
    k.maybe_ = 0;
    k.list_ = {0};
    k.ranges_ = {{1, 2}, {3, 4}, {5, 6}}; // beyond the inline capacity
    k.addr_ = Orvnet::IpGenAddr::fromString("2001:db8::1");
    EXPECT_EQ(Mel::fieldGet(k, "color"), "9");
    EXPECT_EQ(roundTrip(k), k);

    TlvUnparsed tlv;
    tlv.tunnelTypeIs(65535);
    tlv.dataIs(Mel::Bytes{0x00, 0xff});
    EXPECT_EQ(Mel::valueToStrep(roundTrip(tlv)), Mel::valueToStrep(tlv));
    EXPECT_EQ(roundTrip(tlv).notPrinted(), 2u);
}

TEST(ReflectRoundTrip, Pointers) {
    Mel::Ptr<Node> tail(new Node);
    tail->id_ = 2;
    Node head;
    head.id_ = 1;
    head.next_ = tail;
    const std::string text = "Value('Test::Node', ** {'id': 1, 'next': Value('Test::Node', ** "
                             "{'id': 2, 'next': None})})";
    EXPECT_EQ(Mel::valueToStrep(head), text);
    Node back = Mel::valueFromStrep<Node>(text);
    ASSERT_TRUE(back.next_);
    EXPECT_NE(back.next_.get(), tail.get());
    EXPECT_EQ(back.next_->refCount(), 1u);
    EXPECT_EQ(Mel::valueToStrep(back), text);

    // Printing falls back on toStrep; reading a non-null one back is not offered.
    Holder h;
    h.opaque_ = Mel::PtrConst<Opaque>(new Opaque);
    EXPECT_EQ(Mel::valueToStrep(h), "Value('Test::Holder', ** {'opaque': 'opaque #1'})");
    EXPECT_EQ(thrown<Mel::NotSupportedException>(
                  [&] { Mel::valueFromStrep<Holder>(Mel::valueToStrep(h)); }),
              "at offset 36: this type prints only; reading it back needs a melParse hook");
    EXPECT_FALSE(Mel::valueFromStrep<Holder>("Value('Test::Holder', ** {'opaque': None})").opaque_);
}

TEST(ReflectRoundTrip, HooksFoundByArgumentLookup) {
    Reading r;
    r.temp_.tenths = -15;
    r.obj_ = &Hooked::internedTable[1];
    const std::string text =
        "Value('Test::Reading', ** {'temp': Celsius(-15), 'obj': Interned(20), 'tier': TIER})";
    EXPECT_EQ(Mel::valueToStrep(r), text);
    Reading back = Mel::valueFromStrep<Reading>(text);
    EXPECT_EQ(back.temp_.tenths, -15);
    EXPECT_EQ(back.obj_.get(), &Hooked::internedTable[1]);
    EXPECT_EQ(thrown<Mel::ParseException>([] {
                  Mel::valueFromStrep<Reading>("Value('Test::Reading', ** {'obj': Interned(30)})");
              }),
              "at offset 43: no such object");
}

TEST(ReflectParse, OmittedFieldsBlanksAndQuotes) {
    // An omitted field keeps its initializer (plain's is not zero).
    Kinds k = Mel::valueFromStrep<Kinds>(" Value ( \"Test::Kinds\" ,**{ \"text\" : 'y' } ) ");
    EXPECT_EQ(k.plain_, Plain::a);
    EXPECT_EQ(k.text_, "y");
    // Parsing into an existing value keeps what the text does not mention.
    k.list_ = {5};
    Mel::valueFromStrepInto(k, "Value('Test::Kinds', ** {})");
    EXPECT_EQ(k.list_, std::vector<uint16_t>{5});
    EXPECT_EQ(k.text_, "y");
    // Output-only fields are accepted and ignored.
    Flags f = Mel::valueFromStrep<Flags>(
        "Value('Routing::Bgp::PmsiTunnel::Flags', ** {'value': [Value('X', ** {'a': 'b'})], "
        "'flagunspecified0x01': True})");
    EXPECT_EQ(f.value(), 1u);
}

// The parser's own messages (strings, separators, booleans) are tested with it; here, what the
// reflection adds: type names, field names, element counts and each field's limits.
TEST(ReflectParse, ErrorsNameOffsetAndExpectation) {
    const std::string k = "Value('Test::Kinds', ** {"; // fields start at offset 25
    struct Case {
        std::string text;
        std::string message;
    };
    const Case cases[] = {
        {"Value('Test::Other', ** {})",
         "at offset 6: expected type 'Test::Kinds', found 'Test::Other'"},
        {"Kinds()", "at offset 0: expected 'Value', found \"Kinds()\""},
        {k + "'text': '', 'size': 2})", "at offset 37: unknown field 'size' of Test::Kinds"},
        {k + "'list': [], 'list': []})", "at offset 37: field 'list' given twice"},
        {k + "'list' []})", "at offset 32: expected ':', found \"[]})\""},
        {k + "'list': [65536]})",
         "at offset 34: expected an integer from 0 to 65535, found \"65536]})\""},
        {k + "'pair': [1]})", "at offset 33: expected a list of exactly 2 elements"},
        {k + "'pair': [1, 2, 3]})", "at offset 33: expected a list of exactly 2 elements"},
        {k + "'bytes': 'c0g'})",
         "at offset 34: expected a quoted hex string: bad hex digit 'g' at offset 2"},
        {k + "'color': 'purple'})", "at offset 34: unknown enumerator 'purple'"},
        {k + "'color': 256})", "at offset 34: expected an integer from 0 to 255, found \"256})\""},
        {k + "'maybe': Nothing})",
         "at offset 34: expected an integer from 0 to 4294967295, found \"Nothing})\""},
        {k + "})x", "at offset 27: expected end of text, found \"x\""},
        {k + "'addr': '10.0.0.256'})", "at offset 33: not a valid value: "},
    };
    for (const Case& c : cases) {
        std::string got = thrown<Mel::ParseException>([&] { Mel::valueFromStrep<Kinds>(c.text); });
        EXPECT_EQ(got.substr(0, c.message.size()), c.message) << c.text;
        EXPECT_FALSE(got.empty()) << c.text;
    }
}

TEST(ReflectFields, GetAndSetByName) {
    // Each kind's text is checked whole above; here, one field read and set alone.
    Kinds k = sampleKinds();
    EXPECT_EQ(Mel::fieldGet(k, "maybe"), "None");
    Mel::fieldSet(k, "range", "Value('Routing::Bgp::SrgbRange', ** {'range': 9})");
    Mel::fieldSet(k, "maybe", " 7 ");
    EXPECT_EQ(k.range_, (SrgbRange{0, 9}));
    EXPECT_EQ(k.maybe_, 7u);

    // A failed set leaves the field as it was.
    Mel::fieldSet(k, "list", "[4, 5]");
    EXPECT_EQ(thrown<Mel::ParseException>([&] { Mel::fieldSet(k, "list", "[6, x]"); }),
              "at offset 4: expected an integer from 0 to 65535, found \"x]\"");
    EXPECT_EQ(thrown<Mel::ParseException>([&] { Mel::fieldSet(k, "list", "[6] 7"); }),
              "at offset 4: expected end of text, found \"7\"");
    EXPECT_EQ(k.list_, (std::vector<uint16_t>{4, 5}));

    EXPECT_EQ(thrown<Mel::NotSupportedException>([&] { Mel::fieldGet(k, "nope"); }),
              "Test::Kinds has no field 'nope'");
    EXPECT_EQ(thrown<Mel::NotSupportedException>([&] { Mel::fieldSet(k, "text_", "''"); }),
              "Test::Kinds has no field 'text_'");

    auto names = Mel::fieldNames<TlvUnparsed>();
    EXPECT_EQ(std::vector<std::string_view>(names.begin(), names.end()),
              (std::vector<std::string_view>{"tunnelType", "tlvLen", "tunnelTlvData"}));
    EXPECT_TRUE(Mel::fieldNames<Empty>().empty());
    EXPECT_EQ(Mel::valueTypeName<Flags>(), "Routing::Bgp::PmsiTunnel::Flags");
}

TEST(ReflectFields, GetterSetterPairsAndOutputOnlyFields) {
    Flags f;
    Mel::fieldSet(f, "flagLeafInformationRequired", "True");
    Mel::fieldSet(f, "flagunspecified0x01", "True");
    EXPECT_EQ(f.value(), 0x81u);
    EXPECT_EQ(Mel::fieldGet(f, "value"), "129");
    EXPECT_EQ(thrown<Mel::ParseException>([&] { Mel::fieldSet(f, "flagunspecified0x01", "1"); }),
              "at offset 0: expected True or False, found \"1\"");
    EXPECT_EQ(thrown<Mel::NotSupportedException>([&] { Mel::fieldSet(f, "value", "0"); }),
              "field 'value' of Routing::Bgp::PmsiTunnel::Flags is output only");
    EXPECT_EQ(
        thrown<Mel::NotSupportedException>([&] { Mel::fieldGet(f, "flagunspecified0x01Is"); }),
        "Routing::Bgp::PmsiTunnel::Flags has no field 'flagunspecified0x01Is'");
    EXPECT_TRUE(Mel::fieldWritable<Flags>("flagunspecified0x01"));
    EXPECT_FALSE(Mel::fieldWritable<Flags>("value"));
    EXPECT_EQ(roundTrip(f).value(), 0x81u);
}

TEST(ReflectFields, VisitAndCopy) {
    const Kinds src = sampleKinds();
    std::vector<std::string_view> visited;
    Mel::forEachField(src, [&](std::string_view name, const auto&) { visited.push_back(name); });
    auto names = Mel::fieldNames<Kinds>();
    EXPECT_EQ(visited, std::vector<std::string_view>(names.begin(), names.end()));

    // A generic clone that skips some fields, as a next hop's cloneFrom does.
    Kinds dst;
    dst.text_ = "kept";
    int copied = 0;
    Mel::forEachFieldPair(dst, src, [&](std::string_view name, auto& d, const auto& s) {
        if (name == "text" || name == "addr") return;
        d = s;
        ++copied;
    });
    EXPECT_EQ(copied, 9);
    EXPECT_EQ(dst.text_, "kept");
    EXPECT_TRUE(dst.addr_.isEmpty());
    dst.text_ = src.text_;
    dst.addr_ = src.addr_;
    EXPECT_EQ(dst, src);

    Kinds other;
    Mel::copyFields(other, src, {"bytes"});
    EXPECT_TRUE(other.bytes_.empty());
    other.bytes_ = src.bytes_;
    EXPECT_EQ(other, src);

    // Getter/setter fields are copied through the setter; getters give no reference to visit.
    Flags f, g;
    f.flagLeafInformationRequiredIs(true);
    Mel::copyFields(g, f);
    EXPECT_EQ(g.value(), 0x80u);
    int flagsVisited = 0;
    Mel::forEachField(g, [&](std::string_view, auto&) { ++flagsVisited; });
    EXPECT_EQ(flagsVisited, 0);
}

} // namespace
