// Independent decoding of encoder output: path attributes wrapped in a BGP UPDATE, in a pcap, read
// by tshark.
//   if (!OrvTest::tsharkAvailable()) GTEST_SKIP() << OrvTest::kTsharkMissing;
//   auto d = OrvTest::wrapInUpdate(attrBytes); EXPECT_EQ(d.warnings, {});
//   d.fieldValues("bgp.path_attribute.cluster_id");
//
// One tshark run per call (-T pdml): the PDML tree gives every field (name, shown value, raw hex)
// and the indented `text` (the same lines `tshark -V` prints). `warnings` holds every expert item
// of severity Note or above and every malformed-packet marker; TCP sequence analysis is switched
// off so that the single synthetic segment yields no TCP notes of its own.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace OrvTest {

inline constexpr const char* kTsharkMissing = "tshark not installed: independent decoding skipped";

// True when `tshark` runs (checked once per process).
bool tsharkAvailable();

struct TsharkField {
    std::string name; // "bgp.path_attribute.cluster_id"
    std::string show; // value as tshark shows it: "10.0.0.1"
    std::string
        value;     // raw bytes as lowercase hex; empty for fields tshark gives no value (FT_NONE)
    int depth = 0; // nesting level in the decode tree
    std::size_t pos = 0;  // offset of the field's bytes in the frame
    std::size_t size = 0; // number of bytes the field covers
};

struct TsharkDecode {
    bool ran = false;  // tshark started and exited with status 0
    std::string error; // why not, when !ran (tshark's stderr or the failing step)
    std::string text;  // the decode tree, one "showname" per line, indented by depth
    std::vector<std::string> warnings; // "Warning/Malformed: ..." lines; empty means a clean decode
    std::vector<TsharkField> fields;   // every field, in decode order
    std::vector<std::uint8_t> frame;   // the frame that was decoded (Ethernet header first)

    // Shown values of every field called `name`, in order.
    std::vector<std::string> fieldValues(const std::string& name) const;
    // Shown values of `name` joined by ","; empty when absent.
    std::string decodedField(const std::string& name) const;
};

// A BGP UPDATE message: marker, length, type 2, no withdrawn routes, `attributes` (complete
// attributes, headers included), and the NLRI 10.0.0.0/8.
std::vector<std::uint8_t> buildUpdate(std::span<const std::uint8_t> attributes);

// One Ethernet/IPv4/TCP frame (port 179 -> 50179, correct lengths and checksums) carrying
// `payload`, as a complete pcap file image.
std::vector<std::uint8_t> buildPcap(std::span<const std::uint8_t> payload);

// Writes `bgpMessages` (one or more whole BGP messages back to back) in a pcap in a fresh temporary
// directory and decodes it. `extraPrefs` are further "-o name:value" settings (e.g.
// "bgp.asn_len:4").
TsharkDecode decodeBgp(std::span<const std::uint8_t> bgpMessages,
                       const std::vector<std::string>& extraPrefs = {});

// decodeBgp(buildUpdate(attributes), extraPrefs).
TsharkDecode wrapInUpdate(std::span<const std::uint8_t> attributes,
                          const std::vector<std::string>& extraPrefs = {});

// "0a 0B:0c" style hex (blanks and ':' ignored, as Mel::Bytes::fromHex reads it) to bytes.
std::vector<std::uint8_t> bytesFromHex(const std::string& hex);

// A wire-vector file: one vector a line, "name hex hex ...", '#' starts a comment line; a name
// alone is the empty vector. Throws std::runtime_error naming the file and line for an unreadable
// file, a bad hex digit or a repeated name.
std::map<std::string, std::vector<std::uint8_t>> readWireVectors(const std::string& path);

} // namespace OrvTest
