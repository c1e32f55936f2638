// Interned community lists: standard (type 8), extended (16), IPv6 address specific extended (25)
// and large (32). Values sit inline after the object header, in the order received.
//   Mel::PtrConst<Routing::CommList> c = Routing::CommList::intern({0xfde80064, 0xffff0006});
//   c->comm(0xffff0006);  c->toStrep() == "65000:100 65535:6";  c->serialize(s);  // C0 08 08 ...
#pragma once

#include "Keel/DedupTable.h"
#include "Keel/HashMix.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "MelStash/StoreManager.h"
#include "Serialize/Serialize.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>

namespace Routing {

// The lookup record of every list: a view of the values, and their hash.
template <class Elem>
struct CommunityListContent : Keel::DedupContentHandle {
    std::span<const Elem> values;
    uint32_t hash() const noexcept {
        Keel::HashMix m;
        m.hashMix(static_cast<uint32_t>(values.size()));
        m.hashMix(Keel::hashBytes(values.data(), values.size_bytes()));
        return m.result();
    }
};

// Shared shape of the four lists: header (16 bytes with the count), then the values.
// Derived is the concrete list; AttrType and the element type fix its wire form.
template <class Derived, class Elem, uint8_t AttrType>
class CommunityListBase : public Keel::DedupHandleBase {
public:
    using Element = Elem;
    using Content = CommunityListContent<Elem>;
    static constexpr uint8_t attrType = AttrType;
    static constexpr uint8_t attrFlags = pathAttrFlagOptional | pathAttrFlagTransitive;

    uint32_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    const Elem* begin() const noexcept { return values_; }
    const Elem* end() const noexcept { return values_ + count_; }
    const Elem& operator[](uint32_t i) const noexcept { return values_[i]; }
    std::span<const Elem> values() const noexcept { return {values_, count_}; }

    // Not cached: the values are at hand, and the table asks only when it grows or a list goes.
    uint32_t hash() const override {
        Content c;
        c.values = values();
        return c.hash();
    }
    bool compare(const Keel::DedupHandleBase* other) const override {
        auto* o = static_cast<const Derived*>(other);
        return o->count_ == count_ && std::memcmp(o->values_, values_, count_ * sizeof(Elem)) == 0;
    }
    bool compareByContent(const Keel::DedupContentHandle& c) const override {
        auto& v = static_cast<const Content&>(c).values;
        return v.size() == count_ &&
               (count_ == 0 || std::memcmp(v.data(), values_, count_ * sizeof(Elem)) == 0);
    }

    class DedupTable : public Keel::DedupTable<Derived> {
    public:
        using Keel::DedupTable<Derived>::DedupTable;
        static DedupTable& instance() {
            static DedupTable* t = new DedupTable(Derived::tableName);
            return *t;
        }
    };

    // The interned list holding these values, in this order.
    static Mel::PtrConst<Derived> intern(std::span<const Elem> values) {
        Content c;
        c.values = values;
        return DedupTable::instance().findOrCreate(c.hash(), c, [&] {
            return new (MelStash::ExtraBytes{values.size_bytes()}) Derived(c);
        });
    }
    static Mel::PtrConst<Derived> intern(std::initializer_list<Elem> values) {
        return intern(std::span<const Elem>(values.begin(), values.size()));
    }

