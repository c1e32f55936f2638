#include "census/Run.h"

#include "census/Progress.h"

#include "OrvBgp/BgpPathAttributes.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <time.h>

namespace Census {

using namespace Routing::Bgp;

namespace {

// CPU time of the calling thread: what it costs whether or not a core was free for it.
double threadCpuNow() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// Records copied out of the reader's buffer, handed to every decoding thread. A batch holds
// records of one file only.
struct Batch {
    size_t file = 0; // index into the files of the run's readFiles()
    std::vector<uint8_t> bytes;
    struct Rec {
        MrtRecord header; // body left empty; (offset, size) into bytes
        size_t at, size;
    };
    std::vector<Rec> recs;
};

// A bounded queue of batches, one per thread.
class BatchQueue {
public:
    void push(std::shared_ptr<const Batch> b) {
        std::unique_lock lock(m_);
        notFull_.wait(lock, [&] { return q_.size() < kDepth; });
        q_.push_back(std::move(b));
        notEmpty_.notify_one();
    }
    // Null at the end.
    std::shared_ptr<const Batch> pop() {
        std::unique_lock lock(m_);
        notEmpty_.wait(lock, [&] { return !q_.empty(); });
        auto b = std::move(q_.front());
        q_.pop_front();
        notFull_.notify_one();
        return b;
    }

private:
    static constexpr size_t kDepth = 3;
    std::mutex m_;
    std::condition_variable notEmpty_, notFull_;
    std::deque<std::shared_ptr<const Batch>> q_;
};

} // namespace

void addDecodeCounts(DecodeCounts& t, const DecodeCounts& c) {
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
    for (size_t i = 0; i < kErrorActionCount; ++i)
        t.malformed.byAction[i] += c.malformed.byAction[i];
    for (size_t i = 0; i < kMalformationCount; ++i)
        t.malformed.byKind[i] += c.malformed.byKind[i];
    for (size_t i = 0; i < 256; ++i)
        t.malformed.byAttributeType[i] += c.malformed.byAttributeType[i];
}

// ---- MrtIngest ----------------------------------------------------------------------------------

MrtIngest::MrtIngest(const Mel::Ptr<ContentsBuilder::NexthopTable>& ipv4,
                     const Mel::Ptr<ContentsBuilder::NexthopTable>& ipv6, bool roundTrip,
                     unsigned threads, unsigned index)
    : builder_(ipv4, ipv6), checkRoundTrip_(roundTrip), threads_(threads ? threads : 1),
      index_(index) {}

MrtIngest::~MrtIngest() = default;

void MrtIngest::dropCaches() {
    Ingest::dropCaches();
    sets_ = InternedSets();
    contents_ = Routing::Bgp::PathAttributesContents(); // the last path's sub-attributes
    cached_ = false;
    roundTrip_.formsClear();
}

const Prefix* MrtIngest::next(Cursor& c, uint8_t& safi) const noexcept {
    while (c.run < runs_.size() && c.at == runs_[c.run].prefixes.size()) {
        ++c.run;
        c.at = 0;
    }
    if (c.run == runs_.size()) return nullptr;
    safi = runs_[c.run].safi;
    return &runs_[c.run].prefixes[c.at++];
}

void MrtIngest::prefetchAhead() noexcept {
    uint8_t safi = 0;
    if (const Prefix* p = next(ahead_, safi)) rib_.prefetch(updatePeer_, *p, safi);
}

void MrtIngest::onUpdate(const DecodedUpdate& u) {
    cached_ = false;
    ahead_ = Cursor{runs_.size(), 0};
    updatePeer_ = peers_.index(u.peer);
    if (threads_ > 1 && updatePeer_ % threads_ != index_) return;
    runs_ = {PrefixRun{u.withdrawn, kSafiUnicast}, PrefixRun{}, PrefixRun{u.nlri, kSafiUnicast},
             PrefixRun{}};
    if (const DecodedAttributes* a = u.attributes) {
        runs_[1] = {a->mpUnreachPrefixes, a->mpUnreach.safi};
        runs_[3] = {a->mpReachPrefixes, a->mpReach.safi};
    }
    ahead_ = Cursor{};
    for (size_t i = 0; i < kPrefetchAhead; ++i)
        prefetchAhead();
}

void MrtIngest::onPath(const DecodedPath& p) {
    const uint16_t peer = peers_.index(p.peer);
    if (threads_ > 1 && peer % threads_ != index_) return;
    const uint64_t t0 = ticksNow();
    // The route's RIB slot is most likely not in cache: start loading it now (or, for an UPDATE's
    // paths, that of a path further on: this one's was started then), and build and intern the
    // path's attributes meanwhile.
    if (p.source == PathSource::RibEntry)
        rib_.prefetch(peer, p.prefix, p.safi);
    else
        prefetchAhead();
    if (p.withdrawal()) {
        withdraw(peer, p.prefix, p.safi);
    } else if (!p.usable()) {
        // Treat-as-withdraw: the route goes, whatever it was.
        ++counts_.unusable;
        rib_.withdraw(peer, p.prefix, p.safi);
    } else {
        // The prefixes of one UPDATE share its set, except that the NLRI field and MP_REACH_NLRI
        // have next hops of their own.
        if (p.source == PathSource::RibEntry || !cached_ || cachedSource_ != p.source) {
            sets_ = InternedSets();
            if (builder_.build(p, contents_)) {
                sets_ = intern(contents_);
                if (checkRoundTrip_) roundTrip_.check(p, *sets_.in);
            } else {
                ++counts_.buildFailures;
            }
            cached_ = p.source != PathSource::RibEntry;
            cachedSource_ = p.source;
        }
        if (sets_.in)
            announce(peer, p.prefix, p.safi, sets_);
        else
            rib_.withdraw(peer, p.prefix, p.safi);
    }
    addTime(t0);
}

// ---- CensusRun ----------------------------------------------------------------------------------

CensusRun::CensusRun(RunOptions opts) : opts_(opts) {
    if (opts_.threads == 0) opts_.threads = 1;
}

CensusRun::~CensusRun() {
    // The RIBs go before the next-hop tables their sets reference.
    workers_.clear();
}

void CensusRun::makeWorkers(bool mrt) {
    if (!workers_.empty()) return;
    if (mrt) {
        nh4_ = Mel::Ptr<ContentsBuilder::NexthopTable>(
            new ContentsBuilder::NexthopTable(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast()));
        nh6_ = Mel::Ptr<ContentsBuilder::NexthopTable>(
            new ContentsBuilder::NexthopTable(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv6Unicast()));
    }
    for (unsigned i = 0; i < opts_.threads; ++i) {
        if (mrt) {
            auto w = std::make_unique<MrtIngest>(nh4_, nh6_, opts_.roundTrip, opts_.threads, i);
            mrtWorkers_.push_back(w.get());
            workers_.push_back(std::move(w));
        } else {
            workers_.push_back(std::make_unique<Ingest>());
        }
    }
}

const FileOutcome& CensusRun::readFile(const std::string& path) {
    readFiles({path});
    return files_.back();
}

std::vector<FileOutcome> CensusRun::readFiles(const std::vector<std::string>& paths) {
    makeWorkers(true);
    tickRate_.start();
    std::vector<FileOutcome> r = readPipelined(paths);
    seconds_ += tickRate_.stop();
    files_.insert(files_.end(), r.begin(), r.end());
    return r;
}

std::vector<FileOutcome> CensusRun::readPipelined(const std::vector<std::string>& paths) {
    const size_t fileCount = paths.size();
    std::vector<FileOutcome> r(fileCount);
    std::vector<uint64_t> expected(fileCount); // decompressed sizes, 0 when unknown
    for (size_t f = 0; f < fileCount; ++f) {
        r[f].name = paths[f];
        expected[f] = Progress::expectedBytes(paths[f]);
    }
    const unsigned n = opts_.threads;
    std::vector<BatchQueue> queues(n);
    // Per thread and file; thread 0's are the file's. A file ends, for the timings, when thread 0
    // has decoded its last record.
    std::vector<std::vector<DecodeCounts>> counts(n, std::vector<DecodeCounts>(fileCount));
    std::vector<std::chrono::steady_clock::time_point> ended(fileCount);
    const auto began = std::chrono::steady_clock::now();
    std::atomic<uint64_t> announced{0}; // thread 0's paths so far, for the bar
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < n; ++i)
        threads.emplace_back([&, i] {
            MrtIngest& w = *mrtWorkers_[i];
            MrtDecoder decoder(w);
            MrtRecord rec;
            size_t file = 0;
            bool sized = false;
            auto endFile = [&](size_t next) {
                for (; file < next; ++file) {
                    counts[i][file] = decoder.counts();
                    decoder.startFile();
                    if (i == 0) ended[file] = std::chrono::steady_clock::now();
                }
                sized = false;
            };
            while (auto b = queues[i].pop()) {
                if (b->file != file) endFile(b->file);
                // Sized from the file at its first batch, the RIB does not grow while it loads: a
                // RIB dump is about 48 bytes a route; an update stream has about 150 bytes of
                // UPDATEs per route it adds, and the routes of each next file are mostly there.
                if (!sized && !b->recs.empty()) {
                    const uint16_t type = b->recs.front().header.type;
                    const bool rib = type == Mrt::kTableDump || type == Mrt::kTableDumpV2;
                    if (expected[file])
                        w.rib().reserve(w.rib().size() + expected[file] / (rib ? 48 : 150) / n);
                    sized = true;
                }
                for (const Batch::Rec& x : b->recs) {
                    rec = x.header;
                    rec.body = std::span<const uint8_t>(b->bytes.data() + x.at, x.size);
                    decoder.decode(rec);
                }
                if (i == 0) announced.store(w.counts().announced, std::memory_order_relaxed);
            }
            endFile(fileCount);
            w.dropCaches();
        });

