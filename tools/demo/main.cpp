// orv-demo: a short tour of interning and the store's figures, run by `make demo`.
//   build/release/orv-demo
#include "Keel/DedupTable.h"
#include "Keel/HashMix.h"
#include "Mel/Bytes.h"
#include "MelStash/DedupHandle.h"
#include "MelStash/StoreManager.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <string>

namespace {

// A tiny interned AS sequence: the AS numbers sit in the object's own allocation.
class DemoAsSequence : public MelStash::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(DemoAsSequence)

public:
    static uint32_t hashOf(std::span<const uint32_t> asns) {
        Keel::HashMix m(asns.size());
        for (uint32_t as : asns)
            m.hashMix(as);
        return m.result();
    }
    static DemoAsSequence* make(std::span<const uint32_t> asns) {
        return new (MelStash::ExtraBytes{asns.size_bytes()}) DemoAsSequence(asns);
    }
    bool compare(const Keel::DedupHandleBase* other) const override {
        return static_cast<const DemoAsSequence*>(other)->equals(asns());
    }
    bool equals(std::span<const uint32_t> a) const {
        return a.size() == size_ && std::memcmp(a.data(), asns_, a.size_bytes()) == 0;
    }
    std::span<const uint32_t> asns() const { return {asns_, size_}; }
    std::string toStrep() const {
        std::string s = "Value('Demo::AsSequence', ** {'asns': [";
        for (size_t i = 0; i < size_; ++i)
            s += (i ? ", " : "") + std::to_string(asns_[i]);
        return s + "]})";
    }

private:
    explicit DemoAsSequence(std::span<const uint32_t> a) : size_(uint32_t(a.size())) {
        hashIs(hashOf(a));
        std::memcpy(asns_, a.data(), a.size_bytes());
    }
    uint32_t size_;
    uint32_t asns_[0]; // trailing array in the same block
};

Keel::DedupTable<DemoAsSequence> demoTable("DemoAsSequenceDedupTable");

Mel::PtrConst<DemoAsSequence> intern(std::span<const uint32_t> asns) {
    auto eq = [](const DemoAsSequence& o, std::span<const uint32_t> c) { return o.equals(c); };
    return demoTable.findOrCreate(
        DemoAsSequence::hashOf(asns), asns, [&] { return DemoAsSequence::make(asns); }, eq);
}

void printStore(const char* when) {
    auto& store = MelStash::StoreManager::instance();
    std::printf("store %-14s live objects %lld, live bytes %lld, committed %zu KiB\n", when,
                (long long)store.liveObjects(), (long long)store.liveBytes(),
                store.committedBytes() / 1024);
    for (const auto& t : MelStash::StoreManager::typeStats())
        if (t.created > 0)
            std::printf("  %-24s objects %lld, bytes %lld, created %lld\n", t.name.c_str(),
                        (long long)t.objects, (long long)t.bytes, (long long)t.created);
}

} // namespace

int main() {
    const Mel::Bytes clusterList = Mel::Bytes::fromHex("80 0a 08 0a 00 00 02 0a 00 00 03");
    std::printf("CLUSTER_LIST wire form %s (%zu bytes)\n", clusterList.toHex().c_str(),
                clusterList.size());

    const uint32_t p1[] = {65001, 3356, 15169};
    const uint32_t p2[] = {65001, 3356, 15169};
    const uint32_t p3[] = {65010, 174};
    {
        auto a = intern(p1), b = intern(p2), c = intern(p3);
        std::printf("%s\n%s\n", a->toStrep().c_str(), c->toStrep().c_str());
        std::printf("equal sequences share one object: %s (references %u, the table's included)\n",
                    a == b ? "yes" : "no", a->refCount());
        std::printf("table %s holds %zu entries\n", demoTable.name().c_str(), demoTable.size());
        printStore("while held:");
    }
    std::printf("table holds %zu entries after the last holders let go\n", demoTable.size());
    printStore("after release:");
    return 0;
}
