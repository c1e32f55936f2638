// Turns MRT records into paths: one DecodedPath per RIB entry, per announced and per withdrawn
// prefix of an UPDATE, with the decoded attributes and the RFC 7606 verdict; counts everything.
//   struct Printer : Census::MrtHandler { void onPath(const Census::DecodedPath& p) override; };
//   Printer h; Census::MrtDecoder dec(h); while (reader.next(rec)) dec.decode(rec);
#pragma once

#include "census/AttributeDecoder.h"
#include "census/Mrt.h"
#include "census/Prefix.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Census {

struct Peer {
    IpAddress address;
    uint32_t as = 0;
    uint32_t bgpId = 0; // from the PEER_INDEX_TABLE; 0 elsewhere
};

// Where a path came from within its record.
enum class PathSource : uint8_t {
    RibEntry,       // TABLE_DUMP or TABLE_DUMP_V2 RIB entry
    NlriField,      // UPDATE NLRI field (IPv4 unicast)
    MpReach,        // MP_REACH_NLRI
    WithdrawnField, // UPDATE Withdrawn Routes field
    MpUnreach,      // MP_UNREACH_NLRI
};

struct DecodedPath {
    const MrtRecord* record = nullptr; // type, subtype, timestamp, offset
    PathSource source = PathSource::RibEntry;
    bool addPath = false;    // the record carries path ids (RFC 8050 subtypes)
    uint8_t asnSize = 4;     // AS number width of the attributes as received
    uint16_t sessionAfi = 0; // BGP4MP: family of the peering addresses; RIB: of the peer
    uint16_t afi = kAfiIpv4; // of the prefix
    uint8_t safi = kSafiUnicast;
    uint32_t originatedTime = 0; // RIB entries
    Peer peer;
    Prefix prefix;
    // The attribute set of the entry or message; for withdrawals the message's (possibly empty).
    const DecodedAttributes* attributes = nullptr;
    // Worst RFC 7606 action over the attribute set and the message's NLRI. TreatAsWithdraw and
    // SessionReset both mean the path is not to be used. ORIGIN and AS_PATH are mandatory for
    // every announcement and RIB entry, NEXT_HOP for IPv4 ones without MP_REACH_NLRI (RIB dumps
    // drop it for IPv6); a RIB entry with no attribute at all is the dumping router's own route
    // and stays usable.
    ErrorAction action = ErrorAction::None;

    bool withdrawal() const noexcept {
        return source == PathSource::WithdrawnField || source == PathSource::MpUnreach;
    }
    bool usable() const noexcept { return action < ErrorAction::TreatAsWithdraw; }
};

// A whole UPDATE, before its paths are handed out one by one.
struct DecodedUpdate {
    const MrtRecord* record = nullptr;
    bool addPath = false;
    bool localOrigin = false; // a _LOCAL subtype: sent by the collector, not received
    uint8_t asnSize = 4;
    uint16_t sessionAfi = 0;
    Peer peer;
    Peer local;
    std::span<const Prefix> withdrawn;             // Withdrawn Routes field
    std::span<const Prefix> nlri;                  // NLRI field
    const DecodedAttributes* attributes = nullptr; // MP prefixes are in there
    ErrorAction action = ErrorAction::None;
};

struct StateChange {
    const MrtRecord* record = nullptr;
    uint16_t sessionAfi = 0;
    Peer peer;
    uint16_t oldState = 0;
    uint16_t newState = 0;
};

class MrtHandler {
public:
    virtual ~MrtHandler();
    // In bgpdump's order for an UPDATE: onUpdate, then the withdrawals (Withdrawn Routes field,
    // MP_UNREACH_NLRI), then the announcements (NLRI field, MP_REACH_NLRI).
    virtual void onPath(const DecodedPath&) {}
    virtual void onUpdate(const DecodedUpdate&) {}
    virtual void onStateChange(const StateChange&) {}
};