    // The whole attribute: flags 0xC0 (extended length above 255 bytes), type, length, values.
    void serialize(Serialize& s) const {
        SerializePathAttribute(s, AttrType, attrFlags, count_ * Derived::wireSize);
        for (const Elem& e : *this)
            Derived::writeElement(s, e);
    }
    Mel::Bytes serialize() const {
        Serialize s;
        serialize(s);
        return s.serializedBytes();
    }
    // Values separated by one blank; the empty list prints as "".
    std::string toStrep() const {
        std::string out;
        for (uint32_t i = 0; i < count_; ++i) {
            if (i) out.push_back(' ');
            Derived::formatElement(out, values_[i]);
        }
        return out;
    }

protected:
    explicit CommunityListBase(const Content& c) : count_(static_cast<uint32_t>(c.values.size())) {
        if (!c.values.empty()) std::memcpy(values_, c.values.data(), c.values.size_bytes());
    }

private:
    uint32_t count_;
    Elem values_[0];
};

// Standard communities, each a 32-bit value (high 16 bits the AS, low 16 the local value).
class CommList : public CommunityListBase<CommList, uint32_t, 8> {
    MELSTASH_STORE_ALLOCATED(CommList)

public:
    static constexpr const char* tableName = "CommListDedupTable";
    static constexpr size_t wireSize = 4;
    static constexpr uint32_t llgrStale = 0xFFFF0006;
    static constexpr uint32_t noLlgr = 0xFFFF0007;

    // Membership test.
    bool comm(uint32_t community) const noexcept;

    static void writeElement(Serialize& s, uint32_t v) { s.addU32hton(v); }
    // "65000:100".
    static void formatElement(std::string& out, uint32_t v);

private:
    friend class CommunityListBase;
    using CommunityListBase::CommunityListBase;
};

// Extended communities, each 8 bytes kept as one big-endian 64-bit value.
class ExtCommList : public CommunityListBase<ExtCommList, uint64_t, 16> {
    MELSTASH_STORE_ALLOCATED(ExtCommList)

public:
    static constexpr const char* tableName = "ExtCommListDedupTable";
    static constexpr size_t wireSize = 8;
    static void writeElement(Serialize& s, uint64_t v) { s.addU64hton(v); }
    // Route targets and sites of origin as "rt 65000:100", "soo 10.0.0.1:7", "rt 4200000000:5"
    // (the usual notation); anything else as 16 hex digits, "0x0300000000000064".
    static void formatElement(std::string& out, uint64_t v);

private:
    friend class CommunityListBase;
    using CommunityListBase::CommunityListBase;
};

// IPv6 address specific extended communities, each 20 bytes as received.
using ExtCommIp6 = std::array<uint8_t, 20>;
class ExtCommIp6List : public CommunityListBase<ExtCommIp6List, ExtCommIp6, 25> {
    MELSTASH_STORE_ALLOCATED(ExtCommIp6List)

public:
    static constexpr const char* tableName = "ExtCommIp6ListDedupTable";
    static constexpr size_t wireSize = 20;
    static void writeElement(Serialize& s, const ExtCommIp6& v) { s.addData(v.data(), v.size()); }
    // "rt [2001:db8::1]:100" for route targets (subtype 2), "soo [...]:n" (subtype 3), else hex.
    static void formatElement(std::string& out, const ExtCommIp6& v);

private:
    friend class CommunityListBase;
    using CommunityListBase::CommunityListBase;
};

// Large communities: global administrator, two local data parts.
struct LargeComm {
    uint32_t global, local1, local2;
    bool operator==(const LargeComm&) const = default;
};
class LargeCommList : public CommunityListBase<LargeCommList, LargeComm, 32> {
    MELSTASH_STORE_ALLOCATED(LargeCommList)

public:
    static constexpr const char* tableName = "LargeCommListDedupTable";
    static constexpr size_t wireSize = 12;
    static void writeElement(Serialize& s, const LargeComm& v) {
        s.addU32hton(v.global);
        s.addU32hton(v.local1);
        s.addU32hton(v.local2);
    }
    // "65000:1:2".
    static void formatElement(std::string& out, const LargeComm& v);

private:
    friend class CommunityListBase;
    using CommunityListBase::CommunityListBase;
};

using CommListDedupTable = CommList::DedupTable;
using ExtCommListDedupTable = ExtCommList::DedupTable;
using ExtCommIp6ListDedupTable = ExtCommIp6List::DedupTable;
using LargeCommListDedupTable = LargeCommList::DedupTable;

} // namespace Routing
