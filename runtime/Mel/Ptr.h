// Intrusive reference-counted pointers.
//   Mel::Ptr<Foo> p(new Foo);          // Foo provides refInc()/refDec() (Mel::Object or
//   Keel::DedupHandleBase) Mel::PtrConst<Foo> c = p;          // const view, shares the count
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace Mel {

template <class T>
class Ptr {
public:
    using element_type = T;

    constexpr Ptr() noexcept = default;
    constexpr Ptr(std::nullptr_t) noexcept {}
    // Takes a new counted reference on p.
    Ptr(T* p) noexcept : p_(p) {
        if (p_) p_->refInc();
    }
    Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
    Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& o)
    noexcept : Ptr(o.get()) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
    noexcept : p_(o.detach()) {}
    ~Ptr() {
        if (p_) p_->refDec();
    }

    Ptr& operator=(const Ptr& o) noexcept {
        Ptr(o).swap(*this);
        return *this;
    }
    Ptr& operator=(Ptr&& o) noexcept {
        Ptr(std::move(o)).swap(*this);
        return *this;
    }
    Ptr& operator=(std::nullptr_t) noexcept {
        reset();
        return *this;
    }

    // Adopts a reference the caller already counted.
    static Ptr adopt(T* p) noexcept {
        Ptr r;
        r.p_ = p;
        return r;
    }
    // Gives up ownership of the reference without releasing it.
    T* detach() noexcept { return std::exchange(p_, nullptr); }

    void reset() noexcept { Ptr().swap(*this); }
    void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    template <class U>
    bool operator==(const Ptr<U>& o) const noexcept {
        return p_ == o.get();
    }
    bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }
    template <class U>
    auto operator<=>(const Ptr<U>& o) const noexcept {
        return std::compare_three_way()(static_cast<const void*>(p_),
                                        static_cast<const void*>(o.get()));
    }

private:
    T* p_ = nullptr;
};

template <class T>
using PtrConst = Ptr<const T>;

// A non-owning pointer; documents that the holder does not keep the object alive.
template <class T>
using RawPtr = T*;

template <class T, class U>
Ptr<T> ptrStaticCast(const Ptr<U>& p) noexcept {
    return Ptr<T>(static_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrDynamicCast(const Ptr<U>& p) noexcept {
    return Ptr<T>(dynamic_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrConstCast(const Ptr<U>& p) noexcept {
    return Ptr<T>(const_cast<T*>(p.get()));
}

} // namespace Mel

template <class T>
struct std::hash<Mel::Ptr<T>> {
    size_t operator()(const Mel::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.get()); }
};
