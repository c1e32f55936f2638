#include "census/Report.h"

#include "MelStash/StoreManager.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <map>
#include <unistd.h>

namespace Census {

using namespace Routing::Bgp;

namespace {

constexpr std::array<const char*, 8> kComponentOrder = {
    "attribute sets", "AS paths",         "communities",   "next hops",
    "cluster lists",  "other attributes", "intern tables", "outbound sets"};

bool contains(const std::string& s, const char* what) {
    return s.find(what) != std::string::npos;
}

double perSecond(uint64_t n, double secs) {
    return secs > 0 ? double(n) / secs : 0.0;
}

// "12,345,678"
std::string grouped(int64_t v) {
    std::string digits = std::to_string(v < 0 ? -v : v);
    std::string out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0) out.push_back(',');
        out.push_back(digits[i]);
    }
    return v < 0 ? "-" + out : out;
}

std::string mib(int64_t bytes) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f MiB", double(bytes) / (1024.0 * 1024.0));
    return buf;
}

// ---- JSON -------------------------------------------------------------------------------------

class Json {
public:
    explicit Json(std::FILE* out) : out_(out) {}
    void open(const char* key, char bracket) {
        comma();
        if (key) str(key), std::fputs(": ", out_);
        std::fputc(bracket, out_);
        first_ = true;
        ++depth_;
    }
    void close(char bracket) {
        --depth_;
        newline();
        std::fputc(bracket, out_);
        first_ = false;
    }
    void num(const char* key, double v) {
        comma();
        if (key) str(key), std::fputs(": ", out_);
        if (std::isfinite(v) && v == std::floor(v) && std::fabs(v) < 9e15)
            std::fprintf(out_, "%.0f", v);
        else if (std::isfinite(v))
            std::fprintf(out_, "%.6g", v);
        else
            std::fputs("null", out_);
    }
    void num(const char* key, uint64_t v) {
        comma();
        if (key) str(key), std::fputs(": ", out_);
        std::fprintf(out_, "%" PRIu64, v);
    }
    void num(const char* key, int64_t v) {
        comma();
        if (key) str(key), std::fputs(": ", out_);
        std::fprintf(out_, "%" PRId64, v);
    }
    void boolean(const char* key, bool v) {
        comma();
        str(key);
        std::fputs(v ? ": true" : ": false", out_);
    }
    void text(const char* key, const std::string& v) {
        comma();
        if (key) str(key), std::fputs(": ", out_);
        str(v);
    }

private:
    void comma() {
        if (!first_) std::fputc(',', out_);
        first_ = false;
        newline();
    }
    void newline() {
        if (depth_ == 0) return;
        std::fputc('\n', out_);
        for (int i = 0; i < depth_; ++i)
            std::fputs("  ", out_);
    }
    void str(const std::string& s) {
        std::fputc('"', out_);
        for (unsigned char c : s) {
            if (c == '"' || c == '\\')
                std::fputc('\\', out_), std::fputc(c, out_);
            else if (c == '\n')
                std::fputs("\\n", out_);
            else if (c < 0x20)
                std::fprintf(out_, "\\u%04x", c);
            else
                std::fputc(c, out_);
        }
        std::fputc('"', out_);
    }

    std::FILE* out_;
    bool first_ = true;
    int depth_ = 0;
};

std::string xmlEscape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '&')
            out += "&amp;";
        else
            out.push_back(c);
    }
    return out;
}

} // namespace

std::string componentOf(const std::string& n, bool table) {
    if (n.rfind("RibOut", 0) == 0) return "outbound sets";
    if (table) return "intern tables";
    if (contains(n, "PathAttributes") || n == "AttributeSet") return "attribute sets";
    if (n.rfind("Aspath", 0) == 0) return "AS paths";
    if (contains(n, "CommList") || contains(n, "CommIp6List")) return "communities";
    if (contains(n, "Nexthop") || contains(n, "MetricPref")) return "next hops";
    if (contains(n, "ClusterList") || contains(n, "ClusterIdSet")) return "cluster lists";
    return "other attributes";
}