    // Small enough that a batch is still in cache when a worker takes it up, and that the few
    // batches in flight cost few pages.
    constexpr size_t kBatchBytes = 64 << 10;
    // Batches go back to a pool when every worker is done with them: fresh ones would cost a page
    // fault per 4 KiB each time.
    std::mutex poolMutex;
    std::vector<std::unique_ptr<Batch>> pool;
    auto fresh = [&](size_t file) {
        std::unique_ptr<Batch> b;
        {
            std::lock_guard lock(poolMutex);
            if (!pool.empty()) {
                b = std::move(pool.back());
                pool.pop_back();
            }
        }
        if (!b) {
            b = std::make_unique<Batch>();
            b->bytes.reserve(kBatchBytes + 4096);
            b->recs.reserve(kBatchBytes / 32);
        }
        b->file = file;
        b->bytes.clear();
        b->recs.clear();
        return std::shared_ptr<Batch>(b.release(), [&](Batch* done) {
            std::lock_guard lock(poolMutex);
            pool.emplace_back(done);
        });
    };
    // The first batches are small, so the workers start while the reader is still warming up.
    size_t batchBytes = 16 << 10;
    std::shared_ptr<Batch> batch;
    // The next batch is taken when the next record comes: none is left over at the end.
    auto flush = [&] {
        std::shared_ptr<const Batch> b = std::move(batch);
        for (BatchQueue& q : queues)
            q.push(b);
    };
    for (size_t f = 0; f < fileCount; ++f) {
        const std::string& path = paths[f];
        FileOutcome& out = r[f];
        std::unique_ptr<Progress> bar;
        if (opts_.progress && (expected[f] >= Progress::kLargeBytes || path == "-"))
            bar = std::make_unique<Progress>(opts_.progress, path, expected[f]);
        try {
            MrtReader reader(InputFile::open(path));
            MrtRecord rec;
            while (reader.next(rec)) {
                if (!batch) batch = fresh(f);
                Batch::Rec x{rec, batch->bytes.size(), rec.body.size()};
                x.header.body = {};
                batch->bytes.insert(batch->bytes.end(), rec.body.begin(), rec.body.end());
                batch->recs.push_back(x);
                if (batch->bytes.size() >= batchBytes ||
                    batch->recs.size() == batch->recs.capacity()) {
                    flush();
                    batchBytes = std::min(batchBytes * 2, kBatchBytes);
                }
                if (bar) bar->update(reader.offset(), announced.load(std::memory_order_relaxed));
            }
            out.bytes = reader.offset();
        } catch (const ReadError& e) {
            out.ok = false;
            out.error = e.what();
            out.bytes = e.offset();
        }
        // What was read before an error is still decoded and kept.
        if (batch) flush();
        if (bar) bar->finalIs(out.bytes, announced.load(std::memory_order_relaxed));
    }
    for (BatchQueue& q : queues)
        q.push(nullptr);
    for (std::thread& t : threads)
        t.join();
    auto last = began;
    for (size_t f = 0; f < fileCount; ++f) {
        r[f].counts = counts[0][f];
        r[f].seconds = std::chrono::duration<double>(ended[f] - last).count();
        last = ended[f];
    }
    return r;
}

