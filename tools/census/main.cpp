// bgp-attr-census [--dump] FILE...
// Streams MRT files (plain, .gz, .bz2, or - for stdin) and prints what they hold: records, paths,
// and attributes found malformed, by RFC 7606 action and by kind. With --dump, stdout carries the
// `bgpdump -m` lines instead and the counts go to stderr. A file that cannot be read to its end is
// reported on stderr with its name and byte offset, and the exit status is 1.
#include "census/BgpdumpFormat.h"
#include "census/MrtDecoder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

void add(Census::DecodeCounts& t, const Census::DecodeCounts& c) {
    t.records += c.records;
    t.tableDumpRecords += c.tableDumpRecords;
    t.tableDumpV2Records += c.tableDumpV2Records;
    t.bgp4mpRecords += c.bgp4mpRecords;
    t.peerIndexTables += c.peerIndexTables;
    t.ribEntries += c.ribEntries;
    t.updates += c.updates;
    t.otherMessages += c.otherMessages;
    t.stateChanges += c.stateChanges;
    t.skippedRecords += c.skippedRecords;
    t.malformedRecords += c.malformedRecords;
    t.announcements += c.announcements;
    t.withdrawals += c.withdrawals;
    t.unusablePaths += c.unusablePaths;
    t.unsupportedAfiSafi += c.unsupportedAfiSafi;
    t.attributeSets += c.attributeSets;
    for (size_t i = 0; i < Census::kErrorActionCount; ++i)
        t.malformed.byAction[i] += c.malformed.byAction[i];
    for (size_t i = 0; i < Census::kMalformationCount; ++i)
        t.malformed.byKind[i] += c.malformed.byKind[i];
    for (size_t i = 0; i < 256; ++i)
        t.malformed.byAttributeType[i] += c.malformed.byAttributeType[i];
}

void print(std::FILE* out, const char* title, const Census::DecodeCounts& c, uint64_t bytes) {
    auto line = [&](const char* what, uint64_t n) {
        std::fprintf(out, "  %-22s %llu\n", what, static_cast<unsigned long long>(n));
    };
    std::fprintf(out, "%s\n", title);
    line("bytes", bytes);
    line("records", c.records);
    line("table-dump records", c.tableDumpRecords);
    line("table-dump-v2 records", c.tableDumpV2Records);
    line("bgp4mp records", c.bgp4mpRecords);
    line("peer index tables", c.peerIndexTables);
    line("rib entries", c.ribEntries);
    line("updates", c.updates);
    line("announcements", c.announcements);
    line("withdrawals", c.withdrawals);
    line("state changes", c.stateChanges);
    line("other messages", c.otherMessages);
    line("skipped records", c.skippedRecords);
    line("malformed records", c.malformedRecords);
    line("attribute sets", c.attributeSets);
    line("unusable paths", c.unusablePaths);
    line("unsupported afi/safi", c.unsupportedAfiSafi);
    for (size_t i = 1; i < Census::kErrorActionCount; ++i) {
        std::string what = std::string("malformed: ") +
                           Census::errorActionName(static_cast<Census::ErrorAction>(i));
        line(what.c_str(), c.malformed.byAction[i]);
    }
    for (size_t i = 0; i < Census::kMalformationCount; ++i)
        if (c.malformed.byKind[i]) {
            std::string what = std::string("  by kind: ") +
                               Census::malformationName(static_cast<Census::Malformation>(i));
            line(what.c_str(), c.malformed.byKind[i]);
        }
    for (size_t i = 0; i < 256; ++i)
        if (c.malformed.byAttributeType[i]) {
            std::string what = "  by attribute type " + std::to_string(i);
            line(what.c_str(), c.malformed.byAttributeType[i]);
        }
}

int usage() {
    std::fprintf(stderr, "usage: bgp-attr-census [--dump] FILE...\n"
                         "  FILE   MRT file, plain, gzip or bzip2; - reads stdin\n"
                         "  --dump print `bgpdump -m` lines on stdout, counts on stderr\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    bool dump = false;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--dump") == 0)
            dump = true;
        else if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0)
            return usage(), 0;
        else if (argv[i][0] == '-' && argv[i][1] != '\0')
            return std::fprintf(stderr, "bgp-attr-census: unknown option %s\n", argv[i]), usage();
        else
            files.emplace_back(argv[i]);
    }
    if (files.empty()) return usage();

    std::FILE* report = dump ? stderr : stdout;
    Census::BgpdumpFormatter formatter(stdout);
    Census::MrtHandler counter;
    Census::MrtHandler& handler = dump ? static_cast<Census::MrtHandler&>(formatter) : counter;
    Census::DecodeCounts total;
    uint64_t totalBytes = 0;
    int status = 0;
    for (const std::string& f : files) {
        Census::FileResult r = Census::readMrtFile(f, handler);
        formatter.flush();
        if (!r.ok) {
            std::fflush(stdout);
            std::fprintf(stderr, "bgp-attr-census: %s\n", r.error.c_str());
            status = 1;
        }
        print(report, f.c_str(), r.counts, r.bytes);
        add(total, r.counts);
        totalBytes += r.bytes;
    }
    if (files.size() > 1) print(report, "total", total, totalBytes);
    formatter.flush();
    if (std::fflush(stdout) != 0) {
        std::fprintf(stderr, "bgp-attr-census: writing stdout: %s\n", std::strerror(errno));
        status = 1;
    }
    return status;
}
