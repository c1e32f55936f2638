// A 4-byte owning reference to an interned object in the store.
//   MelStash::CompressedStashSmartPtr<ClusterList const, 4> p(list);   // takes a reference
//   p->clusterIds();  Mel::PtrConst<ClusterList> full = p.ptr();
#pragma once

#include "Mel/Ptr.h"
#include "MelStash/StoreManager.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace MelStash {

// Holds (address - store base) >> 3, 0 for null, and one counted reference on the object.
template <class T, int Bytes = 4>
class CompressedStashSmartPtr {
    static_assert(Bytes == 4, "only 4-byte compressed references are supported");

public:
    using element_type = T;

    constexpr CompressedStashSmartPtr() noexcept = default;
    constexpr CompressedStashSmartPtr(std::nullptr_t) noexcept {}
    CompressedStashSmartPtr(T* p) noexcept : ref_(StoreManager::compress(p)) {
        if (p) p->refInc();
    }
    template <class U>
    requires std::is_convertible_v<U*, T*> CompressedStashSmartPtr(const Mel::Ptr<U>& p)
    noexcept : CompressedStashSmartPtr(p.get()) {}
    CompressedStashSmartPtr(const CompressedStashSmartPtr& o) noexcept
        : CompressedStashSmartPtr(o.get()) {}
    CompressedStashSmartPtr(CompressedStashSmartPtr&& o) noexcept
        : ref_(std::exchange(o.ref_, 0)) {}
    ~CompressedStashSmartPtr() {
        if (T* p = get()) p->refDec();
    }

    CompressedStashSmartPtr& operator=(const CompressedStashSmartPtr& o) noexcept {
        CompressedStashSmartPtr(o).swap(*this);
        return *this;
    }
    CompressedStashSmartPtr& operator=(CompressedStashSmartPtr&& o) noexcept {
        CompressedStashSmartPtr(std::move(o)).swap(*this);
        return *this;
    }
    CompressedStashSmartPtr& operator=(std::nullptr_t) noexcept {
        reset();
        return *this;
    }

    void reset() noexcept { CompressedStashSmartPtr().swap(*this); }
    void swap(CompressedStashSmartPtr& o) noexcept { std::swap(ref_, o.ref_); }

    T* get() const noexcept { return static_cast<T*>(StoreManager::expand(ref_)); }
    T* operator->() const noexcept { return get(); }
    T& operator*() const noexcept { return *get(); }
    explicit operator bool() const noexcept { return ref_ != 0; }
    Mel::Ptr<T> ptr() const noexcept { return Mel::Ptr<T>(get()); }
    uint32_t compressed() const noexcept { return ref_; }
    // Gives up the reference without releasing it: the caller keeps it as a bare word.
    uint32_t detach() noexcept { return std::exchange(ref_, 0); }
    // Takes back a reference that detach gave up (0 for null).
    static CompressedStashSmartPtr adopt(uint32_t ref) noexcept {
        CompressedStashSmartPtr p;
        p.ref_ = ref;
        return p;
    }

    friend bool operator==(const CompressedStashSmartPtr& a,
                           const CompressedStashSmartPtr& b) noexcept {
        return a.ref_ == b.ref_;
    }
    friend bool operator==(const CompressedStashSmartPtr& a, std::nullptr_t) noexcept {
        return a.ref_ == 0;
    }
    // Orders by address, like the pointers it stands for.
    friend auto operator<=>(const CompressedStashSmartPtr& a,
                            const CompressedStashSmartPtr& b) noexcept {
        return a.ref_ <=> b.ref_;
    }

private:
    uint32_t ref_ = 0;
};

} // namespace MelStash