struct MalformedCounts {
    std::array<uint64_t, kErrorActionCount> byAction{}; // issues by RFC 7606 action
    std::array<uint64_t, kMalformationCount> byKind{};  // issues by what was wrong
    std::array<uint64_t, 256> byAttributeType{};        // issues by attribute type (0: none)
    uint64_t total() const;
};

struct DecodeCounts {
    uint64_t records = 0;
    uint64_t tableDumpRecords = 0;
    uint64_t tableDumpV2Records = 0;
    uint64_t bgp4mpRecords = 0;
    uint64_t peerIndexTables = 0;
    uint64_t ribEntries = 0;
    uint64_t updates = 0;
    uint64_t otherMessages = 0; // OPEN, NOTIFICATION, KEEPALIVE, ROUTE-REFRESH
    uint64_t stateChanges = 0;
    uint64_t skippedRecords = 0; // types and subtypes not read (RIB_GENERIC, OSPF, ...)
    uint64_t malformedRecords =
        0;                      // bodies whose own fields do not add up; what came before is used
    uint64_t announcements = 0; // NLRI field + MP_REACH prefixes
    uint64_t withdrawals = 0;   // Withdrawn Routes + MP_UNREACH prefixes
    uint64_t unusablePaths = 0; // RIB entries and announcements treated as withdrawn
    uint64_t unsupportedAfiSafi = 0; // MP_REACH/MP_UNREACH of other families, kept raw
    uint64_t attributeSets = 0;      // attribute sections decoded
    MalformedCounts malformed;
};

class MrtDecoder {
public:
    explicit MrtDecoder(MrtHandler& handler) : handler_(handler) {}

    // Decodes one record and calls the handler. Never throws or asserts on the record's bytes: a
    // body that does not add up is counted (malformedRecords) after the paths read before the
    // fault have been handed out.
    void decode(const MrtRecord& rec);

    const DecodeCounts& counts() const noexcept { return counts_; }
    // Starts on another file: its counts from zero and no peer index, the scratch kept.
    void startFile() {
        counts_ = DecodeCounts{};
        peers_.clear();
    }
    // Peers of the last PEER_INDEX_TABLE.
    const std::vector<Peer>& peerIndex() const noexcept { return peers_; }

private:
    void decodeTableDump(const MrtRecord& rec);
    void decodeTableDumpV2(const MrtRecord& rec);
    void decodePeerIndexTable(const MrtRecord& rec);
    void decodeRib(const MrtRecord& rec, uint16_t afi, uint8_t safi, bool addPath);
    void decodeBgp4mp(const MrtRecord& rec);
    void decodeStateChange(const MrtRecord& rec, uint8_t asnSize);
    void decodeMessage(const MrtRecord& rec, uint8_t asnSize, bool local, bool addPath);

    const DecodedAttributes& decodeAttributes(std::span<const uint8_t> section,
                                              const AttributeContext& ctx);
    // Records a problem found outside the attribute section against the current set.
    void addIssue(uint8_t type, Malformation what, ErrorAction action);
    void ribPath(const MrtRecord& rec, DecodedPath& path, std::span<const uint8_t> attrs,
                 const AttributeContext& ctx);
    void malformedRecord() { ++counts_.malformedRecords; }

    MrtHandler& handler_;
    AttributeDecoder attrs_;
    std::vector<Peer> peers_;
    std::vector<Prefix> withdrawn_;
    std::vector<Prefix> nlri_;
    DecodeCounts counts_;
};

// Streams one file through a decoder into handler. ok is false when the file could not be read
// to its end; error then names the file and offset, and everything before was decoded and counted.
struct FileResult {
    DecodeCounts counts;
    uint64_t bytes = 0; // decompressed MRT bytes read
    bool ok = true;
    std::string error;
};
FileResult readMrtFile(const std::string& path, MrtHandler& handler,
                       size_t bufferSize = MrtReader::kDefaultBufferSize);

} // namespace Census
