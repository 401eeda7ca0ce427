#pragma once
#include "base/lifetime.h"
#include "base/object.h"
#include <atomic>
#include <cstdint>

namespace fn {

/// An intrusive, atomic reference count. The count starts at 0; the first AutoPtr makes it 1. When the count falls back to 0 the
/// object is *dying*: `deleteInstance()` is called once, weak links and `tryRetain()` fail from then on, and an AutoPtr that is
/// made meanwhile (by a destructor, for example) neither revives the object nor deletes it twice.
class FN_EXPORT RefCountedBase {
public:
    RefCountedBase() = default;
    RefCountedBase(const RefCountedBase&) = delete;
    RefCountedBase& operator=(const RefCountedBase&) = delete;

    /// Counts one holder more. `fn::AutoPtr` does it. Thread-safe.
    void retain() const noexcept { _count.fetch_add(1, std::memory_order_relaxed); }

    /// Counts one holder less; the last one destroys the object. Thread-safe.
    void release() const noexcept
    {
        if (_count.fetch_sub(1, std::memory_order_acq_rel) == 1) lastReferenceGone();
    }

    /// Takes a reference unless the object is dying or nobody has held it yet. Thread-safe as long as the memory is valid.
    [[nodiscard]] bool tryRetain() const noexcept;

protected:
    virtual ~RefCountedBase();

    /// Called once, when the last reference has gone. Default: `delete this`. An override may defer the deletion, but has to
    /// call the base's function in the end: nothing else frees the object.
    virtual void deleteInstance();

private:
    void lastReferenceGone() const noexcept;

    mutable std::atomic<std::uint32_t> _count { 0 }; // The top bit marks a dying object.
};

/// An object that can be the target of a WeakPtr. The weak links of an object are made, read and ended on the thread that destroys
/// the object: object and links live on one run loop.
class FN_EXPORT WeakReferencableObject : public RefCountedBase {
protected:
    ~WeakReferencableObject() override;

private:
    template <typename T> friend class WeakPtr;
    Lifetime _lifetime; // Watched by the weak links.
};

/// Base of the shared objects: reference counted, weakly referencable, printable.
class FN_EXPORT RefCountedObject : public WeakReferencableObject, public Object {
protected:
    ~RefCountedObject() override;
};

} // namespace fn