void CensusRun::generate(const SyntheticConfig& cfg) {
    makeWorkers(false);
    synthetic_ = true;
    syntheticConfig_ = cfg;
    tickRate_.start();
    SyntheticTable table(cfg);
    std::unique_ptr<Progress> bar;
    if (opts_.progress && cfg.paths >= Progress::kLargePaths)
        bar = std::make_unique<Progress>(opts_.progress, "synthetic table", cfg.paths);
    std::vector<uint64_t> done(opts_.threads, 0);
    threadCpuSeconds_.assign(opts_.threads, 0.0);
    auto work = [&](unsigned t) {
        const double cpu0 = threadCpuNow();
        Ingest& w = *workers_[t];
        PathAttributesContents last;
        InternedSets sets;
        bool have = false;
        uint64_t n = 0; // this thread's paths; no shared counter on the hot path
        for (uint32_t peer = t; peer < table.peerCount(); peer += opts_.threads)
            table.generatePeer(
                peer, [&](uint16_t p, const Prefix& prefix, const PathAttributesContents& c) {
                    const uint64_t t1 = ticksNow();
                    if (!have || !(c == last)) {
                        sets = w.intern(c);
                        last = c;
                        have = true;
                    }
                    w.announce(p, prefix, kSafiUnicast, sets);
                    w.counts().internTicks += ticksNow() - t1;
                    // The bar follows thread 0, scaled: the peers are split evenly.
                    ++n;
                    if (t == 0 && bar) bar->update(n * opts_.threads, n * opts_.threads);
                });
        w.dropCaches();
        done[t] = w.counts().announced;
        threadCpuSeconds_[t] = threadCpuNow() - cpu0;
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < opts_.threads; ++t)
        threads.emplace_back(work, t);
    work(0);
    for (std::thread& t : threads)
        t.join();
    uint64_t total = 0;
    for (uint64_t d : done)
        total += d;
    if (bar) bar->finalIs(total, total);
    bar.reset();
    seconds_ += tickRate_.stop();
}