uint64_t residentBytes() {
    std::FILE* f = std::fopen("/proc/self/statm", "r");
    if (!f) return 0;
    unsigned long long size = 0, resident = 0;
    int n = std::fscanf(f, "%llu %llu", &size, &resident);
    std::fclose(f);
    return n == 2 ? uint64_t(resident) * uint64_t(sysconf(_SC_PAGESIZE)) : 0;
}

Report Report::gather(const CensusRun& run) {
    Report r;
    r.threads = run.threads();
    r.mrt = !run.synthetic();
    r.files = run.files();
    r.synthetic = run.syntheticConfig();
    if (run.synthetic()) {
        r.source = "synthetic table: " + grouped(int64_t(r.synthetic.paths)) + " paths over " +
                   std::to_string(r.synthetic.peers) + " peers, seed " +
                   std::to_string(r.synthetic.seed);
    } else {
        for (const FileOutcome& f : r.files)
            r.source += (r.source.empty() ? "" : ", ") + f.name;
    }
    r.decode = run.decodeCounts();
    r.ingest = run.ingestCounts();
    r.rib = run.ribCounts();
    r.build = run.buildCounts();
    r.roundTrip = run.roundTripCounts();
    r.routes = run.routes();
    r.peers = run.peers();
    r.ribBytes = run.ribBytes();
    r.seconds = run.seconds();
    r.internSeconds = run.internSeconds();

    // Sharing per tier, over the sets the RIB holds.
    constexpr size_t kTiers = 5;
    // A set is counted the first time a route is seen to hold it: one bit per 8 bytes of the
    // store (every interned set lives there) marks the sets seen.
    std::array<uint64_t, kTiers> inRoutes{}, outRoutes{}, inSets{}, outSets{};
    std::vector<uint64_t> seen((MelStash::StoreManager::instance().committedBytes() >> 9) + 1);
    Mel::HashSet<const void*> outside; // none, unless sets come to live elsewhere
    auto firstSight = [&](const void* p) {
        if (!MelStash::StoreManager::contains(p)) return outside.insert(p).second;
        const uint32_t ref = MelStash::StoreManager::compress(p);
        uint64_t& word = seen[ref >> 6];
        const uint64_t bit = uint64_t(1) << (ref & 63);
        const bool first = !(word & bit);
        word |= bit;
        return first;
    };
    run.forEachRoute([&](const PathAttributes& in, const RibOutPathAttributes* out) {
        size_t t = std::min<size_t>(size_t(in.getType()), kTiers - 1);
        ++inRoutes[t];
        inSets[t] += firstSight(&in);
        if (out) {
            size_t o = std::min<size_t>(size_t(out->getType()), kTiers - 1);
            ++outRoutes[o];
            outSets[o] += firstSight(out);
        }
    });
    for (size_t t = 0; t < kTiers; ++t) {
        const char* name = pathAttributeTypeName(PathAttributeType(t));
        r.inTiers.push_back({name, inRoutes[t], inSets[t]});
        r.outTiers.push_back({name, outRoutes[t], outSets[t]});
        r.inSets += inSets[t];
        r.outSets += outSets[t];
    }

    // Bytes per class and table, from the store's counters.
    std::map<std::string, Component> byComponent;
    for (const MelStash::TypeStatsSnapshot& s : MelStash::StoreManager::typeStats()) {
        if (s.bytes == 0 && s.objects == 0) continue;
        const bool table = s.kind == MelStash::TypeStats::Kind::tableMemory;
        TypeRow row{s.name, componentOf(s.name, table), table, table ? 0 : s.objects, s.bytes};
        Component& c = byComponent[row.component];
        c.bytes += row.bytes;
        c.objects += row.objects;
        if (row.component == "outbound sets")
            r.outboundBytes += row.bytes;
        else
            r.libraryBytes += row.bytes;
        r.types.push_back(std::move(row));
    }
    std::stable_sort(r.types.begin(), r.types.end(),
                     [](const TypeRow& a, const TypeRow& b) { return a.bytes > b.bytes; });
    for (const char* name : kComponentOrder) {
        Component c = byComponent[name];
        c.name = name;
        r.components.push_back(c);
    }
    r.storeLiveBytes = MelStash::StoreManager::instance().liveBytes();
    r.storeCommittedBytes = int64_t(MelStash::StoreManager::instance().committedBytes());
    r.residentBytes = Census::residentBytes();
    r.pathAttributesStats = PathAttributesStats::instance().toStrep();
    r.ribOutPathAttributesStats = RibOutPathAttributesStats::instance().toStrep();
    return r;
}

