// The framework's reference-counted object base, for shared objects that are not interned.
//   class Allocator : public Mel::Object { ... };
//   Mel::Ptr<Allocator> a(new Allocator);   // deleted when the last Ptr goes
#pragma once

#include <atomic>
#include <cstdint>

namespace Mel {

class Object {
public:
    Object() noexcept = default;
    Object(const Object&) noexcept {}
    Object& operator=(const Object&) noexcept { return *this; }
    virtual ~Object() = default;

    void refInc() const noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
    void refDec() const noexcept {
        if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    uint32_t refCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<uint32_t> refs_{0};
};

} // namespace Mel
