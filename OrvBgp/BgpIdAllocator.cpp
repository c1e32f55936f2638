#include "OrvBgp/BgpIdAllocator.h"

#define ORV_UNIT "OrvBgp/BgpIdAllocator"
#include "Keel/Assert.h"
#include "Keel/DedupHandleBase.h"
#include "Tracelet/Tracelet.h"

#include <ios>
#include <utility>

namespace Routing::Bgp {

namespace {

// Locks only when the process runs more than one thread.
class AllocatorLock {
public:
    explicit AllocatorLock(std::mutex& m) : m_(Keel::multiThreadedOrvbgp() ? &m : nullptr) {
        if (m_) m_->lock();
    }
    ~AllocatorLock() {
        if (m_) m_->unlock();
    }
    AllocatorLock(const AllocatorLock&) = delete;
    AllocatorLock& operator=(const AllocatorLock&) = delete;

private:
    std::mutex* m_;
};

// Unlinks a chain entry by entry, so that a long free list is not released recursively.
void releaseChain(Mel::Ptr<MelFreeId> head, Mel::Ptr<MelFreeId> MelFreeId::*next) noexcept {
    while (head) {
        Mel::Ptr<MelFreeId> rest = std::move((*head).*next);
        head = std::move(rest);
    }
}

} // namespace

BgpIdAllocator::BgpIdAllocator(Mel::String name) : name_(std::move(name)) {}

BgpIdAllocator::~BgpIdAllocator() {
    freeIdDelAll();
}

uint32_t BgpIdAllocator::allocate() {
    uint32_t id;
    bool reuse;
    {
        AllocatorLock lock(mutex_);
        reuse = freeIdCount_ != 0;
        id = reuse ? freeIdDeq() : largestAllocatedId_.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    TRACE_AT(Tracelet::orvBgp(), 8,
             TRACE_SOURCE_POS << ' ' << static_cast<const void*>(this) << ' '
                              << (reuse ? "reuse " : "new ") << name_ << " id 0x" << std::hex
                              << id);
    ORV_ASSERT(BgpIdAllocator::invalidId() != id);
    return id;
}

void BgpIdAllocator::free(uint32_t id) {
    TRACE_AT(Tracelet::orvBgp(), 8,
             TRACE_SOURCE_POS << ' ' << static_cast<const void*>(this) << " free " << name_
                              << " id 0x" << std::hex << id);
    ORV_ASSERT(BgpIdAllocator::invalidId() != id);
    AllocatorLock lock(mutex_);
    freeIdEnq(id);
}

Mel::Ptr<MelFreeId> BgpIdAllocator::freeId(uint32_t index) const noexcept {
    for (MelFreeId* e = freeIdHead_.get(); e; e = e->next_.get())
        if (e->index_ == index) return Mel::Ptr<MelFreeId>(e);
    return nullptr;
}

void BgpIdAllocator::freeIdIs(uint32_t index, uint32_t value) {
    MelFreeId* prev = nullptr;
    for (MelFreeId* e = freeIdHead_.get(); e && e->index_ <= index; e = e->next_.get()) {
        if (e->index_ == index) {
            e->value_ = value;
            return;
        }
        prev = e;
    }
    Mel::Ptr<MelFreeId> entry(new MelFreeId(index, value));
    Mel::Ptr<MelFreeId>& link = prev ? prev->next_ : freeIdHead_;
    entry->next_ = std::move(link);
    if (!entry->next_) freeIdTail_ = entry;
    link = std::move(entry);
    ++freeIdCount_;
    if (index >= freeIdNextIndex_) freeIdNextIndex_ = index + 1;
}

void BgpIdAllocator::freeIdDel(uint32_t index) noexcept {
    MelFreeId* prev = nullptr;
    for (MelFreeId* e = freeIdHead_.get(); e; prev = e, e = e->next_.get()) {
        if (e->index_ != index) continue;
        Mel::Ptr<MelFreeId>& link = prev ? prev->next_ : freeIdHead_;
        Mel::Ptr<MelFreeId> removed = std::move(link);
        link = std::move(removed->next_);
        if (freeIdTail_.get() == e) freeIdTail_ = Mel::Ptr<MelFreeId>(prev);
        --freeIdCount_;
        return;
    }
}

void BgpIdAllocator::freeIdDelAll() noexcept {
    freeIdTail_.reset();
    releaseChain(std::move(freeIdHead_), &MelFreeId::next_);
    freeIdCount_ = 0;
}

void BgpIdAllocator::freeIdEnq(uint32_t value) {
    uint32_t index = freeIdTail_ ? freeIdTail_->index_ + 1 : freeIdNextIndex_;
    Mel::Ptr<MelFreeId> entry(new MelFreeId(index, value));
    if (freeIdTail_)
        freeIdTail_->next_ = entry;
    else
        freeIdHead_ = entry;
    freeIdTail_ = std::move(entry);
    freeIdNextIndex_ = index + 1;
    ++freeIdCount_;
}

uint32_t BgpIdAllocator::freeIdDeq() noexcept {
    if (!freeIdHead_) return 0;
    Mel::Ptr<MelFreeId> head = std::move(freeIdHead_);
    freeIdHead_ = std::move(head->next_);
    if (!freeIdHead_) freeIdTail_.reset();
    --freeIdCount_;
    return head->value_;
}

std::vector<Mel::Ptr<MelFreeId>> BgpIdAllocator::freeIds() const {
    std::vector<Mel::Ptr<MelFreeId>> out;
    out.reserve(freeIdCount_);
    for (MelFreeId* e = freeIdHead_.get(); e; e = e->next_.get())
        out.emplace_back(e);
    return out;
}

void BgpIdAllocator::freeIdsIs(const std::vector<Mel::Ptr<MelFreeId>>& ids) {
    freeIdDelAll();
    for (const Mel::Ptr<MelFreeId>& e : ids)
        if (e) freeIdIs(e->index_, e->value_);
}

Mel::Ptr<BgpIdAllocator> BgpIdAllocatorIs(Mel::String name) {
    return Mel::Ptr<BgpIdAllocator>(new BgpIdAllocator(std::move(name)));
}

Mel::Ptr<BgpInstanceEpochAllocator> BgpInstanceEpochAllocatorIs() {
    return Mel::Ptr<BgpInstanceEpochAllocator>(new BgpInstanceEpochAllocator());
}

} // namespace Routing::Bgp