double Report::pathsPerSecond() const {
    return perSecond(ingest.announced + ingest.withdrawn + ingest.unusable, seconds);
}

double Report::internPathsPerSecond() const {
    return perSecond(ingest.announced + ingest.withdrawn + ingest.unusable, internSeconds);
}

bool Report::readErrors() const {
    return std::any_of(files.begin(), files.end(), [](const FileOutcome& f) { return !f.ok; });
}

// ---- text -------------------------------------------------------------------------------------

void Report::printText(std::FILE* out) const {
    auto rule = [&](const char* title) {
        std::fprintf(out, "\n%s\n", title);
        for (const char* p = title; *p; ++p)
            std::fputc('-', out);
        std::fputc('\n', out);
    };
    auto row = [&](const char* what, int64_t n, const std::string& note = {}) {
        std::fprintf(out, "  %-34s %15s  %s\n", what, grouped(n).c_str(), note.c_str());
    };
    char note[160];

    std::fprintf(out, "bgp-attr-census: %s (%u thread%s)\n", source.c_str(), threads,
                 threads == 1 ? "" : "s");
    for (const FileOutcome& f : files)
        if (!f.ok) std::fprintf(out, "  READ ERROR: %s\n", f.error.c_str());

    rule("Paths");
    if (mrt) {
        row("records", int64_t(decode.records));
        row("RIB entries", int64_t(decode.ribEntries));
        row("UPDATE messages", int64_t(decode.updates));
        row("announced prefixes", int64_t(decode.announcements));
        row("withdrawn prefixes", int64_t(decode.withdrawals));
    }
    row("paths installed", int64_t(ingest.announced));
    row("withdrawals applied", int64_t(rib.removed), "of " + grouped(int64_t(ingest.withdrawn)));
    row("treated as withdrawn", int64_t(ingest.unusable));
    row("routes held now", int64_t(routes), "over " + grouped(int64_t(peers)) + " peers");
    row("route changes (set replaced)", int64_t(rib.replaced));

    rule("Sharing: distinct sets per tier");
    std::fprintf(out, "  %-16s %12s %12s %10s   %12s %12s %10s\n", "tier", "in routes", "in sets",
                 "rt/set", "out routes", "out sets", "rt/set");
    for (size_t t = 0; t < inTiers.size(); ++t) {
        const TierRow& i = inTiers[t];
        const TierRow& o = outTiers[t];
        std::fprintf(out, "  %-16s %12s %12s %10.2f   %12s %12s %10.2f\n", i.tier.c_str(),
                     grouped(int64_t(i.routes)).c_str(), grouped(int64_t(i.sets)).c_str(),
                     i.sets ? double(i.routes) / double(i.sets) : 0.0,
                     grouped(int64_t(o.routes)).c_str(), grouped(int64_t(o.sets)).c_str(),
                     o.sets ? double(o.routes) / double(o.sets) : 0.0);
    }
    std::fprintf(out, "  %-16s %12s %12s %10.2f   %12s %12s %10.2f\n", "all",
                 grouped(int64_t(routes)).c_str(), grouped(int64_t(inSets)).c_str(),
                 inSets ? double(routes) / double(inSets) : 0.0, grouped(int64_t(routes)).c_str(),
                 grouped(int64_t(outSets)).c_str(),
                 outSets ? double(routes) / double(outSets) : 0.0);

    rule("Memory by component (store counters)");
    std::fprintf(out, "  %-34s %15s %12s %12s\n", "component", "bytes", "objects", "per route");
    for (const Component& c : components)
        std::fprintf(out, "  %-34s %15s %12s %12.2f\n", c.name.c_str(), grouped(c.bytes).c_str(),
                     grouped(c.objects).c_str(), routes ? double(c.bytes) / double(routes) : 0.0);
    std::snprintf(note, sizeof note, "%s, %.2f bytes per route", mib(libraryBytes).c_str(),
                  libraryBytesPerRoute());
    row("LIBRARY (inbound + referenced)", libraryBytes, note);
    row("outbound sets", outboundBytes, mib(outboundBytes));
    std::snprintf(note, sizeof note, "%s, %.2f bytes per route (this tool's map)",
                  mib(int64_t(ribBytes)).c_str(), routes ? double(ribBytes) / double(routes) : 0.0);
    row("RIB", int64_t(ribBytes), note);
    row("store: live blocks", storeLiveBytes, mib(storeLiveBytes));
    row("store: committed", storeCommittedBytes, mib(storeCommittedBytes));
    row("process resident (statm)", int64_t(residentBytes), mib(int64_t(residentBytes)));

    rule("Bytes per type");
    std::fprintf(out, "  %-44s %12s %14s %10s\n", "class or table", "objects", "bytes",
                 "per object");
    for (const TypeRow& t : types) {
        std::fprintf(out, "  %-44s %12s %14s", (t.name + (t.table ? " [table]" : "")).c_str(),
                     t.table ? "" : grouped(t.objects).c_str(), grouped(t.bytes).c_str());
        if (t.objects)
            std::fprintf(out, " %10.1f\n", double(t.bytes) / double(t.objects));
        else
            std::fputc('\n', out);
    }

    rule("Time");
    // With several threads the library time is summed over them; its share of the wall time is
    // taken as that sum over the thread count.
    const double libWall = internSeconds / double(threads ? threads : 1);
    std::snprintf(note, sizeof note, "%.3f s, %.0f paths/s", seconds, pathsPerSecond());
    std::fprintf(out, "  %-34s %s\n", mrt ? "read + decode + intern" : "generate + intern", note);
    std::snprintf(note, sizeof note, "%.3f s, %.0f paths/s", std::max(0.0, seconds - libWall),
                  perSecond(paths(), std::max(0.0, seconds - libWall)));
    // Reading and decompressing run beside the rest on a thread of their own: what is left of the
    // wall time outside the library is decoding, and waiting for input.
    std::fprintf(out, "  %-34s %s\n",
                 mrt ? "decode (+ wait for input)" : "generate (with sub-attributes)", note);
    std::snprintf(note, sizeof note, "%.3f s, %.0f paths/s per thread", libWall,
                  internPathsPerSecond());
    std::fprintf(out, "  %-34s %s\n", mrt ? "build + intern + RIB" : "intern sets + RIB", note);

    if (mrt) {
        rule("Round trip (re-encoded vs received, per attribute type)");
        std::fprintf(out, "  sets checked %s: matched %s, mismatched %s, explained %s\n",
                     grouped(int64_t(roundTrip.paths)).c_str(),
                     grouped(int64_t(roundTrip.matched())).c_str(),
                     grouped(int64_t(roundTrip.mismatched())).c_str(),
                     grouped(int64_t(roundTrip.explained())).c_str());
        std::string lines = roundTrip.toString();
        size_t at = 0;
        while (at < lines.size()) {
            size_t nl = lines.find('\n', at);
            if (nl == std::string::npos) nl = lines.size();
            std::fprintf(out, "  %s\n", lines.substr(at, nl - at).c_str());
            at = nl + 1;
        }
        for (const RoundTripCounts::Sample& s : roundTrip.samples)
            std::fprintf(out,
                         "  mismatch: type %u at record offset %" PRIu64
                         "\n    received %s\n    written  %s\n",
                         s.type, s.recordOffset, s.received.c_str(), s.written.c_str());

        rule("Errors");
        row("malformed attributes: discarded",
            int64_t(decode.malformed.byAction[size_t(ErrorAction::AttributeDiscard)]));
        row("malformed: treat-as-withdraw",
            int64_t(decode.malformed.byAction[size_t(ErrorAction::TreatAsWithdraw)]));
        row("malformed: session reset",
            int64_t(decode.malformed.byAction[size_t(ErrorAction::SessionReset)]));
        for (size_t i = 0; i < kMalformationCount; ++i)
            if (decode.malformed.byKind[i])
                row((std::string("  ") + malformationName(Malformation(i))).c_str(),
                    int64_t(decode.malformed.byKind[i]));
        row("malformed records", int64_t(decode.malformedRecords));
        row("skipped records (types not read)", int64_t(decode.skippedRecords));
        row("unsupported AFI/SAFI", int64_t(decode.unsupportedAfiSafi));
        row("paths the library refused", int64_t(ingest.buildFailures));
        row("attributes left out on build", int64_t(build.total(BuildOutcome::Discarded)));
        row("attributes kept verbatim (unknown)", int64_t(build.total(BuildOutcome::KeptUnknown)));
        row("files not read to the end",
            int64_t(std::count_if(files.begin(), files.end(),
                                  [](const FileOutcome& f) { return !f.ok; })));
    }

    rule("PathAttributesStats");
    std::fputs(pathAttributesStats.c_str(), out);
    rule("RibOutPathAttributesStats");
    std::fputs(ribOutPathAttributesStats.c_str(), out);
}

