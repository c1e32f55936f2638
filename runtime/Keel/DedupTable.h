// Intern tables: equal contents share one object. One table per interned type (`...DedupTable`).
//   Keel::DedupTable<ClusterList> table("ClusterListDedupTable");
//   Mel::PtrConst<ClusterList> l = table.findOrCreate(hash, content, [&] { return new
//   ClusterList(content); });
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Mel/Ptr.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <typeinfo>

namespace MelStash {
struct TypeStats;
}

namespace Keel {

// The untyped table. Entries are 4-byte compressed references into the store, kept in
// open-addressing sets (Keel::RefSet) split into shards by the top hash bits, each with its own
// spin lock (one shard and no locking in the single-threaded form). The table holds one counted
// reference per entry; the release that would leave only that hold takes the shard lock, and
// lookups take their reference under the same lock, so no lookup can revive an object on its way
// out.
class DedupTableBase {
public:
    // Sixteen shards spread the locking of a busy table; a table that holds a handful of records
    // for its whole life (next-hop metrics) takes one, which saves the other fifteen's 360 bytes.
    enum class Sharding : uint8_t { sixteenShards, oneShard };

    explicit DedupTableBase(std::string name, bool multiThreaded = multiThreadedOrvbgp(),
                            Sharding sharding = Sharding::sixteenShards);
    DedupTableBase(const DedupTableBase&) = delete;
    DedupTableBase& operator=(const DedupTableBase&) = delete;
    // Objects still interned are detached: they stay valid for their other holders.
    virtual ~DedupTableBase();

    const std::string& name() const noexcept { return name_; }
    bool multiThreaded() const noexcept { return multiThreaded_; }
    size_t size() const noexcept;
    // Bytes of the table's own arrays (not the objects).
    size_t memoryBytes() const noexcept;

    // Calls f for every live table of the process (under the registry lock: f must not make
    // tables).
    static void forEachTable(const std::function<void(const DedupTableBase&)>& f);
    // The table of a registry index, and the table an interned object belongs to (null if none).
    static DedupTableBase* tableAt(uint32_t index) noexcept;
    static DedupTableBase* ownerOf(const DedupHandleBase* obj) noexcept;

protected:
    using EqFn = bool (*)(const void* ctx, const DedupHandleBase* obj);
    using MakeFn = DedupHandleBase* (*)(void* ctx);

    // Each returns the object with one counted reference taken for the caller, or null.
    DedupHandleBase* findImpl(uint32_t hash, EqFn eq, const void* ctx) const;
    // make is called under the shard lock and must not intern into this same table.
    DedupHandleBase* findOrCreateImpl(uint32_t hash, EqFn eq, const void* eqCtx, MakeFn make,
                                      void* makeCtx);
    // obj is held by the caller and never interned; returns obj itself or an equal interned object.
    DedupHandleBase* dedupImpl(const DedupHandleBase* obj);

private:
    friend class DedupHandleBase;
    struct Shard;
    // The release that found two references (the caller's and, if obj is this table's, the
    // table's): false when obj is not in this table.
    bool releaseLast(const DedupHandleBase* obj) noexcept;
    bool holds(const DedupHandleBase* obj) const noexcept;
    Shard& shardFor(uint32_t hash) const noexcept;
    // hash is obj's, computed by the caller already (a set's hash is not cached).
    void insertLocked(Shard& shard, const DedupHandleBase* obj, uint32_t hash) noexcept;

    std::string name_;
    MelStash::TypeStats* stats_ = nullptr; // counts the shards' arrays
    std::atomic<const std::type_info*> lastTypeListed_{nullptr};
    bool multiThreaded_;
    uint32_t index_;
    unsigned shardShift_;
    std::unique_ptr<Shard[]> shards_;
    size_t numShards_;
};

template <class T>
class DedupTable : public DedupTableBase {
public:
    struct ByContent {
        template <class C>
        bool operator()(const T& obj, const C& content) const {
            return obj.compareByContent(content);
        }
    };

    using DedupTableBase::DedupTableBase;

    // The interned object equal to content (eq(obj, content)), or null. hash must be the hash the
    // object reports.
    template <class C, class Eq = ByContent>
    Mel::PtrConst<T> find(uint32_t hash, const C& content, Eq eq = {}) const {
        Ctx<C, Eq> ctx{content, eq};
        return Mel::PtrConst<T>::adopt(
            static_cast<const T*>(findImpl(hash, &eqThunk<C, Eq>, &ctx)));
    }

    // The interned object equal to content, or a new one from make() (a T* from new).
    template <class C, class Make, class Eq = ByContent>
    Mel::PtrConst<T> findOrCreate(uint32_t hash, const C& content, Make&& make, Eq eq = {}) {
        Ctx<C, Eq> ctx{content, eq};
        auto makeThunk = [](void* m) -> DedupHandleBase* {
            T* obj = (*static_cast<std::remove_reference_t<Make>*>(m))();
            return obj;
        };
        return Mel::PtrConst<T>::adopt(static_cast<const T*>(
            findOrCreateImpl(hash, &eqThunk<C, Eq>, &ctx, makeThunk,
                             const_cast<void*>(static_cast<const void*>(&make)))));
    }

    // Interns an object built beforehand: returns it, or the equal object already interned. An
    // object interned here already is returned as it is.
    Mel::PtrConst<T> dedup(const Mel::PtrConst<T>& obj) {
        return Mel::PtrConst<T>::adopt(static_cast<const T*>(dedupImpl(obj.get())));
    }

private:
    template <class C, class Eq>
    struct Ctx {
        const C& c;
        Eq& eq;
    };
    template <class C, class Eq>
    static bool eqThunk(const void* ctx, const DedupHandleBase* obj) {
        auto* x = static_cast<const Ctx<C, Eq>*>(ctx);
        return x->eq(*static_cast<const T*>(obj), x->c);
    }
};

} // namespace Keel