DecodeCounts CensusRun::decodeCounts() const {
    DecodeCounts t;
    for (const FileOutcome& f : files_)
        addDecodeCounts(t, f.counts);
    return t;
}

IngestCounts CensusRun::ingestCounts() const {
    IngestCounts t;
    for (const auto& w : workers_)
        t += w->counts();
    return t;
}

RibCounts CensusRun::ribCounts() const {
    RibCounts t;
    for (const auto& w : workers_) {
        const RibCounts& c = w->rib().counts();
        t.announcements += c.announcements;
        t.added += c.added;
        t.replaced += c.replaced;
        t.unchanged += c.unchanged;
        t.withdrawals += c.withdrawals;
        t.removed += c.removed;
    }
    return t;
}

BuildCounts CensusRun::buildCounts() const {
    BuildCounts t;
    for (const MrtIngest* w : mrtWorkers_)
        t.merge(w->builder().counts());
    return t;
}

RoundTripCounts CensusRun::roundTripCounts() const {
    RoundTripCounts t;
    for (const MrtIngest* w : mrtWorkers_)
        t.merge(w->roundTrip().counts());
    return t;
}

uint64_t CensusRun::routes() const {
    uint64_t n = 0;
    for (const auto& w : workers_)
        n += w->rib().size();
    return n;
}

uint64_t CensusRun::peers() const {
    // Every MRT thread numbers every peer; the synthetic table's peers are split between threads.
    if (!mrtWorkers_.empty()) return mrtWorkers_[0]->peers().size();
    return synthetic_ ? syntheticConfig_.peers : 0;
}

uint64_t CensusRun::ribBytes() const {
    uint64_t n = 0;
    for (const auto& w : workers_)
        n += w->rib().memoryBytes() + w->peers().memoryBytes();
    return n;
}

double CensusRun::internSeconds() const {
    return tickRate_.seconds(ingestCounts().internTicks);
}

void CensusRun::clear() {
    for (const auto& w : workers_)
        w->clear();
}

} // namespace Census
