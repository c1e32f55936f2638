#define ORV_UNIT "OrvBgp/Srv6ServiceTlv"

#include "OrvBgp/Srv6ServiceTlv.h"

#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Reflect.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <ostream>
#include <sstream>
#include <typeinfo>

namespace Routing::Bgp {

const char* srv6EndpointBehaviorName(Srv6::Iana::Srv6EndpointBehaviorType code) noexcept {
    switch (code) {
    case 16:
        return "End.DX6";
    case 17:
        return "End.DX4";
    case 18:
        return "End.DT6";
    case 19:
        return "End.DT4";
    case 20:
        return "End.DT46";
    case 60:
        return "End.DX6 with NEXT-CSID";
    case 61:
        return "End.DX4 with NEXT-CSID";
    case 62:
        return "End.DT6 with NEXT-CSID";
    case 63:
        return "End.DT4 with NEXT-CSID";
    case 64:
        return "End.DT46 with NEXT-CSID";
    default:
        return "unknown";
    }
}

uint32_t Srv6ServiceTlvContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(l3Service_));
    const auto& sid = sidValue_.bytes();
    for (size_t i = 0; i < sid.size(); i += 8) {
        uint64_t w = 0;
        for (size_t j = 0; j < 8; ++j)
            w = w << 8 | sid[i + j];
        m.hashMix(w);
    }
    m.hashMix(endpointBehavior_);
    const Srv6SidStructureTlvContent& st = sidStructureTlvContent_;
    m.hashMix(uint64_t(st.locBlockLen()) << 40 | uint64_t(st.locNodeLen()) << 32 |
              uint64_t(st.fnLen()) << 24 | uint64_t(st.argLen()) << 16 |
              uint64_t(st.transLen()) << 8 | st.transOff());
    return m.result();
}

std::string Srv6ServiceTlvContent::toStrep() const {
    return Mel::valueToStrep(*this);
}

Srv6ServiceTlvContent Srv6ServiceTlvContent::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<Srv6ServiceTlvContent>(text);
}

Srv6ServiceTlv::Srv6ServiceTlv(const Srv6ServiceTlvContent& content) noexcept : content_(content) {
    hashIs(content_.hash());
}

Mel::Ptr<Srv6ServiceTlv> Srv6ServiceTlv::create(const Srv6ServiceTlvContent& content) {
    return Mel::Ptr<Srv6ServiceTlv>(new Srv6ServiceTlv(content));
}

bool Srv6ServiceTlv::compare(const Keel::DedupHandleBase* other) const {
    return content_ == static_cast<const Srv6ServiceTlv*>(other)->content_;
}

bool Srv6ServiceTlv::compareByContent(const Keel::DedupContentHandle& content) const {
    return content_ == static_cast<const Srv6ServiceTlvContent&>(content);
}

Mel::Bytes Srv6ServiceTlv::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: Srv6ServiceTlv::serialize()");
    const Srv6SidStructureTlvContent& st = content_.sidStructureTlvContent();
    const bool withStructure = st.present();
    constexpr uint16_t sidInfoLen = 21;  // reserved, SID, flags, behaviour, reserved
    constexpr uint16_t structureLen = 6; // the six structure lengths
    const uint16_t subTlvLen = sidInfoLen + (withStructure ? 3 + structureLen : 0);
    const uint16_t tlvLen = 1 + 3 + subTlvLen;
    const size_t tlvSize = 3 + tlvLen;

    Serialize serialized;
    serialized.addU8(content_.l3Service() ? l3ServiceTlvType : l2ServiceTlvType);
    serialized.addU16hton(tlvLen);
    serialized.addU8(0); // reserved
    serialized.addU8(1); // SRv6 SID Information sub-TLV
    serialized.addU16hton(subTlvLen);
    serialized.addU8(0); // reserved
    serialized.addIpv6Addr(content_.sidValue());
    serialized.addU8(0); // SID flags
    serialized.addU16hton(content_.endpointBehavior());
    serialized.addU8(0); // reserved
    if (withStructure) {
        serialized.addU8(1); // SRv6 SID Structure sub-sub-TLV
        serialized.addU16hton(structureLen);
        serialized.addU8(st.locBlockLen());
        serialized.addU8(st.locNodeLen());
        serialized.addU8(st.fnLen());
        serialized.addU8(st.argLen());
        serialized.addU8(st.transLen());
        serialized.addU8(st.transOff());
    }
    ORV_ASSERT(tlvSize == serialized.size());
    return serialized.serializedBytes();
}