// ---- JSON -------------------------------------------------------------------------------------

void Report::writeJson(std::FILE* out) const {
    Json j(out);
    j.open(nullptr, '{');
    j.text("source", source);
    j.num("threads", uint64_t(threads));
    j.text("input", mrt ? "mrt" : "synthetic");
    if (!mrt) {
        j.open("synthetic", '{');
        j.num("paths", synthetic.paths);
        j.num("peers", uint64_t(synthetic.peers));
        j.num("seed", synthetic.seed);
        j.close('}');
    }
    j.open("files", '[');
    for (const FileOutcome& f : files) {
        j.open(nullptr, '{');
        j.text("name", f.name);
        j.boolean("ok", f.ok);
        j.text("error", f.error);
        j.num("bytes", f.bytes);
        j.num("records", f.counts.records);
        j.num("seconds", f.seconds);
        j.close('}');
    }
    j.close(']');

    j.open("paths", '{');
    j.num("records", decode.records);
    j.num("ribEntries", decode.ribEntries);
    j.num("updates", decode.updates);
    j.num("announcedPrefixes", decode.announcements);
    j.num("withdrawnPrefixes", decode.withdrawals);
    j.num("installed", ingest.announced);
    j.num("withdrawalsApplied", rib.removed);
    j.num("withdrawals", ingest.withdrawn);
    j.num("treatedAsWithdrawn", ingest.unusable);
    j.num("routes", routes);
    j.num("peers", peers);
    j.num("setsReplaced", rib.replaced);
    j.close('}');

    auto tiers = [&](const char* key, const std::vector<TierRow>& rows, uint64_t total) {
        j.open(key, '{');
        j.num("distinctSets", total);
        j.open("tiers", '[');
        for (const TierRow& t : rows) {
            j.open(nullptr, '{');
            j.text("tier", t.tier);
            j.num("routes", t.routes);
            j.num("sets", t.sets);
            j.num("routesPerSet", t.sets ? double(t.routes) / double(t.sets) : 0.0);
            j.close('}');
        }
        j.close(']');
        j.close('}');
    };
    tiers("inbound", inTiers, inSets);
    tiers("outbound", outTiers, outSets);

    j.open("memory", '{');
    j.num("libraryBytes", libraryBytes);
    j.num("libraryBytesPerRoute", libraryBytesPerRoute());
    j.num("outboundBytes", outboundBytes);
    j.num("ribBytes", ribBytes);
    j.num("storeLiveBytes", storeLiveBytes);
    j.num("storeCommittedBytes", storeCommittedBytes);
    j.num("residentBytes", residentBytes);
    j.open("components", '[');
    for (const Component& c : components) {
        j.open(nullptr, '{');
        j.text("name", c.name);
        j.num("bytes", c.bytes);
        j.num("objects", c.objects);
        j.close('}');
    }
    j.close(']');
    j.open("types", '[');
    for (const TypeRow& t : types) {
        j.open(nullptr, '{');
        j.text("name", t.name);
        j.text("component", t.component);
        j.boolean("table", t.table);
        j.num("objects", t.objects);
        j.num("bytes", t.bytes);
        j.close('}');
    }
    j.close(']');
    j.close('}');

    j.open("time", '{');
    j.num("seconds", seconds);
    j.num("internSeconds", internSeconds);
    j.num("pathsPerSecond", pathsPerSecond());
    j.num("internPathsPerSecond", internPathsPerSecond());
    j.close('}');

    j.open("roundTrip", '{');
    j.num("setsChecked", roundTrip.paths);
    j.num("matched", roundTrip.matched());
    j.num("mismatched", roundTrip.mismatched());
    j.num("explained", roundTrip.explained());
    j.open("byType", '[');
    for (size_t t = 0; t < 256; ++t) {
        const RoundTripCounts::PerType& p = roundTrip.byType[t];
        if (!p.matched && !p.mismatched && !p.explainedTotal()) continue;
        j.open(nullptr, '{');
        j.num("type", uint64_t(t));
        j.text("name", attributeTypeName(uint8_t(t)));
        j.num("matched", p.matched);
        j.num("mismatched", p.mismatched);
        j.open("explained", '{');
        for (size_t k = 0; k < kRoundTripReasonCount; ++k)
            j.num(roundTripReasonName(RoundTripReason(k)), p.explained[k]);
        j.close('}');
        j.close('}');
    }
    j.close(']');
    j.close('}');

    j.open("errors", '{');
    j.open("malformedByAction", '{');
    for (size_t i = 0; i < kErrorActionCount; ++i)
        j.num(errorActionName(ErrorAction(i)), decode.malformed.byAction[i]);
    j.close('}');
    j.open("malformedByKind", '{');
    for (size_t i = 0; i < kMalformationCount; ++i)
        j.num(malformationName(Malformation(i)), decode.malformed.byKind[i]);
    j.close('}');
    j.num("malformedRecords", decode.malformedRecords);
    j.num("skippedRecords", decode.skippedRecords);
    j.num("unsupportedAfiSafi", decode.unsupportedAfiSafi);
    j.num("refusedPaths", ingest.buildFailures);
    j.num("attributesDiscardedOnBuild", build.total(BuildOutcome::Discarded));
    j.num("unreadableFiles", uint64_t(std::count_if(files.begin(), files.end(),
                                                    [](const FileOutcome& f) { return !f.ok; })));
    j.close('}');

    j.text("pathAttributesStats", pathAttributesStats);
    j.text("ribOutPathAttributesStats", ribOutPathAttributesStats);
    j.close('}');
    std::fputc('\n', out);
}

