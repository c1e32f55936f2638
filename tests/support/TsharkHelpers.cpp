#include "support/TsharkHelpers.h"

#include "Mel/Bytes.h"
#include "Mel/Exception.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

namespace OrvTest {
namespace {

namespace fs = std::filesystem;
namespace pt = boost::property_tree;

// Writes v's low `bytes` bytes at `at`, most significant first unless `littleEndian`.
void put(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t v, int bytes,
         bool littleEndian = false) {
    for (int i = 0; i < bytes; ++i)
        out[at + std::size_t(i)] =
            static_cast<std::uint8_t>(v >> (8 * (littleEndian ? i : bytes - 1 - i)));
}

// Fills `fields`, `text` and `warnings` from the PDML elements beneath `node`; `depth` counts the
// proto and field elements around them.
void walkPdml(const pt::ptree& node, int depth, TsharkDecode& out) {
    for (const auto& entry : node) {
        const std::string& tag = entry.first;
        const pt::ptree& child = entry.second; // a variable of its own: the lambda below takes it
        if (tag == "<xmlattr>") continue;
        if (tag != "field" && tag != "proto") {
            walkPdml(child, depth, out);
            continue;
        }
        auto attr = [&](const char* key) {
            return child.get<std::string>(std::string("<xmlattr>.") + key, "");
        };
        const std::string name = attr("name"), showname = attr("showname"), show = attr("show");
        const bool hidden = attr("hide") == "yes";
        if (tag == "field") {
            auto number = [&](const char* key) {
                return static_cast<std::size_t>(std::strtoull(attr(key).c_str(), nullptr, 10));
            };
            out.fields.push_back({name, show, attr("value"), depth, number("pos"), number("size")});
        }
        const std::string line = showname.empty() ? show : showname;
        if (!hidden && !line.empty())
            out.text += std::string(4 * static_cast<std::size_t>(depth), ' ') + line + "\n";
        // "Expert Info (Warning/Malformed): message"; Chat and Comment are informational.
        if (name == "_ws.expert") {
            auto open = showname.find('(');
            auto slash = showname.find('/', open);
            std::string severity = open == std::string::npos || slash == std::string::npos
                                       ? std::string()
                                       : showname.substr(open + 1, slash - open - 1);
            if (severity != "Chat" && severity != "Comment") out.warnings.push_back(showname);
        } else if (name == "_ws.malformed" && !hidden) {
            out.warnings.push_back(showname.empty() ? "Malformed Packet" : showname);
        }
        walkPdml(child, depth + 1, out);
    }
}

void parsePdml(const std::string& xml, TsharkDecode& out) {
    std::istringstream in(xml);
    pt::ptree tree;
    try {
        pt::read_xml(in, tree);
    } catch (const pt::xml_parser_error& e) {
        out.ran = false;
        out.error = std::string("tshark's PDML does not parse: ") + e.what();
        return;
    }
    walkPdml(tree, 0, out);
}

// Runs `cmd` through the shell; returns its exit status and fills `output` with its stdout.
int runCapture(const std::string& cmd, std::string& output) {
    FILE* pipe = ::popen(cmd.c_str(), "r");
    if (!pipe) return -1;
    char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0)
        output.append(buf, n);
    int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string shellQuote(const std::string& s) {
    std::string out = "'";
    for (char c : s) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

std::string readFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

bool tsharkAvailable() {
    static const bool available = [] {
        std::string ignored;
        return runCapture("tshark -v >/dev/null 2>&1", ignored) == 0;
    }();
    return available;
}

std::vector<std::string> TsharkDecode::fieldValues(const std::string& name) const {
    std::vector<std::string> out;
    for (const auto& f : fields)
        if (f.name == name) out.push_back(f.show);
    return out;
}

std::string TsharkDecode::decodedField(const std::string& name) const {
    std::string out;
    for (const auto& v : fieldValues(name)) {
        if (!out.empty()) out += ',';
        out += v;
    }
    return out;
}

std::vector<std::uint8_t> buildUpdate(std::span<const std::uint8_t> attributes) {
    // Marker, length, UPDATE, no withdrawn routes, the attributes' length; then the NLRI
    // 10.0.0.0/8.
    std::vector<std::uint8_t> msg =
        bytesFromHex("ffffffffffffffffffffffffffffffff 0000 02 0000 0000");
    put(msg, 16, static_cast<std::uint32_t>(msg.size() + attributes.size() + 2), 2);
    put(msg, 21, static_cast<std::uint32_t>(attributes.size()), 2);
    msg.insert(msg.end(), attributes.begin(), attributes.end());
    msg.insert(msg.end(), {8, 10});
    return msg;
}

std::vector<std::uint8_t> buildPcap(std::span<const std::uint8_t> payload) {
    if (payload.size() > 65535 - 40)
        throw std::length_error("buildPcap: payload does not fit one IPv4 packet");
    std::vector<std::uint8_t> file = bytesFromHex(
        // pcap (microsecond timestamps, version 2.4, snap length 262144, Ethernet).
        "d4c3b2a1 0200 0400 00000000 00000000 00000400 01000000 "
        // The record: time 1700000000, the frame's length twice (set below).
        "00f15365 00000000 00000000 00000000 "
        // Ethernet 02:00:00:00:00:01 -> 02:00:00:00:00:02, IPv4.
        "020000000002 020000000001 0800 "
        // IPv4: length set below, id 1, don't fragment, TTL 64, TCP, no checksum (tshark is told
        // not to check it), 192.0.2.1 -> 192.0.2.2.
        "4500 0000 0001 4000 40 06 0000 c0000201 c0000202 "
        // TCP 179 -> 50179, sequence 1000, acknowledgement 2000, PSH ACK, window 65535.
        "00b3 c403 000003e8 000007d0 5018 ffff 0000 0000");
    const auto frameLen = static_cast<std::uint32_t>(file.size() - 40 + payload.size());
    put(file, 32, frameLen, 4, true);
    put(file, 36, frameLen, 4, true);
    put(file, 40 + 14 + 2, frameLen - 14, 2);
    file.insert(file.end(), payload.begin(), payload.end());
    return file;
}

TsharkDecode decodeBgp(std::span<const std::uint8_t> bgpMessages,
                       const std::vector<std::string>& extraPrefs) {
    TsharkDecode out;
    std::vector<std::uint8_t> pcap;
    try {
        pcap = buildPcap(bgpMessages);
    } catch (const std::exception& e) {
        out.error = e.what();
        return out;
    }
    std::string templ = (fs::temp_directory_path() / "orv-tshark-XXXXXX").string();
    if (!::mkdtemp(templ.data())) {
        out.error =
            "cannot create a temporary directory under " + fs::temp_directory_path().string();
        return out;
    }
    const fs::path dir(templ);
    const fs::path file = dir / "update.pcap";
    const fs::path errFile = dir / "stderr.txt";
    {
        std::ofstream os(file, std::ios::binary);
        os.write(reinterpret_cast<const char*>(pcap.data()),
                 static_cast<std::streamsize>(pcap.size()));
        if (!os) {
            out.error = "cannot write " + file.string();
            std::error_code ec;
            fs::remove_all(dir, ec);
            return out;
        }
    }
    std::string cmd = "tshark -n -r " + shellQuote(file.string()) +
                      " -T pdml -o ip.check_checksum:FALSE -o tcp.check_checksum:FALSE"
                      " -o tcp.analyze_sequence_numbers:FALSE -d tcp.port==179,bgp";
    for (const auto& pref : extraPrefs)
        cmd += " -o " + shellQuote(pref);
    cmd += " 2>" + shellQuote(errFile.string());
    std::string pdml;
    int rc = runCapture(cmd, pdml);
    if (rc != 0) {
        out.error = "tshark exited with " + std::to_string(rc) + ": " + readFile(errFile);
    } else {
        out.ran = true;
        out.frame.assign(pcap.begin() + 40, pcap.end()); // after the global and record headers
        parsePdml(pdml, out);
    }
    std::error_code ec;
    fs::remove_all(dir, ec);
    return out;
}

TsharkDecode wrapInUpdate(std::span<const std::uint8_t> attributes,
                          const std::vector<std::string>& extraPrefs) {
    return decodeBgp(buildUpdate(attributes), extraPrefs);
}

std::vector<std::uint8_t> bytesFromHex(const std::string& hex) {
    try {
        const Mel::Bytes b = Mel::Bytes::fromHex(hex);
        return {b.begin(), b.end()};
    } catch (const Mel::ParseException& e) {
        throw std::invalid_argument("bytesFromHex: " + std::string(e.what()) + " in \"" + hex +
                                    "\"");
    }
}

std::map<std::string, std::vector<std::uint8_t>> readWireVectors(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read wire vectors from " + path);
    std::map<std::string, std::vector<std::uint8_t>> out;
    std::string line;
    for (int lineNo = 1; std::getline(in, line); ++lineNo) {
        std::istringstream words(line);
        std::string name;
        if (!(words >> name) || name[0] == '#') continue;
        std::string rest;
        std::getline(words, rest);
        try {
            if (!out.emplace(name, bytesFromHex(rest)).second)
                throw std::invalid_argument("vector '" + name + "' given twice");
        } catch (const std::invalid_argument& e) {
            throw std::runtime_error(path + ":" + std::to_string(lineNo) + ": " + e.what());
        }
    }
    return out;
}

} // namespace OrvTest