std::string Srv6ServiceTlv::toStrep() const {
    std::ostringstream os;
    os << *this;
    return std::move(os).str();
}

std::ostream& operator<<(std::ostream& os, const Srv6ServiceTlv& tlv) {
    os << (tlv.l3Service() ? "L3 " : "L2 ") << tlv.sidValue() << ", "
       << srv6EndpointBehaviorName(tlv.endpointBehavior());
    const Srv6SidStructureTlvContent& st = tlv.sidStructureTlvContent();
    if (st.present()) {
        os << " [" << unsigned(st.locBlockLen()) << ", " << unsigned(st.locNodeLen()) << ", "
           << unsigned(st.fnLen()) << ", " << unsigned(st.argLen()) << ", "
           << unsigned(st.transLen()) << ", " << unsigned(st.transOff()) << "]";
    }
    return os;
}

Mel::PtrConst<Srv6ServiceTlv> Srv6ServiceTlv::dedupContent(Srv6ServiceTlvDedupTable& table,
                                                           const Srv6ServiceTlvContent& content) {
    return table.findOrCreate(content.hash(), content, [&] { return new Srv6ServiceTlv(content); });
}

Mel::PtrConst<Srv6ServiceTlv> Srv6ServiceTlv::dedup(Srv6ServiceTlvDedupTable& table) const {
    return table.dedup(Mel::PtrConst<Srv6ServiceTlv>(this));
}

Srv6ServiceTlvDedupTable& Srv6ServiceTlvDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = new Srv6ServiceTlvDedupTable;
    return *table;
}

Mel::PtrConst<Srv6ServiceTlv> srv6ServiceTlvFactory(const Srv6ServiceTlvContent& content) {
    return Srv6ServiceTlv::dedupContent(Srv6ServiceTlvDedupTable::instance(), content);
}

// ---- Reading back from the store ---------------------------------------------------------------

namespace {

const Srv6ServiceTlv& storedTlv(const void* stored) {
    ORV_ASSERT(MelStash::StoreManager::contains(stored));
    auto* obj = static_cast<const Keel::DedupHandleBase*>(stored);
    ORV_ASSERT(typeid(*obj) == typeid(Srv6ServiceTlv));
    return static_cast<const Srv6ServiceTlv&>(*obj);
}

} // namespace

Mel::PtrConst<Srv6ServiceTlv> Srv6ServiceTlv::destash(const void* stored,
                                                      MelStash::StoreManager::RawPtr store) {
    ORV_ASSERT(MelStash::StoreManager::contains(stored));
    auto* obj = static_cast<const Keel::DedupHandleBase*>(stored);
    const auto* reader =
        MelStash::StashReaderRegistry::readerFor<Srv6ServiceTlvStashReader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return reader->destash(stored, store);
}

Mel::PtrConst<Srv6ServiceTlv>
Srv6ServiceTlvStashReader::destash(const void* stored, MelStash::StoreManager::RawPtr) const {
    return srv6ServiceTlvFactory(storedTlv(stored).content());
}

std::string Srv6ServiceTlvStashReader::stashStrep(const void* stored) const {
    return storedTlv(stored).toStrep();
}

Mel::Bytes Srv6ServiceTlvStashReader::stashSerialize(const void* stored) const {
    return storedTlv(stored).serialize();
}

namespace {

struct Srv6ServiceTlvStashRegisterer {
    Srv6ServiceTlvStashRegisterer() {
        static const Srv6ServiceTlvStashReader reader;
        MelStash::StashReaderRegistry::registerReader(typeid(Srv6ServiceTlv), &reader);
    }
} registerer;

} // namespace

} // namespace Routing::Bgp