// ---- SVG --------------------------------------------------------------------------------------

void Report::writeSvg(std::FILE* out) const {
    constexpr int W = 1000, left = 230, barMax = 480, rowH = 26;
    static const char* colors[] = {"#4e79a7", "#f28e2b", "#e15759", "#76b7b2", "#59a14f",
                                   "#edc948", "#b07aa1", "#ff9da7", "#9c755f", "#bab0ac"};
    struct Bar {
        std::string label;
        double value;
        std::string text;
    };
    // Memory on a linear scale, each component with its share of the whole: a log scale made a few
    // kilobytes look half as large as a megabyte.
    int64_t total = 0;
    for (const Component& c : components)
        total += c.bytes;
    std::vector<Bar> mem;
    for (const Component& c : components) {
        char pct[32];
        std::snprintf(pct, sizeof pct, " (%.1f %%)",
                      total ? 100.0 * double(c.bytes) / double(total) : 0.0);
        mem.push_back({c.name, double(c.bytes), grouped(c.bytes) + " B" + pct});
    }
    std::vector<Bar> share;
    for (size_t t = 0; t < inTiers.size(); ++t) {
        if (inTiers[t].sets)
            share.push_back({"in " + inTiers[t].tier,
                             double(inTiers[t].routes) / double(inTiers[t].sets),
                             grouped(int64_t(inTiers[t].sets)) + " sets"});
    }
    for (size_t t = 0; t < outTiers.size(); ++t) {
        if (outTiers[t].sets)
            share.push_back({"out " + outTiers[t].tier,
                             double(outTiers[t].routes) / double(outTiers[t].sets),
                             grouped(int64_t(outTiers[t].sets)) + " sets"});
    }
    // Attribute bytes per route beside three routing daemons' own accounting of the 2002 full
    // table (bview.20020722.2337, loaded over loopback BGP sessions; figures in README.md).
    char ours[48];
    std::snprintf(ours, sizeof ours, "%.1f B", libraryBytesPerRoute());
    std::vector<Bar> perRoute = {{"this library (this run)", libraryBytesPerRoute(), ours},
                                 {"OpenBGPD 7.7 (2002 table)", 21.0, "21.0 B"},
                                 {"BIRD 2.0.12 (2002 table)", 43.9, "43.9 B"},
                                 {"FRR 8.4.4 (2002 table)", 88.0, "88.0 B"}};
    const int memTop = 90, apartTop = memTop + int(mem.size()) * rowH + 16;
    const int perRouteTop = apartTop + 60,
              shareTop = perRouteTop + int(perRoute.size()) * rowH + 60;
    const int H = shareTop + int(share.size()) * rowH + 40;
    std::fprintf(out,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                 "font-family=\"sans-serif\" font-size=\"13\">\n"
                 "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
                 W, H);
    std::fprintf(out,
                 "<text x=\"20\" y=\"30\" font-size=\"18\" font-weight=\"bold\">%s</text>\n"
                 "<text x=\"20\" y=\"52\">%s routes, library %s bytes (%.2f per route)</text>\n",
                 xmlEscape(source).c_str(), grouped(int64_t(routes)).c_str(),
                 grouped(libraryBytes).c_str(), libraryBytesPerRoute());
    auto chart = [&](const char* title, int top, const std::vector<Bar>& bars) {
        std::fprintf(out, "<text x=\"20\" y=\"%d\" font-weight=\"bold\">%s</text>\n", top - 12,
                     title);
        double max = 0;
        for (const Bar& b : bars)
            max = std::max(max, b.value);
        for (size_t i = 0; i < bars.size(); ++i) {
            const Bar& b = bars[i];
            int y = top + int(i) * rowH;
            int w = max > 0 ? int(std::lround(b.value / max * barMax)) : 0;
            std::fprintf(out,
                         "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%s</text>\n"
                         "<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"%s\"/>\n"
                         "<text x=\"%d\" y=\"%d\">%s</text>\n",
                         left - 8, y + 15, xmlEscape(b.label).c_str(), left, y + 2, w, rowH - 6,
                         colors[i % 10], left + w + 6, y + 15, xmlEscape(b.text).c_str());
        }
    };
    chart("Memory by component (bytes, linear; share of the library and outbound sets)", memTop,
          mem);
    std::fprintf(
        out, "<text x=\"20\" y=\"%d\">Apart: RIB (this tool) %s B, process resident %s B</text>\n",
        apartTop + 15, grouped(int64_t(ribBytes)).c_str(), grouped(int64_t(residentBytes)).c_str());
    chart("Attribute bytes per route", perRouteTop, perRoute);
    for (Bar& b : share) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.2f routes per set, ", b.value);
        b.text = buf + b.text;
    }
    chart("Sharing per tier (routes per distinct set)", shareTop, share);
    std::fputs("</svg>\n", out);
}

} // namespace Census
